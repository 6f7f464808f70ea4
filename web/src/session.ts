// A session with the daemon that outlives its connections: logs in, keeps itself alive, resumes after a loss,
// and remembers the orders that a session has taken with it, to be offered again.
import { Client, ConnectionLost, byteLength, escape, longestWord } from "./protocol";
import type { DataLine, Reply, Requester, Transport } from "./protocol";

/** A change that this session has ordered; path and names are escaped as they go over the wire. */
export type Order =
    | { verb: "SET"; path: string; value: string }
    | { verb: "ADD" | "DEL"; path: string; name: string }
    | { verb: "MOVE"; path: string; name: string; before: string };

export type State =
    | "connecting"
    | "open"
    /** The connection is gone; it is tried again by itself, until it is back. */
    | "lost"
    /** The daemon has ended the session, or refused the log-in: nothing happens until start() is called again. */
    | "ended";

/** Why a session ended, or why its changes are gone although a new one is open. */
export interface Ending {
    kind: "timeout" | "forced" | "logout" | "refused" | "lost";
    /** As the daemon words it. */
    text: string;
}

export interface Permissions {
    read: boolean;
    write: boolean;
    exec: boolean;
}

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
}

const triesToResume = 6;
const nothing: Permissions = { read: false, write: false, exec: false };

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
    private readonly options: SessionOptions;
    private readonly listeners = new Set<() => void>();
    private client?: Client;
    private id = "";
    private generation = 0;
    private attempts = 0;
    private retry?: ReturnType<typeof setTimeout>;
    private alive?: ReturnType<typeof setInterval>;
    private tries = 0;

    constructor(options: SessionOptions) {
        this.options = options;
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
        await this.attempt(force ? "LOGINFORCE" : "LOGIN");
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

    /** Sends a change. What is refused leaves nothing behind; what is taken is remembered. */
    async order(order: Order): Promise<Reply> {
        const [command, lines] = orderLines(order);
        const reply = await this.request(command, lines);
        if (reply.word === "OK") {
            this.orders = remember(this.orders, order);
            this.kept = this.kept.filter(one => !sameParameter(one, order));
            this.changed();
        }
        return reply;
    }

    /** Writes this session's changes to the disk. Those that a commit has dropped as it failed are kept. */
    async commit(): Promise<Reply> {
        const reply = await this.request("COMMIT");
        if (reply.word === "OK") {
            this.orders = [];
            this.changed();
        } else if (this.state === "open" && this.orders.length > 0) {
            const dirty = await this.request("DIRTY");
            if (dirty.data[0]?.text === "0") {
                await this.rebase();
            }
        }
        return reply;
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

    /** After a conflict: takes the session to what others have committed, and offers its orders again. */
    async rebase(): Promise<Reply> {
        const orders = this.orders;
        const reply = await this.revert();
        if (reply.word === "OK") {
            this.kept = [...orders, ...this.kept];
            this.changed();
        }
        return reply;
    }

    /** Gives the kept orders once more, one by one; those that are refused now stay kept. */
    async reapply(): Promise<Outcome[]> {
        const outcomes: Outcome[] = [];
        for (const order of [...this.kept]) {
            const reply = await this.order(order);
            outcomes.push({ order, reply });
            if (this.state !== "open") {
                break;
            }
            if (reply.word === "OK") {
                this.kept = this.kept.filter(one => one !== order);
            }
        }
        this.changed();
        return outcomes;
    }

    /** Asks for a sign of life: an answer tells whether the session has been ended, a loss is told by itself. */
    check(): void {
        if (this.state === "open" && !this.client?.busy) {
            this.request("NOOP").catch(() => undefined);
        }
    }

    /** Drops what was kept, and what there was to say about it. */
    forget(): void {
        this.kept = [];
        this.ending = undefined;
        this.changed();
    }

    private async attempt(word: "LOGIN" | "LOGINFORCE" | "RESUME"): Promise<void> {
        this.attempts += 1;
        const mine = this.attempts;
        let client: Client | undefined;
        try {
            this.user ||= await this.options.user();
            if (mine !== this.attempts) {
                return;
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
        if (word === "RESUME") {
            const resumed = await client.request(`RESUME ${this.id}`);
            if (resumed.word === "OK") {
                await this.resumed(client);
                return;
            }
            // The daemon may not have seen yet that the old connection is gone.
            if (resumed.word === "INUSE" && this.tries < triesToResume) {
                this.lost(client, resumed.text);
                return;
            }
            this.keep({ kind: "lost", text: resumed.text });
        }
        const reply = await client.request(`${word === "LOGINFORCE" ? word : "LOGIN"} ${escape(this.user)}`);
        if (reply.word !== "OK") {
            this.ended({ kind: "refused", text: reply.text });
            return;
        }
        const facts = reply.data.map(line => line.text);
        const granted = facts.find(fact => fact.startsWith("PERMS "))?.split(" ") ?? [];
        this.permissions = {
            read: granted.includes("read"),
            write: granted.includes("write"),
            exec: granted.includes("exec"),
        };
        this.id = facts.find(fact => fact.startsWith("SESSION "))?.slice(8) ?? "";
        this.opened();
    }

    /** A commit that was under way when the connection broke may have been carried out meanwhile. */
    private async resumed(client: Client): Promise<void> {
        const dirty = await client.request("DIRTY");
        if (dirty.data[0]?.text === "0") {
            this.orders = [];
        }
        this.opened();
    }

    private opened(): void {
        this.state = "open";
        this.problem = undefined;
        this.tries = 0;
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
        this.generation += 1;
        for (const listener of [...this.listeners]) {
            listener();
        }
    }
}

// Setting one of these edits whole files, each time anew.
const edits: ReadonlySet<string> = new Set(["commits.undo", "commits.load"]);

const endings: Record<string, Ending["kind"]> = {
    "NO timed out": "timeout",
    "NO logged out": "logout",
    "INUSE you have been logged out": "forced",
};

function endingOf(reply: Reply): Ending | undefined {
    const kind = endings[`${reply.word} ${reply.text}`];
    return kind && { kind, text: reply.text };
}

/** A later value of a parameter takes the place of an earlier one, unless the shape of the tree changed since. */
function remember(orders: Order[], order: Order): Order[] {
    const reshaped = orders.reduce((last, one, at) => (one.verb === "SET" && !edits.has(one.path) ? last : at), -1);
    return [...orders.filter((one, at) => at <= reshaped || !sameParameter(one, order)), order];
}

function sameParameter(one: Order, other: Order): boolean {
    return one.verb === "SET" && other.verb === "SET" && one.path === other.path;
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
