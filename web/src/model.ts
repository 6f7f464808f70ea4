// What the daemon has to tell, as plain functions: the tree and its attributes, values, changes, commits.
import { unescape } from "./protocol";
import type { DataLine, Reply, Requester } from "./protocol";

/** A request that the daemon answered with anything but OK. */
export class Refusal extends Error {
    override name = "Refusal";
    readonly reply: Reply;

    constructor(reply: Reply) {
        super(reply.text);
        this.reply = reply;
    }
}

/** The refusal of a value or text that would come without its end. */
export const tooLong = "longer than a reply can hold, 16 KiB";

export type Tree = "parameters" | "management";

export interface Attributes {
    /** g get, s set, a add, d del, m move, h help, A action, I information, l has children. */
    ops: string;
    /** The most characters of a value. */
    length?: number;
    choices: string[];
    flags: string[];
    type?: string;
}

export interface Change {
    path: string;
    /** An entry of a list that comes or goes, or a parameter whose value may not be read. */
    silent?: boolean;
    before?: string;
    after?: string;
}

export interface Commit {
    number: number;
    time: string;
    user: string;
    from: string;
    state: string;
    comment: string;
    files: string[];
    notes: string[];
}

/** A commit that is undone unless somebody confirms it. */
export interface RunningTrial {
    commit: number;
    user: string;
    /** Seconds, when it was asked for. */
    left: number;
    text: string;
    /** By the clock of this browser. */
    end: number;
}

/** The names of the children, escaped; of the whole tree without a path. */
export async function list(at: Requester, path = "", tree: Tree = "parameters"): Promise<string[]> {
    return texts(await ask(at, join(tree === "management" ? "MLIST" : "LIST", path)));
}

export async function attributes(at: Requester, path: string, tree: Tree = "parameters"): Promise<Attributes> {
    const found: Attributes = { ops: "", choices: [], flags: [] };
    for (const { qualifier, text } of (await ask(at, join(tree === "management" ? "MATTR" : "ATTR", path))).data) {
        if (qualifier === "ops") {
            found.ops = text;
        } else if (qualifier === "len") {
            found.length = Number(text);
        } else if (qualifier === "type") {
            found.type = text;
        } else if (qualifier.startsWith("choices.")) {
            found.choices.push(unescape(text));
        } else if (qualifier.startsWith("flags.")) {
            found.flags.push(text);
        }
    }
    return found;
}

/** The help of a parameter or section; "" where there is none. */
export async function help(at: Requester, path: string): Promise<string> {
    return unescape(texts(await ask(at, join("HELP", path))).join("\n"));
}

export async function value(at: Requester, path: string): Promise<string> {
    return unescape(texts(await ask(at, join("GET", path)))[0] ?? "");
}

/** Whether the node's access method grants a permission ("r", "w", "x"). */
export async function allowed(at: Requester, path: string, permission: string, tree: Tree = "parameters"): Promise<boolean> {
    const reply = await at.request(`${tree === "management" ? "MACCESS" : "ACCESS"} ${path} ${permission}`);
    const result = texts(reply)[0] ?? "";
    return reply.word === "OK" && result !== "" && result !== "0";
}

export async function info(at: Requester, path: string, args: string[] = []): Promise<string> {
    return infoOf(await ask(at, join("INFO", path, args)));
}

/** The same for who shows a refusal: the reply, and the text that it holds. */
export async function infoReply(at: Requester, path: string, args: string[]): Promise<Reply> {
    return at.request(join("INFO", path, args));
}

export function infoOf(reply: Reply): string {
    return unescape(texts(reply)[0] ?? "");
}

/** The text of a node whose action prints it where it is too long for a reply. */
async function longInfo(at: Requester, path: string): Promise<string> {
    try {
        return await info(at, path);
    } catch (error) {
        if (error instanceof Refusal && error.reply.cut) {
            return (await output(at, path)).map(plainOutput).join("\n");
        }
        throw error;
    }
}

/**
 * Runs an action. Its output is given line by line as it arrives, with the number of its stream (1 or 2). An
 * action that fails is no Refusal: the reply tells.
 */
export async function admin(
    at: Requester,
    path: string,
    args: string[] = [],
    onLine: (stream: 1 | 2, text: string) => void = () => undefined,
): Promise<Reply> {
    // Each stream ends with what followed its last newline, most often nothing: an empty line counts once
    // another one of its stream follows.
    const held: Record<string, boolean> = {};
    const take = ({ qualifier, text }: DataLine) => {
        if (qualifier !== "1" && qualifier !== "2") {
            return;
        }
        const stream = qualifier === "1" ? 1 : 2;
        if (held[stream]) {
            onLine(stream, "");
        }
        held[stream] = text === "";
        if (text !== "") {
            onLine(stream, text);
        }
    };
    return at.request(join("ADMIN", path, args), [], take);
}

