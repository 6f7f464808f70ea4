// Others have committed since these changes were begun: who and what, what both have changed, and the choices.
import { AlertActionLink } from "@patternfly/react-core";
import { Alert } from "./alert";
import type { PendingChanges } from "../pending-changes";
import type { Session } from "../session";
import { ChangesTable } from "./changes-table";
import type { Run } from "./use-run";

const _ = cockpit.gettext;

export function Behind({ session, pending, attempt, onDone }: { session: Session; pending: PendingChanges; attempt: Run; onDone: () => void }) {
    const { behind, others, clashes } = pending;
    if (!behind || session.state !== "open") {
        return null;
    }
    const rebase = async () => {
        const reply = await session.rebase();
        if (reply.word !== "OK") {
            return reply;
        }
        await session.reapply();
        return reply;
    };
    const actions = (
        <>
            <AlertActionLink isDisabled={attempt.busy} onClick={() => attempt.run(rebase, onDone)}>
                {_("Take that over and make my changes again")}
            </AlertActionLink>
            <AlertActionLink isDisabled={attempt.busy} onClick={() => attempt.run(() => session.revert(), onDone)}>
                {_("Drop my changes")}
            </AlertActionLink>
        </>
    );
    const own = others.length > 0 && others.every(({ user }) => user === session.user);
    const title = own
        ? cockpit.format(_("Another session of $0 has committed since these changes were begun"), session.user)
        : _("Somebody else has committed since these changes were begun");
    return (
        <Alert isInline variant="warning" title={title} actionLinks={actions}>
            <p>{_("Yours cannot be committed as they are. They can be made again on what the others have written: those that are refused then stay kept, each with its reason.")}</p>
            {others.length > 0 && (
                <ul aria-label={_("Commits of others")}>
                    {others.map(({ number, user, comment, files }) => (
                        <li key={number}>
                            {cockpit.format(_("Commit $0 of $1"), number, user)}{comment !== "" && ` “${comment}”`}{": "}{files.join(", ")}
                        </li>
                    ))}
                </ul>
            )}
            {clashes.length > 0 && (
                <ChangesTable
                    label={_("Parameters that both have changed")}
                    columns={[_("Changed by both"), _("As the others left it"), _("Yours")]}
                    changes={clashes}
                />
            )}
            {others.length > 0 && clashes.length === 0 && <p>{_("None of your parameters is among those that they have changed.")}</p>}
        </Alert>
    );
}
