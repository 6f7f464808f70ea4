// The commit that is undone unless somebody confirms it: the time that is left, what the page does about one of its
// own, and how that ended.
import { useEffect, useState } from "react";
import { AlertActionCloseButton, AlertActionLink } from "@patternfly/react-core";
import { Alert } from "./alert";
import { admin } from "../model";
import type { RunningTrial } from "../model";
import type { OwnTrial } from "../own-trial";
import type { PendingChanges } from "../pending-changes";
import type { Session } from "../session";
import { Refused, useRun } from "./use-run";

const _ = cockpit.gettext;

interface TrialProps {
    pending: PendingChanges;
    session: Session;
}

export function TrialAlert({ pending, session }: TrialProps) {
    const { own, trial, trialText } = pending;
    const ended = own?.over && <Ended own={own} onClose={() => pending.dismiss()} />;
    if (own && !own.over) {
        return <Running pending={pending} session={session} trial={own.trial} own={own} />;
    }
    // What is over for this page may be told by the daemon for a moment yet.
    return (
        <>
            {ended}
            {trial && trial.commit !== own?.trial.commit && <Running pending={pending} session={session} trial={trial} />}
            <OthersEnded pending={pending} />
            {!trial && trialText !== "" && <Alert isInline variant="warning" title={trialText} />}
        </>
    );
}

function Running({ pending, session, trial, own }: TrialProps & { trial: RunningTrial; own?: OwnTrial }) {
    const attempt = useRun();
    const decide = async (path: string) => {
        const complaints: string[] = [];
        const reply = await admin(session, path, [], (_stream, text) => complaints.push(text));
        return { ...reply, text: complaints.join(" ") || reply.text };
    };
    const act = (path: string) => attempt.run(() => decide(path), () => {
        own?.look();
        void pending.refresh();
    });
    const actions = session.permissions.exec && session.state === "open" && (
        <>
            <AlertActionLink isDisabled={attempt.busy} onClick={() => act("commits.confirm")}>{_("Confirm now")}</AlertActionLink>
            <AlertActionLink isDisabled={attempt.busy} onClick={() => act("commits.cancel")}>{_("Take back")}</AlertActionLink>
        </>
    );
    return (
        <Alert
            isInline
            isLiveRegion
            variant="warning"
            title={cockpit.format(_("Commit $0 of $1 is on trial"), trial.commit, trial.user)}
            actionLinks={actions}
        >
            {_("Unless it is confirmed, it is taken back by itself in")} <Countdown end={trial.end} />
            {own && <p>{doing(own)}</p>}
            <Refused {...attempt} />
        </Alert>
    );
}

function doing({ step, reason }: OwnTrial): string {
    if (step === "waiting") {
        return _("In a moment the page tries a new connection to the machine, and confirms the commit if that succeeds.");
    }
    if (reason === undefined) {
        return _("The page tries a new connection to the machine, and confirms the commit if that succeeds.");
    }
    return cockpit.format(_("The page could not confirm it by a new connection: $0. It tries again until the time is over."),
        reason || _("another commit is on trial now"));
}

function Ended({ own, onClose }: { own: OwnTrial; onClose: () => void }) {
    const kept = own.step === "kept" || own.step === "confirmed";
    const titles: Partial<Record<OwnTrial["step"], string>> = {
        kept: _("Commit $0 is confirmed: the machine answered over a new connection"),
        confirmed: _("Commit $0 is confirmed"),
        cancelled: _("Commit $0 is taken back, as it was ordered"),
        expired: _("Commit $0 is taken back: nobody confirmed it in time"),
    };
    return (
        <Alert
            isInline
            isLiveRegion
            variant={kept ? "success" : own.step === "cancelled" ? "info" : "danger"}
            title={cockpit.format(titles[own.step] ?? "", own.trial.commit)}
            actionClose={<AlertActionCloseButton aria-label={_("Close")} onClose={onClose} />}
        >
            {!kept && own.reason && cockpit.format(_("The page could not confirm it by a new connection: $0."), own.reason)}
        </Alert>
    );
}

function OthersEnded({ pending }: { pending: PendingChanges }) {
    const { ended } = pending.othersTrial;
    if (!ended) {
        return null;
    }
    const title = ended.confirmed
        ? _("Commit $0 of $1 was on trial, and is confirmed")
        : _("Commit $0 of $1 was on trial, and is taken back: what it changed is as it was before");
    return (
        <Alert
            isInline
            isLiveRegion
            variant={ended.confirmed ? "success" : "warning"}
            title={cockpit.format(title, ended.commit, ended.user)}
            actionClose={<AlertActionCloseButton aria-label={_("Close")} onClose={() => pending.dismissOthers()} />}
        />
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
