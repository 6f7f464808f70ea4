// Where a button's order is run: one at a time, and what does not come to an answer of OK is shown.
import { useState } from "react";
import { AlertActionCloseButton } from "@patternfly/react-core";
import { Alert } from "./alert";
import { ConnectionLost } from "../protocol";
import type { Reply } from "../protocol";
import { reasonId, reasonOf } from "./reason";

const _ = cockpit.gettext;

export interface Run {
    busy: boolean;
    /** Why the last order came to nothing. */
    refusal?: Reply;
    /** Runs the order, then what follows from its answer, whatever that is. Never rejects. */
    run: (order: () => Promise<Reply>, then?: (reply: Reply) => void) => void;
    dismiss: () => void;
}

/** The answer to a form or a button when there was none. */
export async function answered(asked: Promise<Reply>): Promise<Reply> {
    try {
        return await asked;
    } catch (error) {
        if (error instanceof ConnectionLost) {
            const text = _("The connection was lost before the answer came. Try again once it is back.");
            return { word: "ERR", text, data: [] };
        }
        return { word: "ERR", text: error instanceof Error ? error.message : String(error), data: [] };
    }
}

export function useRun(): Run {
    const [busy, setBusy] = useState(false);
    const [refusal, setRefusal] = useState<Reply>();
    const run: Run["run"] = (order, then) => {
        setBusy(true);
        void answered(order()).then(reply => {
            setBusy(false);
            setRefusal(reply.word === "OK" ? undefined : reply);
            then?.(reply);
        });
    };
    return { busy, refusal, run, dismiss: () => setRefusal(undefined) };
}

export function Refused({ refusal, dismiss }: Run) {
    return refusal && (
        <Alert
            isInline
            isLiveRegion
            variant="danger"
            title={<span title={reasonId(refusal)}>{reasonOf(refusal)}</span>}
            actionClose={<AlertActionCloseButton aria-label={_("Close")} onClose={dismiss} />}
        />
    );
}
