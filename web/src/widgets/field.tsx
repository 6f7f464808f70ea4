// A parameter in its form: name, widget, help, what was before, and why a value was refused.
import { useEffect } from "react";
import { Button, FormGroup, FormHelperText, HelperText, HelperTextItem, Label } from "@patternfly/react-core";
import { useDrafts } from "../drafts";
import type { Draft } from "../drafts";
import { kindOf } from "../kind";
import { tooLong } from "../model";
import type { Change } from "../model";
import type { Field } from "../section";
import type { Session } from "../session";
import { visible } from "../visible";
import { Input } from "./input";
import { Reason } from "./reason";
import { answered } from "./use-run";

const _ = cockpit.gettext;

interface FieldProps {
    session: Session;
    field: Field;
    change?: Change;
    /** The section that was read: a new one brings what the daemon has made of a value. */
    stamp: unknown;
}

export function fieldId(path: string): string {
    return `field-${path}`;
}

function Present({ id, value, empty }: { id: string; value: string; empty: string }) {
    return <div id={id} tabIndex={-1} className="ucfgd-present">{value === "" ? <em>{empty}</em> : value}</div>;
}

export function ParameterField({ session, field, change, stamp }: FieldProps) {
    const { node, value, problem, writable, typeHelp } = field;
    const { attributes, path, name, help } = node;
    const drafts = useDrafts(session);
    const draft = drafts.get(path);
    const setDraft = (now?: Draft) => drafts.set(now, path);
    const dropSent = () => drafts.get(path)?.state === "sent" && setDraft();
    // eslint-disable-next-line react-hooks/exhaustive-deps -- once for what was read
    useEffect(() => void dropSent(), [stamp]);

    const kind = kindOf(attributes, problem === undefined ? value : "", `${help} ${typeHelp}`);
    const id = fieldId(path);
    const shown = draft?.text ?? (kind.widget === "secret" ? "" : value ?? "");
    const length = attributes.length;
    const counted = length !== undefined && ["text", "lines", "secret"].includes(kind.widget);

    const send = async (text: string) => {
        const same = kind.widget === "secret" ? text === "" : text === (value ?? "") && problem === undefined;
        if (same || (draft?.state === "sent" && draft.text === text)) {
            if (draft?.state !== "sent") {
                setDraft();
            }
            return;
        }
        if (draft?.state === "refused" && draft.text === text && document.activeElement?.id !== id) {
            return;
        }
        setDraft({ text, state: "sent" });
        const reply = await answered(session.order({ verb: "SET", path, value: text }));
        if (reply.word !== "OK") {
            setDraft({ text, state: "refused", reply });
        }
    };

    const goBack = async () => {
        const reply = await answered(session.takeBack(path, false));
        if (reply.word !== "OK") {
            setDraft({ text: shown, state: "refused", reply });
        }
    };

    const labelInfo = (
        <>
            {change && <Label isCompact color="blue">{_("changed")}</Label>}
            {counted && writable && draft?.state === "edited" && ` ${Array.from(draft.text).length} / ${length}`}
        </>
    );
    const before = change?.before;
    return (
        <FormGroup label={name} fieldId={id} labelInfo={labelInfo} data-path={path}>
            {writable
                ? <Input
                    id={id}
                    kind={kind}
                    choices={attributes.choices}
                    shown={shown}
                    unknown={problem !== undefined}
                    refused={draft?.state === "refused"}
                    describedBy={`${id}-help`}
                    onEdit={text => setDraft({ text, state: "edited" })}
                    onDone={text => void send(text)}
                    onCancel={() => setDraft()}
                />
                : <Present id={id} value={kind.widget === "secret" ? _("not shown") : shown} empty={problem === undefined ? _("(empty)") : _("(not known)")} />}
            <FormHelperText>
                <HelperText id={`${id}-help`}>
                    {draft?.reply && <Reason reply={draft.reply} />}
                    {problem !== undefined &&
                        <HelperTextItem variant="warning" hasIcon>{problem === tooLong ? _("Too long to be shown") : problem}</HelperTextItem>}
                    {(help !== "" || typeHelp !== "") &&
                        <HelperTextItem>{[help, typeHelp].filter(part => part !== "").join(" — ")}</HelperTextItem>}
                    {draft?.state === "refused" && kind.widget !== "secret" && value !== undefined &&
                        <HelperTextItem className="ucfgd-present">
                            {cockpit.format(_("It is still: $0"), value === "" ? _("(empty)") : visible(value))}
                            {" "}
                            <Button variant="link" isInline onClick={() => setDraft()}>{_("Go back to that")}</Button>
                        </HelperTextItem>}
                    {writable && before !== undefined && draft?.state !== "refused" && kind.widget !== "secret" &&
                        <HelperTextItem className="ucfgd-present">
                            {cockpit.format(_("Before: $0"), before === "" ? _("(empty)") : visible(before))}
                            {session.kept.length === 0 && session.mayTakeBack(path, false) && (
                                <>{" "}<Button variant="link" isInline onClick={() => void goBack()}>{_("Go back to that")}</Button></>
                            )}
                        </HelperTextItem>}
                </HelperText>
            </FormHelperText>
        </FormGroup>
    );
}
