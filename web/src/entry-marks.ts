// What the pending changes do to the entries of a list, and a few words on what is in an entry.
import { isEntry } from "./change-rows";
import * as model from "./model";
import type { Change } from "./model";
import { inTurns, isSection, nameOf, parentOf } from "./parameters";
import type { ParameterNode, Parameters } from "./parameters";
import type { Requester } from "./protocol";
import { visible } from "./visible";

export type Mark = "new" | "changed" | "moved";

// Of an entry so many values are shown beside its name, and of these so many characters.
const mostValues = 2;
const longestSummary = 80;

/** Marks by the paths of entries, and the paths of those that are deleted. */
export function marksOf(list: string, changes: Change[]): { marks: ReadonlyMap<string, Mark>; gone: string[] } {
    const marks = new Map<string, Mark>();
    const gone: string[] = [];
    for (const change of changes) {
        const { path, before, after } = change;
        if (path === list) {
            movedOf(before?.split(" ") ?? [], after?.split(" ") ?? []).forEach(name => marks.set(`${list}.${name}`, "moved"));
        } else if (path.startsWith(`${list}.`)) {
            const entry = `${list}.${path.slice(list.length + 1).split(".")[0] ?? ""}`;
            if (path !== entry || !isEntry(change)) {
                marks.set(entry, marks.get(entry) === "new" ? "new" : "changed");
            } else if (after !== undefined) {
                marks.set(entry, "new");
            } else {
                gone.push(entry);
            }
        }
    }
    return { marks, gone };
}

/** As few names as suffice to make the one order of the other. */
function movedOf(before: string[], after: string[]): string[] {
    const was = new Map(before.map((name, at) => [name, at]));
    const places = after.map(name => was.get(name) ?? 0);
    // The longest run that goes up stays; of each length the one with the lowest end is kept.
    const ends: number[] = [];
    const previous: number[] = [];
    places.forEach((place, at) => {
        const longer = ends.findIndex(end => (places[end] ?? 0) > place);
        const length = longer < 0 ? ends.length : longer;
        previous[at] = ends[length - 1] ?? -1;
        ends[length] = at;
    });
    const stay = new Set<number>();
    for (let at = ends.at(-1) ?? -1; at >= 0; at = previous[at] ?? -1) {
        stay.add(at);
    }
    return after.filter((_name, at) => !stay.has(at));
}

function isTold({ attributes }: ParameterNode): boolean {
    return attributes.ops.includes("g") && !/passw|secret/i.test(attributes.type ?? "");
}

/** What is in these entries of a list, by their paths: their first values, as far as they may be read, while wanted. */
export async function summariesOf(
    at: Requester, parameters: Parameters, paths: string[], isWanted: () => boolean,
): Promise<Map<string, string>> {
    const found = new Map<string, string>();
    const [first] = paths;
    if (first === undefined) {
        return found;
    }
    // Entries are alike: what the first one of the list has, the others have, too.
    const example = [parameters.entriesOf(parentOf(first))[0] ?? first, first].find(path => parameters.get(path)?.children);
    const children = example === undefined ? await parameters.readSection(at, first) : parameters.children(example);
    const names = children.filter(child => !isSection(child) && isTold(child)).slice(0, mostValues)
        .map(({ path }) => path.slice(path.lastIndexOf(".") + 1));
    await inTurns(paths, async path => {
        if (!isWanted()) {
            return;
        }
        const values = await Promise.all(names.map(name => model.unlessRefused(model.value(at, `${path}.${name}`))));
        const told = values.filter(value => value && value !== nameOf(path)).join(", ").split("\n")[0] ?? "";
        found.set(path, visible(told.length > longestSummary ? `${told.slice(0, longestSummary)}…` : told));
    });
    return found;
}
