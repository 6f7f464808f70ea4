// Turns a .po file into the script that hands its texts to the console's gettext.

const unquote = text => JSON.parse(text);

// entries TEXT: every message as { msgctxt, msgid, msgid_plural, msgstr: [...], fuzzy }.
export function entries(text) {
    const all = [];
    let entry = { msgstr: [] };
    let add = () => {};
    const finish = () => {
        if (entry.msgid !== undefined) {
            all.push(entry);
        }
        entry = { msgstr: [] };
    };
    for (const line of text.split("\n")) {
        const keyword = /^(msgctxt|msgid|msgid_plural|msgstr)(?:\[(\d+)\])? (".*")$/.exec(line);
        if (keyword) {
            const [, name, index, value] = keyword;
            if (name === "msgstr") {
                const n = Number(index ?? 0);
                entry.msgstr[n] = unquote(value);
                add = more => (entry.msgstr[n] += more);
            } else {
                entry[name] = unquote(value);
                add = more => (entry[name] += more);
            }
        } else if (line.startsWith('"')) {
            add(unquote(line));
        } else if (line === "") {
            finish();
        } else if (line.startsWith("#,") && line.includes("fuzzy")) {
            entry.fuzzy = true;
        }
    }
    finish();
    return all;
}

// The texts of a manifest that the console looks up.
export function manifestTexts(manifest) {
    return Object.values(manifest.menu ?? {}).flatMap(({ label, keywords = [] }) =>
        [label, ...keywords.flatMap(({ matches }) => matches)]);
}

// script TEXT [ONLY]: the JavaScript of one language, with the given texts alone.
export function script(text, only) {
    const header = {};
    const lines = [];
    for (const entry of entries(text)) {
        if (entry.msgid === "") {
            for (const field of entry.msgstr[0].split("\n")) {
                const [name, ...rest] = field.split(": ");
                header[name.toLowerCase()] = rest.join(": ");
            }
        } else if ((!only || only.includes(entry.msgid)) && !entry.fuzzy && entry.msgstr.every(one => one !== "")) {
            const key = (entry.msgctxt === undefined ? "" : entry.msgctxt + "\u0004") + entry.msgid;
            lines.push(`${JSON.stringify(key)}:${JSON.stringify([entry.msgid_plural ?? null, ...entry.msgstr])}`);
        }
    }
    const plural = /plural=([-n0-9!=<>%&|?:() ]+);?$/.exec(header["plural-forms"] ?? "plural=n != 1;");
    if (!plural) {
        throw new Error(`no rule for plurals in "${header["plural-forms"]}"`);
    }
    const head = `"":{"plural-forms":(n)=>${plural[1]},"language":${JSON.stringify(header.language ?? "")},"language-direction":"ltr"}`;
    return `cockpit.locale({${[head, ...lines].join(",\n")}});\n`;
}
