// The machine as it is now: what the management tree tells, and the actions that it offers. A section is read when
// it is opened, and what is open is read again on request.
import { useEffect, useMemo, useState } from "react";
import {
    Button, DescriptionList, ExpandableSection, HelperText, HelperTextItem, Spinner, Stack, StackItem, Title,
} from "@patternfly/react-core";
import type { PageProps } from "../app";
import { useSession } from "../app";
import { narrowed, readNode, readPaths } from "../management";
import type { MachineNode } from "../management";
import { inTurns } from "../parameters";
import { ConnectionLost } from "../protocol";
import type { Requester } from "../protocol";
import type { Session } from "../session";
import { Alert } from "../widgets/alert";
import { ActionCard } from "../widgets/action-card";
import { Fact } from "../widgets/fact";
import "./machine.css";

const _ = cockpit.gettext;

// A longer section is shown in parts.
const part = 100;

interface SectionProps {
    session: Session;
    /** What is read goes through this. */
    at: Requester;
    path: string;
    /** Grows when everything that is shown is to be read again. */
    round: number;
}

interface Read {
    paths?: string[];
    nodes: ReadonlyMap<string, MachineNode>;
    problem?: string;
    done: boolean;
}

/** What lies below a section, as it comes; what was read before stays until there is something newer. */
function useBelow({ at, path, round }: SectionProps, wanted: boolean, most: number): Read {
    const [read, setRead] = useState<Read>({ nodes: new Map(), done: false });
    useEffect(() => {
        if (!wanted) {
            return undefined;
        }
        let current = true;
        const go = async () => {
            const paths = await readPaths(at, path);
            setRead(now => current ? { ...now, paths, problem: undefined } : now);
            await inTurns(paths.slice(0, most), async one => {
                const node = current ? await readNode(at, one) : undefined;
                setRead(now => {
                    if (!current) {
                        return now;
                    }
                    const nodes = new Map(now.nodes);
                    if (node) {
                        nodes.set(one, node);
                    } else {
                        nodes.delete(one);
                    }
                    return { ...now, nodes };
                });
            });
            setRead(now => current ? { ...now, done: true } : now);
        };
        go().catch((error: unknown) => {
            // A loss of the connection is told elsewhere, and everything is read again behind it.
            if (current && !(error instanceof ConnectionLost)) {
                setRead(now => ({ ...now, problem: error instanceof Error ? error.message : String(error), done: true }));
            }
        });
        return () => {
            current = false;
        };
    }, [at, path, round, wanted, most]);
    return read;
}

function Below(props: SectionProps & { isShown: boolean }) {
    const { session, isShown, path } = props;
    const [most, setMost] = useState(part);
    const { paths = [], nodes, problem, done } = useBelow(props, isShown, most);
    const shown = paths.slice(0, most).flatMap(one => nodes.get(one) ?? []);
    const facts = shown.filter(node => node.tells);
    const actions = shown.filter(node => node.acts);
    return (
        <>
            {problem !== undefined && <Alert isInline isLiveRegion variant="danger" title={problem} />}
            {facts.length > 0 && (
                <DescriptionList isHorizontal isCompact>
                    {facts.map(node => <Fact key={node.path} node={node} session={session} />)}
                </DescriptionList>
            )}
            {actions.length > 0 && (
                <Stack hasGutter className="ucfgd-actions">
                    {actions.map(node => <StackItem key={node.path}><ActionCard node={node} session={session} /></StackItem>)}
                </Stack>
            )}
            {shown.filter(node => node.isSection).map(node =>
                <Section key={node.path} {...props} path={node.path} name={node.name} help={node.help} isTop={path === ""} />)}
            {!done && <Spinner size="md" aria-label={_("The section is being read")} />}
            {done && shown.length === 0 && problem === undefined && <p>{_("There is nothing here that may be shown.")}</p>}
            {paths.length > most && (
                <Button variant="link" onClick={() => setMost(most + part)}>
                    {cockpit.format(_("Show more: $0 of $1 are shown"), most, paths.length)}
                </Button>
            )}
        </>
    );
}

function Section({ name, help, isTop, ...props }: SectionProps & { name: string; help: string; isTop: boolean }) {
    // The top of the tree is open, what lies below it is not.
    const [isOpen, setOpen] = useState(isTop);
    return (
        <ExpandableSection
            toggleText={name}
            isExpanded={isOpen}
            onToggle={(_event, value) => setOpen(value)}
            isIndented
            data-section={props.path}
        >
            {help !== "" && <HelperText><HelperTextItem>{help}</HelperTextItem></HelperText>}
            <Below {...props} isShown={isOpen} />
        </ExpandableSection>
    );
}

export function Machine({ session }: PageProps) {
    useSession(session);
    const [round, setRound] = useState(0);
    const at = useMemo(() => narrowed(session), [session]);
    const open = session.state === "open";
    useEffect(() => {
        if (open) {
            setRound(now => now + 1);
        }
    }, [open]);
    if (open && !session.permissions.exec) {
        return <Alert isInline variant="info" title={_("This account may not ask the machine for anything, nor run its actions.")} />;
    }
    return (
        <Stack hasGutter>
            <StackItem>
                <Title headingLevel="h2">{_("Machine")}</Title>
                <Button variant="secondary" isDisabled={!open} onClick={() => setRound(round + 1)}>{_("Refresh")}</Button>
            </StackItem>
            <StackItem>
                <Below session={session} at={at} path="" round={round} isShown={open && round > 0} />
            </StackItem>
        </Stack>
    );
}
