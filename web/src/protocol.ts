// The daemon's protocol: lines, tags, escaping, and requests as promises. Knows nothing of the console or of
// what a page looks like; docs/protocol.md describes what goes over the wire.

/** A connection that carries text, in pieces as they come. Set the handlers before the first piece can arrive. */
export interface Transport {
    onData: (text: string) => void;
    /** Called once, when the connection is gone; the problem is for people, if there is one to tell. */
    onClose: (problem?: string) => void;
    send(text: string): void;
    /** Ends the connection from this side; onClose is not called any more. */
    close(): void;
}

export type Word = "OK" | "NO" | "BAD" | "ERR" | "INUSE";

export interface DataLine {
    qualifier: string;
    text: string;
}

/** Why a method refused: an identifier for programs, and the arguments of its message. */
export interface Reason {
    id: string;
    args: string[];
}

export interface Reply {
    word: Word;
    /** Behind the final word: most often empty for OK, otherwise the daemon's message for people. */
    text: string;
    /** The data lines in their order, those of the error left out, and those that were given as they arrived. */
    data: DataLine[];
    error?: Reason;
    /** A data line was as long as the daemon makes them, which drops the rest of longer ones. */
    cut?: true;
}

/** What can send requests: a connection, or a session that keeps one up. */
export interface Requester {
    request(command: string, lines?: string[], onOutput?: (line: DataLine) => void): Promise<Reply>;
}

/** The connection ended before the reply; whether the request was carried out is not known. */
export class ConnectionLost extends Error {
    override name = "ConnectionLost";
}

/** A request that the daemon's limits rule out, refused before anything is sent. */
export class RequestTooLong extends Error {
    override name = "RequestTooLong";
}

export const longestWord = 1023;
const longestLine = 16382;
const outputTag = 13;
const words: ReadonlySet<string> = new Set(["OK", "NO", "BAD", "ERR", "INUSE"]);

const encoder = new TextEncoder();
const strict = new TextDecoder("utf-8", { fatal: true, ignoreBOM: true });

export function byteLength(text: string): number {
    return encoder.encode(text).length;
}

interface Pending {
    tag: string;
    data: DataLine[];
    error?: Reason;
    cut?: true;
    onOutput?: (line: DataLine) => void;
    resolve: (reply: Reply) => void;
    reject: (error: Error) => void;
}

/** One connection. Any number of requests may be under way; the daemon answers them in their order. */
export class Client implements Requester {
    /** Called once when the connection ends from the other side, behind the rejection of what was under way. */
    onClosed: (problem?: string) => void = () => undefined;
    private readonly transport: Transport;
    private readonly prefix: string;
    private readonly pending = new Map<string, Pending>();
    private rest = "";
    private count = 0;
    private closed = false;

    /** The tags of its requests begin with the prefix: letters and digits. */
    constructor(transport: Transport, prefix = "w") {
        this.transport = transport;
        this.prefix = prefix;
        transport.onData = text => this.take(text);
        transport.onClose = problem => this.end(problem);
    }

    get open(): boolean {
        return !this.closed;
    }

    /** The tag of the last request. */
    get tag(): string {
        return this.prefix + this.count.toString(36);
    }

    get busy(): boolean {
        return this.pending.size > 0;
    }

    /**
     * Sends a command, with its continuation lines before it ("1 SET path value", or " text" for a value of
     * several lines). Resolves with the reply, a refusal too; rejects when there is none. onOutput is given
     * each data line as it arrives, and nothing is kept of them here: they may be many.
     */
    request(command: string, lines: string[] = [], onOutput?: (line: DataLine) => void): Promise<Reply> {
        if (this.closed) {
            return Promise.reject(new ConnectionLost("the connection is closed"));
        }
        const tag = this.nextTag();
        const all = [...lines.map(line => `${tag}.${line}`), `${tag} ${command}`];
        for (const line of all) {
            // eslint-disable-next-line no-control-regex
            if (/[\x00-\x1f\x7f]/.test(line)) {
                return Promise.reject(new TypeError("a request holds control characters that are not escaped"));
            }
            if (byteLength(line) > longestLine) {
                return Promise.reject(new RequestTooLong("a line of the request is too long"));
            }
        }
        return new Promise((resolve, reject) => {
            this.pending.set(tag, { tag, data: [], onOutput, resolve, reject });
            this.transport.send(all.join("\n") + "\n");
        });
    }

    /** Ends the connection; what is under way is rejected. */
    close(): void {
        if (!this.closed) {
            this.transport.close();
            this.abandon("the connection was closed");
        }
    }

    private nextTag(): string {
        this.count += 1;
        return this.tag;
    }

    private take(text: string): void {
        this.rest += text;
        const lines = this.rest.split("\n");
        this.rest = lines.pop() ?? "";
        for (const line of lines) {
            this.takeLine(line.endsWith("\r") ? line.slice(0, -1) : line);
        }
    }

