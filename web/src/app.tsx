// The page's frame: the tabs, the state of the session above them, the pending changes below.
import { useRef, useState, useSyncExternalStore } from "react";
import { Page, PageSection, PageSectionVariants, Tab, TabTitleText, Tabs } from "@patternfly/react-core";
import type { Session } from "./session";
import { Configure } from "./pages/configure";
import { History } from "./pages/history";
import { Machine } from "./pages/machine";
import { Pending } from "./pages/pending";
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
    const [active, setActive] = useState(cockpit.location.path[0] ?? "configure");
    if (!wasOpen.current) {
        return <Page><PageSection isFilled><NoSession session={session} /></PageSection></Page>;
    }
    return (
        <Page>
            <PageSection variant={PageSectionVariants.light} type="tabs" isWidthLimited isFilled className="ucfgd-pages">
                <SessionState session={session} />
                <Tabs
                    activeKey={active}
                    aria-label={_("Pages")}
                    mountOnEnter
                    onSelect={(_event, key) => {
                        setActive(String(key));
                        cockpit.location.go([String(key)]);
                    }}
                >
                    {tabs.map(({ key, title, Content }) => (
                        <Tab key={key} eventKey={key} title={<TabTitleText>{title}</TabTitleText>}>
                            <PageSection isFilled>
                                <Content session={session} />
                            </PageSection>
                        </Tab>
                    ))}
                </Tabs>
            </PageSection>
            <Pending session={session} />
        </Page>
    );
}
