// Changes as people read them: one row for an entry of a list that comes or goes, names and orders without escapes.
import type { Change } from "./model";
import { escape, splitPath, unescape } from "./protocol";

export interface Row extends Change {
    /** The change is the order of a list's entries. */
    order?: boolean;
    /** What stands in an entry that comes or goes, by its name there. */
    parts: { name: string; text: string }[];
}

/** A path in one line. */
export function spoken(path: string): string {
    return splitPath(path).join(" › ");
}

export function rowsOf(changes: Change[]): Row[] {
    const rows: Row[] = [];
    for (const change of changes) {
        const last = rows.at(-1);
        if (last && isEntry(last) && change.path.startsWith(`${last.path}.`)) {
            const text = change.after ?? change.before;
            if (!change.silent && text) {
                last.parts.push({ name: spoken(change.path.slice(last.path.length + 1)), text });
            }
        } else {
            rows.push({ ...change, ...orderOf(change), parts: [] });
        }
    }
    return rows;
}

/** An entry that comes or goes as a whole. */
export function isEntry({ silent, before, after }: Change): boolean {
    return silent === true && (before === undefined) !== (after === undefined);
}

// The order of a list is told by the same names twice, as they stand in a path.
function orderOf({ before = "", after = "" }: Change): Partial<Row> {
    const [old, fresh] = [before.split(" "), after.split(" ")];
    const names = old.length > 1 && old.every(name => name !== "" && escape(unescape(name)) === name);
    if (!names || before === after || [...old].sort().join(" ") !== [...fresh].sort().join(" ")) {
        return {};
    }
    return { order: true, before: old.map(unescape).join(", "), after: fresh.map(unescape).join(", ") };
}
