// The page's address, behind the "#": the tab, and what is shown in it. A section stands there by its path as it goes
// over the wire, so that it is escaped once: #/configure/network.hosts.192%2e0%2e2%2e10. The browser's Back and Forward
// and a changed address lead there, as what leads there in the page changes the address.
import { useCallback, useSyncExternalStore } from "react";
import { quotePath, splitPath } from "./protocol";

// What each tab has shown last: it is found there again.
const last = new Map<string, string>();

const listeners = new Set<() => void>();

function subscribe(listener: () => void): () => void {
    listeners.add(listener);
    cockpit.addEventListener("locationchanged", listener);
    return () => {
        listeners.delete(listener);
        cockpit.removeEventListener("locationchanged", listener);
    };
}

function tabOf(address: string): string {
    return /^#?\/?([^/?]+)/.exec(address)?.[1] ?? "configure";
}

/** What is shown in the tab: with another one open, what was shown last. */
function shownIn(tab: string): string {
    const { hash } = window.location;
    if (tabOf(hash) === tab) {
        const text = /^#?\/?[^/]*\/(.*)$/s.exec(hash)?.[1] ?? "";
        last.set(tab, quotePath(splitPath(text)));
    }
    return last.get(tab) ?? "";
}

/** The tab that the address names; without one, the first. */
export function useTab(): string {
    return useSyncExternalStore(subscribe, () => tabOf(window.location.hash));
}

/** What is shown in a tab. */
export function useShown(tab: string): string {
    return useSyncExternalStore(subscribe, useCallback(() => shownIn(tab), [tab]));
}

/** Opens a tab where it was left, or what is to be shown in it. */
export function goTo(tab: string, shown = shownIn(tab)): void {
    window.location.hash = `#/${tab}${shown === "" ? "" : `/${shown}`}`;
    // Its event comes later than what else the click has set.
    for (const listener of [...listeners]) {
        listener();
    }
}
