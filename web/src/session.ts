// A session with the daemon that outlives its connections: logs in, keeps itself alive, resumes after a loss,
// and remembers the orders that a session has taken with it, to be offered again.
import { fateOf, newestCommit, notSent, prepareCommit } from "./commit";
import type { Asked, CommitPlan, Fate } from "./commit";
import { endingOf, grantedBy, nothing } from "./log-in";
import type { Ending, Permissions } from "./log-in";
import { recalled } from "./memory";
import type { Memory, OnTrial } from "./memory";
import { trial, unlessRefused } from "./model";
import type { Commit } from "./model";
import { isWithin, orderLines, remember, sameParameter } from "./orders";
import type { Order } from "./orders";
import { Client, ConnectionLost, escape } from "./protocol";
import type { DataLine, Reply, Requester, Transport } from "./protocol";

export type State =
    | "connecting"
    | "open"
    /** The connection is gone; it is tried again by itself, until it is back. */
    | "lost"
    /** The daemon has ended the session, or refused the log-in: nothing happens until start() is called again. */
    | "ended";

export interface Outcome {
    order: Order;
    reply: Reply;
}

export interface SessionOptions {
    connect: () => Transport;
    /** The account that the socket shows as its peer. */
    user: () => Promise<string>;
    /** Milliseconds between two signs of life; 0: none. */
    keepAlive?: number;
    /** Whether somebody looks at the page: an idle session is only kept alive for those. */
    visible?: () => boolean;
    /** Milliseconds before the first new try after a loss; doubled with each further one, up to `longestPause`. */
    pause?: number;
    longestPause?: number;
    /** Keeps a text for the same window's next page. */
    memory?: { load(): string | null; save(text: string): void };
}

const triesToResume = 6;
// Behind a loading of the page: another window may have the session.
const triesToResumeAnew = 3;
const forGood: CommitPlan = { comment: "", seconds: 0 };

export class Session implements Requester {
    state: State = "connecting";
    permissions: Permissions = nothing;
    user = "";
    /** Set when the session ended, or when a new one had to take the place of one that was lost. */
    ending?: Ending;
    /** What the system says of a connection that is lost, if it says anything. */
    problem?: string;
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
    private readonly options: SessionOptions;
    private readonly listeners = new Set<() => void>();
    private client?: Client;
    private id = "";
    private generation = 0;
    private attempts = 0;
    private retry?: ReturnType<typeof setTimeout>;
    private alive?: ReturnType<typeof setInterval>;
    private tries = 0;
    private asked?: Asked;
    private comment = "";
    /** The user of the page before this one, whose session goes on. */
    private resumes?: string;

    constructor(options: SessionOptions) {
        this.options = options;
        const found = recalled(options.memory?.load());
        Object.assign(this, { ...found, user: "" });
        this.resumes = found?.user;
    }

    /** How many orders this page holds that the daemon does not have any more. */
    get held(): number {
        return this.kept.length + (this.asked?.orders.length ?? 0);
    }

    /** Calls the listener after every change of state, orders or permissions. Returns what ends that. */
    subscribe(listener: () => void): () => void {
        this.listeners.add(listener);
        return () => this.listeners.delete(listener);
    }

    /** Grows with every change that subscribers are told of. */
    get version(): number {
        return this.generation;
    }

    /** Logs in; with force, every other session that may write is ended first. */
    async start(force = false): Promise<void> {
        this.stop();
        this.state = "connecting";
        if (this.kept.length === 0) {
            this.ending = undefined;
        }
        this.changed();
        await this.attempt(force ? "LOGINFORCE" : this.id ? "RESUME" : "LOGIN");
    }

    /** Logs out and stays out. */
    async end(): Promise<void> {
        const client = this.client;
        this.state = "ended";
        this.ending = { kind: "logout", text: "" };
        await client?.request("LOGOUT").catch(() => undefined);
        this.stop();
        this.changed();
    }

    async request(command: string, lines?: string[], onOutput?: (line: DataLine) => void): Promise<Reply> {
        const client = this.client;
        if (this.state !== "open" || !client) {
            throw new ConnectionLost("there is no session");
        }
        const reply = await client.request(command, lines, onOutput);
        const ending = endingOf(reply);
        if (ending && client === this.client) {
            this.ended(ending);
        }
        return reply;
    }

