// What this session would commit, whether somebody else has committed meanwhile, and the trial that runs: asked for
// after every change of the session, and now and then.
import * as model from "./model";
import { newestCommit } from "./commit";
import type { Change, Commit, RunningTrial } from "./model";
import { Observable } from "./observable";
import { OthersTrial } from "./others-trial";
import { OwnTrial } from "./own-trial";
import { unescape } from "./protocol";
import { touches } from "./orders";
import type { Order } from "./orders";
import type { Session } from "./session";

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

export class PendingChanges extends Observable {
    changes: Change[] = [];
    /** Others have committed, and this session has changes that they do not know of. */
    behind = false;
    /** What they are, the oldest first, as far as their records can be read; and which of these changes they made, too. */
    others: Commit[] = [];
    clashes: Change[] = [];
    trial?: RunningTrial;
    /** The trial is being undone, in the daemon's words. */
    trialText = "";
    /** The last commit of this page that was on trial, until its end has been read. */
    own?: OwnTrial;
    /** The trials of other sessions. */
    readonly othersTrial = new OthersTrial();
    /** Grows when the configuration may have become another one without an order of this session. */
    foreign = 0;
    private readonly session: Session;
    private timer?: ReturnType<typeof setTimeout>;
    private running = false;
    private again = false;
    private seenState?: string;
    private seenUpdates = 0;
    /** The session's version when it was last up to date, and the newest commit by then. */
    private known?: { version: number; newest?: number };

    constructor(session: Session) {
        super();
        this.session = session;
        session.subscribe(() => this.soon(pause));
        this.soon(0);
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

    /** What there was to say of the end of a trial has been read. */
    dismiss(): void {
        this.own = undefined;
        this.changed();
    }

    /** The same of a trial of somebody else. */
    dismissOthers(): void {
        this.othersTrial.ended = undefined;
        this.changed();
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
        if (this.seenState !== "open" || this.seenUpdates !== session.updates) {
            this.seenState = "open";
            this.seenUpdates = session.updates;
            this.foreign += 1;
        }
        const changes = await this.readChanges();
        const text = await model.info(session, "commits.trial").catch(() => "");
        this.trial = model.trialOf(text);
        this.trialText = this.trial ? "" : text;
        this.follow();
        await this.othersTrial.look(session, this.trial, text, this.own?.trial.commit);
        const current = await session.request("CURRENT");
        this.behind = current.word === "ERR";
        if (this.behind && (changes.length === 0 || session.orders.length === 0) && session.permissions.write) {
            const updated = await session.request("UPDATE");
            if (updated.word === "OK") {
                this.behind = false;
                this.foreign += 1;
                this.known = undefined;
            }
        }
        // What others have changed differs, too, from the copy of a session that is behind.
        this.changes = this.behind ? changes.filter(({ path }) => touches(session.orders, path)) : changes;
        await this.readOthers();
        if (this.summary() !== before) {
            this.changed();
        }
    }

    /** Keeps a commit of this session on trial by itself, if it can. */
    private follow(): void {
        const { session, trial } = this;
        const mine = session.onTrial;
        if (!mine || mine.commit === this.own?.trial.commit) {
            return;
        }
        this.own?.stop();
        const ended: RunningTrial = { ...mine, user: session.user, left: 0, text: "" };
        const own = new OwnTrial(session, trial?.commit === mine.commit ? trial : ended, () => {
            if (own.over) {
                session.trialOver(own.step === "cancelled" || own.step === "expired");
                void this.refresh();
            }
            this.changed();
        });
        this.own = own;
        this.changed();
    }

    private async readOthers(): Promise<void> {
        const { session } = this;
        if (!this.behind) {
            this.others = [];
            this.clashes = [];
            const { version } = session;
            if (this.known?.version !== version) {
                this.known = { version, newest: await newestCommit(session) };
            }
            return;
        }
        const since = this.known?.newest;
        const numbers = since === undefined ? [] : (await model.commitNumbers(session)).filter(number => number > since);
        if (numbers.length !== this.others.length) {
            const others = await Promise.all(numbers.map(number => model.commitOf(session, number)));
            const theirs = await Promise.all(numbers.map(number =>
                model.unlessRefused(model.changes(session, `commits.history.${number}.changes`))));
            const paths = new Set(theirs.flatMap(found => found ?? []).map(({ path }) => path));
            this.others = others.sort((a, b) => a.number - b.number);
            this.clashes = this.changes.filter(({ path }) => paths.has(path));
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
        const { changes, behind, others, clashes, trial, trialText, othersTrial, foreign } = this;
        return JSON.stringify([changes, behind, others, clashes, trial, trialText, othersTrial.ended, foreign]);
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
