// The trial of a commit that this page has made. It is kept by the page itself, but only once the machine has
// answered over a new connection: the one that stood before the commit may go on where nobody could come in any more.
import { reachAnew } from "./cockpit-transport";
import { admin, commitOf, trial } from "./model";
import type { RunningTrial } from "./model";
import type { Session } from "./session";

// Milliseconds: from the commit to the first try, between two tries, for one.
const grace = 3000;
const pause = 2000;
const patience = 5000;

export type Step =
    | "waiting"
    | "reaching"
    /** A try has failed, the next one follows. */
    | "failed"
    /** Kept by this page. */
    | "kept"
    /** Kept by somebody's order. */
    | "confirmed"
    /** Taken back by somebody's order. */
    | "cancelled"
    /** Taken back by the machine itself. */
    | "expired";

const last: ReadonlySet<Step> = new Set(["kept", "confirmed", "cancelled", "expired"]);

export class OwnTrial {
    readonly trial: RunningTrial;
    step: Step = "waiting";
    /** Why the last try failed; "" where it was another commit that is on trial now. */
    reason?: string;
    private readonly session: Session;
    private readonly onChange: () => void;
    private timer?: ReturnType<typeof setTimeout>;
    private busy = false;
    private stopped = false;

    constructor(session: Session, running: RunningTrial, onChange: () => void) {
        this.session = session;
        this.trial = running;
        this.onChange = onChange;
        this.later(Math.min(grace, running.left * 400));
    }

    get over(): boolean {
        return last.has(this.step);
    }

    /** Looks now what became of it, behind somebody's decision. */
    look(): void {
        this.later(0);
    }

    /** Another commit has taken the trial over. */
    stop(): void {
        this.stopped = true;
        clearTimeout(this.timer);
    }

    private later(milliseconds: number): void {
        clearTimeout(this.timer);
        if (this.stopped) {
            return;
        }
        this.timer = setTimeout(() => void this.go(), milliseconds);
    }

    private async go(): Promise<void> {
        if (this.busy || this.over || this.stopped) {
            return;
        }
        this.busy = true;
        try {
            const result = await this.result();
            if (result) {
                this.tell(result);
            } else if (Date.now() < this.trial.end) {
                await this.keep();
            }
        } catch (error) {
            this.reason = error instanceof Error ? error.message : String(error);
            this.tell("failed");
        }
        this.busy = false;
        this.later(pause);
    }

    /** What became of it, as far as the session can be asked. */
    private async result(): Promise<Step | undefined> {
        if (this.session.state !== "open") {
            return undefined;
        }
        const { state } = await within(patience, commitOf(this.session, this.trial.commit));
        if (state === "done") {
            return "confirmed";
        }
        // The last second may be lost on the way.
        return state !== "undone" ? undefined : Date.now() > this.trial.end - 1000 ? "expired" : "cancelled";
    }

    private async keep(): Promise<void> {
        this.tell("reaching");
        await reachAnew(patience);
        const opening = this.session.side();
        const side = await within(patience, opening).catch((error: unknown) => {
            opening.then(late => late.close(), () => undefined);
            throw error;
        });
        try {
            const running = await within(patience, trial(side));
            if (running?.commit !== this.trial.commit) {
                throw new Error(running ? "" : cockpit.gettext("no commit is on trial"));
            }
            const reply = await within(patience, admin(side, "commits.confirm"));
            if (reply.word !== "OK") {
                throw new Error(reply.text);
            }
            this.tell("kept");
        } finally {
            side.close();
        }
    }

    private tell(step: Step): void {
        this.step = step;
        this.onChange();
    }
}

function within<T>(milliseconds: number, promise: Promise<T>): Promise<T> {
    return new Promise((resolve, reject) => {
        const timer = setTimeout(() => reject(new Error(cockpit.gettext("no answer in time"))), milliseconds);
        promise.then(resolve, reject).finally(() => clearTimeout(timer));
    });
}
