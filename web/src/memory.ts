// What a page leaves for the one that is loaded anew in the same window.
import type { Asked } from "./commit";
import type { Ending, Permissions } from "./log-in";
import type { Order } from "./orders";

/** A commit of this session that is on trial, and what it changed. */
export interface OnTrial {
    commit: number;
    /** By the clock of this browser. */
    end: number;
    orders: Order[];
}

export interface Memory {
    user: string;
    id: string;
    permissions: Permissions;
    orders: Order[];
    kept: Order[];
    ending?: Ending;
    asked?: Asked;
    onTrial?: OnTrial;
}

/** Undefined where there is none, or one of another version of the page. */
export function recalled(text?: string | null): Memory | undefined {
    try {
        return text ? JSON.parse(text) as Memory : undefined;
    } catch {
        return undefined;
    }
}
