// What an action puts out, as it arrives: its last lines, kept at the end unless somebody looks further up.
import { useEffect, useRef } from "react";
import { ClipboardCopyButton, CodeBlock, CodeBlockAction } from "@patternfly/react-core";
import type { Line } from "../management";

const _ = cockpit.gettext;

export function ActionOutput({ id, name, lines }: { id: string; name: string; lines: Line[] }) {
    const box = useRef<HTMLPreElement>(null);
    const follows = useRef(true);
    useEffect(() => {
        if (follows.current && box.current) {
            box.current.scrollTop = box.current.scrollHeight;
        }
    }, [lines]);
    const before = (lines[0]?.number ?? 1) - 1;
    // A browser keeps the clipboard from a page that came without encryption.
    const copy = "clipboard" in navigator && lines.length > 0 && (
        <CodeBlockAction>
            <ClipboardCopyButton
                id={`${id}-copy`}
                textId={id}
                aria-label={cockpit.format(_("Copy the output of $0"), name)}
                variant="plain"
                onClick={() => void navigator.clipboard.writeText(lines.map(line => line.text + "\n").join(""))}
            >
                {_("Copy")}
            </ClipboardCopyButton>
        </CodeBlockAction>
    );
    return (
        <>
            {before > 0 && <p>{cockpit.format(_("The last $0 lines; $1 before them are not shown."), lines.length, before)}</p>}
            <CodeBlock actions={copy}>
                <pre
                    id={id}
                    ref={box}
                    role="log"
                    tabIndex={0}
                    className="pf-v5-c-code-block__pre ucfgd-output"
                    aria-label={cockpit.format(_("Output of $0"), name)}
                    onScroll={({ currentTarget: { scrollTop, scrollHeight, clientHeight } }) => {
                        follows.current = scrollTop + clientHeight > scrollHeight - 30;
                    }}
                >
                    {lines.map(line => <div key={line.number}>{line.text === "" ? " " : line.text}</div>)}
                </pre>
            </CodeBlock>
        </>
    );
}