    /**
     * A second connection of the same user, logged in: for actions that run for long. The caller closes it, and
     * its session does not wait for long to be resumed. No other connection's tags begin as its own do.
     */
    async side(): Promise<Client> {
        const client = new Client(this.options.connect(), `s${Math.random().toString(36).slice(2, 10)}`);
        const reply = await client.request(`LOGIN ${escape(this.user)}`, ["1 timeout 60"]);
        if (reply.word !== "OK") {
            client.close();
            throw new ConnectionLost(reply.text);
        }
        return client;
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
        if (this.state === "open" && !this.client?.busy) {
            this.request("NOOP").catch(() => undefined);
        }
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

    private async attempt(word: "LOGIN" | "LOGINFORCE" | "RESUME"): Promise<void> {
        const mine = ++this.attempts;
        let client: Client | undefined;
        try {
            this.user ||= await this.options.user();
            if (mine !== this.attempts) {
                return;
            }
            if (this.resumes !== undefined && this.resumes !== this.user) {
                // Nobody inherits what another user has ordered.
                Object.assign(this, { id: "", orders: [], kept: [], ending: undefined, asked: undefined, onTrial: undefined });
                word = "LOGIN";
            }
            client = new Client(this.options.connect());
            this.client = client;
            client.onClosed = problem => this.lost(client, problem);
            await this.logIn(client, word);
        } catch (error) {
            // A loss has been told by the connection itself.
            if (!(error instanceof ConnectionLost)) {
                this.ended({ kind: "refused", text: error instanceof Error ? error.message : String(error) });
            }
        }
    }

    private async logIn(client: Client, word: "LOGIN" | "LOGINFORCE" | "RESUME"): Promise<void> {
        let gone: Ending | undefined;
        if (word === "RESUME") {
            const resumed = await client.request(`RESUME ${this.id}`);
            if (resumed.word === "OK") {
                await this.resumed(client);
                return;
            }
            // The daemon may not have seen yet that the old connection is gone.
            if (resumed.word === "INUSE" && this.tries < (this.resumes === undefined ? triesToResume : triesToResumeAnew)) {
                this.lost(client, this.resumes === undefined ? resumed.text : undefined);
                return;
            }
            // That the number of a session is not known says nothing to people.
            gone = endingOf(resumed) ?? { kind: "lost", text: "" };
        }
        const reply = await client.request(`${word === "LOGINFORCE" ? word : "LOGIN"} ${escape(this.user)}`);
        if (reply.word !== "OK") {
            this.ended({ kind: "refused", text: reply.text });
            return;
        }
        const { permissions, id } = grantedBy(reply);
        this.permissions = permissions;
        await this.settle(client, false);
        if (gone) {
            this.keep(gone);
        }
        this.id = id;
        this.opened();
    }

    private async resumed(client: Client): Promise<void> {
        const dirty = await client.request("DIRTY");
        const clean = dirty.data[0]?.text === "0";
        await this.settle(client, true, !clean);
        if (clean) {
            this.orders = [];
        }
        this.opened();
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

    private opened(): void {
        this.state = "open";
        this.problem = undefined;
        this.tries = 0;
        this.resumes = undefined;
        const every = this.options.keepAlive ?? 30000;
        if (every > 0) {
            this.alive = setInterval(() => {
                if (this.options.visible?.() ?? true) {
                    this.check();
                }
            }, every);
        }
        this.changed();
    }

    private lost(client?: Client, problem?: string): void {
        if (this.state === "ended" || client !== this.client) {
            return;
        }
        this.stop();
        this.state = "lost";
        this.problem = problem;
        if (this.asked) {
            this.asked.orders = [...this.asked.orders, ...this.orders];
            this.orders = [];
        }
        const pause = Math.min((this.options.pause ?? 500) * 2 ** this.tries, this.options.longestPause ?? 10000);
        this.tries += 1;
        this.retry = setTimeout(() => void this.attempt(this.id ? "RESUME" : "LOGIN"), pause);
        this.changed();
    }

    private ended(ending: Ending): void {
        this.keep(ending);
        this.state = "ended";
        this.stop();
        this.changed();
    }

    /** What the session had taken is gone with it: it is kept here. */
    private keep(ending: Ending): void {
        this.ending = ending;
        this.kept = [...this.orders, ...this.kept];
        this.orders = [];
        this.id = "";
    }

    private stop(): void {
        clearTimeout(this.retry);
        clearInterval(this.alive);
        const client = this.client;
        this.client = undefined;
        client?.close();
    }

    private changed(): void {
        const { user, id, permissions, orders, kept, ending, asked, onTrial } = this;
        if (user !== "") {
            this.options.memory?.save(JSON.stringify({ user, id, permissions, orders, kept, ending, asked, onTrial } satisfies Memory));
        }
        this.generation += 1;
        for (const listener of [...this.listeners]) {
            listener();
        }
    }
}
