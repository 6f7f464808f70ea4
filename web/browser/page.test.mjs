// One story in a real browser, against a real daemon: each step goes on where the one before it ended.
import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { Console, eventually } from "./console.mjs";

const possible = await Console.possible();
const machine = new Console();
let window;
let broken = false;

/** A step of the story; with a picture of how it looks when it fails, and behind that the others are left out. */
function step(title, go) {
    test(title, { skip: possible ? false : "needs root and mount namespaces", timeout: 25000 }, async context => {
        if (broken) {
            context.skip("a step before has failed");
            return;
        }
        try {
            await go(window);
            assert.deepEqual(window.faults, []);
        } catch (error) {
            broken = true;
            console.error(`See ${await machine.picture(window.page, "failure")}`);
            throw error;
        }
    });
}

before(async () => {
    if (possible) {
        await machine.start();
        window = await machine.open();
    }
}, { timeout: 30000 });
after(() => machine.stop(), { timeout: 10000 });

step("The page logs in as the console's account, without asking", async ({ frame }) => {
    await frame.getByRole("tab", { name: "Configure" }).waitFor();
    await eventually(async () => await machine.ucfgsh("info", "daemon.sessions") === "2");
});
