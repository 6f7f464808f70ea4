// The arguments of an action or of a question, a field for each, and the button that sends them.
import { useState } from "react";
import { Button, Form, FormGroup, FormHelperText, HelperText, HelperTextItem, TextArea, TextInput } from "@patternfly/react-core";
import { wordsOf } from "../management";
import type { Argument, Fault } from "../management";
import type { Reply } from "../protocol";
import { Reason } from "./reason";

const _ = cockpit.gettext;

interface ArgumentFormProps {
    id: string;
    args: Argument[];
    label: string;
    isDisabled?: boolean;
    /** What the daemon said of the arguments that were sent last. */
    refusal?: Reply;
    onEdit?: () => void;
    /** The words as they are sent, and the same as they were entered. */
    onSend: (words: string[], given: string[]) => void;
}

const faultTexts: Record<Fault, string> = {
    missing: _("This is needed."),
    long: _("This is too long to be sent."),
};

export function ArgumentForm({ id, args, label, isDisabled, refusal, onEdit, onSend }: ArgumentFormProps) {
    const [given, setGiven] = useState<string[]>([]);
    const [faults, setFaults] = useState<Map<number, Fault>>(new Map());
    const send = () => {
        const { words, faults: found } = wordsOf(args, given);
        setFaults(found);
        const [first] = found.keys();
        if (first === undefined) {
            onSend(words, args.map((_arg, index) => given[index] ?? ""));
        } else {
            document.getElementById(`${id}-${first}`)?.focus();
        }
    };
    return (
        <Form isWidthLimited onSubmit={event => { event.preventDefault(); send(); }}>
            {args.map((arg, index) => {
                const fault = faults.get(index);
                const refused = refusal !== undefined && index === args.length - 1;
                const field = {
                    id: `${id}-${index}`,
                    value: given[index] ?? "",
                    spellCheck: false,
                    autoComplete: "off",
                    validated: fault || refused ? "error" : "default",
                    "aria-describedby": `${id}-${index}-help`,
                    onChange: (_event: unknown, text: string) => {
                        const now = [...given];
                        now[index] = text;
                        setGiven(now);
                        setFaults(new Map());
                        onEdit?.();
                    },
                } as const;
                const labelInfo = arg.many ? _("one a line") : arg.optional ? _("may be left out") : undefined;
                return (
                    <FormGroup key={arg.name} label={arg.name} labelInfo={labelInfo} isRequired={!arg.optional} fieldId={field.id}>
                        {arg.many ? <TextArea autoResize {...field} /> : <TextInput {...field} />}
                        <FormHelperText>
                            <HelperText id={`${id}-${index}-help`}>
                                {fault && <HelperTextItem variant="error" hasIcon><span role="alert">{faultTexts[fault]}</span></HelperTextItem>}
                                {refused && <Reason reply={refusal} />}
                            </HelperText>
                        </FormHelperText>
                    </FormGroup>
                );
            })}
            <div>
                <Button type="submit" variant="secondary" isAriaDisabled={isDisabled}>{label}</Button>
            </div>
        </Form>
    );
}
