// Where a button's order is run: one at a time, and what does not come to an answer of OK is shown.
import { useState } from "react";
import { AlertActionCloseButton } from "@patternfly/react-core";
import { Alert } from "./alert";
import type { Reply } from "../protocol";
import { answered } from "./field";
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
