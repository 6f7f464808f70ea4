import assert from "node:assert/strict";
import { test } from "node:test";
import { marksOf } from "../src/entry-marks";
import { kindOf } from "../src/kind";
import { readChanges } from "../src/model";
import { Parameters, longestSection } from "../src/parameters";
import type { Reply } from "../src/protocol";
import { readSection } from "../src/section";
import { visible } from "../src/visible";

test("Each parameter has the widget that it asks for", () => {
    const widget = (value: string | undefined, words = "", { ops = "gs", choices = [] as string[], type = "" } = {}) =>
        kindOf({ ops, choices, flags: [], type }, value, words).widget;
    const yesNo = { choices: ["yes", "no"] };
    assert.deepEqual(
        [widget("yes", "", yesNo), widget("maybe", "", yesNo), widget("a", "", { choices: ["a", "b", "c"] })],
        ["switch", "choice", "choice"]);
    assert.deepEqual([widget("22", "a port (1 to 65535)"), widget("5", "-9 to 9"), widget("never", "1 to 9"), widget("5", "1 to 9, or never"), widget("5", "a number")],
        ["number", "text", "text", "text", "text"]);
    assert.deepEqual([widget("a\nb"), widget("", "several lines are allowed")], ["lines", "lines"]);
    assert.deepEqual([widget(undefined), widget("x", "", { ops: "s" }), widget("x", "", { type: "password" })], ["secret", "secret", "secret"]);
});

test("Entries of a list are marked by what the changes do to them", () => {
    const { marks, gone } = marksOf("l", readChanges(["- l: a b c d", "+ l: d a b c", "+ l.n", "+ l.n.x: 1", "- l.g", "- l.b.x: 1", "+ l.b.x: 2", "+ ll.a"]));
    assert.deepEqual([...marks], [["l.d", "moved"], ["l.n", "new"], ["l.b", "changed"]]);
    assert.deepEqual(gone, ["l.g"]);
});

test("Values of changes are as the fields show them, and what cannot be seen in them is", () => {
    assert.deepEqual(readChanges(["- a: \\\\n \\\\l\\n", "+ a:  b%09"]), [{ path: "a", before: "\\n \\l\n", after: " b\t" }]);
    assert.deepEqual([" a  b ", "a\n b\n", "\t\x7f"].map(visible), ["␣a  b␣", "a\n␣b↵", "→^?"]);
});

// name: [ops, help, children]; "*" stands for any number of entries.
const names = Array.from({ length: 5000 }, (_one, index) => `user${index}`);
const tree: Record<string, [string, string, string[]?]> = {
    "": ["l", "", ["büro", "users", "hosts"]],
    "büro": ["lh", "Das Büro in der Straße", ["ort"]],
    "büro.ort": ["gsh", "Where the OFFICE stands"],
    "users": ["lh", "Accounts", names],
    "hosts": ["adm", "", ["b", "a%2eä"]],
};

test("The search compares without case and accents, and a section of thousands costs a few requests", async () => {
    let count = 0;
    const at = {
        request: (command: string): Promise<Reply> => {
            const [verb, path = ""] = command.split(" ");
            const [ops, help, children = []] = tree[path] ?? ["gs", ""];
            const lines = verb === "LIST" ? children : verb === "HELP" ? [help] : verb === "ATTR" ? [] : ["1"];
            const data = lines.map(text => ({ qualifier: "1", text }));
            count += 1;
            return Promise.resolve({ word: "OK", text: "", data: verb === "ATTR" ? [{ qualifier: "ops", text: ops }] : data });
        },
    };
    const parameters = new Parameters();
    await parameters.fill(at);
    assert.ok(count < 30, `${count} requests`);
    const search = (text: string) => parameters.search(text).map(one => `${one.path} in ${one.section}`);
    assert.deepEqual(search("BURO strasse"), ["büro in büro"]);
    assert.deepEqual(search(" office  büro "), ["büro.ort in büro"]);
    assert.deepEqual(search("a.Ä"), ["hosts.a%2eä in hosts"]);
    assert.deepEqual(search("user4999"), ["users.user4999 in users.user4999"]);
    assert.deepEqual([search(" "), search("nothing office")], [[], []]);
    const users = await readSection(at, parameters, "users", true);
    assert.deepEqual([users?.fields.length, users?.total], [longestSection, 5000]);
    const writable = async (may: boolean) => (await readSection(at, parameters, "büro", may))?.fields.map(field => field.writable);
    assert.deepEqual([await writable(true), await writable(false)], [[true], [false]]);
});
