import assert from "node:assert/strict";
import { test } from "node:test";
import { admin, attributes, changes, diff, help, list, tooLong, value } from "../src/model";
import { Client, ConnectionLost, RequestTooLong, escape, quotePath, splitPath, unescape } from "../src/protocol";
import type { Transport } from "../src/protocol";
import { Recorded } from "./harness";

const logIn = "LOGIN root";

test("Words are escaped to the byte, and come back", () => {
    for (const [plain, escaped] of [
        ["192.0.2.10", "192%2e0%2e2%2e10"],
        ["a b+c%41\t\n", "a+b%2bc%2541%09%0a"],
        ["Grüße 😀\u007f", "Grüße+😀\u007f"],
        ["\udcff\udcc3x", "%ff%c3x"],
    ] as const) {
        assert.equal(escape(plain), escaped);
        assert.equal(unescape(escaped), plain);
    }
    assert.equal(unescape("100%+%4%C3%A9"), "100% %4é");
    assert.deepEqual(splitPath(quotePath(["network", "hosts", "::1", "a.b"])), ["network", "hosts", "::1", "a.b"]);
});

test("Log-in, refusals and their reasons", async () => {
    const session = new Client(new Recorded("log-in"));
    assert.deepEqual(await session.request("LISTR"), { word: "NO", text: "login required", data: [] });
    const welcome = await session.request(logIn, ["1 perms read"]);
    assert.deepEqual(welcome.data.map(line => line.text.split(" ")[0]), ["PERMS", "SESSION"]);
    assert.equal((await session.request(logIn)).text, "already logged in");
    assert.equal((await session.request("NOOP")).word, "OK");

    const refused = new Client(new Recorded("refusals"));
    await refused.request(logIn);
    assert.deepEqual(await refused.request("SET ssh.port 99999"), {
        word: "ERR",
        text: "99999 is not a port (1 to 65535)",
        data: [],
        error: { id: "error.type.port", args: ["99999", "1", "65535"] },
    });
    const batch = await refused.request("SUBMIT", ["1 SET ssh.port 2222", "2 SET ssh.port foo"]);
    assert.deepEqual([batch.word, batch.data[0], batch.data.at(-1)?.qualifier], ["ERR", { qualifier: "1", text: "OK" }, "2"]);
    assert.deepEqual(await refused.request("ADMIN"), { word: "BAD", text: "at least one argument required", data: [] });
    assert.equal((await refused.request("FOO")).text, "invalid command");
});

test("Several requests under way, and what is read of them", async () => {
    const recorded = new Recorded("reading");
    const client = new Client(recorded);
    await client.request(logIn);
    const { choices, ops } = await attributes(client, "ssh.root-login");
    assert.deepEqual([ops, choices.length, choices[2]], ["gsh", 4, "prohibit-password"]);
    const all = [value(client, "system.banner"), help(client, "ssh.port"), list(client, "no.such").catch(String)];
    assert.equal(client.busy, true);
    const names = list(client, "network.nameservers");
    assert.deepEqual(await Promise.all(all), [
        "Debian GNU/Linux 12 \\n \\l\n",
        "The port it listens on",
        "Refusal: No such file or directory",
    ]);
    assert.deepEqual(await names, ["192%2e0%2e2%2e53", "192%2e0%2e2%2e54"]);
    assert.ok(recorded.played);
});

test("What has lost its end is not taken for the whole", async () => {
    const transport: Transport = {
        onData: () => undefined,
        onClose: () => undefined,
        send: (text: string) => transport.onData(`w1.1 ${"ü".repeat(8188)}${text.includes("fits") ? "" : "x"}\nw1 OK\n`),
        close: () => undefined,
    };
    assert.equal((await value(new Client(transport), "fits")).length, 8188);
    await assert.rejects(value(new Client(transport), "cut"), { message: tooLong });
});

test("The output of actions: tags that are cut, streams, and the remainder that is none", async () => {
    const client = new Client(new Recorded("action"), "longtagsareallowedtoo");
    await client.request(logIn);
    const lines: [string, number, string][] = [];
    const run = (path: string, args: string[]) =>
        admin(client, path, args, (stream, text) => lines.push([path, stream, text]));
    await client.request("SET ssh.port 2223");
    const [first, second] = await Promise.all([run("commits.changes", []), run("commits.watch", ["x"])]);
    assert.deepEqual([first.word, second.word], ["OK", "ERR"]);
    assert.deepEqual(lines, [
        ["commits.changes", 1, "- ssh.port: 2222"],
        ["commits.changes", 1, "+ ssh.port: 2223"],
        ["commits.watch", 2, "'x' is no number of a commit"],
    ]);
});

test("Previews", async () => {
    const client = new Client(new Recorded("previews"));
    await client.request(logIn);
    await client.request("MOVE network.nameservers 192%2e0%2e2%2e54 192%2e0%2e2%2e53");
    await client.request("ADD network.nameservers 2001:db8::");
    await client.request("SET system.contact 50%25+of:+a%2bb");
    const found = await changes(client);
    assert.deepEqual(found[0], { path: "system.contact", before: "Operations <ops@example.net>", after: "50% of: a+b" });
    assert.deepEqual(found[2], { path: "network.nameservers.2001:db8::", silent: true, after: "" });
    assert.equal(found.length, 4);
    assert.match(await diff(client), /^-nameserver 192\.0\.2\.53\n nameserver 192\.0\.2\.54$/m);
});

test("A request that cannot be sent, and one that is never answered", async () => {
    const silent = new Recorded("log-in");
    silent.send = () => undefined;
    const client = new Client(silent);
    await assert.rejects(client.request("NOOP\nw9 COMMIT"), TypeError);
    await assert.rejects(client.request("x".repeat(16384)), RequestTooLong);
    const never = client.request("NOOP");
    client.close();
    await assert.rejects(never, ConnectionLost);
    await assert.rejects(client.request("NOOP"), ConnectionLost);
});
