// The changes that the page holds although the daemon has them no more: why, which, and what keeps one from being made
// again.
import { AlertActionLink, ExpandableSection } from "@patternfly/react-core";
import { Alert } from "./alert";
import { spoken } from "../change-rows";
import { changeOf } from "../pending-changes";
import type { Session } from "../session";
import { Reason } from "./reason";
import { daemonSays, whatHappened } from "./session-state";
import { SimpleTable } from "./simple-table";
import type { Run } from "./use-run";

const _ = cockpit.gettext;

// So many are shown without being asked for.
const few = 4;

const verbs = { SET: _("set"), ADD: _("added"), DEL: _("deleted"), MOVE: _("moved") };

export function Kept({ session, attempt, onDone }: { session: Session; attempt: Run; onDone: () => void }) {
    const { kept, refusals, state, ending, remaking } = session;
    if (kept.length === 0 || state !== "open" || remaking) {
        return null;
    }
    const again = async () => {
        const outcomes = await session.reapply();
        return outcomes.at(-1)?.reply ?? { word: "OK" as const, text: "", data: [] };
    };
    const actions = (
        <>
            {session.permissions.write &&
                <AlertActionLink isDisabled={attempt.busy} onClick={() => attempt.run(again, onDone)}>{_("Make them again")}</AlertActionLink>}
            <AlertActionLink isDisabled={attempt.busy} onClick={() => session.forget()}>{_("Forget them")}</AlertActionLink>
        </>
    );
    const title = cockpit.format(
        cockpit.ngettext("$0 change that was not committed is kept", "$0 changes that were not committed are kept", kept.length),
        kept.length,
    );
    const rows = kept.map((order, at) => {
        const reply = refusals.get(order);
        const name = spoken(changeOf(order).path);
        return { key: String(at), cells: [name, verbs[order.verb], ...refusals.size > 0 ? [reply && <Reason reply={reply} />] : []] };
    });
    const columns = [_("Parameter"), _("Change"), ...refusals.size > 0 ? [_("Refused because")] : []];
    const table = <SimpleTable label={_("Changes that are kept")} columns={columns} rows={rows} />;
    return (
        <Alert isInline variant="warning" title={title} actionLinks={actions}>
            <p>{whatHappened(ending)}</p>
            <p>{daemonSays(ending)}</p>
            {kept.length <= few || refusals.size > 0
                ? table
                : <ExpandableSection toggleText={_("Which they are")}>{table}</ExpandableSection>}
        </Alert>
    );
}
