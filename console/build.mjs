// Builds the page, or its unit tests, and writes what the controller carries of it.
//
//   node build.mjs FILE      the page as a C++ source FILE
//   node build.mjs --test    bundles and runs src/*.test.ts
import { createHash } from "node:crypto";
import { spawnSync } from "node:child_process";
import { mkdirSync, mkdtempSync, readFileSync, readdirSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";
import { gzipSync } from "node:zlib";
import { build } from "esbuild";
import openapi, { astToString } from "openapi-typescript";

const here = dirname(fileURLToPath(import.meta.url));
const mostBytes = 120 * 1024; // of the whole page, compressed

async function writeTypes() {
    const api = new URL("../controller/api.yaml", import.meta.url);
    writeFileSync(
        join(here, "src/api-types.ts"),
        astToString(await openapi(api, { emptyObjectsUnknown: true })),
    );
}

async function bundle(entry, define = {}) {
    const result = await build({
        absWorkingDir: here,
        entryPoints: [entry],
        bundle: true,
        minify: true,
        write: false,
        outdir: "out",
        format: "esm",
        target: "es2022",
        jsx: "automatic",
        jsxImportSource: "preact",
        legalComments: "none",
        define,
        logLevel: "warning",
    });
    return result.outputFiles;
}

const mimeTypes = {
    js: "text/javascript",
    css: "text/css",
    svg: "image/svg+xml",
    html: "text/html",
    txt: "text/plain",
};

/** The terms of the packages whose code is in the page, which want to come along. */
function licensesOfPackages() {
    const { packages } = JSON.parse(readFileSync(join(here, "package-lock.json"), "utf8"));
    return Object.entries(packages)
        .filter(([folder, { dev }]) => folder && !dev)
        .map(([folder, { version }]) => {
            const text = readFileSync(join(here, folder, "LICENSE"), "utf8");
            return `${folder.replace("node_modules/", "")} ${version}\n\n${text}`;
        })
        .join("\n\n");
}

/** Files by their paths; names of assets tell their content, so a browser keeps them. */
async function pageFiles() {
    const files = new Map();
    const add = (name, content) => {
        const [stem, kind] = [name.slice(0, name.lastIndexOf(".")), name.split(".").pop()];
        const hash = createHash("sha256").update(content).digest("hex").slice(0, 10);
        const path = `/assets/${stem}-${hash}.${kind}`;
        files.set(path, Buffer.from(content));
        return path;
    };
    const worker = (await bundle("src/events-worker.ts"))[0];
    const workerPath = add("events.js", worker.contents);
    const paths = {};
    for (const file of await bundle("src/main.tsx", {
        EVENTS_WORKER: JSON.stringify(workerPath),
    })) {
        const kind = file.path.split(".").pop();
        paths[kind] = add(`app.${kind}`, file.contents);
    }
    const licenses = add("licenses.txt", licensesOfPackages());
    const icon = add("icon.svg", readFileSync(join(here, "icon.svg")));
    const html = readFileSync(join(here, "index.html"), "utf8")
        .replace("APP_JS", paths.js)
        .replace("APP_CSS", paths.css)
        .replace("/assets/icon.svg", icon)
        .replace("LICENSES", licenses);
    files.set("/", Buffer.from(html));
    return files;
}

/** The table of page.h; the bytes are compressed. */
function source(files) {
    const rows = [];
    const texts = [];
    let all = 0;
    for (const [path, content] of files) {
        const bytes = gzipSync(content, { level: 9 });
        all += bytes.length;
        const etag = createHash("sha256").update(content).digest("hex").slice(0, 16);
        const type = mimeTypes[path === "/" ? "html" : path.split(".").pop()];
        const name = `file_${rows.length}`;
        texts.push(`constexpr unsigned char ${name}[] = {${[...bytes].join(",")}};`);
        rows.push(
            `    {"${path}", "${type}; charset=utf-8", "\\"${etag}\\"", ${name}, sizeof ${name}},`,
        );
    }
    if (all > mostBytes) {
        throw new Error(`the page takes ${all} bytes, ${mostBytes} are allowed`);
    }
    console.log(`The page takes ${(all / 1024).toFixed(1)} KiB of at most ${mostBytes / 1024}.`);
    return `// Written by console/build.mjs.
#include "controller/http/page.h"

namespace http {
namespace {
${texts.join("\n")}
constexpr PageFile files[] = {
${rows.join("\n")}
};
}  // namespace

std::span<const PageFile> page_files() {
    return files;
}

}  // namespace http
`;
}

async function runTests() {
    const folder = mkdtempSync(join(tmpdir(), "console-"));
    try {
        const names = readdirSync(join(here, "src")).filter((name) => name.endsWith(".test.ts"));
        await build({
            absWorkingDir: here,
            entryPoints: names.map((name) => `src/${name}`),
            bundle: true,
            outdir: folder,
            outExtension: { ".js": ".mjs" },
            platform: "node",
            format: "esm",
            external: ["node:*"],
        });
        const tests = names.map((name) => join(folder, name.replace(/ts$/, "mjs")));
        return spawnSync(process.execPath, ["--test", ...tests], { stdio: "inherit" }).status ?? 1;
    } finally {
        rmSync(folder, { recursive: true });
    }
}

await writeTypes();
if (process.argv[2] === "--test") {
    process.exitCode = await runTests();
} else if (process.argv[2]) {
    const target = resolve(process.argv[2]);
    mkdirSync(dirname(target), { recursive: true });
    writeFileSync(target, source(await pageFiles()));
}
