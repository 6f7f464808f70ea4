import "@patternfly/react-core/dist/styles/base.css";
import "./theme";
import { createRoot } from "react-dom/client";
import { App } from "./app";
import { draftsOf } from "./drafts";
import { Session } from "./session";
import { connectThroughConsole, socketPath } from "./cockpit-transport";

const memory = "ucfgd:session";

// The account that the socket shows as its peer: root where the console has administrative access.
async function account(): Promise<string> {
    const permission = cockpit.permission({ admin: true });
    if (permission.allowed === null) {
        await new Promise<void>(resolve => permission.addEventListener("changed", () => resolve()));
    }
    const privileged = permission.allowed === true;
    permission.addEventListener("changed", () => {
        if ((permission.allowed === true) !== privileged) {
            window.location.reload();
        }
    });
    return privileged ? "root" : (await cockpit.user()).name;
}

document.addEventListener("DOMContentLoaded", () => {
    const place = document.getElementById("app");
    if (place) {
        document.documentElement.lang = cockpit.language;
        const session = new Session({
            connect: () => connectThroughConsole(socketPath()),
            user: account,
            visible: () => !cockpit.hidden,
            // The console's log-in and log-out empty it.
            memory: {
                load: () => window.sessionStorage.getItem(memory),
                save: text => window.sessionStorage.setItem(memory, text),
            },
        });
        cockpit.addEventListener("visibilitychange", () => {
            if (!cockpit.hidden) {
                session.check();
            }
        });
        window.addEventListener("beforeunload", event => {
            if (session.orders.length > 0 || session.held > 0 || draftsOf(session).left.length > 0) {
                event.preventDefault();
            }
        });
        void session.start();
        createRoot(place).render(<App session={session} />);
    }
});
