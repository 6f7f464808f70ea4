// One story in a real browser, against a real daemon: each step goes on where the one before it ended.
import assert from "node:assert/strict";
import { appendFile, writeFile } from "node:fs/promises";
import path from "node:path";
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

const tab = ({ frame }, name) => frame.getByRole("tab", { name, exact: true });
const field = ({ frame }, path) => frame.locator(`[data-path="${path}"]`);
const section = ({ frame }, name) => frame.getByRole("navigation", { name: "Sections" }).getByText(name, { exact: true });

async function put(at, path, value) {
    const input = field(at, path).getByRole("textbox");
    await input.fill(value);
    await input.press("Enter");
}

step("It shows a section's parameters with their values and helps, and finds them by their helps", async at => {
    await section(at, "ssh").click();
    await eventually(async () => await field(at, "ssh.port").getByRole("textbox").inputValue() === "22");
    await field(at, "ssh.root-login").getByText("How root may log in").waitFor();
    await at.frame.getByRole("textbox", { name: "Search in names and helps" }).fill("where the appliance stands");
    await at.frame.getByRole("button", { name: "system › location" }).click();
    await eventually(async () => await field(at, "system.location").getByRole("textbox").inputValue() === "Machine room 2, rack 7");
});

const isSeen = locator => eventually(() => locator.evaluate(one => {
    const { left, top, width, height } = one.getBoundingClientRect();
    return one.contains(document.elementFromPoint(left + width / 2, top + height / 2));
}));

step("The browser's address and its Back lead where the page does, and a zoomed page shows the field", async at => {
    await at.page.goBack();
    await field(at, "ssh.port").waitFor();
    await tab(at, "Machine").click();
    await tab(at, "Configure").click();
    await eventually(() => at.page.url().endsWith("#/configure/ssh"));
    await at.page.goto(`${machine.address}/ucfgd#/configure/network.hosts.192%2e0%2e2%2e10`);
    await at.frame.getByRole("heading", { name: "192.0.2.10", exact: true }).waitFor();
    assert.equal(await at.frame.getByRole("navigation", { name: "Sections above" }).textContent(), "networkhosts192.0.2.10");
    await at.page.setViewportSize({ width: 640, height: 450 });
    await at.frame.getByRole("button", { name: "Sections", exact: true }).click();
    await section(at, "ssh").click();
    await isSeen(field(at, "ssh.port").locator("input"));
    await field(at, "ssh.alive-interval").locator("input").focus();
    await put(at, "ssh.alive-interval", "often");
    await pending(at).getByText("1 value was refused").waitFor();
    await isSeen(field(at, "ssh.alive-interval").getByRole("alert"));
    await field(at, "ssh.alive-interval").getByRole("textbox").press("Escape");
    assert.ok((await at.frame.getByRole("textbox", { name: "Search in names and helps" }).evaluate(one => one.getBoundingClientRect().bottom)) < 0);
    await at.page.setViewportSize({ width: 1280, height: 900 });
});

step("A value that is refused is told at its field, and leaves no change", async at => {
    await section(at, "ssh").click();
    await put(at, "ssh.port", "70000");
    await field(at, "ssh.port").getByRole("alert").getByText("70000 is not a port (1 to 65535)").waitFor();
    await section(at, "system").click();
    await pending(at).getByText("1 value was refused").waitFor();
    await at.frame.getByRole("treeitem", { name: /ssh.*A value was refused here/ }).waitFor();
    await pending(at).getByRole("button", { name: "ssh › port" }).click();
    await field(at, "ssh.port").getByRole("alert").getByText("70000 is not a port").waitFor();
    await eventually(() => field(at, "ssh.port").getByRole("textbox").evaluate(one => one === document.activeElement));
    await put(at, "ssh.max-tries", "5");
    await review(at, "1 parameter changed");
    await dialog(at).getByText("1 value that you have typed is not among the changes").waitFor();
    await dialog(at).getByRole("button", { name: "Drop this change" }).click();
    await dialog(at).getByRole("button", { name: "Close" }).click();
    await pending(at).getByText("No changes").waitFor();
    await field(at, "ssh.port").getByRole("button", { name: "Go back to that" }).click();
    await eventually(async () => await field(at, "ssh.port").getByRole("textbox").inputValue() === "22");
});

const node = ({ frame }, path) => frame.locator(`[data-node="${path}"]`);

async function act(at, path, argument) {
    await node(at, path).getByRole("textbox").fill(argument);
    await node(at, path).getByRole("button", { name: /^Run/ }).click();
    await at.frame.getByRole("dialog").getByRole("button", { name: "Run", exact: true }).click();
}

