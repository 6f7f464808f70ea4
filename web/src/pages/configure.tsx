// Sections on the left, the parameters of one of them on the right, and a search over all.
import { useCallback, useEffect, useRef, useState, useSyncExternalStore } from "react";
import {
    Breadcrumb, BreadcrumbItem, Button, EmptyState, EmptyStateHeader, EmptyStateIcon, Form, List, ListItem, SearchInput,
    Sidebar, SidebarContent, SidebarPanel, Spinner, Text, TextContent, Title,
} from "@patternfly/react-core";
import AngleDownIcon from "@patternfly/react-icons/dist/esm/icons/angle-down-icon";
import { goTo, useShown } from "../address";
import { useSession } from "../app";
import type { PageProps } from "../app";
import { useDrafts } from "../drafts";
import { Parameters, isAbsent, longestSection, nameOf, parentOf } from "../parameters";
import type { Found } from "../parameters";
import { pendingOf } from "../pending-changes";
import { splitPath } from "../protocol";
import { readSection } from "../section";
import type { Section } from "../section";
import type { Session } from "../session";
import { Alert } from "../widgets/alert";
import { entryId } from "../widgets/entry";
import { EntryList } from "../widgets/entry-list";
import { ParameterField, fieldId } from "../widgets/field";
import { SectionTree } from "../widgets/section-tree";
import "./configure.css";

const _ = cockpit.gettext;

// As the style sheet has it.
const narrow = window.matchMedia("(max-width: 767px)");

interface SectionProps {
    session: Session;
    parameters: Parameters;
    path: string;
    onOpen: (path: string) => void;
    announce: (text: string) => void;
    /** The entry or the parameter that was looked for. */
    goal?: string;
    /** Called once when there is something to see. */
    onShown?: () => void;
}

/** Reads the section again after everything that may have changed it; undefined while it is read first. */
function useSection(session: Session, parameters: Parameters, path: string, most: number): Section | null | undefined {
    const pending = pendingOf(session);
    const foreign = useSyncExternalStore(listener => pending.subscribe(listener), () => pending.foreign);
    const [read, setRead] = useState<{ path: string; section: Section | null }>();
    const { state, version } = session;
    useEffect(() => {
        if (state !== "open") {
            return undefined;
        }
        let wanted = true;
        const timer = setTimeout(() => {
            readSection(session, parameters, path, session.permissions.write, most).then(
                section => wanted && setRead({ path, section: section ?? null }),
                () => undefined, // a loss of the connection, which is told elsewhere
            );
        }, 30);
        return () => {
            wanted = false;
            clearTimeout(timer);
        };
    }, [session, parameters, path, most, state, version, foreign]);
    return read?.path === path ? read.section : undefined;
}

function SectionForm({ session, parameters, path, onOpen, announce, goal, onShown }: SectionProps) {
    const [most, setMost] = useState(longestSection);
    const section = useSection(session, parameters, path, most);
    const pending = pendingOf(session);
    const there = section !== undefined;
    useSyncExternalStore(listener => pending.subscribe(listener), () => pending.version);
    useEffect(() => {
        if (there) {
            onShown?.();
        }
    }, [there, onShown]);
    if (section === undefined) {
        return <Spinner size="lg" aria-label={_("Reading the section")} />;
    }
    if (section === null) {
        return <Alert isInline variant="info" title={_("This is not there, or not any more.")} />;
    }
    const changes = new Map(pending.changes.map(change => [change.path, change]));
    const { fields, sections, entries, total } = section;
    return (
        <>
            {fields.length > 0 &&
                <Form isWidthLimited onSubmit={event => event.preventDefault()}>
                    {fields.map(field =>
                        <ParameterField
                            key={field.node.path}
                            session={session}
                            field={field}
                            change={changes.get(field.node.path)}
                            stamp={section}
                        />)}
                </Form>}
            {entries &&
                <EntryList
                    key={path}
                    session={session}
                    parameters={parameters}
                    section={section}
                    announce={announce}
                    wanted={goal}
                    content={entry =>
                        <SectionForm {...{ session, parameters, onOpen, announce }} path={entry} />}
                />}
            {sections.length > 0 &&
                <List isPlain className="ucfgd-below">
                    {sections.map(({ path: below, name, help }) =>
                        <ListItem key={below}>
                            <Button variant="link" isInline onClick={() => onOpen(below)}>{name}</Button>
                            {help !== "" && ` — ${help}`}
                        </ListItem>)}
                </List>}
            {!entries && total > most &&
                <Button variant="link" onClick={() => setMost(most + longestSection)}>
                    {cockpit.format(_("Show more: $0 of $1 are shown"), most, total)}
                </Button>}
            {fields.length === 0 && sections.length === 0 && !entries && !isAbsent(section.node) &&
                <p>{_("There is nothing here that may be shown.")}</p>}
        </>
    );
}

function Results({ found, complete, onPick }: { found: Found[]; complete: boolean; onPick: (one: Found) => void }) {
    return (
        <>
            <p role="status">
                {cockpit.format(cockpit.ngettext("$0 match", "$0 matches", found.length), found.length)}
                {!complete && " " + _("(still reading)")}
            </p>
            <List isPlain aria-label={_("Matches")}>
                {found.map(one =>
                    <ListItem key={one.path}>
                        <Button variant="link" isInline onClick={() => onPick(one)}>{splitPath(one.path).join(" › ")}</Button>
                        {one.help !== "" && <div className="ucfgd-help">{one.help}</div>}
                    </ListItem>)}
            </List>
        </>
    );
}

