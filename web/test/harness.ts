// Connections for the tests: one that plays back what was recorded of a daemon, one to a real daemon.
import assert from "node:assert/strict";
import { spawn, spawnSync } from "node:child_process";
import type { ChildProcess } from "node:child_process";
import { cpSync, mkdtempSync, readFileSync, rmSync } from "node:fs";
import net from "node:net";
import os from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";
import type { Transport } from "../src/protocol";

const web = fileURLToPath(new URL("../../", import.meta.url));
const top = path.join(web, "..");
const build = process.env.UCFGD_BUILD ?? path.join(top, "build");

export async function eventually(check: () => boolean | Promise<boolean>): Promise<void> {
    const end = Date.now() + 8000;
    while (!await check()) {
        assert.ok(Date.now() < end, `still not so: ${String(check)}`);
        await new Promise(resolve => setTimeout(resolve, 10));
    }
}

/**
 * A recording has "> " before what was sent and "< " before what came. What is sent must be what was sent then; the
 * answers come in pieces of a few characters.
 */
export class Recorded implements Transport {
    onData: (text: string) => void = () => undefined;
    onClose: (problem?: string) => void = () => undefined;
    private readonly lines: string[];

    constructor(name: string) {
        this.lines = readFileSync(path.join(web, "test/recorded", `${name}.txt`), "utf8").trimEnd().split("\n");
    }

    get played(): boolean {
        return this.lines.length === 0;
    }

    send(text: string): void {
        for (const line of text.trimEnd().split("\n")) {
            assert.equal(`> ${line}`, this.lines.shift());
        }
        let answer = "";
        while (this.lines[0]?.startsWith("< ")) {
            answer += (this.lines.shift() ?? "").slice(2) + "\n";
        }
        queueMicrotask(() => answer.match(/[^]{1,7}/g)?.forEach(piece => this.onData(piece)));
    }

    close(): void {
        this.lines.length = 0;
    }
}

export class Socket implements Transport {
    onData: (text: string) => void = () => undefined;
    onClose: (problem?: string) => void = () => undefined;
    readonly socket: net.Socket;

    constructor(name: string) {
        this.socket = net.connect(name).setEncoding("utf8");
        this.socket.on("data", text => this.onData(String(text)));
        let problem: string | undefined;
        this.socket.on("error", error => (problem = error.message));
        this.socket.on("close", () => this.onClose(problem));
    }

    send(text: string): void {
        this.socket.write(text);
    }

    close(): void {
        this.onClose = () => undefined;
        this.socket.destroy();
    }
}

/** A daemon on a copy of the sample appliance. */
export class Daemon {
    readonly root = mkdtempSync(path.join(os.tmpdir(), "appliance-"));
    readonly socket = path.join(this.root, "dev/ucfgd");
    private child?: ChildProcess;

    constructor() {
        cpSync(path.join(top, "examples/appliance"), this.root, { recursive: true });
    }

    file(name: string): string {
        return readFileSync(path.join(this.root, name), "utf8");
    }

    async start(): Promise<void> {
        // The PID file is in a namespace of its own.
        const own = ["--mount", "sh", "-c", 'mount -t tmpfs none /run && exec "$@"', "sh"];
        const daemon = [path.join(build, "src/daemon/ucfgd"), "--foreground", `--root=${this.root}`];
        this.child = spawn("unshare", [...own, ...daemon], { stdio: "ignore" });
        process.once("exit", () => this.child?.kill("SIGKILL"));
        await eventually(() => this.answers());
    }

    /** The socket's file is there a moment before somebody listens. */
    private answers(): Promise<boolean> {
        return new Promise(resolve => {
            const socket = net.connect(this.socket, () => {
                socket.destroy();
                resolve(true);
            }).on("error", () => resolve(false));
        });
    }

    async stop(signal: NodeJS.Signals = "SIGTERM"): Promise<void> {
        const child = this.child;
        await new Promise(resolve => {
            child?.once("exit", resolve);
            child?.kill(signal);
        });
        rmSync(this.socket, { force: true });
    }

    remove(): void {
        rmSync(this.root, { recursive: true, force: true });
    }
}

/** Why this machine allows no daemon of one's own, for the test runner; false where it does. */
export const noDaemon =
    process.getuid?.() === 0 && spawnSync("unshare", ["--mount", "true"]).status === 0
        ? false
        : "needs root and mount namespaces";
