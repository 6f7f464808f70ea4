import { fileURLToPath } from "node:url";
import js from "@eslint/js";
import hooks from "eslint-plugin-react-hooks";
import ts from "typescript-eslint";

export default ts.config(
    { ignores: ["build/", "dist/", "node_modules/"] },
    js.configs.recommended,
    {
        files: ["**/*.mjs"],
        languageOptions: { globals: { console: "readonly", process: "readonly", setTimeout: "readonly", clearTimeout: "readonly", URL: "readonly", TextDecoder: "readonly", Buffer: "readonly" } },
    },
    // What runs in the page that a test looks at.
    { files: ["browser/*.mjs"], languageOptions: { globals: { document: "readonly", window: "readonly" } } },
    {
        files: ["**/*.{ts,tsx}"],
        extends: [...ts.configs.strictTypeChecked],
        plugins: { "react-hooks": hooks },
        languageOptions: { parserOptions: { projectService: true, tsconfigRootDir: fileURLToPath(new URL(".", import.meta.url)) } },
        rules: {
            ...hooks.configs.recommended.rules,
            "@typescript-eslint/no-confusing-void-expression": "off",
            "@typescript-eslint/no-floating-promises": ["error", { ignoreVoid: true }],
            "@typescript-eslint/no-misused-promises": ["error", { checksVoidReturn: { attributes: false } }],
            "@typescript-eslint/restrict-template-expressions": ["error", { allowNumber: true }],
        },
    },
    // What a button orders is run by useRun(), which shows what comes of it. Forms show it at their fields.
    {
        files: ["src/**/*.tsx"],
        ignores: ["src/widgets/{field,entry-list,action-*,fact}.tsx"],
        rules: {
            "@typescript-eslint/no-misused-promises": "error",
            "no-restricted-syntax": ["error", {
                selector: "JSXAttribute UnaryExpression[operator='void']",
                message: "An order that nobody waits for may fail unseen: give it to useRun().",
            }],
        },
    },
    // The test runner reports what becomes of a test by itself.
    { files: ["test/**/*.ts"], rules: { "@typescript-eslint/no-floating-promises": "off" } },
);