step("The machine's actions take any character, show their output as it comes, and can be stopped", async at => {
    await tab(at, "Machine").click();
    await node(at, "services.restart").getByRole("button", { name: "Run restart" }).click();
    await node(at, "services.restart").getByRole("alert").getByText("This is needed").waitFor();
    await act(at, "services.restart", "a b%+.ü \"'\\");
    await node(at, "services.restart").getByRole("log").getByText("a b%+.ü \"'\\ is not one of").waitFor();
    await node(at, "services.restart").getByText("failed").waitFor();
    await node(at, "system.watch").getByRole("textbox").fill("600");
    await node(at, "system.watch").getByRole("button", { name: "Run watch" }).click();
    await node(at, "system.watch").getByRole("log").getByText(/^[0-9. ]+$/).nth(1).waitFor();
    assert.equal(await machine.ucfgsh("info", "daemon.jobs"), "1");
    await node(at, "system.watch").getByRole("button", { name: "Stop watch" }).click();
    await node(at, "system.watch").getByText("stopped").waitFor();
    assert.equal(await machine.ucfgsh("info", "daemon.jobs"), "0");
    await node(at, "daemon.help").getByRole("textbox").fill("system.watch");
    await node(at, "daemon.help").getByRole("textbox").press("Enter");
    await node(at, "daemon.help").getByRole("status").getByText("The load, once a second").waitFor();
    await tab(at, "Configure").click();
});

const commits = ({ frame }) => frame.getByRole("list", { name: "Commits, the newest first" });
const configured = () => machine.file("etc/ssh/sshd_config");

const pending = ({ frame }) => frame.getByRole("region", { name: "Pending changes" });
const dialog = ({ frame }) => frame.getByRole("dialog", { name: "Pending changes" });

async function review(at, count) {
    await pending(at).getByText(count).waitFor();
    await pending(at).getByRole("button", { name: "Review and commit" }).click();
}

step("A change is shown as a difference of the file before it is committed, and stands in it then", async at => {
    await put(at, "ssh.port", "2201");
    await review(at, "1 parameter changed");
    await dialog(at).getByText("+Port 2201").waitFor();
    assert.doesNotMatch(await configured(), /^Port/m);
    await at.page.keyboard.press("Escape");
    await isSeen(field(at, "ssh.port").locator("input"));
    await review(at, "1 parameter changed");
    await dialog(at).getByRole("textbox", { name: "Comment" }).fill("out of the way");
    await dialog(at).getByRole("button", { name: "Commit", exact: true }).click();
    await pending(at).getByText(/Commit \d+ is done/).waitFor();
    assert.match(await configured(), /^Port 2201$/m);
});

step("Entries are moved by drag and by keyboard, and a value arrives as it was typed, whatever it holds", async at => {
    const search = at.frame.getByRole("textbox", { name: "Search in names and helps" });
    await search.fill("NÄMESERVERS 192.0.2.54");
    await at.frame.getByRole("button", { name: "network › nameservers › 192.0.2.54" }).click();
    await eventually(() => at.frame.getByRole("button", { name: "Parameters of 192.0.2.54" }).evaluate(one => one === document.activeElement));
    const entry = name => at.frame.locator(`[data-entry="${name}"]`);
    const firstIs = name => eventually(async () => await at.frame.locator("[data-entry]").first().getAttribute("data-entry") === name);
    await firstIs("192.0.2.53");
    const added = at.frame.getByRole("textbox", { name: "New entry of nameservers" });
    await added.fill("nowhere");
    await added.press("Enter");
    const refused = at.frame.getByRole("alert").getByText("nowhere is not an address");
    await refused.waitFor();
    await entry("192.0.2.54").hover();
    const { x, y } = await entry("192.0.2.53").boundingBox();
    await at.page.mouse.down();
    await at.page.mouse.move(x + 100, y + 15, { steps: 9 });
    await at.page.mouse.move(x + 102, y + 16, { steps: 3 });
    await at.page.keyboard.press("Escape");
    await at.page.mouse.up();
    await at.page.waitForTimeout(500);
    await firstIs("192.0.2.53");
    await entry("192.0.2.54").dragTo(entry("192.0.2.53"));
    await firstIs("192.0.2.54");
    await refused.waitFor({ state: "hidden" });
    await added.fill("");
    await entry("192.0.2.54").getByText("moved").waitFor();
    await at.frame.getByRole("treeitem", { name: /nameservers.*changed/ }).waitFor();
    await at.frame.getByRole("button", { name: "Move 192.0.2.54 down" }).press("Enter");
    await firstIs("192.0.2.53");
    await search.fill("banner");
    await at.frame.getByRole("button", { name: "system › banner" }).click();
    const banner = "Grüße  \"an\" 'alle' 100%+1 \\n\n\nEnde.";
    await field(at, "system.banner").getByRole("textbox").fill(banner);
    await field(at, "system.banner").getByRole("textbox").press("Control+Enter");
    await review(at, "1 parameter changed");
    await dialog(at).getByRole("button", { name: "Commit", exact: true }).click();
    await pending(at).getByText("No changes").waitFor();
    assert.equal((await machine.file("etc/issue")).trimEnd(), banner);
    await section(at, "ssh").click();
});

