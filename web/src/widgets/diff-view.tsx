// A unified diff, its lines coloured. The signs stay, so that the colours say nothing that the text does not.
import "./diff-view.css";

const _ = cockpit.gettext;

const kinds: [RegExp, string][] = [
    [/^(---|\+\+\+) /, "file"],
    [/^@@ /, "place"],
    [/^#/, "place"],
    [/^\+/, "added"],
    [/^-/, "removed"],
];

export function DiffView({ text, label = _("Differences of the files") }: { text: string; label?: string }) {
    return (
        // Whoever has no mouse scrolls it with the keys.
        <pre className="ucfgd-diff" tabIndex={0} role="region" aria-label={label}>
            <code>
                {text.split("\n").map((line, at) => (
                    <span key={at} className={kinds.find(([pattern]) => pattern.test(line))?.[1]}>{line || " "}</span>
                ))}
            </code>
        </pre>
    );
}
