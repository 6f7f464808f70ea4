// The orders that change parameters: how they are sent, remembered and compared.
import { byteLength, escape, longestWord } from "./protocol";

/** A change that this session has ordered; path and names are escaped as they go over the wire. */
export type Order =
    | { verb: "SET"; path: string; value: string }
    | { verb: "ADD" | "DEL"; path: string; name: string }
    | { verb: "MOVE"; path: string; name: string; before: string };

// Setting one of these edits whole files, each time anew.
const edits: ReadonlySet<string> = new Set(["commits.undo", "commits.load"]);

/** A later value of a parameter takes the place of an earlier one, unless the shape of the tree changed since. */
export function remember(orders: Order[], order: Order): Order[] {
    const reshaped = orders.reduce((last, one, at) => (one.verb === "SET" && !edits.has(one.path) ? last : at), -1);
    return [...orders.filter((one, at) => at <= reshaped || !sameParameter(one, order)), order];
}

export function sameParameter(one: Order, other: Order): boolean {
    return one.verb === "SET" && other.verb === "SET" && one.path === other.path;
}

/** What an order changes, by its path; undefined where that may be anything. */
function pathOf(order: Order): string | undefined {
    if (order.verb === "SET") {
        return edits.has(order.path) ? undefined : order.path;
    }
    return order.verb === "MOVE" ? order.path : `${order.path}.${order.name}`;
}

/** Whether one of the orders changes that parameter, or what it stands in. */
export function touches(orders: Order[], path: string): boolean {
    return orders.map(pathOf).some(own => own === undefined || own === path || path.startsWith(`${own}.`));
}

/** Whether a change comes of the order: of a parameter, of a list's order, or of an entry with all that is in it. */
export function isWithin(order: Order, path: string, entry: boolean): boolean {
    const own = pathOf(order);
    return own === path || (entry && own !== undefined && (
        own.startsWith(`${path}.`) || (order.verb === "MOVE" && `${own}.${order.name}` === path)));
}

/** The commit that the last of the orders undoes, or whose state it loads. */
export function sourceOf(orders: Order[]): { verb: "undo" | "load"; commit: string } | undefined {
    const last = orders.filter(order => order.verb === "SET" && edits.has(order.path)).at(-1);
    return last?.verb === "SET" ? { verb: last.path === "commits.undo" ? "undo" : "load", commit: last.value } : undefined;
}

/** The command of an order, and the lines before it that carry a value too long for one word. */
export function orderLines(order: Order): [string, string[]] {
    switch (order.verb) {
        case "SET": {
            const word = escape(order.value);
            if (byteLength(word) <= longestWord) {
                return [word === "" ? `SET ${order.path}` : `SET ${order.path} ${word}`, []];
            }
            return [`SET ${order.path}`, cut(word).map(line => " " + line)];
        }
        case "MOVE":
            return [`MOVE ${order.path} ${order.name} ${order.before}`, []];
        default:
            return [`${order.verb} ${order.path} ${order.name}`, []];
    }
}

// The daemon joins lines with a newline and drops empty ones: a value is cut at its newlines, the one at each cut is
// left out, and no piece is empty.
function cut(word: string): string[] {
    const longest = 16000;
    const newline = "%0a";
    const pieces: string[] = [];
    let rest = word;
    while (byteLength(rest) > longest) {
        let at = rest.lastIndexOf(newline, longest);
        while (at > 0 && (byteLength(rest.slice(0, at)) > longest || at + newline.length === rest.length)) {
            at = rest.lastIndexOf(newline, at - 1);
        }
        if (at <= 0) {
            break;
        }
        pieces.push(rest.slice(0, at));
        rest = rest.slice(at + newline.length);
    }
    return [...pieces, rest];
}
