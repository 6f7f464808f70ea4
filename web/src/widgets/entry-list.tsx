// The entries of a list: add, delete, move by drag and by keyboard, and the parameters of each behind its toggle.
import { useEffect, useRef, useState, useSyncExternalStore } from "react";
import {
    Button, DataList, Form, FormHelperText, HelperText, InputGroup, InputGroupItem, TextInput,
} from "@patternfly/react-core";
import { draftsOf, useDrafts } from "../drafts";
import type { Draft } from "../drafts";
import { marksOf, summariesOf } from "../entry-marks";
import { nameOf } from "../parameters";
import type { Parameters } from "../parameters";
import { pendingOf } from "../pending-changes";
import { escape } from "../protocol";
import type { Reply } from "../protocol";
import type { Section } from "../section";
import type { Order } from "../orders";
import type { Session } from "../session";
import { Entry, Gone, entryId } from "./entry";
import type { DragStep } from "./entry";
import { Reason } from "./reason";
import { answered } from "./use-run";

const _ = cockpit.gettext;

// A longer list is shown in parts.
const part = 200;

export const newEntryId = "new-entry";

interface EntryListProps {
    session: Session;
    parameters: Parameters;
    section: Section;
    /** The entry that was looked for is open and among those that are shown. */
    wanted?: string;
    /** Draws the parameters of an entry. */
    content: (path: string) => React.ReactNode;
    /** For people who do not see what has moved. */
    announce: (text: string) => void;
}

/** The part of a long list that holds the entry at that place. */
function rangeAt(index: number): { from: number; to: number } {
    const from = Math.floor(Math.max(0, index) / part) * part;
    return { from, to: from + part };
}

/** What is in the entries that are shown; read again with the section. */
function useSummaries(session: Session, parameters: Parameters, section: Section, from: number, to: number) {
    const [summaries, setSummaries] = useState<ReadonlyMap<string, string>>(new Map());
    useEffect(() => {
        let wanted = true;
        summariesOf(session, parameters, (section.entries ?? []).slice(from, to), () => wanted).then(
            found => wanted && setSummaries(found),
            () => undefined, // a loss of the connection, which is told elsewhere
        );
        return () => {
            wanted = false;
        };
    }, [session, parameters, section, from, to]);
    return summaries;
}

function AddEntry({ session, list, name, add }: { session: Session; list: string; name: string; add: (name: string) => Promise<Reply> }) {
    const drafts = useDrafts(session);
    const draft = drafts.get(list, true);
    const { text = "", reply: refusal } = draft ?? {};
    const setDraft = (now?: Draft) => drafts.set(now, list, true);
    const send = async () => {
        const reply = await add(text);
        setDraft(reply.word === "OK" ? undefined : { text, state: "refused", reply });
        if (reply.word === "OK") {
            document.getElementById(newEntryId)?.focus();
        }
    };
    return (
        <Form onSubmit={event => { event.preventDefault(); if (text !== "") void send(); }} className="ucfgd-add">
            <InputGroup>
                <InputGroupItem isFill>
                    <TextInput
                        id={newEntryId}
                        aria-label={cockpit.format(_("New entry of $0"), name)}
                        placeholder={_("New entry")}
                        aria-describedby="new-entry-help"
                        value={text}
                        spellCheck={false}
                        autoComplete="off"
                        validated={refusal ? "error" : "default"}
                        onChange={(_event, now) => setDraft(now === "" ? undefined : { text: now, state: "edited" })}
                    />
                </InputGroupItem>
                <InputGroupItem>
                    <Button variant="secondary" type="submit" isAriaDisabled={text === ""}>{_("Add")}</Button>
                </InputGroupItem>
            </InputGroup>
            <FormHelperText>
                <HelperText id="new-entry-help">{refusal && <Reason reply={refusal} />}</HelperText>
            </FormHelperText>
        </Form>
    );
}

