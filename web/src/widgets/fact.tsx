// What a node of the management tree tells, by itself or once it is given an argument.
import { useState } from "react";
import { DescriptionListDescription, DescriptionListGroup, DescriptionListTerm, HelperText, HelperTextItem } from "@patternfly/react-core";
import type { MachineNode } from "../management";
import { infoOf, infoReply } from "../model";
import { readable } from "../readable";
import type { Reply } from "../protocol";
import type { Session } from "../session";
import { ArgumentForm } from "./argument-form";
import { answered } from "./use-run";

const _ = cockpit.gettext;

function Question({ node, session }: { node: MachineNode; session: Session }) {
    const [answer, setAnswer] = useState<string>();
    const [refusal, setRefusal] = useState<Reply>();
    const ask = async (words: string[]) => {
        const reply = await answered(infoReply(session, node.path, words));
        setAnswer(reply.word === "OK" ? infoOf(reply) : undefined);
        setRefusal(reply.word === "OK" ? undefined : reply);
    };
    return (
        <>
            <ArgumentForm
                id={`ask-${node.path}`}
                args={node.args}
                label={cockpit.format(_("Ask for $0"), node.name)}
                refusal={refusal}
                onEdit={() => setRefusal(undefined)}
                onSend={words => void ask(words)}
            />
            <div role="status" className="ucfgd-said">{answer === "" ? <em>{_("(empty)")}</em> : answer}</div>
        </>
    );
}

export function Fact({ node, session }: { node: MachineNode; session: Session }) {
    const text = node.text === undefined ? undefined : readable(node.text, node.help, cockpit.language.replace("_", "-"));
    return (
        <DescriptionListGroup data-node={node.path}>
            <DescriptionListTerm>{node.name}</DescriptionListTerm>
            <DescriptionListDescription>
                {text !== undefined &&
                    <div className="ucfgd-said" title={text === node.text ? undefined : node.text}>
                        {text === "" ? <em>{node.text === "" ? _("(empty)") : _("never")}</em> : text}
                    </div>}
                {node.help !== "" && <HelperText><HelperTextItem>{node.help}</HelperTextItem></HelperText>}
                {node.args.length > 0 && <Question node={node} session={session} />}
            </DescriptionListDescription>
        </DescriptionListGroup>
    );
}
