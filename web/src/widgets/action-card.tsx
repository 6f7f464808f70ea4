// An action of the machine: its arguments, a question before it runs, its output as it arrives, and how it ended.
import { useState } from "react";
import {
    Button, Card, CardBody, CardTitle, CodeBlock, CodeBlockCode, Form, FormGroup, Label, TextInput,
} from "@patternfly/react-core";
import { admin } from "../model";
import { escape } from "../protocol";
import type { Action } from "../management";
import type { Session } from "../session";
import { QuestionDialog } from "./question-dialog";

const _ = cockpit.gettext;
const mostLines = 2000;

interface Run {
    lines: string[];
    state: "running" | "done" | "failed";
    text: string;
}

export function ActionCard({ action, session }: { action: Action; session: Session }) {
    const [words, setWords] = useState("");
    const [asking, setAsking] = useState(false);
    const [run, setRun] = useState<Run>();
    const { path, name, help, args } = action;

    const start = async () => {
        setAsking(false);
        let lines: string[] = [];
        setRun({ lines, state: "running", text: "" });
        try {
            // A connection of its own: the session goes on to answer meanwhile.
            const client = await session.side();
            try {
                const given = words.split(" ").filter(word => word !== "").map(escape);
                const reply = await admin(client, path, given, (_stream, text) => {
                    lines = [...lines, text].slice(-mostLines);
                    setRun({ lines, state: "running", text: "" });
                });
                setRun({ lines, state: reply.word === "OK" ? "done" : "failed", text: reply.text });
            } finally {
                client.close();
            }
        } catch (error) {
            setRun({ lines, state: "failed", text: error instanceof Error ? error.message : String(error) });
        }
    };

    return (
        <Card isFlat isCompact>
            <CardTitle component="h3">{name}</CardTitle>
            <CardBody>
                <p>{help}</p>
                <Form
                    onSubmit={event => {
                        event.preventDefault();
                        setAsking(true);
                    }}
                >
                    {args !== "" && (
                        <FormGroup label={cockpit.format(_("Arguments: $0"), args)} fieldId={`${path}-args`}>
                            <TextInput id={`${path}-args`} value={words} onChange={(_event, value) => setWords(value)} />
                        </FormGroup>
                    )}
                    <div>
                        <Button type="submit" variant="secondary" isDisabled={!session.permissions.exec || run?.state === "running"}>
                            {cockpit.format(_("Run $0"), name)}
                        </Button>
                    </div>
                </Form>
                {run && <Output run={run} name={name} />}
            </CardBody>
            {asking && (
                <QuestionDialog
                    title={cockpit.format(_("Run $0?"), `${path} ${words}`.trim())}
                    answer={_("Run")}
                    danger
                    onYes={() => void start()}
                    onNo={() => setAsking(false)}
                >
                    {_("It takes effect on the machine at once, and is not among the pending changes.")}
                </QuestionDialog>
            )}
        </Card>
    );
}

const states = {
    running: { text: _("running"), color: "blue" },
    done: { text: _("done"), color: "green" },
    failed: { text: _("failed"), color: "red" },
} as const;

function Output({ run, name }: { run: Run; name: string }) {
    const { text, color } = states[run.state];
    return (
        <>
            <p role="status"><Label color={color}>{text}</Label> {run.text}</p>
            {run.lines.length > 0 && (
                <CodeBlock>
                    <CodeBlockCode role="log" tabIndex={0} aria-label={cockpit.format(_("Output of $0"), name)}>
                        {run.lines.join("\n")}
                    </CodeBlockCode>
                </CodeBlock>
            )}
        </>
    );
}
