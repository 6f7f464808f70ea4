// What this session would commit, whether somebody else has committed meanwhile, and the trial that runs: asked for
// after every change of the session, and now and then.
import * as model from "./model";
import type { Change, RunningTrial } from "./model";
import { OwnTrial } from "./own-trial";
import { unescape } from "./protocol";
import type { Order, Session } from "./session";

// Milliseconds between two looks at what others do, and from a change to the look at it.
const every = 5000;
const everyOnTrial = 2000;
const pause = 80;

const all = new WeakMap<Session, PendingChanges>();

/** The one of a session; it lives as long as that. */
export function pendingOf(session: Session): PendingChanges {
    let found = all.get(session);
    if (!found) {
        found = new PendingChanges(session);
        all.set(session, found);
    }
    return found;
}

export class PendingChanges {
    changes: Change[] = [];
    /** Others have committed, and this session has changes that they do not know of. */
    behind = false;
    trial?: RunningTrial;
    /** The trial is being undone, in the daemon's words. */
    trialText = "";
    /** The last commit of this page that was on trial, until its end has been read. */
    own?: OwnTrial;
    /** Grows when the configuration may have become another one without an order of this session. */
    foreign = 0;
    /** Grows with everything that listeners are told. */
    version = 0;
    private readonly session: Session;
    private readonly listeners = new Set<() => void>();
    private timer?: ReturnType<typeof setTimeout>;
    private running = false;
    private again = false;
    private seenState?: string;

    constructor(session: Session) {
        this.session = session;
        session.subscribe(() => this.soon(pause));
        this.soon(0);
    }

    subscribe(listener: () => void): () => void {
        this.listeners.add(listener);
        return () => this.listeners.delete(listener);
    }

    /** Looks now. */
    async refresh(): Promise<void> {
        if (this.running) {
            this.again = true;
            return;
        }
        this.running = true;
        clearTimeout(this.timer);
        try {
            await this.look();
        } catch {
            // The session tells of a loss itself.
        }
        this.running = false;
        this.soon(this.again ? pause : this.trial ? everyOnTrial : every);
        this.again = false;
    }

    /** Behind a commit on trial: the page keeps it by itself if it can. */
    async began(): Promise<void> {
        const running = await model.trial(this.session).catch(() => undefined);
        if (running) {
            this.own = new OwnTrial(this.session, running, () => {
                this.tell();
                if (this.own?.over) {
                    void this.refresh();
                }
            });
            this.tell();
        }
    }

    /** What there was to say of the end of a trial has been read. */
    dismiss(): void {
        this.own = undefined;
        this.tell();
    }

    private soon(milliseconds: number): void {
        if (this.running) {
            this.again = true;
            return;
        }
        clearTimeout(this.timer);
        this.timer = setTimeout(() => void this.refresh(), milliseconds);
    }

    private async look(): Promise<void> {
        const session = this.session;
        if (session.state !== "open") {
            this.seenState = session.state;
            return;
        }
        const before = this.summary();
        if (this.seenState !== "open") {
            this.seenState = "open";
            this.foreign += 1;
        }
        this.changes = await this.readChanges();
        const text = await model.info(session, "commits.trial").catch(() => "");
        this.trial = model.trialOf(text);
        this.trialText = this.trial ? "" : text;
        const current = await session.request("CURRENT");
        this.behind = current.word === "ERR";
        if (this.behind && this.changes.length === 0 && session.permissions.write) {
            const updated = await session.request("UPDATE");
            if (updated.word === "OK") {
                this.behind = false;
                this.foreign += 1;
            }
        }
        if (this.summary() !== before) {
            this.tell();
        }
    }

    private tell(): void {
        this.version += 1;
        for (const listener of [...this.listeners]) {
            listener();
        }
    }

    // Who may not run actions sees the orders instead.
    private async readChanges(): Promise<Change[]> {
        try {
            return await model.changes(this.session);
        } catch (error) {
            if (error instanceof model.Refusal) {
                return this.session.orders.map(changeOf);
            }
            throw error;
        }
    }

    private summary(): string {
        return JSON.stringify([this.changes, this.behind, this.trial, this.trialText, this.foreign]);
    }
}

/** An order as a change, for want of what it replaces. A value is left out: it might be a secret. */
export function changeOf(order: Order): Change {
    switch (order.verb) {
        case "SET":
            return { path: order.path };
        case "ADD":
            return { path: `${order.path}.${order.name}`, after: "" };
        case "DEL":
            return { path: `${order.path}.${order.name}`, before: "" };
        case "MOVE":
            return { path: order.path, after: unescape(order.name) };
    }
}
