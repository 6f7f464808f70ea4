import assert from "node:assert/strict";
import { test } from "node:test";
import { Tail, argumentsOf, narrowed, wordsOf } from "../src/management";
import { readable } from "../src/readable";

test("Arguments as a definition describes them, and as they are sent", () => {
    const shape = (text: string) => argumentsOf(text).map(arg => arg.name + (arg.optional ? "?" : "") + (arg.many ? "*" : ""));
    assert.deepEqual(shape("ADDRESS [MODULE [PATH]]"), ["ADDRESS", "MODULE?", "PATH?"]);
    assert.deepEqual(shape("FROM NAME..."), ["FROM", "NAME*"]);
    assert.deepEqual(shape("[NAME ...]"), ["NAME?*"]);
    const args = argumentsOf("ADDRESS [MODULE [PATH]] ");
    assert.deepEqual(wordsOf(args, ["a b", "", ""]), { words: ["a+b"], faults: new Map() });
    assert.deepEqual([...wordsOf(args, ["", "", "x"]).faults], [[0, "missing"], [1, "missing"]]);
    assert.deepEqual([...wordsOf(args, ["é".repeat(512)]).faults], [[0, "long"]]);
    assert.deepEqual(wordsOf(argumentsOf("NAME..."), ["one\n\ntwo words"]).words, ["one", "two+words"]);
});

test("Times and bytes are told as people read them", () => {
    const shown = (text: string, help: string) => readable(text, help, "en");
    assert.match(shown("1795443008", "When it started, in seconds since 1970"), /^Nov 2\d, 2026.*:10:08/);
    assert.deepEqual([shown("0", "When, in seconds since 1970, or 0"), shown("1572864", "Bytes of memory"), shown("1572864", "Sessions")],
        ["", "1.5 MiB", "1572864"]);
});

test("Of a long output the last lines are kept, and few requests are under way at once", async () => {
    const tail = new Tail(3);
    "abcdefghi".split("").forEach(text => tail.add(text));
    assert.deepEqual(tail.last().map(line => `${line.number}${line.text}`), ["7g", "8h", "9i"]);
    let under = 0;
    let most = 0;
    const at = narrowed({
        request: async () => {
            most = Math.max(most, ++under);
            await new Promise(resolve => setTimeout(resolve, 1));
            under -= 1;
            return Promise.reject(new Error("refused"));
        },
    }, 2);
    assert.equal((await Promise.allSettled(Array.from({ length: 9 }, () => at.request("NOOP")))).length, 9);
    assert.deepEqual([most, under], [2, 0]);
});
