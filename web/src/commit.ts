// How a commit is asked for, and what became of one whose answer did not come since the connection broke behind it:
// its record tells.
import { Refusal, changes, commitNumbers, commitOf, unlessRefused } from "./model";
import type { Commit } from "./model";
import { touches } from "./orders";
import type { Order } from "./orders";
import { escape } from "./protocol";
import type { Reply, Requester } from "./protocol";

export interface CommitPlan {
    comment: string;
    /** Of a trial; 0: for good. */
    seconds: number;
}

/** A commit that was asked for. */
export interface Asked extends CommitPlan {
    /** The newest commit by then; undefined where the history cannot be read. */
    before?: number;
    /** What it was to write, once its connection is lost. */
    orders: Order[];
}

/** What became of it. Where that is not known, its orders are offered again. */
export interface Fate {
    carriedOut: "yes" | "no" | "unknown";
    commit?: Commit;
}

/** As the newest commit: of a commit whose own command has not been sent yet. */
export const notSent = Number.MAX_SAFE_INTEGER;

const pause = 500;
const looks = 20;

/** The newest commit's number, 0 without one; undefined where that cannot be read. */
export async function newestCommit(at: Requester): Promise<number | undefined> {
    const numbers = await unlessRefused(commitNumbers(at));
    return numbers && Math.max(0, ...numbers);
}

/** Gives the orders for the commit itself; answers the refusal of one. */
export async function prepareCommit(at: Requester, plan: CommitPlan, comment: string): Promise<Reply | undefined> {
    const orders = [
        plan.comment !== comment && `SET commits.comment ${escape(plan.comment)}`.trimEnd(),
        plan.seconds > 0 && `SET commits.trial ${plan.seconds}`,
    ];
    for (const order of orders) {
        const reply = order ? await at.request(order) : undefined;
        if (reply && reply.word !== "OK") {
            return reply;
        }
    }
    return undefined;
}

/**
 * Looks for its record among those that are newer. A session that goes on without its changes has made the one of its
 * user and comment; otherwise that may be somebody else's, unless it changed what was ordered.
 */
export async function fateOf(at: Requester, asked: Asked, user: string, goesOn: boolean): Promise<Fate> {
    const { before, comment, orders } = asked;
    if (before === undefined) {
        return { carriedOut: "unknown" };
    }
    let carriedOut: Fate["carriedOut"] = "no";
    try {
        for (const number of (await commitNumbers(at)).filter(one => one > before).sort((a, b) => a - b)) {
            const commit = await written(at, number);
            if (commit.user !== user || commit.comment !== comment || commit.state === "failed") {
                continue;
            }
            const changed = goesOn || await changes(at, `commits.history.${number}.changes`);
            if (changed === true || changed.some(({ path }) => touches(orders, path))) {
                return { carriedOut: commit.state === "open" ? "unknown" : "yes", commit };
            }
            carriedOut = "unknown";
        }
    } catch (error) {
        if (!(error instanceof Refusal)) {
            throw error;
        }
        carriedOut = "unknown";
    }
    return { carriedOut };
}

async function written(at: Requester, number: number): Promise<Commit> {
    let commit = await commitOf(at, number);
    for (let look = 1; commit.state === "open" && look < looks; look++) {
        await new Promise(resolve => setTimeout(resolve, pause));
        commit = await commitOf(at, number);
    }
    return commit;
}
