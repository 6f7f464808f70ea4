// A connection to the daemon's socket through the console's bridge.
import type { Transport } from "./protocol";

// The bridge takes larger messages in one piece only up to a limit of its own.
const piece = 16384;

/** Another socket than the usual one is named by an override of the manifest, which is the administrator's. */
export function socketPath(): string {
    const socket = cockpit.manifests.ucfgd?.socket;
    return typeof socket === "string" ? socket : "/dev/ucfgd";
}

/** Opens the socket with administrative privileges where the console has them, otherwise as the user. */
export function connectThroughConsole(socket: string): Transport {
    const channel = cockpit.channel({ payload: "stream", unix: socket, superuser: "try", binary: true });
    const decoder = new TextDecoder("utf-8", { ignoreBOM: true });
    const encoder = new TextEncoder();
    let closed = false;
    const transport: Transport = {
        onData: () => undefined,
        onClose: () => undefined,
        send(text) {
            const bytes = encoder.encode(text);
            for (let at = 0; at < bytes.length; at += piece) {
                channel.send(bytes.subarray(at, at + piece));
            }
        },
        close() {
            closed = true;
            channel.close();
        },
    };
    channel.addEventListener("message", (_event, data) => {
        transport.onData(typeof data === "string" ? data : decoder.decode(data, { stream: true }));
    });
    channel.addEventListener("close", (_event, options) => {
        if (!closed) {
            closed = true;
            transport.onClose(options.message ?? options.problem);
        }
    });
    return transport;
}

/** Comes to the machine as somebody does who was not there before; fails when it does not answer in that time. */
export function reachAnew(milliseconds: number): Promise<void> {
    return new Promise((resolve, reject) => {
        const socket = new WebSocket(cockpit.transport.uri(), "cockpit1");
        const done = (problem?: string) => {
            clearTimeout(timer);
            socket.close();
            if (problem === undefined) {
                resolve();
            } else {
                reject(new Error(problem));
            }
        };
        const timer = setTimeout(() => done(cockpit.gettext("no answer in time")), milliseconds);
        socket.onerror = () => done(cockpit.gettext("no new connection"));
        socket.onclose = () => done(cockpit.gettext("no new connection"));
        // The console speaks first, and says whether it knows who asks.
        socket.onmessage = ({ data }) => {
            const said = JSON.parse(String(data)) as { problem?: string };
            done(said.problem);
        };
    });
}
