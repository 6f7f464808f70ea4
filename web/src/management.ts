// The management tree by sections, as the page shows it. No React.
import { attributes, info, list, listAll } from "./model";
import { escape, splitPath } from "./protocol";
import { Refusal } from "./model";
import type { Requester } from "./protocol";

export interface Fact {
    path: string;
    name: string;
    help: string;
    text: string;
}

export interface Action {
    path: string;
    name: string;
    help: string;
    /** What it takes, as its definition words it; "" for nothing. */
    args: string;
}

export interface MachineSection {
    path: string;
    facts: Fact[];
    actions: Action[];
}

/** All sections that hold something, in the order of the tree. Commits have a page of their own. */
export async function readMachine(at: Requester): Promise<MachineSection[]> {
    const sections = new Map<string, MachineSection>();
    const tops = (await list(at, "", "management")).filter(top => top !== "commits");
    for (const top of tops) {
        const paths = (await listAll(at, top, "management")).map(path => `${top}.${path}`);
        const nodes = await Promise.all(paths.map(async path => readNode(at, path)));
        for (const { fact, action, path } of nodes) {
            const parent = path.slice(0, path.lastIndexOf("."));
            const section = sections.get(parent) ?? { path: parent, facts: [], actions: [] };
            if (fact) {
                section.facts.push(fact);
            }
            if (action) {
                section.actions.push(action);
            }
            if (fact ?? action) {
                sections.set(parent, section);
            }
        }
    }
    return [...sections.values()];
}

async function readNode(at: Requester, path: string): Promise<{ path: string; fact?: Fact; action?: Action }> {
    const ops = await orNothing(attributes(at, path, "management").then(found => found.ops));
    if (!/[IA]/.test(ops)) {
        return { path };
    }
    const [help, args] = await Promise.all([
        orNothing(info(at, "daemon.help", [escape(path)])),
        orNothing(info(at, "daemon.arguments", [escape(path)])),
    ]);
    const name = splitPath(path).pop() ?? "";
    const found: { path: string; fact?: Fact; action?: Action } = { path };
    // What must be given an argument has nothing to tell without one.
    if (ops.includes("I") && (args === "" || args.startsWith("["))) {
        found.fact = { path, name, help, text: await orReason(info(at, path)) };
    }
    if (ops.includes("A")) {
        found.action = { path, name, help, args };
    }
    return found;
}

async function orNothing(promise: Promise<string>): Promise<string> {
    return promise.catch(refused(() => ""));
}

async function orReason(promise: Promise<string>): Promise<string> {
    return promise.catch(refused(reason => reason));
}

function refused(answer: (reason: string) => string): (error: unknown) => string {
    return error => {
        if (error instanceof Refusal) {
            return answer(error.message);
        }
        throw error;
    };
}
