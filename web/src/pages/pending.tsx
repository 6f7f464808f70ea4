// The bar below every page: what this session would commit, and the ways to commit it or to drop it.
import { useEffect, useState, useSyncExternalStore } from "react";
import { Button, Flex, FlexItem, Form, FormGroup, Modal, NumberInput, PageSection, Stack, StackItem, TextInput } from "@patternfly/react-core";
import { useSession } from "../app";
import type { PageProps } from "../app";
import { diff } from "../model";
import { pendingOf } from "../pending-changes";
import { Behind } from "../widgets/behind";
import { ChangesTable } from "../widgets/changes-table";
import { DiffView } from "../widgets/diff-view";
import { Kept } from "../widgets/kept";
import { CommitFate } from "../widgets/session-state";
import { TrialAlert } from "../widgets/trial-alert";
import { Refused, useRun } from "../widgets/use-run";
import "./pending.css";

const _ = cockpit.gettext;

export function Pending({ session }: PageProps) {
    useSession(session);
    const pending = pendingOf(session);
    useSyncExternalStore(listener => pending.subscribe(listener), () => pending.version);
    const [open, setOpen] = useState(false);
    const [text, setText] = useState("");
    const [comment, setComment] = useState("");
    const [seconds, setSeconds] = useState(60);
    const attempt = useRun();
    const { changes, behind } = pending;
    useEffect(() => {
        if (open) {
            const written = behind ? Promise.resolve("") : diff(session);
            written.then(setText, (error: unknown) => setText(error instanceof Error && error.message !== "" ? `# ${error.message}` : ""));
        }
    }, [open, session, changes, behind]);

    // There is nothing more to review where the answer was lost alone.
    const carriedOut = session.fate?.carriedOut === "yes";
    useEffect(() => {
        if (carriedOut) {
            setOpen(false);
            setComment("");
            attempt.dismiss();
        }
        // eslint-disable-next-line react-hooks/exhaustive-deps -- once for each fate
    }, [carriedOut]);

    const look = () => void pending.refresh();
    const commit = (trial: number) => attempt.run(() => session.commit({ comment, seconds: trial }), reply => {
        if (reply.word === "OK") {
            setOpen(false);
            setComment("");
        }
        look();
    });
    const idle = session.state === "open" && !attempt.busy;
    const none = changes.length === 0 || !idle;
    const { write } = session.permissions;
    const told = (
        <>
            {!session.fate && <Refused {...attempt} />}
            <CommitFate session={session} />
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
            {!open && told}
            <TrialAlert pending={pending} session={session} />
            <Flex>
                <FlexItem grow={{ default: "grow" }} role="status">
                    {!write ? _("Read only: this account may look at the configuration, but not change it") : changes.length === 0 ? _("No changes") : cockpit.format(
                        cockpit.ngettext("$0 parameter changed", "$0 parameters changed", changes.length), changes.length)}
                </FlexItem>
                {write && <Button isAriaDisabled={none} onClick={() => setOpen(true)}>{_("Review and commit")}</Button>}
                {write && <Button variant="secondary" isAriaDisabled={none} onClick={() => attempt.run(() => session.revert(), look)}>{_("Revert")}</Button>}
            </Flex>
            <Modal
                variant="large"
                title={_("Pending changes")}
                isOpen={open}
                showClose={false}
                onClose={() => setOpen(false)}
                actions={[
                    <Button key="commit" isAriaDisabled={none || behind} onClick={() => commit(0)}>{_("Commit")}</Button>,
                    <Button key="trial" variant="secondary" isAriaDisabled={none || behind} onClick={() => commit(seconds)}>
                        {_("Commit with a trial")}
                    </Button>,
                    <Button key="close" variant="link" onClick={() => setOpen(false)}>{_("Close")}</Button>,
                ]}
            >
                <Stack hasGutter>
                    {open && told}
                    {changes.length > 0 && <StackItem><ChangesTable changes={changes} /></StackItem>}
                    {text !== "" && <StackItem><DiffView text={text} /></StackItem>}
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
