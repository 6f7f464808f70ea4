// Brings the pictures in docs/images up to date: node web/browser/pictures.mjs. Look at them before they are committed.
import { mkdir } from "node:fs/promises";
import path from "node:path";
import { fileURLToPath } from "node:url";
import { Console } from "./console.mjs";

const images = path.resolve(path.dirname(fileURLToPath(import.meta.url)), "../../docs/images");
const machine = new Console();
try {
    await mkdir(images, { recursive: true });
    await machine.start();
    const { page, frame } = await machine.open({ viewport: { width: 1100, height: 780 } });
    const picture = async name => {
        await page.mouse.move(400, 30);
        await page.waitForTimeout(600);
        await page.screenshot({ path: path.join(images, `${name}.png`) });
    };
    await machine.script("set network.domain 'lab.example.net example.net'", "commit -m 'Names of the laboratory are found, too'");
    await machine.script("set ssh.port 2222", "set ssh.root-login no", "commit -m 'Out of the way of scanners'");
    await frame.getByRole("navigation", { name: "Sections" }).getByText("ssh", { exact: true }).click();
    const port = frame.locator('[data-path="ssh.port"]').getByRole("textbox");
    await port.fill("70000");
    await port.press("Enter");
    await picture("web-configure");
    await frame.getByRole("button", { name: "Go back to that" }).click();
    await frame.getByRole("tab", { name: "History" }).click();
    await frame.getByRole("list", { name: "Commits, the newest first" }).getByRole("listitem").first().getByRole("button").first().click();
    await frame.getByText("Undo this commit").waitFor();
    await frame.getByRole("button", { name: "Differences of the files" }).click();
    await picture("web-history");
    await frame.getByRole("tab", { name: "Configure" }).click();
    await port.fill("22");
    await port.press("Enter");
    await frame.getByRole("button", { name: "Review and commit" }).click();
    await frame.getByRole("dialog").getByText("-Port 2222").waitFor();
    await picture("web-pending");
} finally {
    await machine.stop();
}
