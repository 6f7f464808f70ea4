// What asks the daemon is held while there is no session: it can be read, but not be used. A short loss holds nothing.
import { useEffect, useLayoutEffect, useRef, useState } from "react";
import type { ReactNode } from "react";
import type { Session } from "../session";
import "./held.css";

const short = 1000;

export function Held({ session, children }: { session: Session; children: ReactNode }) {
    const open = session.state === "open";
    const [held, setHeld] = useState(false);
    const focus = useRef<Element | null>(null);
    useEffect(() => {
        const timer = setTimeout(() => {
            if (!open) {
                focus.current = document.activeElement;
            }
            setHeld(!open);
        }, open ? 0 : short);
        return () => clearTimeout(timer);
    }, [open]);
    // The keys go on where they were.
    useLayoutEffect(() => {
        if (!held && document.activeElement === document.body && focus.current instanceof HTMLElement) {
            focus.current.focus();
        }
    }, [held]);
    return <fieldset disabled={held} className="ucfgd-held">{children}</fieldset>;
}
