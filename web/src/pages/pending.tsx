// The bar below every page: what this session would commit, and the ways to commit it or to drop it.
import { useEffect, useState, useSyncExternalStore } from "react";
import {
    Alert, AlertActionLink, Button, Flex, FlexItem, Form, FormGroup, Modal, NumberInput, PageSection, Stack, StackItem, TextInput,
} from "@patternfly/react-core";
import { useSession } from "../app";
import type { PageProps } from "../app";
import { diff } from "../model";
import { pendingOf } from "../pending-changes";
import { escape } from "../protocol";
import type { Reply } from "../protocol";
import type { Session } from "../session";
import { ChangesTable } from "../widgets/changes-table";
import { DiffView } from "../widgets/diff-view";
import { answered } from "../widgets/field";
import { TrialAlert } from "../widgets/trial-alert";
import { reasonId, reasonOf } from "../widgets/reason";
import "./pending.css";

const _ = cockpit.gettext;

/** Commits, on trial where seconds are given. An order for a trial that came to nothing is taken back. */
async function commit(session: Session, comment: string, seconds: number): Promise<Reply> {
    const orders = [comment && `SET commits.comment ${escape(comment)}`, seconds > 0 && `SET commits.trial ${seconds}`];
    for (const order of orders) {
        const reply = order ? await answered(session.request(order)) : undefined;
        if (reply && reply.word !== "OK") {
            return reply;
        }
    }
    const reply = await answered(session.commit());
    if (reply.word === "OK" && seconds > 0) {
        await pendingOf(session).began();
    } else if (seconds > 0) {
        await answered(session.request("SET commits.trial 0"));
    }
    return reply;
}

function Kept({ session }: PageProps) {
    if (session.kept.length === 0 || session.state !== "open") {
        return null;
    }
    const actions = (
        <>
            <AlertActionLink onClick={() => void session.reapply()}>{_("Make them again")}</AlertActionLink>
            <AlertActionLink onClick={() => session.forget()}>{_("Forget them")}</AlertActionLink>
        </>
    );
    const title = cockpit.format(
        cockpit.ngettext("$0 change that was not committed is kept", "$0 changes that were not committed are kept", session.kept.length),
        session.kept.length,
    );
    return <Alert isInline variant="warning" title={title} actionLinks={actions}>{session.ending?.text}</Alert>;
}

export function Pending({ session }: PageProps) {
    useSession(session);
    const pending = pendingOf(session);
    useSyncExternalStore(listener => pending.subscribe(listener), () => pending.version);
    const [open, setOpen] = useState(false);
    const [text, setText] = useState("");
    const [comment, setComment] = useState("");
    const [seconds, setSeconds] = useState(60);
    const [busy, setBusy] = useState(false);
    const [refusal, setRefusal] = useState<Reply>();
    const { changes, behind } = pending;
    useEffect(() => {
        if (open) {
            diff(session).then(setText, (error: unknown) => setText(error instanceof Error ? `# ${error.message}` : ""));
        }
    }, [open, session, changes]);

    const run = async (work: () => Promise<Reply>) => {
        setBusy(true);
        const reply = await work();
        setBusy(false);
        setRefusal(reply.word === "OK" ? undefined : reply);
        if (reply.word === "OK") {
            setOpen(false);
            setComment("");
        }
        await pending.refresh();
    };
    const rebase = async () => {
        const reply = await answered(session.rebase());
        await session.reapply().catch(() => undefined);
        return reply;
    };
    const none = changes.length === 0 || session.state !== "open" || busy;
    const refused = refusal &&
        <Alert isInline isLiveRegion variant="danger" title={<span title={reasonId(refusal)}>{reasonOf(refusal)}</span>} />;
    return (
        <PageSection
            variant="light"
            stickyOnBreakpoint={{ default: "bottom" }}
            aria-label={_("Pending changes")}
            isFilled={false}
            className="ucfgd-pending"
        >
            <Kept session={session} />
            {behind && <Alert
                isInline
                variant="warning"
                title={_("Somebody else has committed since these changes were begun")}
                actionLinks={<AlertActionLink onClick={() => void run(rebase)}>{_("Take that over and make my changes again")}</AlertActionLink>}
            />}
            <TrialAlert pending={pending} session={session} />
            {!open && refused}
            <Flex>
                <FlexItem grow={{ default: "grow" }} role="status">
                    {changes.length === 0 ? _("No changes") : cockpit.format(
                        cockpit.ngettext("$0 parameter changed", "$0 parameters changed", changes.length), changes.length)}
                </FlexItem>
                <Button isAriaDisabled={none} onClick={() => setOpen(true)}>{_("Review and commit")}</Button>
                <Button variant="secondary" isAriaDisabled={none} onClick={() => void run(() => answered(session.revert()))}>{_("Revert")}</Button>
            </Flex>
            <Modal
                variant="large"
                title={_("Pending changes")}
                isOpen={open}
                showClose={false}
                onClose={() => setOpen(false)}
                actions={[
                    <Button key="commit" isAriaDisabled={none} onClick={() => void run(() => commit(session, comment, 0))}>{_("Commit")}</Button>,
                    <Button key="trial" variant="secondary" isAriaDisabled={none} onClick={() => void run(() => commit(session, comment, seconds))}>
                        {_("Commit with a trial")}
                    </Button>,
                    <Button key="close" variant="link" onClick={() => setOpen(false)}>{_("Close")}</Button>,
                ]}
            >
                <Stack hasGutter>
                    {refused && <StackItem>{refused}</StackItem>}
                    <StackItem><ChangesTable changes={changes} /></StackItem>
                    <StackItem><DiffView text={text} /></StackItem>
                    <StackItem>
                        <Form onSubmit={event => event.preventDefault()}>
                            <FormGroup label={_("Comment")} fieldId="commit-comment">
                                <TextInput id="commit-comment" value={comment} maxLength={500} onChange={(_event, now) => setComment(now)} />
                            </FormGroup>
                            <FormGroup label={_("Seconds of a trial, after which it is undone unless confirmed")} fieldId="trial-seconds">
                                <NumberInput
                                    inputProps={{ id: "trial-seconds" }}
                                    inputAriaLabel={_("Seconds of a trial, after which it is undone unless confirmed")}
                                    minusBtnAriaLabel={_("Less")}
                                    plusBtnAriaLabel={_("More")}
                                    widthChars={6}
                                    value={seconds}
                                    min={5}
                                    max={604800}
                                    onMinus={() => setSeconds(seconds - 5)}
                                    onPlus={() => setSeconds(seconds + 5)}
                                    onChange={event => setSeconds(Number(event.currentTarget.value))}
                                />
                            </FormGroup>
                        </Form>
                    </StackItem>
                </Stack>
            </Modal>
        </PageSection>
    );
}