export function EntryList({ session, parameters, section, wanted, content, announce }: EntryListProps) {
    const { node, entries = [] } = section;
    const [open, setOpen] = useState<ReadonlySet<string>>(new Set(wanted ? [wanted] : []));
    const [range, setRange] = useState(() => rangeAt(entries.indexOf(wanted ?? "")));
    const [drag, setDrag] = useState<{ from: number; over: number }>();
    const [refusal, setRefusal] = useState<Reply>();
    const pending = pendingOf(session);
    useSyncExternalStore(listener => pending.subscribe(listener), () => pending.version);
    const { marks, gone } = marksOf(node.path, pending.changes);
    const deleted = gone.filter(path => !entries.includes(path));
    const summaries = useSummaries(session, parameters, section, range.from, range.to);
    // What was refused was so for the list as it was.
    const names = entries.join(" ");
    const refusedAt = useRef(names);
    useEffect(() => {
        if (refusedAt.current !== names) {
            refusedAt.current = names;
            setRefusal(undefined);
            const drafts = draftsOf(session);
            const draft = drafts.get(node.path, true);
            if (draft?.state === "refused") {
                drafts.set({ text: draft.text, state: "edited" }, node.path, true);
            }
        }
    }, [session, node.path, names]);
    const ops = session.permissions.write ? node.attributes.ops : "";
    // What the keys go on with once the entries have changed as ordered: a button of a neighbour, or of what has moved.
    const next = useRef<{ there: (entries: string[]) => boolean; ids: string[] }>();
    useEffect(() => {
        if (next.current?.there(section.entries ?? [])) {
            next.current.ids.map(id => document.getElementById(id)).find(one => one)?.focus();
            next.current = undefined;
        }
    }, [section]);

    const order = async (one: Order, said: string) => {
        const reply = await answered(session.order(one));
        setRefusal(reply.word === "OK" || one.verb === "ADD" ? undefined : reply);
        if (reply.word === "OK") {
            announce(said);
        }
        return reply;
    };
    const word = (path: string) => path.slice(node.path.length + 1);
    // Lists differ in what a move over some distance means; of two neighbours all exchange the places.
    const move = async (from: number, to: number) => {
        const now = [...entries];
        const path = now[from];
        const step = to > from ? 1 : -1;
        next.current = { there: entries => entries[to] === path, ids: [`${entryId(path ?? "")}-${step > 0 ? "down" : "up"}`] };
        for (let at = from; path !== undefined && at !== to; at += step) {
            const neighbour = now[at + step] ?? path;
            const [lower, upper] = step > 0 ? [neighbour, path] : [path, neighbour];
            const said = cockpit.format(_("$0 is at place $1 of $2"), nameOf(path), at + step + 1, now.length);
            const reply = await order({ verb: "MOVE", path: node.path, name: word(lower), before: word(upper) }, said);
            if (reply.word !== "OK") {
                next.current = undefined;
                return;
            }
            [now[at], now[at + step]] = [neighbour, path];
        }
    };
    const remove = async (path: string, index: number) => {
        const neighbour = entries[index + 1] ?? entries[index - 1] ?? "";
        next.current = { there: entries => !entries.includes(path), ids: [`${entryId(neighbour)}-delete`, newEntryId] };
        const reply = await order({ verb: "DEL", path: node.path, name: word(path) }, cockpit.format(_("$0 is deleted"), nameOf(path)));
        if (reply.word === "OK") {
            draftsOf(session).drop(path);
        } else {
            next.current = undefined;
        }
    };
    const onDrag = (index: number, what: DragStep) => {
        if (what === "start") {
            setDrag({ from: index, over: index });
        } else if (what === "over") {
            setDrag(now => now && now.over !== index ? { ...now, over: index } : now);
        } else {
            setDrag(undefined);
            if (what === "drop" && drag) {
                void move(drag.from, index);
            }
        }
    };
    const toggle = (path: string) => {
        const now = new Set(open);
        if (!now.delete(path)) {
            now.add(path);
        }
        setOpen(now);
    };
    return (
        <>
            {ops.includes("a") &&
                <AddEntry
                    session={session}
                    list={node.path}
                    name={node.name}
                    add={name => order({ verb: "ADD", path: node.path, name: escape(name) }, cockpit.format(_("$0 is added"), name))}
                />}
            {refusal && <HelperText><Reason reply={refusal} /></HelperText>}
            {range.from > 0 &&
                <Button variant="link" onClick={() => setRange({ ...range, from: range.from - part })}>
                    {cockpit.format(_("Show the $0 before"), part)}
                </Button>}
            <DataList aria-label={cockpit.format(_("Entries of $0"), node.name)} isCompact className="ucfgd-entries">
                {entries.slice(range.from, range.to).map((path, at) => [path, range.from + at] as const).map(([path, index]) => (
                    <Entry
                        key={path}
                        path={path}
                        index={index}
                        count={entries.length}
                        open={open.has(path)}
                        dropBefore={drag !== undefined && drag.over === index && drag.from !== index}
                        ops={ops}
                        mark={marks.get(path)}
                        summary={summaries.get(path)}
                        content={content}
                        onToggle={() => toggle(path)}
                        onDelete={() => void remove(path, index)}
                        onMove={to => void move(index, to)}
                        onDrag={what => onDrag(index, what)}
                    />
                ))}
                {deleted.map(path => <Gone key={path} path={path} />)}
            </DataList>
            {entries.length === 0 && <p>{_("There are no entries.")}</p>}
            {entries.length > range.to &&
                <Button variant="link" onClick={() => setRange({ ...range, to: range.to + part })}>
                    {cockpit.format(_("Show more: $0 of $1 are shown"), range.to - range.from, entries.length)}
                </Button>}
        </>
    );
}
