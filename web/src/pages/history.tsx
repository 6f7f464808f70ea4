// The commits that have been made: who, when, why and what; one can be undone, or the state behind it loaded.
import { useEffect, useState, useSyncExternalStore } from "react";
import {
    AlertActionCloseButton, Button, DataList, EmptyState, EmptyStateBody, EmptyStateHeader, Spinner, Stack, StackItem, Title,
} from "@patternfly/react-core";
import { useShown } from "../address";
import type { PageProps } from "../app";
import { useSession } from "../app";
import { HistoryFeed } from "../history";
import { pendingOf } from "../pending-changes";
import { splitPath } from "../protocol";
import { Alert } from "../widgets/alert";
import { CommitItem } from "../widgets/commit-item";
import { Refused, useRun } from "../widgets/use-run";

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
    const [done, setDone] = useState("");
    const attempt = useRun();
    // Somebody who has changed something else meanwhile is told of at once.
    const order = (path: string, number: number, text: string) =>
        attempt.run(() => session.order({ verb: "SET", path, value: String(number) }), reply => {
            setDone(reply.word === "OK" ? text : "");
            void pendingOf(session).refresh();
        });

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
            <StackItem aria-live="polite">
                <Refused {...attempt} />
                {done !== "" && (
                    <Alert isInline variant="info" title={done} actionClose={<AlertActionCloseButton aria-label={_("Close")} onClose={() => setDone("")} />}>
                        {_("This is a change of yours that has not been written yet: look at the pending changes, and commit or revert them.")}
                    </Alert>
                )}
            </StackItem>
            <StackItem>
                <DataList aria-label={_("Commits, the newest first")} isCompact>
                    {feed.commits.map(commit => (
                        <CommitItem
                            key={commit.number}
                            commit={commit}
                            session={session}
                            onUndo={() => order("commits.undo", commit.number, cockpit.format(_("What commit $0 changed is taken back"), commit.number))}
                            onLoad={() => order("commits.load", commit.number, cockpit.format(_("The files as they stood after commit $0 are loaded"), commit.number))}
                        />
                    ))}
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
