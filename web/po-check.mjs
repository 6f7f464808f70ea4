// Holds the texts of the source and of the manifest against those of every language in po/: all are there, with all
// forms and what is put in, and none is left over.
import { readdirSync, readFileSync } from "node:fs";
import ts from "typescript";
import { entries, manifestTexts } from "./po.mjs";

const here = new URL("./", import.meta.url);
const read = name => readFileSync(new URL(name, here), "utf8");
const faults = [];

function textsOf(name) {
    const found = [];
    const source = ts.createSourceFile(name, read(name), ts.ScriptTarget.Latest, true);
    const visit = node => {
        if (ts.isCallExpression(node)) {
            const called = node.expression.getText().replace(/^cockpit\./, "");
            const count = { _: 1, gettext: 1, ngettext: 2 }[called];
            const texts = node.arguments.slice(0, count ?? 0);
            if (texts.every(ts.isStringLiteral)) {
                count && found.push(texts.map(text => text.text));
            } else {
                const { line } = source.getLineAndCharacterOfPosition(node.getStart());
                faults.push(`${name}:${line + 1}: ${called} is given something else than a text`);
            }
        }
        ts.forEachChild(node, visit);
    };
    visit(source);
    return found;
}

const inserts = text => [...new Set(text.match(/\$\d/g))].sort().join();

function check(file, wanted) {
    const text = read(`po/${file}`);
    const forms = Number(/nplurals=(\d+)/.exec(text)?.[1] ?? 2);
    const given = entries(text).filter(entry => entry.msgid !== "");
    const seen = new Set();
    const tell = (msgid, what) => faults.push(`po/${file}: ${what}: "${msgid}"`);
    for (const { msgid, msgid_plural: plural, msgstr, fuzzy } of given) {
        if (!wanted.has(msgid) || wanted.get(msgid) !== plural) {
            tell(msgid, "nowhere in the source");
        }
        if (seen.has(msgid)) {
            tell(msgid, "there twice");
        }
        seen.add(msgid);
        if (fuzzy || msgstr.length !== (plural === undefined ? 1 : forms) || msgstr.some(one => one === "")) {
            tell(msgid, "not translated in all its forms");
        } else if (msgstr.some(one => inserts(one) !== inserts(plural ?? msgid))) {
            tell(msgid, "other things are put in");
        }
    }
    [...wanted.keys()].filter(msgid => !seen.has(msgid)).forEach(msgid => tell(msgid, "not there"));
}

const wanted = new Map(manifestTexts(JSON.parse(read("manifest.json"))).map(text => [text, undefined]));
for (const name of readdirSync(new URL("src", here), { recursive: true })) {
    if (/\.tsx?$/.test(name)) {
        textsOf(`src/${name}`).forEach(([one, many]) => wanted.set(one, many));
    }
}
readdirSync(new URL("po", here)).filter(name => name.endsWith(".po")).forEach(name => check(name, wanted));
faults.forEach(fault => console.error(fault));
process.exitCode = faults.length > 0 ? 1 : 0;
