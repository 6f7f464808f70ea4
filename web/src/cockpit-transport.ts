// A connection to the daemon's socket through the console's bridge.
import type { Transport } from "./protocol";

// The bridge takes larger messages in one piece only up to a limit of its own.
const piece = 16384;

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
