// The changes that the page holds although the daemon has them no more: why, which, and what keeps one from being made
// again.
import { AlertActionLink, ExpandableSection } from "@patternfly/react-core";
import { Alert } from "./alert";
import { changeOf } from "../pending-changes";
import type { Session } from "../session";
import { Reason } from "./reason";
import { daemonSays, whatHappened } from "./session-state";
import { SimpleTable } from "./simple-table";
import type { Run } from "./use-run";

const _ = cockpit.gettext;

const verbs = { SET: _("set"), ADD: _("added"), DEL: _("deleted"), MOVE: _("moved") };

export function Kept({ session, attempt, onDone }: { session: Session; attempt: Run; onDone: () => void }) {
    const { kept, refusals, state, ending } = session;
    if (kept.length === 0 || state !== "open") {
        return null;
    }
    const again = async () => {
        const outcomes = await session.reapply();
        return outcomes.at(-1)?.reply ?? { word: "OK" as const, text: "", data: [] };
    };
    const actions = (
        <>
            <AlertActionLink isDisabled={attempt.busy} onClick={() => attempt.run(again, onDone)}>{_("Make them again")}</AlertActionLink>
            <AlertActionLink isDisabled={attempt.busy} onClick={() => session.forget()}>{_("Forget them")}</AlertActionLink>
        </>
    );
    const title = cockpit.format(
        cockpit.ngettext("$0 change that was not committed is kept", "$0 changes that were not committed are kept", kept.length),
        kept.length,
    );
    const rows = kept.map((order, at) => {
        const reply = refusals.get(order);
        return { key: String(at), cells: [changeOf(order).path, verbs[order.verb], reply && <Reason reply={reply} />] };
    });
    return (
        <Alert isInline variant="warning" title={title} actionLinks={actions}>
            <p>{whatHappened(ending)}</p>
            <p>{daemonSays(ending)}</p>
            <ExpandableSection
                key={refusals.size > 0 ? "refused" : ""}
                toggleText={refusals.size > 0 ? _("Not made again, and why") : _("Which they are")}
                {...refusals.size > 0 ? { isExpanded: true } : {}}
            >
                <SimpleTable label={_("Changes that are kept")} columns={[_("Parameter"), _("Change"), _("Refused because")]} rows={rows} />
            </ExpandableSection>
        </Alert>
    );
}
