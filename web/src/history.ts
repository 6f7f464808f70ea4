// The commits that have been made, kept up to date: a watch of its own connection tells of new ones, and while one
// is on trial it is asked again and again what became of it. No React.
import { Refusal, admin, commitNumbers, commitOf } from "./model";
import { Observable } from "./observable";
import { pendingOf } from "./pending-changes";
import { ConnectionLost } from "./protocol";
import type { Client } from "./protocol";
import type { Commit } from "./model";
import type { Session } from "./session";

const page = 20;
const lookEvery = 1000;
const watchAgain = 5000;

export class HistoryFeed extends Observable {
    commits: Commit[] = [];
    /** Whether there are older commits than those that were fetched. */
    more = false;
    loaded = false;
    /** Why there is nothing to show, as the daemon words it. */
    problem = "";
    private readonly session: Session;
    private wanted = page;
    private oldest = Infinity;
    private running = false;
    /** Counts the starts: what waited for an answer since an earlier one ends. */
    private round = 0;
    private client?: Client;
    private timer?: ReturnType<typeof setTimeout>;
    private again?: ReturnType<typeof setTimeout>;
    private turn: Promise<void> = Promise.resolve();

    constructor(session: Session) {
        super();
        this.session = session;
    }

    start(): void {
        this.running = true;
        this.round += 1;
        void this.refresh();
        void this.watch(this.round);
    }

    stop(): void {
        this.running = false;
        clearTimeout(this.timer);
        clearTimeout(this.again);
        this.client?.close();
        this.client = undefined;
    }

    /** Fetches older commits, too. */
    showMore(): void {
        this.wanted += page;
        void this.refresh();
    }

    /** Fetches those down to a number, too. */
    reach(number: number): void {
        if (number < this.oldest) {
            this.oldest = number;
            void this.refresh();
        }
    }

    /** One refresh after the other: the newest list is what stays. */
    refresh(): Promise<void> {
        this.turn = this.turn.then(() => this.fetch());
        return this.turn;
    }

    private async fetch(): Promise<void> {
        if (!this.running) {
            return;
        }
        try {
            const numbers = await commitNumbers(this.session);
            const shown = numbers.filter((number, at) => at < this.wanted || number >= this.oldest);
            // Only its state changes once a commit has ended, and that only of one on trial.
            const known = new Map(this.commits.filter(one => settled.has(one.state)).map(one => [one.number, one]));
            const found = await Promise.all(shown.map(async number => known.get(number) ?? this.fetchOne(number)));
            this.commits = found.filter(one => one !== undefined);
            this.more = numbers.length > shown.length;
            this.problem = "";
            this.lookAgain();
        } catch (error) {
            if (!(error instanceof Refusal) && !(error instanceof ConnectionLost)) {
                throw error;
            }
            this.problem = error.message;
        }
        this.loaded = true;
        this.changed();
    }

    /** Undefined for a commit that has been removed from the archive meanwhile. */
    private async fetchOne(number: number): Promise<Commit | undefined> {
        try {
            return await commitOf(this.session, number);
        } catch (error) {
            if (error instanceof Refusal) {
                return undefined;
            }
            throw error;
        }
    }

    /** A commit that is still being made, or on trial, becomes another one without a word of the watch. */
    private lookAgain(): void {
        clearTimeout(this.timer);
        if (this.running && this.commits.some(one => one.state === "trial" || one.state === "open")) {
            void pendingOf(this.session).refresh();
            this.timer = setTimeout(() => void this.refresh(), lookEvery);
        }
    }

    private async watch(round: number): Promise<void> {
        const wanted = () => this.running && round === this.round;
        let client: Client | undefined;
        try {
            client = await this.session.side();
            if (!wanted()) {
                return;
            }
            this.client = client;
            // Nothing tells when the watch has begun: it begins with the first commit that this refresh may miss.
            const [newest = 0] = await commitNumbers(client);
            void this.refresh();
            await admin(client, "commits.watch", [String(newest + 1)], () => void this.refresh());
        } catch (error) {
            if (!(error instanceof ConnectionLost || error instanceof Refusal)) {
                throw error;
            }
        } finally {
            client?.close();
        }
        if (wanted()) {
            this.again = setTimeout(() => {
                void this.refresh();
                void this.watch(round);
            }, watchAgain);
        }
    }
}

const settled = new Set(["done", "undone", "failed"]);
