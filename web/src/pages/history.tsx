// The commits that have been made: who, when, why and what; one can be undone, or the state behind it loaded.
import { useEffect, useState, useSyncExternalStore } from "react";
import {
    Button, DataList, EmptyState, EmptyStateBody, EmptyStateHeader, Spinner, Stack, StackItem, Title,
} from "@patternfly/react-core";
import { useShown } from "../address";
import type { PageProps } from "../app";
import { useSession } from "../app";
import { HistoryFeed } from "../history";
import { splitPath } from "../protocol";
import { Alert } from "../widgets/alert";
import { CommitItem } from "../widgets/commit-item";

const _ = cockpit.gettext;

export function History({ session }: PageProps) {
    useSession(session);
    const [feed] = useState(() => new HistoryFeed(session));
    useSyncExternalStore(feed.subscribe, () => feed.version);
    const open = session.state === "open";
    useEffect(() => {
        if (open) {
            feed.start();
            return () => feed.stop();
        }
        return undefined;
    }, [feed, open]);
    const asked = Math.min(...splitPath(useShown("history")).map(Number));
    useEffect(() => feed.reach(asked), [feed, asked]);
    if (open && !session.permissions.exec) {
        return <Alert isInline variant="info" title={_("This account may not see the history: that takes the permission to run actions.")} />;
    }
    if (!feed.loaded) {
        return <Spinner aria-label={_("The history is being fetched")} />;
    }
    if (feed.commits.length === 0) {
        return (
            <EmptyState>
                <EmptyStateHeader
                    titleText={feed.problem === "" ? _("No commit has been made yet") : _("The history cannot be shown")}
                    headingLevel="h2"
                />
                <EmptyStateBody>{feed.problem}</EmptyStateBody>
            </EmptyState>
        );
    }
    return (
        <Stack hasGutter>
            <StackItem>
                <Title headingLevel="h2">{_("History")}</Title>
            </StackItem>
            <StackItem>
                <DataList aria-label={_("Commits, the newest first")} isCompact>
                    {feed.commits.map(commit => <CommitItem key={commit.number} commit={commit} session={session} />)}
                </DataList>
            </StackItem>
            {feed.more && (
                <StackItem>
                    <Button variant="link" onClick={() => feed.showMore()}>{_("Show older commits")}</Button>
                </StackItem>
            )}
        </Stack>
    );
}
