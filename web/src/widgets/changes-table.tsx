// Parameters as they were and as they are then.
import type { Change } from "../model";
import { SimpleTable } from "./simple-table";

const _ = cockpit.gettext;

export function ChangesTable({ changes, label = _("Changed parameters") }: { changes: Change[]; label?: string }) {
    return (
        <SimpleTable
            label={label}
            columns={[_("Parameter"), _("Before"), _("After")]}
            rows={changes.map(({ path, before, after }) => ({ key: path, cells: [path, shown(before), shown(after)] }))}
        />
    );
}

function shown(text?: string) {
    return text === undefined ? <em>{_("not there")}</em> : text === "" ? <em>{_("empty")}</em> : text;
}
