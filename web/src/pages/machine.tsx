// The machine as it is now: what the management tree tells, and the actions that it offers.
import { useCallback, useEffect, useState } from "react";
import {
    Alert, Button, DescriptionList, DescriptionListDescription, DescriptionListGroup, DescriptionListTerm,
    ExpandableSection, HelperText, HelperTextItem, Spinner, Stack, StackItem, Title,
} from "@patternfly/react-core";
import type { PageProps } from "../app";
import { useSession } from "../app";
import { readMachine } from "../management";
import type { MachineSection } from "../management";
import { ActionCard } from "../widgets/action-card";

const _ = cockpit.gettext;

export function Machine({ session }: PageProps) {
    useSession(session);
    const [sections, setSections] = useState<MachineSection[]>();
    const [problem, setProblem] = useState("");
    const open = session.state === "open";
    const refresh = useCallback(() => {
        readMachine(session).then(
            found => {
                setSections(found);
                setProblem("");
            },
            (error: unknown) => setProblem(error instanceof Error ? error.message : String(error)),
        );
    }, [session]);
    useEffect(() => {
        if (open) {
            refresh();
        }
    }, [open, refresh]);

    if (!sections && problem === "") {
        return <Spinner aria-label={_("The management tree is being fetched")} />;
    }
    return (
        <Stack hasGutter>
            <StackItem>
                <Title headingLevel="h2">{_("Machine")}</Title>
                <Button variant="secondary" onClick={refresh}>{_("Refresh")}</Button>
            </StackItem>
            {problem !== "" && <StackItem><Alert isInline isLiveRegion variant="danger" title={problem} /></StackItem>}
            {sections?.map(section => (
                <StackItem key={section.path}><Section section={section} session={session} /></StackItem>
            ))}
        </Stack>
    );
}

function Section({ section, session }: { section: MachineSection } & PageProps) {
    // The top of the tree is open, long lists below it are not.
    const [isOpen, setOpen] = useState(!section.path.includes("."));
    return (
        <ExpandableSection
            toggleText={section.path}
            isExpanded={isOpen}
            onToggle={(_event, value) => setOpen(value)}
            isIndented
        >
            <DescriptionList isHorizontal isCompact>
                {section.facts.map(({ path, name, help, text }) => (
                    <DescriptionListGroup key={path}>
                        <DescriptionListTerm>{name}</DescriptionListTerm>
                        <DescriptionListDescription>
                            {text}
                            {help !== "" && <HelperText><HelperTextItem>{help}</HelperTextItem></HelperText>}
                        </DescriptionListDescription>
                    </DescriptionListGroup>
                ))}
            </DescriptionList>
            {section.actions.map(action => <ActionCard key={action.path} action={action} session={session} />)}
        </ExpandableSection>
    );
}
