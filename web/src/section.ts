// One section as the page shows it: its parameters with their present values, what lies below it, its entries.
import * as model from "./model";
import { inTurns, isAbsent, isList, isSection } from "./parameters";
import type { ParameterNode, Parameters } from "./parameters";
import type { Requester } from "./protocol";

export interface Field {
    node: ParameterNode;
    /** Undefined where it may not be read, or cannot be. */
    value?: string;
    /** Why it cannot be read, as the daemon words it; not set where that is a matter of permission. */
    problem?: string;
    writable: boolean;
    typeHelp: string;
}

export interface Section {
    node: ParameterNode;
    fields: Field[];
    sections: ParameterNode[];
    /** How many children there are, of which those that were asked for have been read. */
    total: number;
    /** Of a list: the paths of its entries, in their order. */
    entries?: string[];
}

/** Reads a section; undefined where there is none (any more). */
export async function readSection(
    at: Requester, parameters: Parameters, path: string, mayWrite: boolean, most?: number,
): Promise<Section | undefined> {
    const node = path === "" ? undefined : await parameters.read(at, path);
    if (path !== "" && !node) {
        return undefined;
    }
    const children = !node || (isSection(node) && !isAbsent(node)) ? await parameters.readSection(at, path, most) : [];
    const own = parameters.get(path);
    if (!own) {
        return undefined;
    }
    const list = isList(own);
    const shown = list ? [] : children.filter(child => !isSection(child));
    if (/[gs]/.test(own.attributes.ops)) {
        shown.unshift(own);
    }
    const fields: Field[] = [];
    await inTurns(shown.map((one, index) => ({ one, index })), async ({ one, index }) => {
        fields[index] = await readField(at, parameters, one, mayWrite);
    });
    return {
        node: own,
        fields,
        total: Math.max(children.length, parameters.entriesOf(path).length),
        sections: list ? [] : children.filter(isSection),
        entries: list ? parameters.entriesOf(path) : undefined,
    };
}

async function readField(
    at: Requester, parameters: Parameters, node: ParameterNode, mayWrite: boolean,
): Promise<Field> {
    const { ops, type } = node.attributes;
    const [read, writable, typeHelp] = await Promise.all([
        ops.includes("g") ? readValue(at, node.path) : {},
        mayWrite && ops.includes("s") ? model.allowed(at, node.path, "w") : false,
        type ? parameters.typeHelp(at, type) : "",
    ]);
    return { node, ...read, writable, typeHelp };
}

async function readValue(at: Requester, path: string): Promise<{ value?: string; problem?: string }> {
    try {
        return { value: await model.value(at, path) };
    } catch (error) {
        if (error instanceof model.Refusal) {
            const { word, text } = error.reply;
            return word === "NO" ? {} : { problem: text };
        }
        throw error;
    }
}
