// An action of the machine: its arguments, a question before it runs, its output as it arrives, and how it ended.
import { useRef, useState } from "react";
import {
    Button, Card, CardBody, CardTitle, DescriptionList, DescriptionListDescription, DescriptionListGroup, DescriptionListTerm, Label,
} from "@patternfly/react-core";
import { Tail, endAction } from "../management";
import type { Line, MachineNode } from "../management";
import { admin } from "../model";
import { reasonOf } from "./reason";
import type { Session } from "../session";
import { ActionOutput } from "./action-output";
import { ArgumentForm } from "./argument-form";
import { QuestionDialog } from "./question-dialog";

const _ = cockpit.gettext;
const mostLines = 1000;
// Output that comes faster is shown so often.
const showEvery = 100;

interface Run {
    state: "running" | "done" | "failed" | "stopped";
    text: string;
    lines: Line[];
}

/** The run of an action, one at a time. */
function useActionRun(session: Session, node: MachineNode) {
    const [run, setRun] = useState<Run>();
    const running = useRef<{ tag: string; stopped: boolean }>();

    const start = async (words: string[]) => {
        const tail = new Tail(mostLines);
        let timer: ReturnType<typeof setTimeout> | undefined;
        const show = (state: Run["state"], text: string) => setRun({ state, text, lines: tail.last() });
        show("running", "");
        const own = { tag: "", stopped: false };
        try {
            // A connection of its own: the session goes on to answer meanwhile.
            const client = await session.side();
            try {
                const asked = admin(client, node.path, words, (_stream, text) => {
                    tail.add(text);
                    timer ??= setTimeout(() => {
                        timer = undefined;
                        setRun(now => now && { ...now, lines: tail.last() });
                    }, showEvery);
                });
                own.tag = client.tag;
                running.current = own;
                const reply = await asked;
                clearTimeout(timer);
                if (own.stopped) {
                    show("stopped", _("The daemon has ended it, with what it had started."));
                } else if (reply.word === "OK") {
                    show("done", reply.text);
                } else {
                    show("failed", reply.text || reply.error || tail.last().length === 0 ? reasonOf(reply) : "");
                }
            } finally {
                client.close();
            }
        } catch (error) {
            clearTimeout(timer);
            const known = own.tag !== "" && !own.stopped ? " " + _("On the machine it goes on to its end.") : "";
            show("failed", (error instanceof Error ? error.message : String(error)) + known);
        } finally {
            running.current = undefined;
        }
    };

    const stop = async () => {
        const own = running.current;
        if (own) {
            const told = (text: string) => setRun(now => now?.state === "running" ? { ...now, text } : now);
            // The answer to the action itself may come first.
            own.stopped = true;
            try {
                own.stopped = await endAction(session, own.tag);
            } catch {
                own.stopped = false;
            }
            if (!own.stopped) {
                told(_("The daemon cannot end it: it goes on to its end."));
            }
        }
    };
    return { run, start, stop };
}

export function ActionCard({ node, session }: { node: MachineNode; session: Session }) {
    const [asking, setAsking] = useState<{ words: string[]; given: string[] }>();
    const { run, start, stop } = useActionRun(session, node);
    const { path, name, help, args } = node;
    const id = `run-${path}`;
    return (
        <Card isFlat isCompact data-node={path}>
            <CardTitle component="h3">{name}</CardTitle>
            <CardBody>
                <p>{help}</p>
                <ArgumentForm
                    id={id}
                    args={args}
                    label={cockpit.format(_("Run $0"), name)}
                    isDisabled={run?.state === "running"}
                    onSend={(words, given) => node.harmless ? void start(words) : setAsking({ words, given })}
                />
                {run && <Status run={run} name={name} onStop={() => void stop()} />}
                {run && (run.state === "running" || run.lines.length > 0) &&
                    <ActionOutput id={`${id}-output`} name={name} lines={run.lines} />}
            </CardBody>
            {asking && (
                <QuestionDialog
                    title={cockpit.format(_("Run $0?"), path)}
                    answer={_("Run")}
                    danger
                    onYes={() => {
                        setAsking(undefined);
                        void start(asking.words);
                    }}
                    onNo={() => setAsking(undefined)}
                >
                    {asking.words.length > 0 && (
                        <DescriptionList isHorizontal isCompact>
                            {args.map((arg, index) => asking.given[index] && (
                                <DescriptionListGroup key={arg.name}>
                                    <DescriptionListTerm>{arg.name}</DescriptionListTerm>
                                    <DescriptionListDescription className="ucfgd-said">{asking.given[index]}</DescriptionListDescription>
                                </DescriptionListGroup>
                            ))}
                        </DescriptionList>
                    )}
                    <p>{_("It takes effect on the machine at once, and is not among the pending changes.")}</p>
                </QuestionDialog>
            )}
        </Card>
    );
}

const states = {
    running: { text: _("running"), color: "blue" },
    done: { text: _("done"), color: "green" },
    failed: { text: _("failed"), color: "red" },
    stopped: { text: _("stopped"), color: "orange" },
} as const;

function Status({ run, name, onStop }: { run: Run; name: string; onStop: () => void }) {
    const { text, color } = states[run.state];
    return (
        <div className="ucfgd-status">
            <span role="status"><Label color={color}>{text}</Label> {run.text}</span>
            {run.state === "running" &&
                <Button variant="danger" size="sm" onClick={onStop}>{cockpit.format(_("Stop $0"), name)}</Button>}
        </div>
    );
}
