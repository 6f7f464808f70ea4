import { EmptyState, EmptyStateHeader } from "@patternfly/react-core";
import type { PageProps } from "../app";

const _ = cockpit.gettext;

export function Machine({ session }: PageProps) {
    return (
        <EmptyState>
            <EmptyStateHeader titleText={_("Machine")} headingLevel="h2" />
            {session.user}
        </EmptyState>
    );
}
