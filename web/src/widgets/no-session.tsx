// What there is to see before the daemon has let the page in: that it is awaited, or why it does not come and what helps.
import { Button, EmptyState, EmptyStateActions, EmptyStateBody, EmptyStateFooter, EmptyStateHeader, EmptyStateIcon, Spinner } from "@patternfly/react-core";
import ExclamationCircleIcon from "@patternfly/react-icons/dist/esm/icons/exclamation-circle-icon";
import { socketPath } from "../cockpit-transport";
import type { Session } from "../session";

const _ = cockpit.gettext;

/** By what the console calls the failure to open the socket. */
const helps: Record<string, { reason: string; title: string; help: string; command?: string }> = {
    "not-found": {
        reason: _("it is not there"),
        title: _("The configuration daemon is not running"),
        help: _("Start it as root. The page goes on by itself as soon as the daemon answers."),
        command: "systemctl start ucfgd",
    },
    "access-denied": {
        reason: _("permission denied"),
        title: _("This account may not talk to the configuration daemon"),
        help: _("Turn on administrative access above, or have the account admitted: the daemon's listeners stand in ucfgd.conf(5)."),
    },
};

/** Which socket could not be opened, and why. */
export function noConnection(problem: string): string {
    return cockpit.format(_("Cannot connect to $0: $1"), socketPath(), helps[problem]?.reason ?? problem);
}

/** What helps, where that is known; without a heading above it, with what the matter is. */
export function Help({ problem, alone = false }: { problem: string; alone?: boolean }) {
    const { title = "", help, command } = helps[problem] ?? {};
    return (
        <>
            {alone && title !== "" && <p>{title}.</p>}
            <p>{help}</p>
            {command && <p><code>{command}</code></p>}
        </>
    );
}

export function NoSession({ session }: { session: Session }) {
    const { state, ending, problem } = session;
    if (state === "ended") {
        const logIn = () => {
            // What comes of it is the session's state.
            void session.start();
        };
        return (
            <EmptyState>
                <EmptyStateHeader
                    titleText={_("The configuration daemon does not let this account in")}
                    headingLevel="h1"
                    icon={<EmptyStateIcon icon={ExclamationCircleIcon} />}
                />
                <EmptyStateBody>{ending?.text}</EmptyStateBody>
                <EmptyStateFooter>
                    <EmptyStateActions>
                        <Button onClick={logIn}>{_("Log in again")}</Button>
                    </EmptyStateActions>
                </EmptyStateFooter>
            </EmptyState>
        );
    }
    // Between two tries the reason of the last one stays.
    if (problem === undefined) {
        return (
            <EmptyState>
                <EmptyStateHeader titleText={_("Connecting to the configuration daemon")} headingLevel="h1" icon={<EmptyStateIcon icon={Spinner} />} />
            </EmptyState>
        );
    }
    const known = helps[problem];
    return (
        <EmptyState role="alert">
            <EmptyStateHeader titleText={known?.title ?? _("The configuration daemon cannot be reached")} headingLevel="h1" icon={<EmptyStateIcon icon={ExclamationCircleIcon} />} />
            <EmptyStateBody>
                <p>{noConnection(problem)}</p>
                <Help problem={problem} />
            </EmptyStateBody>
        </EmptyState>
    );
}
