import assert from "node:assert/strict";
import { readFileSync, writeFileSync } from "node:fs";
import path from "node:path";
import { after, test } from "node:test";
import { rowsOf, spoken } from "../src/change-rows";
import { admin, commitNumbers, commitOf, readChanges, value } from "../src/model";
import type { Transport } from "../src/protocol";
import { orderLines, remember, touches } from "../src/orders";
import type { Order } from "../src/orders";
import { Session } from "../src/session";
import type { SessionOptions } from "../src/session";
import { Daemon, Recorded, Socket, eventually, noDaemon } from "./harness";

const port = (value: string): Order => ({ verb: "SET", path: "ssh.port", value });
const user = () => Promise.resolve("root");
const open: Session[] = [];
let last: Socket | undefined;

function make(connect: () => Transport, options: Partial<SessionOptions> = {}): Session {
    const session = new Session({ connect, user, keepAlive: 20, pause: 10, longestPause: 50, ...options });
    open.push(session);
    return session;
}

/** The connection breaks when the last of them has sent that. */
function breakBehind(word: string): void {
    const socket = last;
    const send = socket?.send.bind(socket);
    if (socket && send) {
        socket.send = text => {
            send(text);
            if (text.includes(word)) {
                socket.socket.destroy();
            }
        };
    }
}

after(() => Promise.all(open.map(session => session.end())));

test("A sign of life tells that the session was ended; what it had taken is kept", async () => {
    for (const [recording, kind] of [["timed-out", "timeout"], ["forced-out", "forced"]] as const) {
        let looking = false;
        const recorded = new Recorded(recording);
        // The recorded session had a time-out of its own.
        const send = recorded.send.bind(recorded);
        recorded.send = text => send(recording === "timed-out" && text.includes("LOGIN") ? `w1.1 timeout 1\n${text}` : text);
        const session = make(() => recorded, { visible: () => looking });
        await session.start();
        if (kind === "timeout") {
            await session.order(port("2222"));
        }
        await new Promise(resolve => setTimeout(resolve, 60));
        assert.equal(session.state, "open");
        looking = true;
        await eventually(() => session.state === "ended");
        assert.equal(session.ending?.kind, kind);
        assert.deepEqual([session.orders, session.kept], [[], kind === "timeout" ? [port("2222")] : []]);
    }
});

test("A long value is cut at its newlines, and no piece is empty", () => {
    const text = `${"x".repeat(9000)}\n${"y".repeat(9000)}\n`;
    const [command, lines] = orderLines({ verb: "SET", path: "system.banner", value: text });
    assert.equal(command, "SET system.banner");
    assert.deepEqual(lines, [` ${"x".repeat(9000)}`, ` ${"y".repeat(9000)}%0a`]);
    assert.deepEqual(orderLines(port("")), ["SET ssh.port", []]);
});

test("A new entry, and the order of a list, are one row each, without escapes", () => {
    const [entry, list] = ["network.nameservers.192%2e0%2e2%2e55", "network.nameservers"];
    const rows = rowsOf(readChanges([
        `- ${list}: a%252eb c`, `+ ${list}: c a%252eb`, `+ ${entry}`.replaceAll("%", "%25"), `+ ${entry}.address: x`.replaceAll("%", "%25"),
        "- system.contact: a%252eb c", "+ system.contact: c",
    ]));
    assert.deepEqual(rows.map(({ path, before, after, parts }) => [spoken(path), before, after, parts.length]), [
        ["network › nameservers", "a.b, c", "c, a.b", 0],
        ["network › nameservers › 192.0.2.55", undefined, "", 1],
        ["system › contact", "a%2eb c", "c", 0],
    ]);
});

test("What is remembered gives the same changes once more", () => {
    const set = (path: string, value: string): Order => ({ verb: "SET", path, value });
    const add: Order = { verb: "ADD", path: "network.hosts", name: "a" };
    const move: Order = { verb: "MOVE", path: "network.hosts", name: "a", before: "b" };
    const [undo, undoNext, alias] = [set("commits.undo", "3"), set("commits.undo", "4"), set("network.hosts.a", "x")];
    for (const [given, kept] of [
        [[port("1"), alias, port("2")], [alias, port("2")]],
        [[port("1"), add, alias, port("2"), port("3")], [port("1"), add, alias, port("3")]],
        [[port("1"), undo, port("2"), undoNext], [port("1"), undo, port("2"), undoNext]],
        [[alias, move, alias], [alias, move, alias]],
    ] as const) {
        assert.deepEqual((given as readonly Order[]).reduce<Order[]>(remember, []), kept);
    }
    assert.deepEqual([touches([add], "network.hosts.a.name"), touches([port("1")], "ssh"), touches([undo], "x")], [true, false, true]);
});

