// One commit in the history: a line, and when it is opened all that is known of it.
import { useCallback, useRef } from "react";
import {
    DataListCell, DataListContent, DataListItem, DataListItemCells, DataListItemRow, DataListToggle, Label,
} from "@patternfly/react-core";
import type { LabelProps } from "@patternfly/react-core";
import { goTo, useShown } from "../address";
import type { Commit } from "../model";
import { quotePath, splitPath } from "../protocol";
import type { Session } from "../session";
import { CommitDetails } from "./commit-details";

const _ = cockpit.gettext;

const states: Record<string, { text: string; color: NonNullable<LabelProps["color"]> }> = {
    done: { text: _("done"), color: "green" },
    trial: { text: _("on trial"), color: "orange" },
    undone: { text: _("undone"), color: "grey" },
    failed: { text: _("failed"), color: "red" },
    open: { text: _("being written"), color: "blue" },
};

interface CommitItemProps {
    commit: Commit;
    session: Session;
}

export function CommitItem({ commit, session }: CommitItemProps) {
    // Those that are open stand in the address.
    const all = splitPath(useShown("history"));
    const number = String(commit.number);
    const isOpen = all.includes(number);
    const byHand = useRef(false);
    const toggle = () => {
        byHand.current = true;
        goTo("history", quotePath(isOpen ? all.filter(one => one !== number) : [...all, number]));
    };
    const state = states[commit.state] ?? { text: commit.state, color: "grey" };
    const title = `commit-${commit.number}`;
    const onShown = useCallback(() => {
        if (!byHand.current) {
            document.getElementById(title)?.scrollIntoView({ block: "start" });
        }
        byHand.current = false;
    }, [title]);
    return (
        <DataListItem isExpanded={isOpen} aria-labelledby={title}>
            <DataListItemRow>
                <DataListToggle
                    id={`${title}-toggle`}
                    aria-controls={`${title}-details`}
                    aria-label={_("Details")}
                    aria-labelledby={`${title}-toggle ${title}`}
                    isExpanded={isOpen}
                    onClick={toggle}
                />
                <DataListItemCells
                    dataListCells={[
                        <DataListCell key="title" width={4} wrapModifier="breakWord">
                            <span id={title}>
                                <strong>{commit.number}</strong>{" "}
                                {commit.comment === "" ? commit.files.join(", ") : commit.comment}
                            </span>
                        </DataListCell>,
                        <DataListCell key="user" width={1}>{commit.user}</DataListCell>,
                        <DataListCell key="time" width={2}><Time text={commit.time} /></DataListCell>,
                        <DataListCell key="state" width={1}><Label color={state.color}>{state.text}</Label></DataListCell>,
                    ]}
                />
            </DataListItemRow>
            <DataListContent id={`${title}-details`} aria-label={cockpit.format(_("Details of commit $0"), commit.number)} isHidden={!isOpen}>
                {isOpen && <CommitDetails commit={commit} session={session} onShown={onShown} />}
            </DataListContent>
        </DataListItem>
    );
}

/** The daemon's "2026-05-04 10:00:00 UTC", by the clock and in the language of whoever looks. */
function Time({ text }: { text: string }) {
    const parts = /^(\S+) (\S+) UTC$/.exec(text);
    const time = parts && new Date(`${parts[1] ?? ""}T${parts[2] ?? ""}Z`);
    if (!time || isNaN(time.getTime())) {
        return <>{text}</>;
    }
    const format = new Intl.DateTimeFormat(cockpit.language.replace("_", "-"), { dateStyle: "medium", timeStyle: "medium" });
    return <time dateTime={time.toISOString()} title={text}>{format.format(time)}</time>;
}