    private takeLine(line: string): void {
        const parts = /^([A-Za-z0-9]+)(?:\.([^ ]*))?(?: (.*))?$/s.exec(line);
        const pending = parts && this.find(parts[1] ?? "", parts[2] !== undefined);
        if (!pending) {
            return;
        }
        const text = parts[3] ?? "";
        const qualifier = parts[2];
        if (qualifier === undefined) {
            this.finish(pending, text);
        } else if (qualifier === "error") {
            pending.error = { id: text, args: pending.error?.args ?? [] };
        } else if (qualifier === "error.arg") {
            pending.error ??= { id: "", args: [] };
            pending.error.args.push(text);
        } else {
            // A character takes three bytes at most.
            if (line.length > longestLine / 3 && byteLength(line) >= longestLine) {
                pending.cut = true;
            }
            const found = { qualifier, text };
            if (pending.onOutput) {
                pending.onOutput(found);
            } else {
                pending.data.push(found);
            }
        }
    }

    /** The request of a tag. The output of an action carries only the head of a long one. */
    private find(tag: string, isData: boolean): Pending | undefined {
        const exact = this.pending.get(tag);
        if (exact || !isData || tag.length !== outputTag) {
            return exact;
        }
        return [...this.pending.values()].find(one => one.tag.startsWith(tag));
    }

    private finish(pending: Pending, text: string): void {
        this.pending.delete(pending.tag);
        // Some refusals begin with a number for programs, "result=2 ".
        const [, first = "", behind = ""] = /^([^ ]*)(?: (?:result=\d+ )?(.*))?$/s.exec(text) ?? [];
        const reply: Reply = words.has(first)
            ? { word: first as Word, text: behind, data: pending.data }
            // One complaint comes without a final word.
            : { word: "BAD", text, data: pending.data };
        if (pending.error) {
            reply.error = pending.error;
        }
        if (pending.cut) {
            reply.cut = true;
        }
        pending.resolve(reply);
    }

    private end(problem?: string): void {
        if (!this.closed) {
            this.abandon(problem ?? "the connection was closed by the other side");
            this.onClosed(problem);
        }
    }

    private abandon(why: string): void {
        this.closed = true;
        const left = [...this.pending.values()];
        this.pending.clear();
        for (const one of left) {
            one.reject(new ConnectionLost(why));
        }
    }
}

/**
 * The escaped form of a word, byte for byte as the daemon writes it. A byte that was no UTF-8 is in the text as
 * a lone surrogate from U+DC80 to U+DCFF, where unescape has put it.
 */
export function escape(text: string): string {
    let out = "";
    for (const c of text) {
        const code = c.codePointAt(0) ?? 0;
        if (code === 0x20) {
            out += "+";
        } else if (code < 0x20 || c === "." || c === "+" || c === "%") {
            out += hex(code);
        } else if (code >= 0xdc80 && code <= 0xdcff) {
            out += hex(code - 0xdc00);
        } else {
            out += c;
        }
    }
    return out;
}

/** The reverse. "%" without two hexadecimal digits behind it stands for itself. */
export function unescape(word: string): string {
    if (!/[+%]/.test(word)) {
        return word;
    }
    const bytes = encoder.encode(word);
    const out = new Uint8Array(bytes.length);
    let length = 0;
    for (let i = 0; i < bytes.length; i++) {
        const c = bytes[i] ?? 0;
        const pair = c === 0x25 ? String.fromCharCode(bytes[i + 1] ?? 0, bytes[i + 2] ?? 0) : "";
        if (/^[0-9a-f]{2}$/i.test(pair)) {
            out[length++] = parseInt(pair, 16);
            i += 2;
        } else {
            out[length++] = c === 0x2b ? 0x20 : c;
        }
    }
    return decode(out.subarray(0, length));
}

/** A path from its components, as a person knows them. */
export function quotePath(components: string[]): string {
    return components.map(escape).join(".");
}

export function splitPath(path: string): string[] {
    return path === "" ? [] : path.split(".").map(unescape);
}

function hex(byte: number): string {
    return "%" + byte.toString(16).padStart(2, "0");
}

function decode(bytes: Uint8Array): string {
    try {
        return strict.decode(bytes);
    } catch {
        return decodePieces(bytes);
    }
}

/** Character by character, what forms none kept as lone surrogates. */
function decodePieces(bytes: Uint8Array): string {
    let out = "";
    let i = 0;
    while (i < bytes.length) {
        const first = bytes[i] ?? 0;
        const length = first < 0x80 ? 1 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
        try {
            out += strict.decode(bytes.subarray(i, i + length));
            i += length;
        } catch {
            out += String.fromCharCode(0xdc00 + first);
            i += 1;
        }
    }
    return out;
}
