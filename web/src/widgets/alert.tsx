// The library's alert, which names its kind to those who do not see its colour: in the language of the page.
import { Alert as Plain } from "@patternfly/react-core";
import type { AlertProps } from "@patternfly/react-core";

const _ = cockpit.gettext;

const kinds: Partial<Record<NonNullable<AlertProps["variant"]>, string>> = {
    danger: _("Error:"),
    warning: _("Warning:"),
    info: _("Notice:"),
    success: _("Success:"),
};

export function Alert(props: AlertProps) {
    return <Plain variantLabel={kinds[props.variant ?? "custom"]} {...props} />;
}
