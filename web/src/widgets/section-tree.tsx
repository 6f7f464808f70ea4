// The tree of sections beside the form.
import { TreeView } from "@patternfly/react-core";
import type { TreeViewDataItem } from "@patternfly/react-core";
import { isAbsent, isList, isSection } from "../parameters";
import type { ParameterNode, Parameters } from "../parameters";

const _ = cockpit.gettext;

interface SectionTreeProps {
    parameters: Parameters;
    active: string;
    onSelect: (path: string) => void;
}

// The entries of a list stand in its form.
function item(parameters: Parameters, node: ParameterNode, active: string): TreeViewDataItem {
    const below = isList(node) || isAbsent(node) ? [] : parameters.children(node.path).filter(isSection);
    return {
        id: `section-${node.path}`,
        name: isAbsent(node) ? <span className="ucfgd-absent">{node.name}</span> : node.name,
        title: node.help,
        children: below.length > 0 ? below.map(child => item(parameters, child, active)) : undefined,
        defaultExpanded: active.startsWith(node.path + "."),
    };
}

export function SectionTree({ parameters, active, onSelect }: SectionTreeProps) {
    const items = parameters.children("").filter(isSection).map(node => item(parameters, node, active));
    return (
        <TreeView
            aria-label={_("Sections")}
            hasSelectableNodes
            data={items}
            activeItems={[{ id: `section-${active}`, name: "" }]}
            onSelect={(_event, picked) => onSelect(String(picked.id).slice("section-".length))}
        />
    );
}
