import { EmptyState, EmptyStateHeader } from "@patternfly/react-core";
import type { PageProps } from "../app";

const _ = cockpit.gettext;

export function Configure({ session }: PageProps) {
    return (
        <EmptyState>
            <EmptyStateHeader titleText={_("Configure")} headingLevel="h2" />
            {session.user}
        </EmptyState>
    );
}
