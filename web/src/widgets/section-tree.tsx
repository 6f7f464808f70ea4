// The tree of sections beside the form, with the keys that trees have: one stop for the tabulator, arrows within.
import { useEffect, useRef, useState } from "react";
import type { KeyboardEvent } from "react";
import AngleRightIcon from "@patternfly/react-icons/dist/esm/icons/angle-right-icon";
import ExclamationCircleIcon from "@patternfly/react-icons/dist/esm/icons/exclamation-circle-icon";
import styles from "@patternfly/react-styles/css/components/TreeView/tree-view.mjs";
import { isAbsent, isList, isSection, parentOf } from "../parameters";
import type { ParameterNode, Parameters } from "../parameters";

const _ = cockpit.gettext;

interface SectionTreeProps {
    parameters: Parameters;
    active: string;
    /** What holds a value that was refused. */
    refused: string[];
    /** What pending changes are in. */
    changed: string[];
    onSelect: (path: string) => void;
}

interface BranchProps {
    nodes: ParameterNode[];
    below: (node: ParameterNode) => ParameterNode[];
    active: string;
    refused: string[];
    changed: string[];
    /** The one that the tabulator stops at. */
    stop: string;
    expanded: ReadonlySet<string>;
    onSelect: (path: string) => void;
    onToggle: (path: string) => void;
    onFocus: (path: string) => void;
}

function Branch(props: BranchProps) {
    const { nodes, below, active, refused, changed, stop, expanded, onSelect, onToggle, onFocus } = props;
    return nodes.map(node => {
        const { path, name, help } = node;
        const children = below(node);
        const open = children.length > 0 && expanded.has(path);
        const within = (one: string) => one === path || one.startsWith(`${path}.`);
        const holds = refused.some(within);
        return (
            <li key={path} role="none" className={`${styles.treeViewListItem} ${open ? styles.modifiers.expanded : ""}`}>
                <div role="none" className={styles.treeViewContent}>
                    <button
                        type="button"
                        role="treeitem"
                        data-section={path}
                        className={`${styles.treeViewNode} ${path === active ? styles.modifiers.current : ""}`}
                        title={help}
                        tabIndex={path === stop ? 0 : -1}
                        aria-expanded={children.length > 0 ? open : undefined}
                        aria-selected={path === active}
                        onFocus={() => onFocus(path)}
                        onClick={() => onSelect(path)}
                    >
                        <span className={styles.treeViewNodeContainer}>
                            {children.length > 0 &&
                                <span
                                    className={styles.treeViewNodeToggle}
                                    onClick={event => {
                                        event.stopPropagation();
                                        onToggle(path);
                                    }}
                                >
                                    <span className={styles.treeViewNodeToggleIcon}><AngleRightIcon aria-hidden /></span>
                                </span>}
                            <span className={`${styles.treeViewNodeText} ${isAbsent(node) ? "ucfgd-absent" : ""}`}>{name}</span>
                            {changed.some(within) &&
                                <span className="ucfgd-changed" title={_("changed")}>
                                    <span className="pf-v5-screen-reader">{`, ${_("changed")}`}</span>
                                </span>}
                            {holds &&
                                <span className="ucfgd-holds" title={_("A value was refused here")}>
                                    <ExclamationCircleIcon aria-hidden />
                                    <span className="pf-v5-screen-reader">{`, ${_("A value was refused here")}`}</span>
                                </span>}
                        </span>
                    </button>
                </div>
                {open &&
                    <ul role="group" className="pf-v5-c-tree-view__list"><Branch {...props} nodes={children} /></ul>}
            </li>
        );
    });
}

function above(path: string): string[] {
    return path === "" ? [] : [path, ...above(parentOf(path))];
}

export function SectionTree({ parameters, active, refused, changed, onSelect }: SectionTreeProps) {
    const tree = useRef<HTMLUListElement>(null);
    const [expanded, setExpanded] = useState<ReadonlySet<string>>(new Set());
    const [focused, setFocused] = useState("");
    useEffect(() => {
        setExpanded(now => new Set([...now, ...above(active)]));
        setFocused("");
    }, [active]);

    // The entries of a list, and of a long section, stand in its form.
    const below = (node: ParameterNode) =>
        isList(node) || isAbsent(node) || parameters.isLong(node.path) ? [] : parameters.children(node.path).filter(isSection);
    const nodes = parameters.children("").filter(isSection);
    const isShown = (path: string) => above(parentOf(path)).every(one => expanded.has(one));
    const stop = [focused, ...above(active)].find(path => parameters.get(path) && path !== "" && isShown(path)) ?? nodes[0]?.path ?? "";

    const toggle = (path: string) => setExpanded(now => {
        const next = new Set(now);
        if (!next.delete(path)) {
            next.add(path);
        }
        return next;
    });
    const onKeyDown = (event: KeyboardEvent) => {
        const items = [...tree.current?.querySelectorAll<HTMLElement>('[role="treeitem"]') ?? []];
        const at = items.findIndex(item => item === document.activeElement);
        const path = items[at]?.dataset["section"] ?? "";
        const state = items[at]?.ariaExpanded;
        const keys: Record<string, () => void> = {
            ArrowDown: () => items[at + 1]?.focus(),
            ArrowUp: () => items[at - 1]?.focus(),
            Home: () => items[0]?.focus(),
            End: () => items[items.length - 1]?.focus(),
            ArrowRight: () => state === "true" ? items[at + 1]?.focus() : state === "false" && toggle(path),
            ArrowLeft: () => state === "true" ? toggle(path) : items.find(item => item.dataset["section"] === parentOf(path))?.focus(),
        };
        const go = keys[event.key];
        if (go && at >= 0 && !event.ctrlKey && !event.altKey && !event.metaKey) {
            event.preventDefault();
            go();
        }
    };
    return (
        <div className={styles.treeView}>
            <ul ref={tree} role="tree" aria-label={_("Sections")} className="pf-v5-c-tree-view__list" onKeyDown={onKeyDown}>
                <Branch
                    {...{ nodes, below, active, refused, changed, stop, expanded, onSelect }}
                    onToggle={toggle}
                    onFocus={setFocused}
                />
            </ul>
        </div>
    );
}
