// Parameters as they were and as they are then.
import type { Change } from "../model";
import { visible } from "../visible";
import { SimpleTable } from "./simple-table";

const _ = cockpit.gettext;

interface ChangesTableProps {
    changes: Change[];
    label?: string;
    columns?: string[];
}

export function ChangesTable({ changes, label = _("Changed parameters"), columns = [_("Parameter"), _("Before"), _("After")] }: ChangesTableProps) {
    return (
        <SimpleTable
            label={label}
            columns={columns}
            rows={changes.map(change => ({ key: change.path, cells: [change.path, shown(change, "before"), shown(change, "after")] }))}
        />
    );
}

// One side alone with a value: on the other one it had the same by default, or by other parameters.
function shown(change: Change, side: "before" | "after") {
    const text = change[side];
    if (change.silent) {
        const both = change.before !== undefined && change.after !== undefined;
        return <em>{both ? _("not shown") : text === undefined ? _("not there") : _("there")}</em>;
    }
    return text === undefined ? <em>{_("not set")}</em> : text === "" ? <em>{_("empty")}</em> : visible(text);
}
