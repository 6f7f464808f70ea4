// Asks before something is done.
import type { ReactNode } from "react";
import { Button, Modal, ModalVariant } from "@patternfly/react-core";
import "./question-dialog.css";

const _ = cockpit.gettext;

interface QuestionDialogProps {
    title: string;
    answer: string;
    danger?: boolean;
    onYes: () => void;
    onNo: () => void;
    children: ReactNode;
}

export function QuestionDialog({ title, answer, danger, onYes, onNo, children }: QuestionDialogProps) {
    return (
        <Modal
            isOpen
            variant={ModalVariant.small}
            title={title}
            titleIconVariant={danger ? "warning" : undefined}
            showClose={false}
            onClose={onNo}
            actions={[
                <Button key="yes" variant={danger ? "danger" : "primary"} onClick={onYes}>{answer}</Button>,
                <Button key="no" variant="link" onClick={onNo}>{_("Cancel")}</Button>,
            ]}
        >
            {children}
        </Modal>
    );
}
