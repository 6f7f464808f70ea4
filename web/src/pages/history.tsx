import { EmptyState, EmptyStateHeader } from "@patternfly/react-core";
import type { PageProps } from "../app";

const _ = cockpit.gettext;

export function History({ session }: PageProps) {
    return (
        <EmptyState>
            <EmptyStateHeader titleText={_("History")} headingLevel="h2" />
            {session.user}
        </EmptyState>
    );
}