/** What an action that previews prints, as a whole. A "%" at the end of a line says that the next one goes on with it. */
export async function output(at: Requester, path: string, args: string[] = []): Promise<string[]> {
    const lines: string[] = [];
    const complaints: string[] = [];
    const reply = await admin(at, path, args, (stream, text) => {
        const last = lines.length - 1;
        if (stream === 1 && lines[last]?.endsWith("%")) {
            lines[last] = lines[last].slice(0, -1) + text;
        } else if (stream === 1) {
            lines.push(text);
        } else {
            complaints.push(text);
        }
    });
    if (reply.word !== "OK") {
        throw new Refusal({ ...reply, text: reply.text || [...complaints, ...lines].join("\n") });
    }
    return lines;
}

/** What a commit of this session would change, parameter by parameter. */
export async function changes(at: Requester, path = "commits.changes"): Promise<Change[]> {
    return readChanges(await output(at, path));
}

/** What a commit of this session would write, as a unified diff. */
export async function diff(at: Requester, path = "commits.diff"): Promise<string> {
    return (await output(at, path)).map(plainOutput).join("\n");
}

/** The commit on trial, if there is one. */
export async function trial(at: Requester): Promise<RunningTrial | undefined> {
    return trialOf(await info(at, "commits.trial"));
}

/** The trial that commits.trial tells of; it also tells of one that is being undone, which is none any more. */
export function trialOf(text: string): RunningTrial | undefined {
    const found = /^commit (\d+), user (.*?), (\d+) seconds left/.exec(text);
    return found
        ? { commit: Number(found[1]), user: found[2] ?? "", left: Number(found[3]), text, end: Date.now() + Number(found[3]) * 1000 }
        : undefined;
}

/** The numbers of the commits that are kept, the newest first. */
export async function commitNumbers(at: Requester): Promise<number[]> {
    return (await list(at, "commits.history", "management")).map(Number);
}

export async function commitOf(at: Requester, number: number): Promise<Commit> {
    const fields = ["time", "user", "from", "state", "comment", "files", "notes"];
    const found = await Promise.all(fields.map(field => longInfo(at, `commits.history.${number}.${field}`)));
    const [time = "", user = "", from = "", state = "", comment = "", files = "", notes = ""] = found;
    const lines = (text: string) => text.split("\n").filter(line => line !== "");
    return { number, time, user, from, state, comment, files: lines(files), notes: lines(notes) };
}

/** Previews write a control character as "%09" and "%" itself as "%25", and a blank as it is. */
function plainOutput(line: string): string {
    return unescape(line.replaceAll("+", "%2b"));
}

/**
 * "- PATH: VALUE" for what was, "+ PATH: VALUE" for what will be, where a newline of the value is "\n" and a backslash
 * "\\"; several lines of one path are one change.
 */
export function readChanges(lines: string[]): Change[] {
    const found = new Map<string, Change>();
    for (const line of lines) {
        const parts = /^([-+]) (\S+?)(?:: (.*))?$/s.exec(plainOutput(line));
        if (parts) {
            const [, sign, path = "", text = ""] = parts;
            const change: Change = found.get(path) ?? (parts[3] === undefined ? { path, silent: true } : { path });
            change[sign === "-" ? "before" : "after"] = text.replace(/\\(.)/g, (_all, meant: string) => meant === "n" ? "\n" : meant);
            found.set(path, change);
        }
    }
    return [...found.values()];
}

/** What was asked for; undefined where the daemon refuses it. */
export async function unlessRefused<T>(asked: Promise<T>): Promise<T | undefined> {
    try {
        return await asked;
    } catch (error) {
        if (error instanceof Refusal) {
            return undefined;
        }
        throw error;
    }
}

async function ask(at: Requester, command: string): Promise<Reply> {
    const reply = await at.request(command);
    if (reply.word !== "OK") {
        throw new Refusal(reply);
    }
    if (reply.cut) {
        throw new Refusal({ word: "ERR", text: tooLong, data: [], cut: true });
    }
    return reply;
}

function join(word: string, path: string, args: string[] = []): string {
    return [word, path, ...args].filter(part => part !== "").join(" ");
}

function texts(reply: Reply): string[] {
    return reply.data.filter(line => line.qualifier === "1").map(line => line.text);
}
