// What has become of the session, in plain words: what happened, what became of the changes, what to do.
import { AlertActionCloseButton, AlertActionLink } from "@patternfly/react-core";
import { Alert } from "./alert";
import type { Ending } from "../log-in";
import type { Session } from "../session";
import { Help, noConnection } from "./no-session";

const _ = cockpit.gettext;

const happened: Record<Ending["kind"], string> = {
    timeout: _("You have been logged out: nothing was heard of this page for too long"),
    forced: _("Somebody else has taken over, and has ended all other sessions that may change something"),
    logout: _("The session was ended by a log-out"),
    refused: _("The log-in was refused"),
    lost: _("The session is gone: the machine or its daemon was started anew, or the connection was away for too long"),
    conflict: _("Others have changed the same meanwhile"),
    undone: _("The trial was taken back, and with it what you had changed"),
    rest: _("Another change was taken back, which these seem to need"),
};

export function whatHappened(ending?: Ending): string {
    return ending ? happened[ending.kind] : "";
}

/** The daemon's own words beside those of the page, if there are any. */
export function daemonSays(ending?: Ending): string {
    return ending && ending.text !== "" ? cockpit.format(_("The daemon says: $0"), ending.text) : "";
}

function whatIsHeld(count: number): string {
    return count === 0
        ? _("There were no changes waiting for a commit.")
        : cockpit.format(
            cockpit.ngettext(
                "$0 change of yours that was not committed is kept in this page: log in again, and then make it again.",
                "$0 changes of yours that were not committed are kept in this page: log in again, and then make them again.", count),
            count);
}

export function SessionState({ session }: { session: Session }) {
    const { state, ending, problem, held } = session;
    if (state === "lost") {
        return (
            <Alert isInline isLiveRegion variant="warning" title={_("The connection is lost. It is tried again.")}>
                <p>{_("What you have changed stays where it is: the daemon keeps it for a while, and this page remembers it.")}</p>
                {problem && <p>{noConnection(problem)}</p>}
                {problem && <Help problem={problem} alone />}
            </Alert>
        );
    }
    if (state === "ended") {
        const logIn = () => {
            // What comes of it is the session's state.
            void session.start();
        };
        const again = <AlertActionLink onClick={logIn}>{_("Log in again")}</AlertActionLink>;
        return (
            <Alert isInline isLiveRegion variant="danger" title={whatHappened(ending)} actionLinks={again}>
                <p>{whatIsHeld(held)}</p>
                <p>{daemonSays(ending)}</p>
            </Alert>
        );
    }
    return null;
}

/** That a commit for good has been written, and which one it is. */
export function CommitDone({ session }: { session: Session }) {
    const { done, state } = session;
    if (!done || state !== "open") {
        return null;
    }
    const { commit } = done;
    return (
        <Alert
            isInline
            isLiveRegion
            variant="success"
            title={commit ? cockpit.format(_("Commit $0 is done"), commit.number) : _("The commit is done")}
            actionClose={<AlertActionCloseButton aria-label={_("Close")} onClose={() => session.dismiss()} />}
        >
            {commit?.files.join(", ")}
        </Alert>
    );
}

/** What became of a commit whose answer was lost. */
export function CommitFate({ session }: { session: Session }) {
    const { fate, state } = session;
    if (!fate || state !== "open") {
        return null;
    }
    const titles = {
        yes: _("The connection was lost before the commit was answered. It was carried out: commit $0"),
        no: _("The connection was lost before the commit was answered. It was not carried out: your changes wait for another one"),
        unknown: _("The connection was lost before the commit was answered. Whether it was carried out cannot be found out: compare before you make your changes again"),
    };
    return (
        <Alert
            isInline
            isLiveRegion
            variant={fate.carriedOut === "yes" ? "info" : "warning"}
            title={cockpit.format(titles[fate.carriedOut], fate.commit?.number ?? "")}
            actionClose={<AlertActionCloseButton aria-label={_("Close")} onClose={() => session.dismiss()} />}
        />
    );
}