step("A commit of somebody else in between is told, and the changes are made again behind it", async at => {
    await put(at, "ssh.port", "2202");
    await pending(at).getByText("1 parameter changed").waitFor();
    await machine.script("set ssh.max-tries 4", "set ssh.port 2200", "commit");
    await review(at, "1 parameter changed");
    await dialog(at).getByText(/Commit \d+ of root: replaced .etc.ssh.sshd_config/).waitFor();
    await dialog(at).getByRole("row", { name: "ssh › port 2200 2202" }).first().waitFor();
    assert.equal(await dialog(at).getByRole("button", { name: "Commit", exact: true }).isDisabled(), true);
    await dialog(at).getByRole("button", { name: "Take that over and make my changes again" }).click();
    await dialog(at).getByText(/^@@ /).first().waitFor();
    await dialog(at).getByRole("button", { name: "Commit", exact: true }).click();
    await pending(at).getByText("No changes").waitFor();
    assert.match(await configured(), /^MaxAuthTries 4$/m);
    assert.match(await configured(), /^Port 2202$/m);
});

async function commitOnTrial(at, port, seconds) {
    await changed(at, port);
    await review(at, "1 parameter changed");
    const length = dialog(at).getByRole("textbox", { name: /^Seconds of a trial/ });
    for (const none of ["", "0", "604801", "1e1"]) {
        await length.fill(none);
        assert.equal(await dialog(at).getByRole("button", { name: "Commit with a trial" }).isDisabled(), true);
    }
    await length.fill(seconds);
    await dialog(at).getByRole("button", { name: "Commit with a trial" }).click();
    await eventually(async () => (await configured()).includes(`\nPort ${port}\n`));
    await pending(at).getByText(/is on trial/).waitFor();
}

const again = "Make them again";

step("A commit with a trial is undone by itself when the machine cannot be reached anew, and kept by the page when it can", async at => {
    const uri = "cockpit.transport.uri";
    await at.frame.locator("body").evaluate(`window.before = ${uri}; ${uri} = () => "ws://127.0.0.1:9/"`);
    await commitOnTrial(at, "2203", "6");
    await pending(at).getByText(/could not confirm it by a new connection: no new connection/).waitFor();
    await pending(at).getByText(/is taken back: nobody confirmed it in time/).waitFor();
    await eventually(async () => /^Port 2202$/m.test(await configured()));
    await pending(at).getByRole("button", { name: again }).click();
    await pending(at).getByText("1 parameter changed").waitFor();
    await pending(at).getByRole("button", { name: "Revert" }).click();
    await at.frame.getByRole("dialog", { name: "Drop all changes?" }).getByRole("button", { name: "Revert" }).click();
    await eventually(async () => await field(at, "ssh.port").getByRole("textbox").inputValue() === "2202");
    await commitOnTrial(at, "2203", "60");
    await pending(at).getByRole("button", { name: "Take back" }).click();
    await pending(at).getByText(/is taken back, as it was ordered/).waitFor();
    await eventually(async () => /^Port 2202$/m.test(await configured()));
    await pending(at).getByRole("button", { name: "Forget them" }).click();
    await at.frame.locator("body").evaluate(`${uri} = window.before`);
    await commitOnTrial(at, "2204", "10");
    await pending(at).getByText(/is confirmed: the machine answered over a new connection/).waitFor();
    assert.equal(await machine.ucfgsh("info", "commits.trial"), "");
});

