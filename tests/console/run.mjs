// Runs the stories; with arguments those whose title has one of them.
import { spawnSync } from "node:child_process";
import { fileURLToPath } from "node:url";

const here = (name) => fileURLToPath(new URL(name, import.meta.url));
const names = process.argv.slice(2).flatMap((name) => ["--test-name-pattern", name]);
const words = ["--test", "--test-reporter", "tap", ...names, here("stories.test.mjs")];
process.exitCode = spawnSync(process.execPath, words, { stdio: "inherit" }).status ?? 1;
