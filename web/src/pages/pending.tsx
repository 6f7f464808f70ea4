// The bar below every page: what this session would commit, and the ways to commit it or to drop it.
import { useEffect, useRef, useState, useSyncExternalStore } from "react";
import { Button, Flex, FlexItem, PageSection } from "@patternfly/react-core";
import { useSession } from "../app";
import type { PageProps } from "../app";
import { isEntry, rowsOf } from "../change-rows";
import type { CommitPlan } from "../commit";
import { useDrafts } from "../drafts";
import { sourceOf } from "../orders";
import type { Order } from "../orders";
import { pendingOf } from "../pending-changes";
import { Behind } from "../widgets/behind";
import { CommitDialog } from "../widgets/commit-dialog";
import { Kept } from "../widgets/kept";
import { NotTaken, RefusedValues } from "../widgets/not-taken";
import { QuestionDialog } from "../widgets/question-dialog";
import { useRoomForBar } from "../widgets/room-for-bar";
import { CommitDone, CommitFate } from "../widgets/session-state";
import { TrialAlert } from "../widgets/trial-alert";
import { Refused, useRun } from "../widgets/use-run";
import "./pending.css";

const _ = cockpit.gettext;

/** The comment for an undo or a load, which speaks for itself. */
function proposed(orders: Order[]): string {
    const source = sourceOf(orders);
    return !source ? "" : cockpit.format(source.verb === "undo" ? _("Undo of commit $0") : _("State behind commit $0"), source.commit);
}

export function Pending({ session }: PageProps) {
    useSession(session);
    const pending = pendingOf(session);
    useSyncExternalStore(listener => pending.subscribe(listener), () => pending.version);
    const drafts = useDrafts(session);
    const [open, setOpen] = useState(false);
    const [asking, setAsking] = useState(false);
    const [comment, setComment] = useState("");
    const attempt = useRun();
    const content = useRef<HTMLDivElement>(null);
    useRoomForBar(content);
    const { changes, behind } = pending;
    const count = rowsOf(changes).length;

    const done = () => {
        setOpen(false);
        setComment("");
    };
    // There is nothing more to review where the answer was lost alone.
    const carriedOut = session.fate?.carriedOut === "yes";
    useEffect(() => {
        if (carriedOut) {
            done();
        }
    }, [carriedOut]);
    // A refusal was about what stood there then.
    const about = [session.state, behind, open, count === 0, session.fate === undefined].join(" ");
    // eslint-disable-next-line react-hooks/exhaustive-deps -- once for each of them
    useEffect(() => attempt.dismiss(), [about]);

    const look = () => void pending.refresh();
    const review = () => {
        setComment(comment || proposed(session.orders));
        setOpen(true);
    };
    const commit = (plan: CommitPlan) => attempt.run(() => session.commit(plan), reply => {
        if (reply.word === "OK") {
            done();
            // How an earlier trial ended is no news any more.
            if (pending.own?.over) {
                pending.dismiss();
            }
        }
        look();
    });
    const revert = () => {
        setAsking(false);
        drafts.drop();
        setComment("");
        attempt.run(() => session.revert(), look);
    };
    const idle = session.state === "open" && !attempt.busy;
    // What is brought back may differ in nothing but a comment of a file.
    const filesOnly = changes.length === 0 && sourceOf(session.orders) !== undefined;
    const none = changes.length === 0 && !filesOnly || !idle;
    const { write } = session.permissions;
    const told = (
        <>
            {!session.fate && !behind && <Refused {...attempt} />}
            <CommitFate session={session} />
            <CommitDone session={session} />
            <Kept session={session} attempt={attempt} onDone={look} />
            <Behind session={session} pending={pending} attempt={attempt} onDone={look} />
        </>
    );
    return (
        <PageSection
            variant="light"
            stickyOnBreakpoint={{ default: "bottom" }}
            aria-label={_("Pending changes")}
            isFilled={false}
            className="ucfgd-pending"
        >
            <div ref={content}>
                {!open && told}
                <TrialAlert pending={pending} session={session} />
                <Flex>
                    <FlexItem grow={{ default: "grow" }}>
                        <div role="status">
                            {!write ? _("Read only: this account may look at the configuration, but not change it")
                                : filesOnly ? _("Only files changed, no parameter")
                                : count === 0 ? _("No changes")
                                : cockpit.format(cockpit.ngettext("$0 parameter changed", "$0 parameters changed", count), count)}
                        </div>
                        <RefusedValues drafts={drafts} />
                    </FlexItem>
                    {write && <Button isAriaDisabled={none} onClick={review}>{_("Review and commit")}</Button>}
                    {write && <Button variant="secondary" isAriaDisabled={none} onClick={() => setAsking(true)}>{_("Revert")}</Button>}
                </Flex>
                {open && <CommitDialog
                    {...{ session, pending, comment }}
                    disabled={none}
                    told={<>{told}<NotTaken drafts={drafts} onGo={() => setOpen(false)} /></>}
                    onComment={setComment}
                    onCommit={commit}
                    onTakeBack={change => attempt.run(() => session.takeBack(change.path, isEntry(change)), look)}
                    onClose={() => setOpen(false)}
                />}
                {asking && <QuestionDialog
                    danger
                    title={_("Drop all changes?")}
                    answer={_("Revert")}
                    onYes={revert}
                    onNo={() => setAsking(false)}
                >
                    {cockpit.format(cockpit.ngettext(
                        "$0 changed parameter becomes again what it was. A single one can be dropped in the review.",
                        "$0 changed parameters become again what they were. A single one can be dropped in the review.", count), count)}
                </QuestionDialog>}
            </div>
        </PageSection>
    );
}