step("The history shows what others commit as it comes, and what a trial takes back by itself", async at => {
    await tab(at, "History").click();
    await machine.script("set ssh.port 2022", "commit -m 'by another hand'");
    await commits(at).getByText("by another hand").waitFor();
    assert.match(await configured(), /^Port 2022$/m);
    await machine.script("set ssh.port 2023", "set commits.trial 3", "commit -m 'for a moment'");
    assert.match(await configured(), /^Port 2023$/m);
    await at.frame.getByText("of root is on trial").waitFor();
    await eventually(async () => /^Port 2022$/m.test(await configured()));
    const undone = commits(at).getByRole("listitem").filter({ hasText: "for a moment" });
    await undone.getByText("undone").waitFor();
    await pending(at).getByText(/Commit \d+ of root was on trial, and is taken back/).waitFor();
    await undone.getByRole("button").first().click();
    await undone.getByRole("button", { name: "Load the state behind it" }).waitFor();
    assert.equal(await undone.getByRole("button", { name: "Undo this commit" }).count(), 0);
});

step("Undoing a commit takes back what it changed, with the next commit", async at => {
    await tab(at, "Configure").click();
    await eventually(async () => await field(at, "ssh.port").getByRole("textbox").inputValue() === "2022");
    await tab(at, "History").click();
    const commit = commits(at).getByRole("listitem").filter({ hasText: "by another hand" });
    await commit.getByRole("button").first().click();
    await commit.getByRole("button", { name: "Undo this commit" }).click();
    const { hash } = new URL(at.page.url());
    await at.page.goBack();
    await commit.getByRole("button", { expanded: false }).first().waitFor();
    await at.page.goto(`${machine.address}/ucfgd${hash}`);
    await commit.getByRole("button", { expanded: true }).first().waitFor();
    await commit.getByText(/What commit \d+ changed is taken back/).waitFor();
    await commitNow(at, "1 parameter changed");
    assert.match(await configured(), /^Port 2204$/m);
    await pending(at).getByText(/is confirmed/).waitFor({ state: "hidden" });
    await eventually(async () => await commit.getByRole("heading", { name: /taken back/ }).count() === 0);
    await commit.getByRole("button", { name: "Undo this commit" }).click();
    await commit.getByText(/Nothing has changed: what commit \d+ changed is taken back already/).waitFor();
    const first = commits(at).getByRole("listitem").filter({ hasText: "out of the way" });
    await first.getByRole("button").first().click();
    await first.getByRole("button", { name: "Undo this commit" }).click();
    await first.getByText(/^commit \d+ cannot be undone: .*sshd_config has been changed since/).waitFor();
    await first.getByRole("button").first().click();
});

step("Loading the state behind a commit is asked about first, and made at once although others have committed", async at => {
    await machine.script("set ssh.port 2300", "commit -m 'in between'");
    const commit = commits(at).getByRole("listitem").filter({ hasText: "out of the way" });
    await commit.getByRole("button").first().click();
    await commit.getByRole("button", { name: "Load the state behind it" }).click();
    await at.frame.getByRole("dialog", { name: "Load an earlier state?" }).filter({ hasText: /after commit \d+/ }).getByRole("button", { name: "Load" }).click();
    await at.frame.getByText(/The files as they stood after commit \d+ are loaded/).waitFor();
    await commitNow(at, /\d+ parameters? changed/);
    assert.match(await configured(), /^Port 2201$/m);
    await appendFile(path.join(machine.root, "etc/ssh/sshd_config"), "# by hand\n");
    await machine.script("set ssh.port 2300", "commit", "set ssh.port 2201", "commit");
    await commit.getByRole("button", { name: "Load the state behind it" }).click();
    await at.frame.getByRole("dialog", { name: "Load an earlier state?" }).getByRole("button", { name: "Load" }).click();
    await commitNow(at, "Only files changed, no parameter");
    assert.doesNotMatch(await configured(), /by hand/);
});

async function commitNow(at, count) {
    await review(at, count);
    await dialog(at).getByText(/^@@ /).first().waitFor();
    await dialog(at).getByRole("button", { name: "Commit", exact: true }).click();
    await pending(at).getByText("No changes").waitFor();
}

async function changed(at, port) {
    await tab(at, "Configure").click();
    await section(at, "ssh").click();
    await put(at, "ssh.port", port);
    await pending(at).getByText("1 parameter changed").waitFor();
}

async function madeAgain(at, port) {
    await pending(at).getByText("1 change that was not committed is kept").waitFor();
    await pending(at).getByRole("button", { name: again }).click();
    await commitNow(at, "1 parameter changed");
    assert.ok((await configured()).includes(`\nPort ${port}\n`));
}

