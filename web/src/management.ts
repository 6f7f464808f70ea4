// The management tree, as the page shows it: sections, information, actions and their arguments. No React.
import { admin, allowed, attributes, info, list } from "./model";
import { Refusal } from "./model";
import { byteLength, escape, longestWord, splitPath } from "./protocol";
import type { DataLine, Reply, Requester } from "./protocol";

export interface Argument {
    name: string;
    optional: boolean;
    /** It may be given more than once, one a line. */
    many: boolean;
}

export interface MachineNode {
    path: string;
    name: string;
    help: string;
    args: Argument[];
    isSection: boolean;
    /** It tells something, or does something. */
    tells: boolean;
    acts: boolean;
    /** What it does changes nothing. */
    harmless: boolean;
    /** What it tells without an argument; not set where it needs one. */
    text?: string;
}

/** Passes requests on, so many at a time: some are answered by programs that the daemon has to run. */
export function narrowed(at: Requester, width = 6): Requester {
    let under = 0;
    const waiting: (() => void)[] = [];
    return {
        async request(command: string, lines?: string[], onOutput?: (line: DataLine) => void): Promise<Reply> {
            if (under >= width) {
                await new Promise<void>(resolve => waiting.push(resolve));
            } else {
                under += 1;
            }
            try {
                return await at.request(command, lines, onOutput);
            } finally {
                const next = waiting.shift();
                if (next) {
                    next();
                } else {
                    under -= 1;
                }
            }
        },
    };
}

/** The paths below a section, in the order of the tree. Commits have a page of their own. */
export async function readPaths(at: Requester, path: string): Promise<string[]> {
    const names = await list(at, path, "management");
    return path === "" ? names.filter(name => name !== "commits") : names.map(name => `${path}.${name}`);
}

/** One node; undefined where there is nothing for this session. */
export async function readNode(at: Requester, path: string): Promise<MachineNode | undefined> {
    const { ops, flags } = await attributes(at, path, "management").catch(refused(() => ({ ops: "", flags: [""] })));
    if (!/[IAl]/.test(ops)) {
        return undefined;
    }
    const tells = ops.includes("I");
    const [help, args, acts] = await Promise.all([
        orNothing(info(at, "daemon.help", [escape(path)])),
        tells || ops.includes("A") ? orNothing(info(at, "daemon.arguments", [escape(path)])).then(argumentsOf) : [],
        ops.includes("A") && allowed(at, path, "x", "management"),
    ]);
    const node: MachineNode = {
        path, name: splitPath(path).pop() ?? "", help, args, isSection: ops.includes("l"), tells, acts, harmless: flags.includes("harmless"),
    };
    if (tells && !args.some(arg => !arg.optional)) {
        node.text = await orReason(info(at, path));
    }
    return tells || acts || node.isSection ? node : undefined;
}

/** What a definition says of its arguments: "ADDRESS [COUNT]", "[MODULE [PATH]]", "NAME...". */
export function argumentsOf(text: string): Argument[] {
    const found: Argument[] = [];
    let depth = 0;
    for (const part of text.match(/\[|\]|[^\s[\]]+/g) ?? []) {
        const last = found.at(-1);
        if (part === "[" || part === "]") {
            depth += part === "[" ? 1 : -1;
        } else if (part === "..." && last) {
            last.many = true;
        } else {
            found.push({ name: part.replace(/\.\.\.$/, ""), optional: depth > 0, many: part.endsWith("...") });
        }
    }
    return found;
}

/** What is wrong with an argument. */
export type Fault = "missing" | "long";

/** The words to send for what was entered, or what is wrong with which of the entries. */
export function wordsOf(args: Argument[], given: string[]): { words: string[]; faults: Map<number, Fault> } {
    const faults = new Map<number, Fault>();
    const filled = args.map((arg, index) => {
        const text = given[index] ?? "";
        return (arg.many ? text.split("\n") : [text]).filter(word => word !== "").map(escape);
    });
    const last = filled.map(words => words.length > 0).lastIndexOf(true);
    filled.forEach((words, index) => {
        if (words.length === 0 && (!args[index]?.optional || index < last)) {
            faults.set(index, "missing");
        } else if (words.some(word => byteLength(word) > longestWord)) {
            faults.set(index, "long");
        }
    });
    return { words: filled.flat(), faults };
}

/** Ends an action of this user by the tag of its request; false where there is none, or where the daemon has no way. */
export async function endAction(at: Requester, tag: string): Promise<boolean> {
    return (await admin(at, "daemon.end-action", [tag])).word === "OK";
}

export interface Line {
    number: number;
    text: string;
}

/** The last lines of an output that may be long. */
export class Tail {
    private lines: Line[] = [];
    private count = 0;
    private readonly most: number;

    constructor(most: number) {
        this.most = most;
    }

    add(text: string): void {
        this.count += 1;
        this.lines.push({ number: this.count, text });
        if (this.lines.length > 2 * this.most) {
            this.lines = this.last();
        }
    }

    last(): Line[] {
        return this.lines.slice(-this.most);
    }
}

async function orNothing(promise: Promise<string>): Promise<string> {
    return promise.catch(refused(() => ""));
}

async function orReason(promise: Promise<string>): Promise<string> {
    return promise.catch(refused(reason => reason));
}

function refused<T>(answer: (reason: string) => T): (error: unknown) => T {
    return error => {
        if (error instanceof Refusal) {
            return answer(error.message);
        }
        throw error;
    };
}
