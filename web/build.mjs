// Builds the page into dist/: the bundle, the static files and the translations. With --tests it
// bundles the tests into build/test/ instead, with --watch it builds again at every change.
import * as esbuild from "esbuild";
import { cp, mkdir, readdir, readFile, rm, writeFile } from "node:fs/promises";
import path from "node:path";
import { fileURLToPath } from "node:url";
import { manifestTexts, script } from "./po.mjs";

const here = path.dirname(fileURLToPath(import.meta.url));
const at = (...parts) => path.join(here, ...parts);

// The console brings the fonts that the style sheets name, except for the variable ones and the icons of old:
// those are left empty, and the next family in the list is taken.
const consoleFonts = {
    name: "console-fonts",
    setup(build) {
        build.onResolve({ filter: /\.(woff2?|ttf|eot|otf)$/ }, args => ({
            path: /VF|icon/.test(args.path) ? "data:font/woff2," : "../../static/fonts/" + path.basename(args.path),
            external: true,
        }));
    },
};

// Importing one component of the library brings the style sheets of all: those whose component was not taken into
// the bundle are left out.
async function unusedStyles() {
    const { metafile } = await esbuild.build({ ...page, write: false, metafile: true });
    const bundle = Object.values(metafile.outputs).find(output => "src/index.tsx" === output.entryPoint);
    const used = Object.entries(bundle.inputs).filter(([, input]) => input.bytesInOutput > 0);
    const kept = new Set(used.map(([name]) => path.dirname(path.resolve(here, name))));
    return {
        name: "unused-styles",
        setup(build) {
            build.onLoad({ filter: /react-styles\/css\/.*\.css$/ }, args =>
                kept.has(path.dirname(args.path)) ? undefined : { contents: "", loader: "css" });
        },
    };
}

const page = {
    absWorkingDir: here,
    entryPoints: [at("src/index.tsx")],
    outdir: at("dist"),
    bundle: true,
    minify: true,
    format: "iife",
    target: "es2020",
    jsx: "automatic",
    legalComments: "external",
    loader: { ".svg": "dataurl", ".jpg": "empty", ".png": "empty" },
    define: { "process.env.NODE_ENV": '"production"' },
    plugins: [consoleFonts],
    logLevel: "warning",
};

async function tests() {
    await rm(at("build/test"), { recursive: true, force: true });
    const names = (await readdir(at("test"))).filter(name => name.endsWith(".test.ts"));
    await esbuild.build({
        entryPoints: names.map(name => at("test", name)),
        outdir: at("build/test"),
        outExtension: { ".js": ".mjs" },
        bundle: true,
        platform: "node",
        format: "esm",
        target: "node18",
        sourcemap: "inline",
        logLevel: "warning",
    });
}

async function still() {
    await mkdir(at("dist"), { recursive: true });
    await cp(at("src/index.html"), at("dist/index.html"));
    await cp(at("manifest.json"), at("dist/manifest.json"));
    const menu = manifestTexts(JSON.parse(await readFile(at("manifest.json"), "utf8")));
    for (const name of await readdir(at("po"))) {
        if (name.endsWith(".po")) {
            const text = await readFile(at("po", name), "utf8");
            const language = path.basename(name, ".po");
            await writeFile(at("dist", `po.${language}.js`), script(text));
            // The menu's texts alone, where a newer console looks for them.
            await writeFile(at("dist", `po.manifest.${language}.js`), script(text, menu));
        }
    }
}

if (process.argv.includes("--tests")) {
    await tests();
} else {
    await rm(at("dist"), { recursive: true, force: true });
    await still();
    if (process.argv.includes("--watch")) {
        await (await esbuild.context({ ...page, minify: false, sourcemap: "linked" })).watch();
    } else {
        await esbuild.build({ ...page, plugins: [...page.plugins, await unusedStyles()] });
    }
}
