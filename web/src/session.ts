// A session with the daemon that outlives its connections: commits, and remembers the orders that it has been given,
// to be offered again when a session has taken them with it.
import { fateOf, newestCommit, notSent, prepareCommit } from "./commit";
import type { Asked, CommitPlan, Fate } from "./commit";
import { Connection } from "./connection";
import type { ConnectionOptions, State, Watcher } from "./connection";
import type { Ending, Permissions } from "./log-in";
import { recalled } from "./memory";
import type { Memory, OnTrial } from "./memory";
import { trial, unlessRefused } from "./model";
import type { Commit } from "./model";
import { Observable } from "./observable";
import { isWithin, orderLines, remember, sameParameter } from "./orders";
import type { Order } from "./orders";
import type { Client, DataLine, Reply, Requester } from "./protocol";

export interface Outcome {
    order: Order;
    reply: Reply;
}

export interface SessionOptions extends ConnectionOptions {
    /** Keeps a text for the same window's next page. */
    memory?: { load(): string | null; save(text: string): void };
}

const forGood: CommitPlan = { comment: "", seconds: 0 };

export class Session extends Observable implements Requester {
    /** Set when the session ended, or when a new one had to take the place of one that was lost. */
    ending?: Ending;
    /** Taken by the daemon in this session and not committed yet. */
    orders: Order[] = [];
    /** Orders of a session that is gone, to be offered again: see reapply() and forget(). */
    kept: Order[] = [];
    /** What is kept is being given again by takeBack(). */
    remaking = false;
    /** Why one of the kept orders was refused when it was given again. */
    refusals = new Map<Order, Reply>();
    /** What became of a commit whose answer was lost, until that has been read. */
    fate?: Fate;
    /** The last commit for good, until that has been read or something new is changed; its record where that is found. */
    done?: { commit?: Commit };
    onTrial?: OnTrial;
    /** Grows when an order made the session catch up with what others had committed. */
    updates = 0;
    private readonly connection: Connection;
    private readonly memory: SessionOptions["memory"];
    private asked?: Asked;
    private comment = "";

    constructor(options: SessionOptions) {
        super();
        this.memory = options.memory;
        const found = recalled(options.memory?.load());
        if (found) {
            const { orders, kept, ending, asked, onTrial } = found;
            Object.assign(this, { orders, kept, ending, asked, onTrial });
        }
        const watcher: Watcher = {
            onStranger: () => this.disown(),
            onResumed: client => this.resumed(client),
            onBegun: (client, gone) => this.begun(client, gone),
            onLost: () => this.lost(),
            onEnded: ending => this.keep(ending),
            onChange: () => this.changed(),
        };
        this.connection = new Connection(options, watcher, found);
    }

    get state(): State {
        return this.connection.state;
    }

    get permissions(): Permissions {
        return this.connection.permissions;
    }

    get user(): string {
        return this.connection.user;
    }

    /** What the system says of a connection that is lost, if it says anything. */
    get problem(): string | undefined {
        return this.connection.problem;
    }

    /** How many orders this page holds that the daemon does not have any more. */
    get held(): number {
        return this.kept.length + (this.asked?.orders.length ?? 0);
    }

    /** Logs in; with force, every other session that may write is ended first. */
    async start(force = false): Promise<void> {
        if (this.kept.length === 0) {
            this.ending = undefined;
        }
        await this.connection.start(force);
    }

    /** Logs out and stays out. */
    async end(): Promise<void> {
        this.ending = { kind: "logout", text: "" };
        await this.connection.end();
    }

    request(command: string, lines?: string[], onOutput?: (line: DataLine) => void): Promise<Reply> {
        return this.connection.request(command, lines, onOutput);
    }

    /** A second connection of the same user, logged in: see Connection.side(). */
    side(): Promise<Client> {
        return this.connection.side();
    }

