// The web console with the page in it, on a sample appliance of its own, and a browser that looks at it.
import { execFile, spawn } from "node:child_process";
import { access, mkdir, mkdtemp, readFile, rm, writeFile } from "node:fs/promises";
import net from "node:net";
import os from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";
import { promisify } from "node:util";
import { chromium } from "playwright-core";

const top = path.resolve(path.dirname(fileURLToPath(import.meta.url)), "../..");
const build = process.env.UCFGD_BUILD ?? path.join(top, "build");
const run = promisify(execFile);

/** Where screenshots are kept: those of failures, and those that are asked for. */
export const pictures = path.join(top, "web/build/pictures");

const pause = milliseconds => new Promise(resolve => setTimeout(resolve, milliseconds));

/** Calls what may throw or answer false again until it does not; what it threw last is thrown after that time. */
export async function eventually(check, seconds = 8) {
    const end = Date.now() + seconds * 1000;
    for (;;) {
        try {
            const result = await check();
            if (result !== false) {
                return result;
            }
            if (Date.now() > end) {
                throw new Error(`still not so after ${seconds} s: ${check}`);
            }
        } catch (error) {
            if (Date.now() > end) {
                throw error;
            }
        }
        await pause(100);
    }
}

function freePort() {
    return new Promise((resolve, reject) => {
        const server = net.createServer();
        server.on("error", reject);
        server.listen(0, "127.0.0.1", () => {
            const { port } = server.address();
            server.close(() => resolve(port));
        });
    });
}

export class Console {
    /** Whether this machine allows what is needed: root, and mount namespaces. */
    static async possible() {
        return process.getuid() === 0 && run("unshare", ["--mount", "--pid", "--fork", "--mount-proc", "true"]).then(() => true, () => false);
    }

    async start() {
        this.scratch = await mkdtemp(path.join(os.tmpdir(), "console-"));
        this.root = path.join(this.scratch, "appliance");
        const port = await freePort();
        this.address = `http://127.0.0.1:${port}`;
        let said = "";
        this.server = spawn(path.join(top, "scripts/web-console"), [this.scratch, String(port)]);
        this.server.stdout.on("data", data => said += data);
        this.server.stderr.on("data", data => said += data);
        this.server.on("exit", code => this.ended = `the console ended with ${code}: ${said}`);
        await eventually(async () => {
            if (this.ended) {
                throw new Error(this.ended);
            }
            await access(path.join(this.scratch, "ready"));
        }, 20);
        const quiet = ["gpu", "quic", "background-networking", "component-update", "sync"].map(name => `--disable-${name}`);
        this.browser = await chromium.launch({
            executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
            args: ["--no-sandbox", "--no-first-run", ...quiet],
        });
    }

    /** A window with the page: `page` is the whole, `frame` what is ours. Each has its own session with the daemon. */
    async open({ language, ...options } = {}) {
        const context = await this.browser.newContext({ viewport: { width: 1280, height: 900 }, ...options });
        context.setDefaultTimeout(8000);
        if (language) {
            await context.addCookies([{ name: "CockpitLang", value: language, url: this.address }]);
        }
        const page = await context.newPage();
        const faults = [];
        page.on("pageerror", error => faults.push(error.stack ?? error.message));
        await page.goto(`${this.address}/ucfgd`);
        return { page, faults, frame: page.frameLocator('iframe[name="cockpit1:localhost/ucfgd"]') };
    }

    /** What a second client says, which is root's. Fails when a command is refused. */
    async ucfgsh(...words) {
        const socket = path.join(this.root, "dev/ucfgd");
        const { stdout } = await run(path.join(build, "client/ucfgsh"), ["--plain", "--socket", socket, ...words]);
        return stdout.trimEnd();
    }

    /** The same with several commands, one a line. */
    async script(...lines) {
        const file = path.join(this.scratch, "script");
        await writeFile(file, lines.join("\n") + "\n");
        return this.ucfgsh("--file", file);
    }

    /** The daemon dies, and is started anew. */
    async restartDaemon() {
        const order = path.join(this.scratch, "restart");
        await writeFile(order, "");
        await eventually(() => access(order).then(() => false, () => true));
    }

    file(name) {
        return readFile(path.join(this.root, name), "utf8");
    }

    async picture(page, name) {
        await mkdir(pictures, { recursive: true });
        const file = path.join(pictures, `${name}.png`);
        await page.screenshot({ path: file });
        return file;
    }

    async stop() {
        await this.browser?.close();
        if (this.server && !this.ended) {
            const end = new Promise(resolve => this.server.on("exit", resolve));
            this.server.kill("SIGTERM");
            await end;
        }
        if (this.scratch) {
            await rm(this.scratch, { recursive: true, force: true });
        }
    }
}
