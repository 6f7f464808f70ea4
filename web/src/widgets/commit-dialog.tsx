// The review of the pending changes, and the ways to commit them.
import { useEffect, useState } from "react";
import type { ReactNode } from "react";
import {
    Button, Form, FormGroup, FormHelperText, HelperText, HelperTextItem, Modal, Spinner, Stack, StackItem, TextInput,
} from "@patternfly/react-core";
import { isEntry, spoken } from "../change-rows";
import type { CommitPlan } from "../commit";
import { diff } from "../model";
import type { Change } from "../model";
import type { PendingChanges } from "../pending-changes";
import type { Session } from "../session";
import { ChangesTable } from "./changes-table";
import { DiffView } from "./diff-view";

const _ = cockpit.gettext;

const shortest = 5;
const longest = 604800;

interface CommitDialogProps {
    session: Session;
    pending: PendingChanges;
    /** Nothing may be ordered now. */
    disabled: boolean;
    /** What there is to say first. */
    told: ReactNode;
    comment: string;
    onComment: (text: string) => void;
    onCommit: (plan: CommitPlan) => void;
    onTakeBack: (change: Change) => void;
    onClose: () => void;
}

/** The seconds of a trial as they were typed; undefined where they are none. */
function secondsOf(text: string): number | undefined {
    const seconds = /^\s*\d+\s*$/.test(text) ? Number(text) : NaN;
    return seconds >= shortest && seconds <= longest ? seconds : undefined;
}

export function CommitDialog(props: CommitDialogProps) {
    const { session, pending, disabled, told, comment, onComment, onCommit, onTakeBack, onClose } = props;
    const { changes, behind } = pending;
    const [text, setText] = useState<string>();
    const [trial, setTrial] = useState("60");
    useEffect(() => {
        let wanted = true;
        const show = (text: string) => wanted && setText(text);
        const written = behind ? Promise.resolve("") : diff(session);
        written.then(show, (error: unknown) => show(error instanceof Error && error.message !== "" ? `# ${error.message}` : ""));
        return () => {
            wanted = false;
        };
    }, [session, changes, behind]);

    // Nothing is committed before it can be seen; the buttons stand still from then on.
    const none = disabled || text === undefined;
    const seconds = secondsOf(trial);
    // What was reverted to is given again one by one: not while others' changes stand between.
    const takeBack = (change: Change) => !behind && session.kept.length === 0 && session.mayTakeBack(change.path, isEntry(change)) && (
        <Button
            variant="link"
            isInline
            isAriaDisabled={none}
            aria-label={`${_("Drop this change")}: ${spoken(change.path)}`}
            onClick={() => onTakeBack(change)}
        >
            {_("Drop this change")}
        </Button>
    );
    return (
        <Modal
            variant="large"
            title={_("Pending changes")}
            isOpen
            showClose={false}
            onClose={onClose}
            actions={[
                <Button key="commit" isAriaDisabled={none || behind} onClick={() => onCommit({ comment, seconds: 0 })}>{_("Commit")}</Button>,
                <Button
                    key="trial"
                    variant="secondary"
                    isAriaDisabled={none || behind || seconds === undefined}
                    aria-describedby="trial-help"
                    onClick={() => seconds !== undefined && onCommit({ comment, seconds })}
                >
                    {_("Commit with a trial")}
                </Button>,
                <Button key="close" variant="link" onClick={onClose}>{_("Close")}</Button>,
            ]}
        >
            <Stack hasGutter>
                {told}
                <StackItem>
                    <Form onSubmit={event => event.preventDefault()}>
                        <FormGroup label={_("Comment")} fieldId="commit-comment">
                            <TextInput id="commit-comment" value={comment} maxLength={500} onChange={(_event, now) => onComment(now)} />
                        </FormGroup>
                        <FormGroup label={_("Seconds of a trial, after which it is undone unless confirmed")} fieldId="trial-seconds">
                            <TextInput
                                id="trial-seconds"
                                className="ucfgd-seconds"
                                inputMode="numeric"
                                autoComplete="off"
                                value={trial}
                                validated={seconds === undefined ? "error" : "default"}
                                aria-describedby="trial-help"
                                onChange={(_event, now) => setTrial(now)}
                            />
                            <FormHelperText>
                                <HelperText id="trial-help" isLiveRegion>
                                    <HelperTextItem variant={seconds === undefined ? "error" : "default"} hasIcon={seconds === undefined}>
                                        {cockpit.format(_("A trial takes $0 to $1 seconds"), shortest, longest)}
                                    </HelperTextItem>
                                </HelperText>
                            </FormHelperText>
                        </FormGroup>
                    </Form>
                </StackItem>
                {changes.length > 0 && <StackItem><ChangesTable changes={changes} action={takeBack} /></StackItem>}
                {text === undefined
                    ? <StackItem><Spinner size="md" aria-label={_("Reading the differences")} /></StackItem>
                    : text !== "" && <StackItem><DiffView text={text} /></StackItem>}
            </Stack>
        </Modal>
    );
}
