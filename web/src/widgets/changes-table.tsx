// Parameters as they were and as they are then.
import type { ReactNode } from "react";
import { isEntry, rowsOf, spoken } from "../change-rows";
import type { Row } from "../change-rows";
import type { Change } from "../model";
import { visible } from "../visible";
import { SimpleTable } from "./simple-table";

const _ = cockpit.gettext;

interface ChangesTableProps {
    changes: Change[];
    label?: string;
    columns?: string[];
    /** What can be done about one of them. */
    action?: (change: Change) => ReactNode;
}

export function ChangesTable({
    changes, label = _("Changed parameters"), columns = [_("Parameter"), _("Before"), _("After")], action,
}: ChangesTableProps) {
    const found = rowsOf(changes).map(row => ({ row, act: action?.(row) }));
    const acts = found.some(({ act }) => act);
    const rows = found.map(({ row, act }) => ({
        key: row.path,
        cells: [spoken(row.path), shown(row, "before"), shown(row, "after"), ...acts ? [act] : []],
    }));
    return <SimpleTable label={label} columns={acts ? [...columns, _("Action")] : columns} rows={rows} />;
}

// One side alone with a value: on the other one it had the same by default, or by other parameters.
function shown(row: Row, side: "before" | "after") {
    const text = row[side];
    if (isEntry(row)) {
        if (text === undefined) {
            return <em>{_("not there")}</em>;
        }
        return row.parts.length === 0
            ? <em>{_("there")}</em>
            : row.parts.map(({ name, text: value }) => <div key={name}>{name}: {visible(value)}</div>);
    }
    if (row.silent || (row.before === undefined && row.after === undefined)) {
        return <em>{side === "after" ? _("changed, not shown") : _("not shown")}</em>;
    }
    return text === undefined ? <em>{_("not set")}</em> : text === "" ? <em>{_("empty")}</em> : visible(text);
}
