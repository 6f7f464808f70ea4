// What a log-in grants, and why a session ends, as the daemon words it and as programs know it.
import type { Reply } from "./protocol";

export interface Permissions {
    read: boolean;
    write: boolean;
    exec: boolean;
}

/** Why a session ended, or why its changes are gone although one is open. */
export interface Ending {
    /**
     * "conflict": a commit dropped them as it failed, or others had committed; "undone": a trial was taken back;
     * "rest": others of them were, one by one.
     */
    kind: "timeout" | "forced" | "logout" | "refused" | "lost" | "conflict" | "undone" | "rest";
    /** As the daemon words it. */
    text: string;
}

const endings: Record<string, Ending["kind"]> = {
    "NO timed out": "timeout",
    "NO logged out": "logout",
    "INUSE you have been logged out": "forced",
};

export function endingOf(reply: Reply): Ending | undefined {
    const kind = endings[`${reply.word} ${reply.text}`];
    return kind && { kind, text: reply.text };
}

export const nothing: Permissions = { read: false, write: false, exec: false };

export function grantedBy(reply: Reply): { permissions: Permissions; id: string } {
    const facts = reply.data.map(line => line.text);
    const granted = facts.find(fact => fact.startsWith("PERMS "))?.split(" ") ?? [];
    return {
        permissions: { read: granted.includes("read"), write: granted.includes("write"), exec: granted.includes("exec") },
        id: facts.find(fact => fact.startsWith("SESSION "))?.slice(8) ?? "",
    };
}
