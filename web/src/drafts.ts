// What has been typed and not been taken by the daemon: it outlives the form that it was typed into.
import { useSyncExternalStore } from "react";
import { Observable } from "./observable";
import type { Reply } from "./protocol";
import type { Session } from "./session";

export interface Draft {
    text: string;
    state: "edited" | "sent" | "refused";
    /** Why it was refused. */
    reply?: Reply;
}

/** One that no order has come of, and whose it is. */
export interface Left extends Draft {
    /** Of the parameter, or of the list that it was to be a new entry of. */
    path: string;
    entry: boolean;
}

const ofEntry = "\0new";

export class Drafts extends Observable {
    private readonly drafts = new Map<string, Draft>();

    get(path: string, entry = false): Draft | undefined {
        return this.drafts.get(path + (entry ? ofEntry : ""));
    }

    /** Without a draft: drops it. */
    set(draft: Draft | undefined, path: string, entry = false): void {
        const key = path + (entry ? ofEntry : "");
        if (draft) {
            this.drafts.set(key, draft);
        } else if (!this.drafts.delete(key)) {
            return;
        }
        this.changed();
    }

    /** What was refused, and what has not been sent. */
    get left(): Left[] {
        return [...this.drafts].filter(([, { state }]) => state !== "sent").map(([key, draft]) => {
            const entry = key.endsWith(ofEntry);
            return { ...draft, entry, path: entry ? key.slice(0, -ofEntry.length) : key };
        });
    }

    /** Drops those of an entry that is gone; without a path all. */
    drop(path = ""): void {
        for (const key of this.drafts.keys()) {
            if (path === "" || key.startsWith(`${path}.`)) {
                this.drafts.delete(key);
            }
        }
        this.changed();
    }
}

const all = new WeakMap<Session, Drafts>();

/** Those of a session; they live as long as that. */
export function draftsOf(session: Session): Drafts {
    let found = all.get(session);
    if (!found) {
        found = new Drafts();
        all.set(session, found);
    }
    return found;
}

/** The same, and the component is drawn anew whenever one of them has changed. */
export function useDrafts(session: Session): Drafts {
    const drafts = draftsOf(session);
    useSyncExternalStore(drafts.subscribe, () => drafts.version);
    return drafts;
}
