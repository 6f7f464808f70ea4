// What a commit changed, and what can be made of it.
import { useEffect, useState } from "react";
import {
    DescriptionList, DescriptionListDescription, DescriptionListGroup, DescriptionListTerm, ExpandableSection, Spinner, Stack, StackItem,
} from "@patternfly/react-core";
import { Refusal, allowed, changes, diff } from "../model";
import { ConnectionLost } from "../protocol";
import type { Change, Commit } from "../model";
import type { Session } from "../session";
import { Alert } from "./alert";
import { ChangesTable } from "./changes-table";
import { DiffView } from "./diff-view";
import { Restore } from "./restore";

const _ = cockpit.gettext;

interface CommitDetailsProps {
    commit: Commit;
    session: Session;
    /** Called when there is something to see. */
    onShown: () => void;
}

interface Found {
    changes?: Change[];
    diff?: string;
    problems: string[];
    mayUndo: boolean;
    mayLoad: boolean;
}

export function CommitDetails({ commit, session, onShown }: CommitDetailsProps) {
    const [found, setFound] = useState<Found>();
    const { number, state } = commit;
    useEffect(() => {
        let shown = true;
        void find(session, number).then(all => {
            if (shown) {
                setFound(all);
            }
        });
        return () => {
            shown = false;
        };
    }, [session, number, state]);
    const there = found !== undefined;
    useEffect(() => {
        if (there) {
            onShown();
        }
    }, [there, onShown]);
    if (!found) {
        return <Spinner size="md" aria-label={_("The commit is being fetched")} />;
    }
    return (
        <Stack hasGutter>
            {found.problems.map(problem => (
                <StackItem key={problem}><Alert isInline isPlain variant="info" title={problem} /></StackItem>
            ))}
            {found.changes && found.changes.length > 0 && <StackItem><ChangesTable changes={found.changes} /></StackItem>}
            {found.diff !== undefined && found.diff !== "" && (
                <StackItem>
                    <ExpandableSection toggleText={_("Differences of the files")} isIndented>
                        <DiffView text={found.diff} label={cockpit.format(_("Differences of the files in commit $0"), number)} />
                    </ExpandableSection>
                </StackItem>
            )}
            <StackItem><Facts commit={commit} /></StackItem>
            <StackItem><Restore commit={commit} session={session} mayUndo={found.mayUndo} mayLoad={found.mayLoad} /></StackItem>
        </Stack>
    );
}

function Facts({ commit }: { commit: Commit }) {
    const facts: [string, string[]][] = [
        [_("Comment"), commit.comment === "" ? [] : [commit.comment]],
        [_("Files"), commit.files],
        [_("Made over"), [commit.from]],
        [_("Notes"), commit.notes],
    ];
    return (
        <DescriptionList isHorizontal isCompact>
            {facts.filter(([, lines]) => lines.length > 0).map(([term, lines]) => (
                <DescriptionListGroup key={term}>
                    <DescriptionListTerm>{term}</DescriptionListTerm>
                    <DescriptionListDescription>
                        {lines.map((line, at) => <div key={at}>{line}</div>)}
                    </DescriptionListDescription>
                </DescriptionListGroup>
            ))}
        </DescriptionList>
    );
}

// Whoever may not see whole files may still see the parameters, and the other way round.
async function find(session: Session, number: number): Promise<Found> {
    const problems: string[] = [];
    const tried = <T,>(promise: Promise<T>, what: string) => promise.catch((error: unknown) => {
        if (!(error instanceof Refusal) && !(error instanceof ConnectionLost)) {
            throw error;
        }
        problems.push(`${what}: ${error.message}`);
        return undefined;
    });
    const path = `commits.history.${number}`;
    const [parameters, lines, mayUndo, mayLoad] = await Promise.all([
        tried(changes(session, `${path}.changes`), _("Changed parameters")),
        tried(diff(session, `${path}.diff`), _("Differences of the files")),
        tried(allowed(session, "commits.undo", "w"), _("Undo this commit")),
        tried(allowed(session, "commits.load", "w"), _("Load the state behind it")),
    ]);
    const write = session.permissions.write;
    return { changes: parameters, diff: lines, problems, mayUndo: write && mayUndo === true, mayLoad: write && mayLoad === true };
}
