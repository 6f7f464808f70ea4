// Brings back what was, as a change of this session: a commit is undone, or the state behind it loaded. No React.
import { changes, diff, unlessRefused } from "./model";
import type { Change } from "./model";
import type { Order } from "./orders";
import type { Reply } from "./protocol";
import type { Session } from "./session";

export type Restoring = "undo" | "load";

interface Present {
    changes?: Change[];
    diff?: string;
}

/** Whether the session has changes of that, which have not been committed. */
export function isOrdered(session: Session, what: Restoring, number: number): boolean {
    return session.orders.some(one => one.verb === "SET" && one.path === pathTo(what) && one.value === String(number));
}

/** Gives the order, which is not remembered where all stands like that already: `same`. */
export async function restore(session: Session, what: Restoring, number: number): Promise<{ reply: Reply; same: boolean }> {
    const order: Order = { verb: "SET", path: pathTo(what), value: String(number) };
    // Without changes the session catches up first with what others have committed, and differs in nothing then.
    const before = session.orders.length === 0 ? { changes: [], diff: "" } : await present(session);
    const reply = await session.order(order);
    const same = reply.word === "OK" && isSame(before, await present(session));
    if (same) {
        session.withdraw(order);
    }
    return { reply, same };
}

function pathTo(what: Restoring): string {
    return `commits.${what}`;
}

// Of what may not be seen, one change cannot be told from another.
function isSame(before: Present, after: Present): boolean {
    return after.changes?.every(({ silent }) => !silent) === true && after.diff !== undefined
        && JSON.stringify(before) === JSON.stringify(after);
}

async function present(session: Session): Promise<Present> {
    const [parameters, lines] = await Promise.all([unlessRefused(changes(session)), unlessRefused(diff(session))]);
    return { changes: parameters, diff: lines };
}
