// What cannot be seen of a value, as a sign that can.

/** Blanks at the ends of lines, a newline at the end, and control characters (as keyboards have them, ^A) as signs for them. */
export function visible(text: string): string {
    return text
        .replace(/^ +| +$/gm, blanks => "␣".repeat(blanks.length))
        .replace(/\n$/, "↵")
        .replaceAll("\t", "→")
        // eslint-disable-next-line no-control-regex -- these are meant
        .replace(/[\0-\x09\x0b-\x1f\x7f]/g, sign => `^${String.fromCharCode(sign.charCodeAt(0) ^ 64)}`);
}