    /**
     * Sends a change. What is refused leaves nothing behind; what is taken is remembered. Without changes of its own,
     * the session catches up first with what others have committed.
     */
    async order(order: Order): Promise<Reply> {
        if (this.orders.length === 0 && this.permissions.write) {
            const updated = await this.request("UPDATE");
            this.updates += updated.text === "updated" ? 1 : 0;
        }
        const reply = await this.give(order);
        if (reply.word === "OK") {
            this.done = undefined;
            this.keepOnly(one => !sameParameter(one, order));
        }
        return reply;
    }

    /**
     * Writes this session's changes to the disk. Those that a commit has dropped as it failed are kept. Where the
     * connection is lost before the answer, the session finds out what became of it as soon as it is open again: see
     * `fate` and `onTrial`.
     */
    async commit(plan = forGood): Promise<Reply> {
        const asked: Asked = { ...plan, before: notSent, orders: [] };
        this.asked = asked;
        this.fate = this.done = undefined;
        const refused = await prepareCommit(this, plan, this.comment);
        if (refused) {
            this.asked = undefined;
            return refused;
        }
        this.comment = plan.comment;
        asked.before = await newestCommit(this);
        this.changed();
        const reply = await this.request("COMMIT");
        if (reply.word === "OK") {
            asked.orders = this.orders;
            this.orders = [];
            this.comment = "";
            if (plan.seconds > 0) {
                await this.begin(this, asked.orders);
            }
        }
        this.asked = undefined;
        if (reply.word === "OK" && plan.seconds === 0) {
            const found = await fateOf(this, asked, this.user, true).catch(() => undefined);
            this.done = { commit: found?.commit };
        }
        this.changed();
        if (reply.word !== "OK" && this.state === "open") {
            await this.refusedCommit(plan, reply);
        }
        return reply;
    }

    /** An order that has changed nothing need not be given again. */
    withdraw(order: Order): void {
        this.orders = this.orders.filter(one => one !== order);
        this.changed();
    }

    /** The trial has ended; what was taken back is offered again. */
    trialOver(takenBack: boolean): void {
        const orders = this.onTrial?.orders ?? [];
        this.onTrial = undefined;
        if (takenBack && orders.length > 0) {
            this.ending = { kind: "undone", text: "" };
            this.kept = [...orders, ...this.kept];
        }
        this.changed();
    }

    /** What there was to say of a commit has been read. */
    dismiss(): void {
        this.fate = this.done = undefined;
        this.changed();
    }

    /** Drops this session's changes, and catches up with what others have committed. */
    async revert(): Promise<Reply> {
        const reply = await this.request("REVERT");
        if (reply.word === "OK") {
            this.orders = [];
            this.changed();
            return this.request("UPDATE");
        }
        return reply;
    }

    /** After a conflict: takes the session to what others have committed, and offers its orders again, or some of them. */
    async rebase(why = "", kind: Ending["kind"] = "conflict", wanted: (order: Order) => boolean = () => true): Promise<Reply> {
        const orders = this.orders.filter(wanted);
        const reply = await this.revert();
        if (reply.word === "OK") {
            this.ending = { kind, text: why };
            this.kept = [...orders, ...this.kept];
            this.changed();
        }
        return reply;
    }

    /** Gives the kept orders once more, one by one; those that are refused now stay kept, see `refusals`. */
    async reapply(): Promise<Outcome[]> {
        const outcomes: Outcome[] = [];
        for (const order of [...this.kept]) {
            const reply = await this.give(order);
            outcomes.push({ order, reply });
            if (this.state !== "open") {
                break;
            }
            if (reply.word === "OK") {
                this.keepOnly(one => one !== order);
            } else {
                this.refusals.set(order, reply);
            }
        }
        this.changed();
        return outcomes;
    }

    /** Whether a change can be dropped without the others. */
    mayTakeBack(path: string, entry: boolean): boolean {
        return this.orders.some(order => isWithin(order, path, entry));
    }

