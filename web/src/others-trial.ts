// The trial of a commit that was not made in this session: how it ended is told, since values go back with it.
import { commitOf, unlessRefused } from "./model";
import type { RunningTrial } from "./model";
import type { Requester } from "./protocol";

export interface EndedTrial {
    commit: number;
    user: string;
    /** Otherwise taken back. */
    confirmed: boolean;
}

export class OthersTrial {
    /** The end of the last one, until that has been read. */
    ended?: EndedTrial;
    private seen?: RunningTrial;

    /** The trial that runs now, or the one that is being undone, in the daemon's words; `own` is told of elsewhere. */
    async look(at: Requester, running: RunningTrial | undefined, text: string, own?: number): Promise<void> {
        const { seen } = this;
        if (seen && seen.commit !== own && !running && text === "") {
            const commit = await unlessRefused(commitOf(at, seen.commit));
            if (commit?.state === "done" || commit?.state === "undone") {
                this.ended = { commit: seen.commit, user: seen.user, confirmed: commit.state === "done" };
            }
        }
        if (text === "") {
            this.seen = undefined;
        }
        this.seen = running ?? this.seen;
    }
}
