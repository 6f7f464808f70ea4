// What is known of the parameter tree: its nodes with their attributes and helps. It is read in the background,
// a few requests at a time, for the tree of sections and for the search.
import * as model from "./model";
import type { Attributes } from "./model";
import { Observable } from "./observable";
import { splitPath } from "./protocol";
import type { Requester } from "./protocol";

export interface ParameterNode {
    path: string;
    /** As people know it. */
    name: string;
    attributes: Attributes;
    help: string;
    /** Paths of the children that may be shown; undefined until they have been read. */
    children?: string[];
}

export interface Found {
    path: string;
    help: string;
    /** The section to go to. */
    section: string;
}

// So many requests are under way at once: what the page asks for meanwhile waits behind no more than these.
const width = 6;
/** Of a longer section only so many children are read at once, and the tree does not show them. */
export const longestSection = 100;

export function parentOf(path: string): string {
    return path.slice(0, Math.max(0, path.lastIndexOf(".")));
}

export function nameOf(path: string): string {
    return splitPath(path).at(-1) ?? "";
}

/** As the search compares: without case, and without what stands above or below a letter. */
export function fold(text: string): string {
    return text.normalize("NFKD").replace(/\p{M}/gu, "").toLowerCase().replaceAll("ß", "ss");
}

/** Whether its children are entries that come and go. */
export function isList(node: ParameterNode): boolean {
    return /[adm]/.test(node.attributes.ops);
}

/** Whether it has a page of its own: a section, or a list. */
export function isSection(node: ParameterNode): boolean {
    return node.attributes.ops.includes("l") || isList(node);
}

/**
 * Hidden nodes are not shown, unless they are there to say that something is not installed. Orders for the next
 * commit are given where commits are.
 */
export function isShown(node: ParameterNode): boolean {
    return node.path !== "commits" && (!node.attributes.flags.includes("hidden") || node.attributes.flags.includes("absent"));
}

export function isAbsent(node: ParameterNode): boolean {
    return node.attributes.flags.includes("hidden") && node.attributes.flags.includes("absent");
}

/** Runs the work over all items, with a few under way at once. */
export async function inTurns<T>(items: Iterable<T>, work: (item: T) => Promise<void>): Promise<void> {
    const left = items[Symbol.iterator]();
    const hand = async () => {
        for (let next = left.next(); !next.done; next = left.next()) {
            await work(next.value);
        }
    };
    await Promise.all(Array.from({ length: width }, hand));
}

export class Parameters extends Observable {
    /** True once everything has been read. */
    complete = false;
    private readonly nodes = new Map<string, ParameterNode>();
    private readonly entries = new Map<string, string[]>();
    private readonly folded = new Map<string, { names: string; last: string; help: string; text: string }>();
    private readonly types = new Map<string, string>();
    private round = 0;

    get(path: string): ParameterNode | undefined {
        return this.nodes.get(path);
    }

    /** The children of a section that have been read. */
    children(path: string): ParameterNode[] {
        return (this.nodes.get(path)?.children ?? []).flatMap(child => this.nodes.get(child) ?? []);
    }

    /** The paths of what is in a list, or in a long section, in their order, as they were read last. */
    entriesOf(path: string): string[] {
        return this.entries.get(path) ?? [];
    }

    /** Whether there is more in a section than is read at once. */
    isLong(path: string): boolean {
        return this.entriesOf(path).length > longestSection;
    }

    /** Reads the whole tree, of lists and long sections the first entry. Another call ends what an earlier one began. */
    async fill(at: Requester): Promise<void> {
        const round = ++this.round;
        this.complete = false;
        this.folded.clear();
        let sections = [""];
        while (sections.length > 0 && round === this.round) {
            const below: string[] = [];
            await inTurns(sections, async section => {
                if (round !== this.round) {
                    return;
                }
                const read = await this.readSection(at, section, section === "" ? Infinity : 1);
                for (const node of read) {
                    if (isSection(node) && !isAbsent(node)) {
                        below.push(node.path);
                    }
                }
            });
            sections = below;
        }
        if (round === this.round) {
            this.complete = true;
            this.changed();
        }
    }

