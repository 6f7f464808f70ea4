// The commit that is undone unless somebody confirms it, with the time that is left.
import { useEffect, useState } from "react";
import { Alert, AlertActionLink, StackItem } from "@patternfly/react-core";
import type { HistoryFeed } from "../history";
import { admin } from "../model";
import type { Session } from "../session";

const _ = cockpit.gettext;

export function TrialAlert({ feed, session }: { feed: HistoryFeed; session: Session }) {
    const [refusal, setRefusal] = useState("");
    const { trial, trialText } = feed;
    if (!trial) {
        return trialText === "" ? null : <StackItem><Alert isInline variant="warning" title={trialText} /></StackItem>;
    }
    const act = async (path: string) => {
        const complaints: string[] = [];
        const reply = await admin(session, path, [], (_stream, text) => complaints.push(text));
        setRefusal(reply.word === "OK" ? "" : complaints.join(" ") || reply.text);
        await feed.refresh();
    };
    const actions = session.permissions.exec && (
        <>
            <AlertActionLink onClick={() => void act("commits.confirm")}>{_("Keep it")}</AlertActionLink>
            <AlertActionLink onClick={() => void act("commits.cancel")}>{_("Undo it now")}</AlertActionLink>
        </>
    );
    return (
        <StackItem>
            <Alert
                isInline
                isLiveRegion
                variant="warning"
                title={cockpit.format(_("Commit $0 of $1 is on trial"), trial.commit, trial.user)}
                actionLinks={actions}
            >
                {_("Unless somebody keeps it, it is undone by itself in")} <Countdown end={trial.end} />
                {refusal !== "" && <p role="alert">{refusal}</p>}
            </Alert>
        </StackItem>
    );
}

function Countdown({ end }: { end: number }) {
    const [now, setNow] = useState(Date.now());
    useEffect(() => {
        const timer = setInterval(() => setNow(Date.now()), 500);
        return () => clearInterval(timer);
    }, []);
    const left = Math.max(0, Math.round((end - now) / 1000));
    // Nobody wants each second read out.
    return <strong role="timer" aria-live="off">{Math.floor(left / 60)}:{String(left % 60).padStart(2, "0")}</strong>;
}
