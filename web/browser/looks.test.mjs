// How everything looks, in light and dark, narrow and in German: no rule of accessibility broken, nothing wider than
// the window, nothing left in English. With PICTURES=yes each is drawn into build/pictures.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { rename } from "node:fs/promises";
import { createRequire } from "node:module";
import { after, before, test } from "node:test";
import { entries, manifestTexts } from "../po.mjs";
import { Console, eventually } from "./console.mjs";

const possible = await Console.possible();
const machine = new Console();
const axe = readFileSync(createRequire(import.meta.url).resolve("axe-core/axe.min.js"), "utf8");
const rules = { runOnly: ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa"], resultTypes: ["violations"] };
const translated = entries(readFileSync(new URL("../po/de.po", import.meta.url), "utf8"));
const german = new Map(translated.map(({ msgid, msgstr }) => [msgid, msgstr[0]]));
const manifest = JSON.parse(readFileSync(new URL("../manifest.json", import.meta.url), "utf8"));
// The words of the manifest are names of the appliance's sections, too.
const elsewhere = new Set(["", ...manifestTexts(manifest)]);
const english = new Set([...german].filter(([text, meant]) => text !== meant && !elsewhere.has(text)).map(([text]) => text));

const variants = {
    light: {},
    dark: { style: "dark" },
    narrow: { viewport: { width: 360, height: 740 } },
    german: { language: "de" },
};

before(async () => possible && await machine.start(), { timeout: 30000 });
after(() => machine.stop(), { timeout: 10000 });

async function faultsOf(frame, language) {
    const { violations } = await frame.evaluate(([axe, rules]) => {
        document.getAnimations().forEach(one => one.effect.getTiming().iterations === 1 && one.finish());
        window.axe ?? (0, eval)(axe);
        return window.axe.run(document, rules);
    }, [axe, rules]);
    const faults = violations.flatMap(({ id, nodes }) => nodes.map(({ target, html, any }) =>
        `${id}: ${target.join(" ")}: ${html.slice(0, 150)} ${any.map(one => one.message).join("; ")}`));
    const { over, said } = await frame.evaluate(() => ({
        over: Math.max(...[document.documentElement, ...document.querySelectorAll("main, .pf-v5-c-modal-box")].map(
            one => one.scrollWidth - one.clientWidth)),
        // What an action prints is its own.
        said: [...document.body.querySelectorAll("*")].filter(one => !one.closest("[role=log]")).flatMap(one => [
            ...["aria-label", "placeholder", "title"].map(name => one.getAttribute(name)),
            ...[...one.childNodes].map(child => child.nodeType === 3 && child.data),
        ]).filter(Boolean),
    }));
    const left = language === "de" ? said.filter(text => english.has(text.trim())) : [];
    return [...faults, ...left.map(text => `not in German: ${text}`), ...over > 0 ? [`wider than the window by ${over} px`] : []];
}

/** The steps of a variant's way through the page, each with what it comes to see. `n` differs between variants. */
const way = ({ frame }, t, n) => {
    const click = (name, role = "button") => frame.getByRole(role, { name, exact: true }).first().click();
    const section = async name => {
        const sections = frame.getByRole("button", { name: t("Sections"), exact: true });
        if (await sections.isVisible() && await sections.getAttribute("aria-expanded") === "false") {
            await sections.click();
        }
        await frame.getByRole("navigation", { name: t("Sections") }).getByText(name, { exact: true }).click();
    };
    const put = async (path, value) => {
        const input = frame.locator(`[data-path="${path}"]`).locator("input");
        await input.fill(value);
        await input.press("Enter");
    };
    const search = text => frame.getByRole("textbox", { name: t("Search in names and helps") }).fill(text);
    return {
        form: async () => {
            await section("ssh");
            await frame.locator('[data-path="ssh.port"] input').waitFor();
        },
        refused: async () => {
            await put("ssh.port", "70000");
            await frame.locator('[data-path="ssh.port"]').getByRole("alert").waitFor();
        },
        secret: () => section("radius"),
        list: async () => {
            await section("network");
            await click("nameservers");
            await frame.locator("[data-entry]").first().getByRole("button").first().click();
            await frame.locator('[data-path$=".address"]').waitFor();
        },
        found: () => search("log"),
        "nothing-found": () => search("nowhere to be found"),
        review: async () => {
            await search("");
            await section("ssh");
            await put("ssh.port", `${2200 + n}`);
            await put("ssh.max-tries", `${2 + n}`);
            await click(t("Review and commit"));
            await frame.getByText(`+Port ${2200 + n}`).waitFor();
        },
        trial: async () => {
            await frame.getByRole("textbox", { name: t("Comment") }).fill("A comment as long as they are where people mean well");
            await frame.locator("body").evaluate(`cockpit.transport.uri = () => "ws://127.0.0.1:9/"`);
            await click(t("Commit with a trial"));
            await frame.getByRole("timer").waitFor();
        },
        "taken-back": async () => {
            await click(t("Take back"));
            await frame.getByText(/is taken back|ist zurückgenommen/).waitFor();
        },
        behind: async () => {
            await put("ssh.max-sessions", `${5 + n}`);
            await frame.getByRole("button", { name: t("Review and commit"), disabled: false }).waitFor();
            await machine.ucfgsh("set", "ssh.alive-interval", `${20 + n}`);
            await frame.getByRole("button", { name: t("Take that over and make my changes again") }).waitFor();
        },
        history: async () => {
            await click(t("History"), "tab");
            await frame.getByRole("list", { name: t("Commits, the newest first") }).getByRole("listitem").first().waitFor();
        },
        commit: async () => {
            await frame.getByRole("list", { name: t("Commits, the newest first") }).getByRole("button").nth(1).click();
            await click(t("Differences of the files"));
        },
        load: () => click(t("Load the state behind it")),
        loaded: async () => {
            await click(t("Load"));
            await frame.getByText(/are loaded$|sind geladen$/).waitFor();
        },
        machine: async () => {
            await click(t("Machine"), "tab");
            await frame.getByRole("button", { name: t("Refresh") }).waitFor();
        },
        action: async () => {
            await frame.locator('[data-node="services.restart"]').getByRole("textbox").fill("ssh");
            await click(t("Run $0").replace("$0", "restart"));
        },
        output: async () => {
            await click(t("Run"));
            await frame.getByRole("tabpanel", { name: t("Machine") }).getByRole("status").filter({ hasText: t("done") }).waitFor();
        },
    };
};

Object.entries(variants).forEach(([name, { style, ...options }], n) => test(`It looks right: ${name}`, {
    skip: possible ? false : "needs root and mount namespaces", timeout: 60000,
}, async () => {
    const socket = `${machine.root}/dev/ucfgd`;
    await rename(socket, `${socket}-away`);
    const window = await machine.open(options);
    const { page } = window;
    const frame = () => page.frame({ name: "cockpit1:localhost/ucfgd" });
    const t = text => options.language === "de" ? german.get(text) ?? text : text;
    const faults = [];
    await window.frame.getByRole("heading", { name: t("The configuration daemon is not running") }).waitFor();
    faults.push(...(await faultsOf(frame(), options.language)).map(fault => `${name} not-running: ${fault}`));
    await rename(`${socket}-away`, socket);
    await window.frame.getByRole("tab").first().waitFor();
    if (options.language === "de") {
        await page.locator("#host-apps").getByText(t("Configuration")).waitFor();
    }
    if (style) {
        await page.evaluate(style => {
            window.localStorage.setItem("shell:style", style);
            window.dispatchEvent(new window.CustomEvent("cockpit-style", { detail: { style } }));
        }, style);
        await frame().waitForFunction("document.documentElement.matches('.pf-v5-theme-dark')");
    }
    for (const [what, go] of Object.entries(way(window, t, n))) {
        try {
            await go();
            faults.push(...(await faultsOf(frame(), options.language)).map(fault => `${name} ${what}: ${fault}`));
        } catch (error) {
            faults.push(`${name} ${what}: ${error.message.slice(0, 300)}; see ${await machine.picture(page, `${name}-failure`)}`);
            break;
        } finally {
            if (process.env.PICTURES) {
                await machine.picture(page, `${name}-${what}`);
            }
        }
    }
    assert.deepEqual([...faults, ...window.faults], []);
}));

test("It goes by the keys alone, and what has the focus is told", { skip: possible ? false : "needs root and mount namespaces", timeout: 60000 }, async () => {
    const { page, frame, faults } = await machine.open();
    const inner = () => page.frame({ name: "cockpit1:localhost/ucfgd" });
    const focused = () => inner().evaluate(() => {
        const one = document.activeElement;
        return one.getAttribute("aria-label") || one.labels?.[0]?.textContent || one.textContent;
    });
    const press = async (...keys) => {
        for (const key of keys) {
            await page.keyboard.press(key);
        }
    };
    const isOn = name => eventually(async () => assert.equal((await focused()).trim(), name));
    /** The tabulator until the focus stands there, with a ring or a line to be seen around it. */
    const tabTo = async (name, key = "Tab") => {
        await frame.getByRole("button", { name }).or(frame.getByLabel(name)).or(frame.getByText(name, { exact: true })).first().waitFor();
        for (let steps = 0; (await focused()).trim() !== name; steps++) {
            assert.ok(steps < 60, `the focus does not come to ${name}`);
            await press(key);
        }
    };
    await frame.getByRole("treeitem", { name: "ssh" }).waitFor();
    await frame.locator("body").evaluate(body => body.focus());
    await inner().evaluate(() => window.focus());
    await page.locator("iframe").first().focus();
    await tabTo("system");
    await press("ArrowDown");
    await isOn("log");
    await press("ArrowLeft", "ArrowLeft", "ArrowDown", "ArrowRight", "ArrowRight", "Enter");
    await frame.getByRole("heading", { name: "nameservers" }).waitFor();
    await isOn("nameservers");
    await tabTo("New entry of nameservers");
    await page.keyboard.type("192.0.2.55");
    await press("Enter");
    await frame.getByRole("button", { name: "Move 192.0.2.55 up" }).waitFor();
    await isOn("New entry of nameservers");
    await tabTo("Move 192.0.2.55 up");
    await press("Enter");
    await frame.getByText("192.0.2.55 is at place 2 of 3").waitFor();
    await isOn("Move 192.0.2.55 up");
    await tabTo("Delete 192.0.2.55");
    await press("Space");
    await isOn("Delete 192.0.2.54");
    await tabTo("Search in names and helps", "Shift+Tab");
    await page.keyboard.type("log-in attempts");
    await tabTo("ssh › max-tries");
    await press("Enter");
    await isOn("max-tries");
    await page.keyboard.press("ControlOrMeta+a");
    await page.keyboard.type("11");
    await press("Enter");
    await frame.getByRole("alert").getByText("1 to 10, not 11").waitFor();
    await page.keyboard.press("ControlOrMeta+a");
    await page.keyboard.type("9");
    await press("Enter");
    await tabTo("x11", "Shift+Tab");
    await press("Space");
    await tabTo("root-login", "Shift+Tab");
    await press("ArrowUp");
    await frame.getByText(/[34] parameters changed/).waitFor();
    await tabTo("Review and commit");
    await press("Enter");
    await tabTo("Comment");
    await page.keyboard.type("by the keys");
    await tabTo("Commit");
    await press("Enter");
    await frame.getByText("No changes").waitFor();
    await isOn("Review and commit");
    await tabTo("History", "Shift+Tab");
    await press("Enter");
    await tabTo("Details");
    await press("Enter");
    await tabTo("Undo this commit");
    await press("Enter");
    await frame.getByText(/[34] parameters changed/).waitFor();
    await tabTo("Machine", "Shift+Tab");
    await press("Enter");
    await tabTo("Run disk");
    await press("Enter");
    await frame.getByRole("log", { name: "Output of disk" }).waitFor();
    await isOn("Run disk");
    assert.deepEqual(faults, []);
});
