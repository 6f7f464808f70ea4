// Undoes a commit or loads the state behind it, and says beside the buttons what came of that, until it is committed.
import { useState } from "react";
import { ActionList, ActionListItem, AlertActionCloseButton, Button } from "@patternfly/react-core";
import type { Commit } from "../model";
import type { Order } from "../orders";
import { pendingOf } from "../pending-changes";
import { isOrdered, restore } from "../restore";
import type { Restoring } from "../restore";
import type { Session } from "../session";
import { Alert } from "./alert";
import { QuestionDialog } from "./question-dialog";
import { Refused, useRun } from "./use-run";
import "./restore.css";

const _ = cockpit.gettext;

const texts: Record<Restoring, { ordered: string; same: string }> = {
    undo: {
        ordered: _("What commit $0 changed is taken back"),
        same: _("Nothing has changed: what commit $0 changed is taken back already"),
    },
    load: {
        ordered: _("The files as they stood after commit $0 are loaded"),
        same: _("Nothing has changed: the files are as they stood after commit $0"),
    },
};
// What has never been in effect cannot be brought back, and what has been taken back has nothing to undo.
const canUndo: ReadonlySet<string> = new Set(["done", "trial"]);
const canLoad: ReadonlySet<string> = new Set(["done", "trial", "undone"]);

interface RestoreProps {
    commit: Commit;
    session: Session;
    mayUndo: boolean;
    mayLoad: boolean;
}

export function Restore({ commit: { number, state }, session, mayUndo, mayLoad }: RestoreProps) {
    const [asking, setAsking] = useState(false);
    const [same, setSame] = useState<{ what: Restoring; orders: Order[] }>();
    const attempt = useRun();
    const go = (what: Restoring) => {
        setSame(undefined);
        // Somebody who has changed something else meanwhile is told of at once.
        attempt.run(async () => {
            const done = await restore(session, what, number);
            setSame(done.same ? { what, orders: session.orders } : undefined);
            return done.reply;
        }, () => void pendingOf(session).refresh());
    };
    const nothing = same?.orders === session.orders ? same.what : undefined;
    const ordered = (["undo", "load"] as const).filter(what => !nothing && isOrdered(session, what, number));
    return (
        <>
            <div aria-live="polite" className="ucfgd-restored">
                <Refused {...attempt} />
                {nothing && <Alert
                    isInline
                    variant="info"
                    title={cockpit.format(texts[nothing].same, number)}
                    actionClose={<AlertActionCloseButton aria-label={_("Close")} onClose={() => setSame(undefined)} />}
                />}
                {ordered.map(what => (
                    <Alert key={what} isInline variant="info" title={cockpit.format(texts[what].ordered, number)}>
                        {_("This is a change of yours that has not been written yet: look at the pending changes, and commit or revert them.")}
                    </Alert>
                ))}
            </div>
            <ActionList>
                {mayUndo && canUndo.has(state) && (
                    <ActionListItem>
                        <Button variant="secondary" isAriaDisabled={attempt.busy} onClick={() => go("undo")}>{_("Undo this commit")}</Button>
                    </ActionListItem>
                )}
                {mayLoad && canLoad.has(state) && (
                    <ActionListItem>
                        <Button variant="secondary" isAriaDisabled={attempt.busy} onClick={() => setAsking(true)}>{_("Load the state behind it")}</Button>
                    </ActionListItem>
                )}
            </ActionList>
            {asking && (
                <QuestionDialog
                    title={_("Load an earlier state?")}
                    answer={_("Load")}
                    onNo={() => setAsking(false)}
                    onYes={() => {
                        setAsking(false);
                        go("load");
                    }}
                >
                    {cockpit.format(_("The files become as they stood after commit $0. What has been changed since is taken back in your pending changes. Nothing is written before you commit."), number)}
                </QuestionDialog>
            )}
        </>
    );
}