    /** Drops a change, and makes all others anew; those that are refused then are kept. */
    async takeBack(path: string, entry: boolean): Promise<Reply> {
        this.remaking = true;
        try {
            const reply = await this.rebase("", "rest", order => !isWithin(order, path, entry));
            if (reply.word === "OK") {
                await this.reapply();
            }
            return reply;
        } finally {
            this.remaking = false;
            this.changed();
        }
    }

    /** Asks for a sign of life: an answer tells whether the session has been ended, a loss is told by itself. */
    check(): void {
        this.connection.check();
    }

    /** Drops what was kept, and what there was to say about it. */
    forget(): void {
        this.ending = undefined;
        this.keepOnly(() => false);
    }

    private async give(order: Order): Promise<Reply> {
        const reply = await this.request(...orderLines(order));
        if (reply.word === "OK") {
            this.orders = remember(this.orders, order);
            this.changed();
        }
        return reply;
    }

    private keepOnly(wanted: (order: Order) => boolean): void {
        this.kept = this.kept.filter(wanted);
        this.refusals = new Map([...this.refusals].filter(([order]) => this.kept.includes(order)));
        this.changed();
    }

    private async refusedCommit({ seconds }: CommitPlan, reply: Reply): Promise<void> {
        if (seconds > 0) {
            await this.request("SET commits.trial 0");
        }
        const dirty = this.orders.length > 0 ? await this.request("DIRTY") : undefined;
        if (dirty?.data[0]?.text === "0") {
            await this.rebase(reply.text);
        }
    }

    /** Remembers the trial that has begun; what a trial before it changed is part of it. */
    private async begin(at: Requester, orders: Order[]): Promise<void> {
        const running = await unlessRefused(trial(at));
        if (running) {
            this.onTrial = { commit: running.commit, end: running.end, orders: [...this.onTrial?.orders ?? [], ...orders] };
        }
    }

    /** Nobody inherits what another user has ordered. */
    private disown(): void {
        Object.assign(this, { orders: [], kept: [], ending: undefined, asked: undefined, onTrial: undefined });
    }

    private async begun(client: Client, gone?: Ending): Promise<void> {
        await this.settle(client, false);
        if (gone) {
            this.keep(gone);
        }
    }

    private async resumed(client: Client): Promise<void> {
        const dirty = await client.request("DIRTY");
        const clean = dirty.data[0]?.text === "0";
        await this.settle(client, true, !clean);
        if (clean) {
            this.orders = [];
        }
    }

    /** A commit that was under way when the connection broke may have been carried out meanwhile. */
    private async settle(client: Client, goesOn: boolean, dirty = false): Promise<void> {
        const asked = this.asked;
        if (!asked) {
            return;
        }
        const fate: Fate = dirty ? { carriedOut: "no" } : await fateOf(client, asked, this.user, goesOn);
        if (dirty && asked.seconds > 0) {
            await client.request("SET commits.trial 0");
        }
        if (fate.commit?.state === "trial") {
            await this.begin(client, asked.orders);
        }
        const back = fate.carriedOut !== "yes" || fate.commit?.state === "undone" ? asked.orders : [];
        if (dirty) {
            this.orders = [...back, ...this.orders];
        } else if (back.length > 0) {
            this.ending = { kind: fate.commit?.state === "undone" ? "undone" : "lost", text: "" };
            this.kept = [...back, ...this.kept];
        }
        this.asked = undefined;
        this.fate = fate;
    }

    private lost(): void {
        if (this.asked) {
            this.asked.orders = [...this.asked.orders, ...this.orders];
            this.orders = [];
        }
    }

    /** What the session had taken is gone with it: it is kept here. */
    private keep(ending: Ending): void {
        this.ending = ending;
        this.kept = [...this.orders, ...this.kept];
        this.orders = [];
    }

    protected override changed(): void {
        const { user, id, permissions } = this.connection;
        const { orders, kept, ending, asked, onTrial } = this;
        if (user !== "") {
            this.memory?.save(JSON.stringify({ user, id, permissions, orders, kept, ending, asked, onTrial } satisfies Memory));
        }
        super.changed();
    }
}
