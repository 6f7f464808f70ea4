// The connection that a session stands on: logs in, keeps the session alive, tries again after a loss, and resumes.
import { endingOf, grantedBy, nothing } from "./log-in";
import type { Ending, Permissions } from "./log-in";
import { Client, ConnectionLost, escape } from "./protocol";
import type { DataLine, Reply, Transport } from "./protocol";

export type State =
    | "connecting"
    | "open"
    /** The connection is gone; it is tried again by itself, until it is back. */
    | "lost"
    /** The daemon has ended the session, or refused the log-in: nothing happens until start() is called again. */
    | "ended";

export interface ConnectionOptions {
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

/** What happens to a connection, told to the session that stands on it. */
export interface Watcher {
    /** Another user has come in than the one whose session was to go on. */
    onStranger(): void;
    /** The session goes on. Nobody else may ask before this is through. */
    onResumed(client: Client): Promise<void>;
    /** A new session has begun; `gone`: in the place of one that ended like this. Nobody else may ask before this is through. */
    onBegun(client: Client, gone?: Ending): Promise<void>;
    onLost(): void;
    onEnded(ending: Ending): void;
    /** Called after each of the others, and after every change of state. */
    onChange(): void;
}

const triesToResume = 6;
// Behind a loading of the page: another window may have the session.
const triesToResumeAnew = 3;

type Word = "LOGIN" | "LOGINFORCE" | "RESUME";

export class Connection {
    state: State = "connecting";
    permissions: Permissions = nothing;
    user = "";
    /** The number that a session is resumed by; "" where there is none. */
    id = "";
    /** What the system says of a connection that is lost, if it says anything. */
    problem?: string;
    private readonly options: ConnectionOptions;
    private readonly watcher: Watcher;
    private client?: Client;
    private attempts = 0;
    private retry?: ReturnType<typeof setTimeout>;
    private alive?: ReturnType<typeof setInterval>;
    private tries = 0;
    /** The user of the page before this one, whose session goes on. */
    private resumes?: string;

    constructor(options: ConnectionOptions, watcher: Watcher, before?: { user: string; id: string; permissions: Permissions }) {
        this.options = options;
        this.watcher = watcher;
        if (before) {
            this.id = before.id;
            this.permissions = before.permissions;
            this.resumes = before.user;
        }
    }

    /** Logs in, or resumes; with force, every other session that may write is ended first. */
    async start(force: boolean): Promise<void> {
        this.stop();
        this.state = "connecting";
        this.watcher.onChange();
        await this.attempt(force ? "LOGINFORCE" : this.id ? "RESUME" : "LOGIN");
    }

    /** Logs out and stays out. */
    async end(): Promise<void> {
        const client = this.client;
        this.state = "ended";
        await client?.request("LOGOUT").catch(() => undefined);
        this.stop();
        this.watcher.onChange();
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

    /** Asks for a sign of life: an answer tells whether the session has been ended, a loss is told by itself. */
    check(): void {
        if (this.state === "open" && !this.client?.busy) {
            this.request("NOOP").catch(() => undefined);
        }
    }

    private async attempt(word: Word): Promise<void> {
        const mine = ++this.attempts;
        let client: Client | undefined;
        try {
            this.user ||= await this.options.user();
            if (mine !== this.attempts) {
                return;
            }
            if (this.resumes !== undefined && this.resumes !== this.user) {
                this.id = "";
                this.watcher.onStranger();
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

    private async logIn(client: Client, word: Word): Promise<void> {
        let gone: Ending | undefined;
        if (word === "RESUME") {
            const resumed = await client.request(`RESUME ${this.id}`);
            if (resumed.word === "OK") {
                await this.watcher.onResumed(client);
                this.opened();
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
        await this.watcher.onBegun(client, gone);
        this.id = id;
        this.opened();
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
        this.watcher.onChange();
    }

    private lost(client?: Client, problem?: string): void {
        if (this.state === "ended" || client !== this.client) {
            return;
        }
        this.stop();
        this.state = "lost";
        this.problem = problem;
        this.watcher.onLost();
        const pause = Math.min((this.options.pause ?? 500) * 2 ** this.tries, this.options.longestPause ?? 10000);
        this.tries += 1;
        this.retry = setTimeout(() => void this.attempt(this.id ? "RESUME" : "LOGIN"), pause);
        this.watcher.onChange();
    }

    private ended(ending: Ending): void {
        this.id = "";
        this.watcher.onEnded(ending);
        this.state = "ended";
        this.stop();
        this.watcher.onChange();
    }

    private stop(): void {
        clearTimeout(this.retry);
        clearInterval(this.alive);
        const client = this.client;
        this.client = undefined;
        client?.close();
    }
}
