// Why the daemon has refused something, in its own words; its identifier for programs is the tooltip.
import { HelperTextItem } from "@patternfly/react-core";
import type { Reply } from "../protocol";

const _ = cockpit.gettext;

export function reasonOf(reply: Reply): string {
    return reply.text || (reply.error && [reply.error.id, ...reply.error.args].join(" ")) || _("refused, without a reason");
}

export function reasonId(reply: Reply): string | undefined {
    return reply.error && [reply.error.id, ...reply.error.args].filter(part => part !== "").join(" · ");
}

export function Reason({ reply }: { reply: Reply }) {
    return (
        <HelperTextItem variant="error" hasIcon>
            <span role="alert" title={reasonId(reply)}>{reasonOf(reply)}</span>
        </HelperTextItem>
    );
}
