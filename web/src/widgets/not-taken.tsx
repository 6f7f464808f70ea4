// What was typed and is not among the changes: values that were refused, and what has not been sent.
import { Button, List, ListItem } from "@patternfly/react-core";
import { goTo } from "../address";
import { spoken } from "../change-rows";
import type { Drafts, Left } from "../drafts";
import { parentOf } from "../parameters";
import { Alert } from "./alert";
import { newEntryId } from "./entry-list";
import { fieldId } from "./field";
import { reasonOf } from "./reason";

const _ = cockpit.gettext;

// Milliseconds between two looks for a field that is about to be shown, and how many there are.
const pause = 100;
const looks = 40;

function focus(id: string, left = looks): void {
    const field = document.getElementById(id);
    if (field?.getClientRects().length) {
        field.scrollIntoView({ block: "center" });
        field.focus();
    } else if (left > 0) {
        setTimeout(() => focus(id, left - 1), pause);
    }
}

function show({ path, entry }: Left): void {
    goTo("configure", entry ? path : parentOf(path));
    focus(entry ? newEntryId : fieldId(path));
}

/** For the bar: how many, and the way to each. */
export function RefusedValues({ drafts }: { drafts: Drafts }) {
    const refused = drafts.left.filter(({ state }) => state === "refused");
    return (
        <div role="status" className="ucfgd-refused">
            {refused.length > 0 && cockpit.format(
                cockpit.ngettext("$0 value was refused:", "$0 values were refused:", refused.length), refused.length)}
            {refused.map(one =>
                <Button key={`${one.path} ${one.entry}`} variant="link" isInline onClick={() => show(one)}>{spoken(one.path)}</Button>)}
        </div>
    );
}

/** For the review: which, why, and what can be done. */
export function NotTaken({ drafts, onGo }: { drafts: Drafts; onGo: () => void }) {
    const { left } = drafts;
    if (left.length === 0) {
        return null;
    }
    const title = cockpit.format(cockpit.ngettext(
        "$0 value that you have typed is not among the changes", "$0 values that you have typed are not among the changes", left.length), left.length);
    return (
        <Alert isInline isLiveRegion variant="warning" title={title}>
            <List isPlain>
                {left.map(one => (
                    <ListItem key={`${one.path} ${one.entry}`}>
                        <Button
                            variant="link"
                            isInline
                            onClick={() => {
                                onGo();
                                show(one);
                            }}
                        >
                            {spoken(one.path)}
                        </Button>
                        {": "}{one.reply ? reasonOf(one.reply) : one.entry ? _("a new entry that was not added") : _("not sent")}
                        {" "}
                        <Button
                            variant="link"
                            isInline
                            aria-label={`${_("Forget it")}: ${spoken(one.path)}`}
                            onClick={() => drafts.set(undefined, one.path, one.entry)}
                        >
                            {_("Forget it")}
                        </Button>
                    </ListItem>
                ))}
            </List>
        </Alert>
    );
}
