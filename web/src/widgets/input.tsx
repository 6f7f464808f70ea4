// The widget of one parameter. It shows the draft that it is given, and tells of edits and of their end.
import { useEffect, useRef, useState } from "react";
import { FormSelect, FormSelectOption, Switch, TextArea, TextInput } from "@patternfly/react-core";
import type { Kind } from "../kind";

const _ = cockpit.gettext;

interface InputProps {
    id: string;
    kind: Kind;
    choices: string[];
    shown: string;
    /** What is shown is not the value, which cannot be read. */
    unknown?: boolean;
    refused: boolean;
    describedBy: string;
    onEdit: (value: string) => void;
    /** The edit is done: send it. The value is given, since it may be newer than what was shown. */
    onDone: (value: string) => void;
    onCancel: () => void;
}

const other = "\0other";

function Choice(props: InputProps) {
    const { id, kind, choices, shown, unknown, refused, describedBy, onDone, onCancel } = props;
    const [free, setFree] = useState(false);
    // The keys go on with the list where they have left the text.
    const byKey = useRef(false);
    useEffect(() => {
        if (!free && byKey.current) {
            byKey.current = false;
            document.getElementById(id)?.focus();
        }
    }, [free, id]);
    if (free) {
        const leave = () => {
            byKey.current = document.activeElement?.id === id;
            setFree(false);
        };
        return (
            <Text
                {...props}
                onDone={text => { leave(); onDone(text); }}
                onCancel={() => { leave(); onCancel(); }}
                autoFocus
            />
        );
    }
    const offered = choices.includes(shown) ? choices : [shown, ...choices];
    return (
        <FormSelect
            id={id}
            value={shown}
            validated={refused ? "error" : "default"}
            aria-describedby={describedBy}
            onChange={(_event, picked) => {
                if (picked === other) {
                    setFree(true);
                } else {
                    onDone(picked);
                }
            }}
        >
            {offered.map(choice =>
                <FormSelectOption
                    key={choice}
                    value={choice}
                    label={choice === "" ? unknown ? _("(not known)") : _("(empty)") : choice}
                />)}
            {kind.open && <FormSelectOption value={other} label={_("Other value…")} />}
        </FormSelect>
    );
}

function Text(props: InputProps & { autoFocus?: boolean }) {
    const { id, kind, shown, refused, describedBy, onEdit, onDone, onCancel, autoFocus } = props;
    const secret = kind.widget === "secret";
    return (
        <TextInput
            id={id}
            value={shown}
            // A number, too: what else is typed is there to be judged, and a turn of the wheel changes nothing.
            type={secret ? "password" : "text"}
            inputMode={kind.widget === "number" ? "numeric" : undefined}
            autoComplete={secret ? "new-password" : "off"}
            placeholder={secret ? _("not shown; type a new one to change it") : undefined}
            spellCheck={false}
            autoFocus={autoFocus}
            validated={refused ? "error" : "default"}
            aria-describedby={describedBy}
            onChange={(_event, text) => onEdit(text)}
            onBlur={(event: React.FocusEvent<HTMLInputElement>) => onDone(event.currentTarget.value)}
            onKeyDown={event => {
                if (event.key === "Enter") {
                    event.preventDefault();
                    onDone(event.currentTarget.value);
                } else if (event.key === "Escape") {
                    onCancel();
                }
            }}
        />
    );
}

function Lines({ id, shown, refused, describedBy, onEdit, onDone, onCancel }: InputProps) {
    return (
        <TextArea
            id={id}
            value={shown}
            autoResize
            resizeOrientation="vertical"
            spellCheck={false}
            validated={refused ? "error" : "default"}
            aria-describedby={describedBy}
            onChange={(_event, text) => onEdit(text)}
            onBlur={event => onDone(event.currentTarget.value)}
            onKeyDown={event => {
                if (event.key === "Enter" && event.ctrlKey) {
                    event.preventDefault();
                    onDone(event.currentTarget.value);
                } else if (event.key === "Escape") {
                    onCancel();
                }
            }}
        />
    );
}

export function Input(props: InputProps) {
    const { id, kind, shown, describedBy, onDone } = props;
    switch (kind.widget) {
        case "switch":
            return (
                <Switch
                    id={id}
                    label={kind.on}
                    labelOff={kind.off}
                    isChecked={shown === kind.on}
                    aria-describedby={describedBy}
                    onChange={(_event, checked) => onDone((checked ? kind.on : kind.off) ?? "")}
                />
            );
        case "choice":
            return <Choice {...props} />;
        case "lines":
            return <Lines {...props} />;
        default:
            return <Text {...props} />;
    }
}
