// The commits that have been made: who, when, why and what; one can be undone, or the state behind it loaded.
import { useEffect, useState, useSyncExternalStore } from "react";
import {
    Alert, Button, DataList, EmptyState, EmptyStateBody, EmptyStateHeader, Spinner, Stack, StackItem, Title,
} from "@patternfly/react-core";
import type { PageProps } from "../app";
import { useSession } from "../app";
import { HistoryFeed } from "../history";
import type { Reply } from "../protocol";
import { CommitItem } from "../widgets/commit-item";

const _ = cockpit.gettext;

interface Outcome {
    text: string;
    reply: Reply;
}

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
    const [outcome, setOutcome] = useState<Outcome>();

    const order = async (path: string, number: number, text: string) => {
        const reply = await session.order({ verb: "SET", path, value: String(number) });
        setOutcome({ text, reply });
    };

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
                {outcome && <OutcomeAlert {...outcome} onClose={() => setOutcome(undefined)} />}
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

function OutcomeAlert({ text, reply, onClose }: Outcome & { onClose: () => void }) {
    const close = <Button variant="plain" aria-label={_("Close")} onClick={onClose}>×</Button>;
    return reply.word === "OK"
        ? (
            <Alert isInline variant="info" title={text} actionClose={close}>
                {_("This is a change of yours that has not been written yet: look at the pending changes, and commit or revert them.")}
            </Alert>
        )
        : <Alert isInline variant="danger" title={_("Refused")} actionClose={close}>{reply.text}</Alert>;
}
