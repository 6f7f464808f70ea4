// Numbers that a machine's node tells, for people: which they are is in the words of its help.

const units = ["KiB", "MiB", "GiB", "TiB"];

/** A time since 1970 as date and time of this browser, bytes in larger units; "" for a time that was never. */
export function readable(text: string, help: string, language?: string): string {
    if (!/^\d+$/.test(text)) {
        return text;
    }
    const number = Number(text);
    if (/seconds since 1970/.test(help)) {
        return number === 0 ? "" : new Date(number * 1000).toLocaleString(language, { dateStyle: "medium", timeStyle: "medium" });
    }
    if (/^bytes\b/i.test(help) && number >= 1024) {
        const size = Math.min(units.length, Math.floor(Math.log2(number) / 10));
        return `${(number / 1024 ** size).toLocaleString(language, { maximumFractionDigits: 1 })} ${units[size - 1] ?? ""}`;
    }
    return text;
}