test("With a daemon", { skip: noDaemon, timeout: 60000 }, async context => {
    const daemon = new Daemon();
    const connect = () => (last = new Socket(daemon.socket));
    const session = make(connect);
    await daemon.start();
    await session.start();

    await context.test("a change goes to the disk, a refusal leaves nothing", async () => {
        assert.deepEqual(session.permissions, { read: true, write: true, exec: true });
        assert.equal((await session.order(port("70000"))).error?.id, "error.type.port");
        await session.order(port("2201"));
        await session.order(port("2202"));
        assert.deepEqual(session.orders, [port("2202")]);
        const banner = "a.b\n".repeat(240) + "end";
        assert.equal((await session.order({ verb: "SET", path: "system.banner", value: banner })).word, "OK");
        assert.equal(await value(session, "system.banner"), banner);
        assert.equal((await session.commit()).word, "OK");
        assert.match(daemon.file("etc/ssh/sshd_config"), /^Port 2202$/m);
        const [newest = 0] = await commitNumbers(session);
        const commit = await commitOf(session, newest);
        assert.deepEqual([commit.user, commit.state, session.orders], ["root", "done", []]);
    });

    await context.test("a connection that breaks is resumed, with the changes", async () => {
        await session.order(port("2203"));
        last?.socket.destroy();
        await eventually(() => session.state === "lost");
        await eventually(() => session.state === "open");
        assert.deepEqual([session.orders, session.kept, session.ending], [[port("2203")], [], undefined]);
        assert.equal(await value(session, "ssh.port"), "2203");

        // A connection whose end the daemon has not seen yet.
        const unseen = last;
        unseen?.onClose();
        await eventually(() => session.problem === "not suspended");
        unseen?.socket.destroy();
        await eventually(() => session.state === "open");
        assert.deepEqual(session.orders, [port("2203")]);

        breakBehind("COMMIT");
        await assert.rejects(session.commit());
        await eventually(() => session.state === "open");
        assert.match(daemon.file("etc/ssh/sshd_config"), /^Port 2203$/m);
        assert.deepEqual([session.orders, session.kept], [[], []]);
        assert.equal(session.fate?.carriedOut, "yes");

        // The same with a trial; and one that never reached the daemon.
        await session.order(port("2208"));
        breakBehind("COMMIT");
        await assert.rejects(session.commit({ comment: "for a moment", seconds: 60 }));
        await eventually(() => session.state === "open");
        assert.deepEqual([session.onTrial?.commit, session.onTrial?.orders], [session.fate.commit?.number, [port("2208")]]);
        await admin(session, "commits.cancel");
        session.trialOver(true);
        assert.deepEqual([session.kept, session.ending?.kind], [[port("2208")], "undone"]);
        await session.request("UPDATE");
        await session.reapply();
        breakBehind("MLIST");
        await assert.rejects(session.commit());
        await eventually(() => session.state === "open");
        assert.deepEqual([session.orders, session.kept, session.fate], [[port("2208")], [], { carriedOut: "no" }]);
        await session.order(port("2204"));
    });

    await context.test("a daemon that starts anew: another session, which is offered the orders", async () => {
        await daemon.stop("SIGKILL");
        await eventually(() => session.state === "lost");
        await assert.rejects(session.request("NOOP"));
        await daemon.start();
        await eventually(() => session.state === "open");
        assert.deepEqual([session.ending?.kind, session.orders, session.kept], ["lost", [], [port("2204")]]);
        assert.equal(await value(session, "ssh.port"), "2203");
        assert.deepEqual((await session.reapply()).map(one => one.reply.word), ["OK"]);
        assert.deepEqual([session.orders, session.kept], [[port("2204")], []]);
        session.forget();
    });

    await context.test("a conflict: the orders are given again on what another has committed", async () => {
        const other = make(connect);
        await other.start();
        const host: Order = { verb: "ADD", path: "network.hosts", name: "192%2e0%2e2%2e77" };
        await other.order(host);
        await session.order(host);
        assert.equal((await other.commit()).word, "OK");
        assert.equal((await session.commit()).text, "commit conflict");
        assert.equal((await session.rebase()).word, "OK");
        const outcomes = await session.reapply();
        assert.deepEqual(outcomes.map(one => one.reply.word), ["OK", "ERR"]);
        assert.deepEqual([session.orders, session.kept], [[port("2204")], [host]]);
        assert.equal((await session.commit()).word, "OK");

        // An editor has changed the same line: such a commit drops the changes as it fails.
        session.forget();
        const file = path.join(daemon.root, "etc/ssh/sshd_config");
        await session.order(port("2206"));
        writeFileSync(file, readFileSync(file, "utf8").replace("Port 2204", "Port 2207"));
        assert.equal((await session.commit()).error?.id, "error.commit.conflict");
        assert.deepEqual([session.orders, session.kept], [[], [port("2206")]]);
        await session.reapply();
        assert.equal((await session.commit()).word, "OK");
        assert.match(daemon.file("etc/ssh/sshd_config"), /^Port 2206$/m);
    });

    await context.test("one change is dropped, and the others are made again", async () => {
        const host: Order = { verb: "ADD", path: "network.hosts", name: "192%2e0%2e2%2e78" };
        const entry = `${host.path}.${host.name}`;
        const tries: Order = { verb: "SET", path: "ssh.max-tries", value: "3" };
        for (const order of [host, { verb: "SET", path: `${entry}.name`, value: "a" } as const, port("2209"), tries]) {
            assert.equal((await session.order(order)).word, "OK", JSON.stringify(order));
        }
        await session.takeBack(entry, true);
        assert.deepEqual([session.orders, session.kept], [[port("2209"), tries], []]);
        await session.takeBack("ssh.port", false);
        await session.takeBack("ssh.max-tries", false);
        assert.equal((await session.request("DIRTY")).data[0]?.text, "0");
        assert.equal(await value(session, "ssh.port"), "2206");
    });

    await context.test("forced out, and back by force", async () => {
        await session.order(port("2205"));
        const other = make(connect);
        await other.start(true);
        await eventually(() => session.state === "ended");
        assert.deepEqual(session.ending?.kind, "forced");
        assert.deepEqual(session.kept[0], port("2205"));
        await session.start(true);
        assert.deepEqual([session.state, session.kept[0]], ["open", port("2205")]);
        await eventually(() => other.state === "ended");
        const side = await session.side();
        assert.equal((await side.request("NOOP")).word, "OK");
        side.close();
    });

    await Promise.all(open.map(one => one.end()));
    await daemon.stop();
    daemon.remove();
});
