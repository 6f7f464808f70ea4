// The page's frame: the tabs, the state of the session above them, the pending changes below.
import { useRef, useSyncExternalStore } from "react";
import { Page, PageSection, PageSectionVariants, Tab, TabTitleText, Tabs } from "@patternfly/react-core";
import { goTo, useTab } from "./address";
import type { Session } from "./session";
import { Configure } from "./pages/configure";
import { History } from "./pages/history";
import { Machine } from "./pages/machine";
import { Pending } from "./pages/pending";
import { Held } from "./widgets/held";
import { NoSession } from "./widgets/no-session";
import { SessionState } from "./widgets/session-state";
import "./app.css";

const _ = cockpit.gettext;

export interface PageProps {
    session: Session;
}

const tabs = [
    { key: "configure", title: _("Configure"), Content: Configure },
    { key: "history", title: _("History"), Content: History },
    { key: "machine", title: _("Machine"), Content: Machine },
];

/** Draws the component anew whenever the session has changed. */
export function useSession(session: Session): void {
    useSyncExternalStore(listener => session.subscribe(listener), () => session.version);
}

export function App({ session }: PageProps) {
    useSession(session);
    const wasOpen = useRef(false);
    wasOpen.current ||= session.state === "open";
    const named = useTab();
    const active = tabs.some(({ key }) => key === named) ? named : "configure";
    if (!wasOpen.current) {
        return <Page><PageSection isFilled><NoSession session={session} /></PageSection></Page>;
    }
    return (
        <Page>
            <PageSection variant={PageSectionVariants.light} type="tabs" isWidthLimited isFilled className="ucfgd-pages">
                <div className="ucfgd-state"><SessionState session={session} /></div>
                <Tabs
                    activeKey={active}
                    aria-label={_("Pages")}
                    mountOnEnter
                    onSelect={(_event, key) => goTo(String(key))}
                >
                    {tabs.map(({ key, title, Content }) => (
                        <Tab key={key} eventKey={key} title={<TabTitleText>{title}</TabTitleText>}>
                            <PageSection isFilled>
                                <Held session={session}><Content session={session} /></Held>
                            </PageSection>
                        </Tab>
                    ))}
                </Tabs>
            </PageSection>
            <Pending session={session} />
        </Page>
    );
}