// From the next connection on, a channel hears nothing more behind what window.cut tells, and is cut then; its log-in
// has window.limit seconds.
function meddle() {
    const open = window.cockpit.channel;
    window.cockpit.channel = options => {
        const channel = open(options);
        if (Date.now() < window.backAt) {
            setTimeout(() => channel.close("disconnected"));
        }
        const send = channel.send.bind(channel);
        let deaf = false;
        channel.send = data => {
            const text = new TextDecoder().decode(data);
            const limit = window.limit && / LOGIN /.test(text) ? `${text.split(" ")[0]}.1 timeout ${window.limit}\n` : "";
            setTimeout(() => {
                send(limit + text);
                if (window.cut && text.includes(window.cut)) {
                    window.cut = undefined;
                    deaf = true;
                    window.backAt = Date.now() + (window.away ?? 0);
                    setTimeout(() => channel.close("disconnected"), 400);
                }
            }, window.wait ?? 0);
        };
        const addEventListener = (name, hear) =>
            channel.addEventListener(name, (...said) => deaf && name === "message" || hear(...said));
        return Object.create(channel, { addEventListener: { value: addEventListener } });
    };
}

step("A daemon that is started anew, and somebody who takes over: said in plain words, and the changes are made again", async at => {
    await changed(at, "2401");
    await at.frame.locator("body").evaluate(meddle);
    await machine.restartDaemon();
    await pending(at).getByText(/The session is gone/).waitFor();
    await pending(at).getByRole("row", { name: "ssh › port set" }).waitFor();
    await madeAgain(at, "2401");
    await changed(at, "2402");
    await machine.ucfgsh("--force", "info", "daemon.sessions");
    const alert = at.frame.getByText("Somebody else has taken over, and has ended all other sessions that may change something");
    await alert.waitFor();
    await at.frame.getByText("1 change of yours that was not committed is kept in this page").waitFor();
    await at.frame.getByText("The daemon says: you have been logged out").waitFor();
    await field(at, "ssh.alive-interval").locator("input").scrollIntoViewIfNeeded();
    await isSeen(alert);
    await eventually(() => field(at, "ssh.port").locator("input").isDisabled());
    await at.frame.locator("body").evaluate("window.limit = 1");
    await at.frame.getByRole("button", { name: "Log in again" }).click();
    await madeAgain(at, "2402");
});

step("A session that has timed out, and a channel that is cut: the changes are made again, or are still there", async at => {
    await changed(at, "2403");
    await at.frame.locator("body").evaluate("window.wait = 2500");
    // The page hears of it with its next look alone, which is held up like every other request.
    await at.frame.getByText("You have been logged out: nothing was heard of this page for too long").waitFor({ timeout: 20000 });
    await at.frame.locator("body").evaluate("window.wait = window.limit = 0");
    await at.frame.getByRole("button", { name: "Log in again" }).click();
    await madeAgain(at, "2403");
    await changed(at, "2404");
    await at.frame.locator("body").evaluate("window.cut = 'commits.changes', window.away = 2000");
    await at.frame.getByText("The connection is lost. It is tried again.").waitFor();
    await at.frame.locator("body").evaluate("window.away = 0");
    await commitNow(at, "1 parameter changed");
});

step("A commit whose answer is lost is found again: for good, and on trial, which the page keeps", async at => {
    await changed(at, "2405");
    await at.frame.locator("body").evaluate("window.cut = ' COMMIT'");
    await commitNow(at, "1 parameter changed");
    await at.frame.getByText(/lost before the commit was answered. It was carried out: commit \d+/).waitFor();
    assert.match(await configured(), /^Port 2405$/m);
    await at.frame.locator("body").evaluate("window.cut = ' COMMIT'");
    await commitOnTrial(at, "2406", "30");
    await pending(at).getByText(/is confirmed: the machine answered over a new connection/).waitFor();
    await changed(at, "2407");
    const asked = new Promise(resolve => at.page.once("dialog", async dialog => {
        await dialog.accept();
        resolve(dialog.type());
    }));
    await at.page.reload();
    assert.equal(await asked, "beforeunload");
    await commitNow(at, "1 parameter changed");
    assert.match(await configured(), /^Port 2407$/m);
});

step("An account that may only look is told so, and offered nothing to press", async at => {
    const settings = "etc/ucfgd/ucfgd.conf";
    const text = await machine.file(settings);
    await writeFile(path.join(machine.root, settings), text.replace(/(admin \{\s*access: )wx/, "$1r"));
    await machine.restartDaemon();
    await pending(at).getByText(/^Read only/).waitFor();
    assert.equal(await pending(at).getByRole("button", { name: /Review|Revert/ }).count(), 0);
});
