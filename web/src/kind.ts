// Which widget a parameter gets, from what the daemon tells of it.
import type { Attributes } from "./model";

export interface Kind {
    widget: "switch" | "choice" | "number" | "text" | "lines" | "secret";
    /** Of a switch: the values for on and off. */
    on?: string;
    off?: string;
    /** Of a choice: other values are taken, too. */
    open?: boolean;
}

const pairs = [["yes", "no"], ["on", "off"], ["true", "false"], ["enabled", "disabled"], ["1", "0"]] as const;

/**
 * `value` is undefined where it may not be read; `words` is what help and type say in words. The daemon remains the
 * judge of values: the widget only makes the usual ones easy, and takes none away that is there.
 */
export function kindOf(attributes: Attributes, value: string | undefined, words: string): Kind {
    const { ops, choices, flags, type = "" } = attributes;
    if (!ops.includes("g") || value === undefined || /passw|secret/i.test(type)) {
        return { widget: "secret" };
    }
    for (const [on, off] of pairs) {
        if (choices.length === 2 && choices.includes(on) && choices.includes(off) && (value === on || value === off)) {
            return { widget: "switch", on, off };
        }
    }
    if (choices.length > 0) {
        return { widget: "choice", open: flags.includes("open") };
    }
    if (value.includes("\n") || /several lines/i.test(words)) {
        return { widget: "lines" };
    }
    if (/(^|[^-\d])\d+ to \d+/.test(words) && /^\d+$/.test(value) && !/\d,? or\b|\bor (a|an|empty|never|none)\b/i.test(words)) {
        return { widget: "number" };
    }
    return { widget: "text" };
}