    /** One node, read anew; undefined where there is none, or where it may not be looked at. */
    async read(at: Requester, path: string): Promise<ParameterNode | undefined> {
        try {
            const attributes = await model.attributes(at, path);
            const known = this.nodes.get(path);
            const help = known?.help ?? (attributes.ops.includes("h") ? await model.help(at, path).catch(refused("")) : "");
            const node = { ...known, path, name: nameOf(path), attributes, help };
            this.nodes.set(path, node);
            return node;
        } catch (error) {
            return refused(undefined)(error);
        }
    }

    /**
     * The children of a section, read anew; of a long one so many. Of a list the names only, and its first entry as
     * an example.
     */
    async readSection(at: Requester, path: string, most = longestSection): Promise<ParameterNode[]> {
        const names = await model.list(at, path).catch(refused([]));
        const paths = names.map(name => path === "" ? name : `${path}.${name}`);
        const own = this.nodes.get(path);
        const list = own !== undefined && isList(own);
        const asked = list ? paths.slice(0, 1) : paths.length > longestSection ? paths.slice(0, most) : paths;
        const read: ParameterNode[] = [];
        await inTurns(asked, async child => {
            const node = await this.read(at, child);
            if (node && isShown(node)) {
                read.push(node);
            }
        });
        const order = new Map(paths.map((child, index) => [child, index]));
        read.sort((a, b) => (order.get(a.path) ?? 0) - (order.get(b.path) ?? 0));
        if (list || paths.length > longestSection) {
            this.entries.set(path, paths);
        } else {
            this.entries.delete(path);
        }
        this.nodes.set(path, {
            ...(own ?? { path, name: "", attributes: { ops: "l", choices: [], flags: [] }, help: "" }),
            children: read.map(node => node.path),
        });
        this.changed();
        return read;
    }

    /** What the values of a type are, in a few words; "" where nobody says. */
    async typeHelp(at: Requester, type: string): Promise<string> {
        const known = this.types.get(type);
        if (known !== undefined) {
            return known;
        }
        const text = await model.info(at, "daemon.type", [type]).catch(refused(""));
        this.types.set(type, text);
        return text;
    }

    /** All that have each of the words in their path or their help, those whose name it is first. */
    search(text: string, most = 100): Found[] {
        const words = fold(text).split(/\s+/).filter(word => word !== "");
        const found: (Found & { rank: number })[] = [];
        const consider = (path: string, help: string, section: string) => {
            const { names, last, text: all } = this.foldedOf(path, help);
            if (words.every(word => all.includes(word))) {
                const rank = words.some(word => last === word) ? 0
                    : words.some(word => last.includes(word)) ? 1
                        : words.some(word => names.includes(word)) ? 2 : 3;
                found.push({ path, help, section, rank });
            }
        };
        if (words.length === 0) {
            return [];
        }
        for (const node of this.nodes.values()) {
            const above = parentOf(node.path);
            if (node.path !== "" && !this.entries.has(above) && this.isListed(node.path)) {
                consider(node.path, node.help, isSection(node) ? node.path : above);
            }
        }
        for (const [above, paths] of this.entries) {
            const node = this.nodes.get(above);
            if (node && this.isListed(above)) {
                paths.forEach(path => consider(path, "", isList(node) ? above : path));
            }
        }
        return found.sort((a, b) => a.rank - b.rank).slice(0, most).map(({ path, help, section }) => ({ path, help, section }));
    }

    /** What the search looks at: thousands of entries for each letter that is typed. */
    private foldedOf(path: string, help: string) {
        let known = this.folded.get(path);
        if (known?.help !== help) {
            const names = splitPath(path).map(fold);
            const text = `${names.join(" ")} ${fold(path)} ${fold(help)}`;
            known = { names: names.join(" "), last: names.at(-1) ?? "", help, text };
            this.folded.set(path, known);
        }
        return known;
    }

    private isListed(path: string): boolean {
        return path === "" || (
            !!this.nodes.get(parentOf(path))?.children?.includes(path) && this.isListed(parentOf(path)));
    }
}

/** What a request gives that the daemon refuses; everything else goes on as an error. */
function refused<T>(instead: T): (error: unknown) => T {
    return error => {
        if (error instanceof model.Refusal) {
            return instead;
        }
        throw error;
    };
}