function Path({ path, onOpen }: { path: string; onOpen: (path: string) => void }) {
    const above: string[] = [];
    for (let at = parentOf(path); at !== ""; at = parentOf(at)) {
        above.unshift(at);
    }
    return above.length === 0 ? null : (
        <Breadcrumb aria-label={_("Sections above")}>
            {above.map(at =>
                <BreadcrumbItem key={at} component="button" onClick={() => onOpen(at)}>{nameOf(at)}</BreadcrumbItem>)}
            <BreadcrumbItem isActive>{nameOf(path)}</BreadcrumbItem>
        </Breadcrumb>
    );
}

/** What there is to see before a section is. */
function First({ parameters }: { parameters: Parameters }) {
    return parameters.complete
        ? <p>{_("There is nothing here that may be shown.")}</p>
        : <EmptyState><EmptyStateHeader titleText={_("Reading the sections")} headingLevel="h2" icon={<EmptyStateIcon icon={Spinner} />} /></EmptyState>;
}

/** The tree's data, read when the session opens and when others have changed it. */
function useParameters(session: Session): Parameters {
    const [parameters] = useState(() => new Parameters());
    const pending = pendingOf(session);
    const foreign = useSyncExternalStore(listener => pending.subscribe(listener), () => pending.foreign);
    useSyncExternalStore(listener => parameters.subscribe(listener), () => parameters.version);
    const open = session.state === "open";
    useEffect(() => {
        if (open) {
            parameters.fill(session).catch(() => undefined); // a loss is told elsewhere, and read again behind it
        }
    }, [parameters, session, open, foreign]);
    return parameters;
}

export function Configure({ session }: PageProps) {
    useSession(session);
    const parameters = useParameters(session);
    const first = parameters.children("")[0]?.path ?? "";
    const [search, setSearch] = useState("");
    const [said, setSaid] = useState("");
    // Where there is no room beside the form, the tree is folded away.
    const [unfolded, setUnfolded] = useState(false);
    const [goal, setGoal] = useState<string>();
    const heading = useRef<HTMLHeadingElement>(null);
    const path = useShown("configure") || first;

    // What picked the section is gone behind it, unless that was the tree: then the focus stays there.
    const open = (section: string, focus: string) => {
        setGoal(focus);
        setSearch("");
        setUnfolded(false);
        goTo("configure", section);
    };
    // The browser's Back and Forward lead to another section as the tree does, and what was said was of the one before.
    const before = useRef(path);
    useEffect(() => {
        if (before.current !== path && before.current !== "") {
            setGoal(now => now ?? "");
            setSearch("");
            setSaid("");
        }
        before.current = path;
    }, [path]);
    const onShown = useCallback(() => {
        const at = goal && (document.getElementById(fieldId(goal)) ?? document.getElementById(`${entryId(goal)}-toggle`));
        if (at) {
            at.scrollIntoView({ block: "center" });
            at.focus();
        } else if (goal !== undefined) {
            heading.current?.scrollIntoView({ block: narrow.matches ? "start" : "nearest" });
            // The tree is gone, too, where it is folded away.
            if (goal !== "" || !document.activeElement?.getClientRects().length || document.activeElement === document.body) {
                heading.current?.focus();
            }
        }
        setGoal(undefined);
    }, [goal]);
    const pending = pendingOf(session);
    useSyncExternalStore(listener => pending.subscribe(listener), () => pending.version);
    const changed = pending.changes.map(change => change.path);
    const found = search.trim() === "" ? undefined : parameters.search(search);
    const node = parameters.get(path);
    const refused = useDrafts(session).left.filter(({ state }) => state === "refused").map(one => one.path);
    return (
        <Sidebar hasGutter>
            <SidebarPanel width={{ default: "width_100", md: "width_25" }}>
                <SearchInput
                    aria-label={_("Search in names and helps")}
                    placeholder={_("Search")}
                    resetButtonLabel={_("Clear the search")}
                    value={search}
                    onChange={(_event, text) => setSearch(text)}
                    onClear={() => setSearch("")}
                />
                <div className="ucfgd-fold">
                    <Button
                        variant="secondary"
                        isBlock
                        icon={<AngleDownIcon />}
                        iconPosition="end"
                        aria-expanded={unfolded}
                        aria-controls="sections"
                        onClick={() => setUnfolded(!unfolded)}
                    >
                        {_("Sections")}
                    </Button>
                </div>
                <nav id="sections" className={unfolded ? undefined : "ucfgd-folded"} aria-label={_("Sections")}>
                    <SectionTree {...{ parameters, refused, changed }} active={path} onSelect={section => open(section, "")} />
                </nav>
            </SidebarPanel>
            <SidebarContent hasPadding>
                <div className="pf-v5-screen-reader" role="status">{said}</div>
                {found
                    ? <Results found={found} complete={parameters.complete} onPick={one => open(one.section, one.path)} />
                    : path === "" ? <First parameters={parameters} /> :
                        <>
                            <Path path={path} onOpen={section => open(section, section)} />
                            <TextContent>
                                <Title headingLevel="h2" ref={heading} tabIndex={-1}>{nameOf(path)}</Title>
                                {node && node.help !== "" && <Text>{node.help}</Text>}
                            </TextContent>
                            <SectionForm
                                key={path}
                                {...{ session, parameters, path, goal, onShown }}
                                announce={setSaid}
                                onOpen={section => open(section, section)}
                            />
                        </>}
            </SidebarContent>
        </Sidebar>
    );
}
