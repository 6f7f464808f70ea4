// One entry of a list: its name and values, its buttons, and its parameters behind its toggle.
import {
    Button, DataListAction, DataListCell, DataListContent, DataListControl, DataListItem, DataListItemCells, DataListItemRow,
    DataListToggle, Label,
} from "@patternfly/react-core";
import AngleDownIcon from "@patternfly/react-icons/dist/esm/icons/angle-down-icon";
import AngleUpIcon from "@patternfly/react-icons/dist/esm/icons/angle-up-icon";
import GripVerticalIcon from "@patternfly/react-icons/dist/esm/icons/grip-vertical-icon";
import TrashIcon from "@patternfly/react-icons/dist/esm/icons/trash-icon";
import type { Mark } from "../entry-marks";
import { nameOf } from "../parameters";

const _ = cockpit.gettext;

const markTexts: Record<Mark, string> = { new: _("new"), changed: _("changed"), moved: _("moved") };

interface EntryProps {
    path: string;
    index: number;
    count: number;
    open: boolean;
    dropBefore: boolean;
    ops: string;
    mark?: Mark;
    summary?: string;
    content: (path: string) => React.ReactNode;
    onToggle: () => void;
    onDelete: () => void;
    onMove: (to: number) => void;
    onDrag: (what: DragStep) => void;
}

/** A drag that ends without a drop was given up, or let go beside the list. */
export type DragStep = "start" | "over" | "drop" | "end";

export function entryId(path: string): string {
    return `entry-${path}`;
}

export function Entry({ path, index, count, open, dropBefore, ops, mark, summary, content, onToggle, onDelete, onMove, onDrag }: EntryProps) {
    const name = nameOf(path);
    const id = entryId(path);
    const moves = ops.includes("m");
    const step = (label: string, to: number, icon: React.ReactNode) => (
        <Button
            id={`${id}-${to < index ? "up" : "down"}`}
            variant="plain"
            aria-label={cockpit.format(label, name)}
            isAriaDisabled={to < 0 || to >= count}
            onClick={() => onMove(to)}
        >
            {icon}
        </Button>
    );
    return (
        <DataListItem
            aria-labelledby={id}
            isExpanded={open}
            data-entry={name}
            className={dropBefore ? "ucfgd-drop" : undefined}
            draggable={moves}
            onDragStart={event => {
                event.dataTransfer.effectAllowed = "move";
                event.dataTransfer.setData("text/plain", name);
                onDrag("start");
            }}
            onDragOver={event => { event.preventDefault(); onDrag("over"); }}
            onDragEnd={() => onDrag("end")}
            onDrop={event => { event.preventDefault(); onDrag("drop"); }}
        >
            <DataListItemRow>
                {moves &&
                    <DataListControl className="ucfgd-grip" title={_("Drag to another place")} aria-hidden>
                        <GripVerticalIcon />
                    </DataListControl>}
                <DataListToggle
                    id={`${id}-toggle`}
                    isExpanded={open}
                    aria-controls={`${id}-content`}
                    aria-label={cockpit.format(_("Parameters of $0"), name)}
                    onClick={onToggle}
                />
                <DataListItemCells
                    dataListCells={[
                        <DataListCell key="name" wrapModifier="breakWord">
                            <span id={id}>{name}</span>
                            {mark && <> <Label isCompact color="blue">{markTexts[mark]}</Label></>}
                            {summary && <div className="ucfgd-help">{summary}</div>}
                        </DataListCell>,
                    ]}
                />
                <DataListAction id={`${id}-actions`} aria-labelledby={id} aria-label={_("Actions")}>
                    {moves && step(_("Move $0 up"), index - 1, <AngleUpIcon />)}
                    {moves && step(_("Move $0 down"), index + 1, <AngleDownIcon />)}
                    {ops.includes("d") &&
                        <Button id={`${id}-delete`} variant="plain" aria-label={cockpit.format(_("Delete $0"), name)} onClick={onDelete}>
                            <TrashIcon />
                        </Button>}
                </DataListAction>
            </DataListItemRow>
            <DataListContent id={`${id}-content`} aria-label={cockpit.format(_("Parameters of $0"), name)} isHidden={!open}>
                {open && content(path)}
            </DataListContent>
        </DataListItem>
    );
}

/** An entry that this session has deleted. */
export function Gone({ path }: { path: string }) {
    const id = entryId(path);
    return (
        <DataListItem aria-labelledby={id}>
            <DataListItemRow>
                <DataListItemCells
                    dataListCells={[
                        <DataListCell key="name" wrapModifier="breakWord">
                            <del id={id}>{nameOf(path)}</del> <Label isCompact color="red">{_("deleted")}</Label>
                        </DataListCell>,
                    ]}
                />
            </DataListItemRow>
        </DataListItem>
    );
}
