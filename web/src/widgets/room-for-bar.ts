// Keeps what has the focus clear of the bar at the window's end, however high that grows.
import { useEffect } from "react";
import type { RefObject } from "react";

/** `content` is all that the bar holds. */
export function useRoomForBar(content: RefObject<HTMLElement>): void {
    useEffect(() => {
        const bar = content.current?.parentElement;
        if (!bar) {
            return undefined;
        }
        const observer = new ResizeObserver(() => {
            document.documentElement.style.setProperty("--ucfgd-bar", `${bar.offsetHeight}px`);
            document.activeElement?.closest("[data-path]")?.scrollIntoView({ block: "nearest" });
        });
        observer.observe(bar);
        return () => observer.disconnect();
    }, [content]);
}
