// A broker, agents on virtual access points, the controller and a browser, all of this
// machine and all of one test run.
import { execFileSync, spawn } from "node:child_process";
import {
    mkdirSync,
    mkdtempSync,
    readFileSync,
    rmSync,
    writeFileSync,
    openSync,
    closeSync,
} from "node:fs";
import { createRequire } from "node:module";
import { createServer } from "node:net";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { fileURLToPath } from "node:url";

const require = createRequire(new URL("../../console/package.json", import.meta.url));
export const { chromium } = require("playwright-core");
export const axeSource = readFileSync(require.resolve("axe-core/axe.min.js"), "utf8");

const root = fileURLToPath(new URL("../..", import.meta.url));
const bin = process.env.NORVEX_BIN ?? join(root, "build/release/bin");
const patienceMs = 60_000;

export const pause = (ms) => new Promise((done) => setTimeout(done, ms));

/** Waits until a step gives something; throws when it never does. */
export async function until(what, step, ms = patienceMs) {
    for (const end = Date.now() + ms; Date.now() < end; await pause(100)) {
        const found = await step();
        if (found) return found;
    }
    throw new Error(`this did not come: ${what}`);
}

function freePort() {
    return new Promise((done) => {
        const server = createServer().listen(0, "127.0.0.1", () => {
            const { port } = server.address();
            server.close(() => done(port));
        });
    });
}

/** A program that ends with the run; its output goes to a file. */
class Program {
    constructor(words, log) {
        Object.assign(this, { words, log });
        this.start();
    }
    start() {
        const file = openSync(this.log, "a");
        this.child = spawn(this.words[0], this.words.slice(1), { stdio: ["ignore", file, file] });
        closeSync(file);
        this.ended = new Promise((done) => this.child.on("exit", done));
    }
    async stop(signal = "SIGTERM") {
        this.child.kill(signal);
        await this.ended;
    }
}

export class World {
    programs = [];

    static async make(serials, options = []) {
        const world = new World();
        try {
            await world.start(serials, options);
        } catch (error) {
            await world.end();
            throw error;
        }
        return world;
    }

    async start(serials, options) {
        this.folder = mkdtempSync(join(tmpdir(), "console-"));
        const broker = await freePort();
        const config = readFileSync(join(root, "config/mosquitto-loopback.conf"), "utf8");
        const file = join(this.folder, "mosquitto.conf");
        writeFileSync(file, config.replace(/^listener .*/m, `listener ${broker} 127.0.0.1`));
        process.env.PATH += ":/usr/sbin";
        this.run("broker", ["mosquitto", "-c", file]);
        this.brokerUrl = `mqtt://127.0.0.1:${broker}`;
        this.port = await freePort();
        this.url = `http://127.0.0.1:${this.port}`;
        this.data = join(this.folder, "data");
        this.controller = this.run("controller", [
            ...[join(bin, "norvex-controller"), "--data", this.data, "--broker", this.brokerUrl],
            ...["--listen", `127.0.0.1:${this.port}`, "--poll-status", "5"],
            ...["--poll-statistics", "5", "--poll-topology", "5", ...options],
        ]);
        const log = () => readFileSync(this.controller.log, "utf8");
        await until("the controller", () => fetch(`${this.url}/healthz`).catch(() => null));
        this.password = /password (\S+)/.exec(log())?.[1];
        this.agents = new Map(serials.map((serial) => [serial, this.addAgent(serial)]));
        await until("all agents", async () => {
            const { total } = await this.api("GET", "/devices?state=online&limit=1");
            return total >= serials.length;
        });
    }

    run(name, words) {
        const program = new Program(words, join(this.folder, `${name}.log`));
        this.programs.push(program);
        return program;
    }

    device(serial) {
        return join(this.folder, serial);
    }

    vap(...words) {
        return execFileSync(join(bin, "vap"), words, { encoding: "utf8" }).trim();
    }

    addAgent(serial) {
        this.vap("new", this.device(serial), "--serial", serial);
        mkdirSync(join(this.device(serial), "root/etc"), { recursive: true });
        const settings = `broker=${this.brokerUrl}\nretry_ms=50\nkeepalive_s=5\n`;
        writeFileSync(join(this.device(serial), "root/etc/nxapi.conf"), settings);
        return this.run(serial, [join(bin, "vap"), "run", this.device(serial)]);
    }

    /** The REST API as the first user. */
    async api(method, path, body) {
        if (!this.cookie) {
            const response = await fetch(`${this.url}/api/v1/session`, {
                method: "POST",
                headers: { "content-type": "application/json" },
                body: JSON.stringify({ user: "admin", password: this.password }),
            });
            this.cookie = response.headers.get("set-cookie").split(";")[0];
        }
        const response = await fetch(`${this.url}/api/v1${path}`, {
            method,
            headers: { cookie: this.cookie, "content-type": "application/json" },
            body: body && JSON.stringify(body),
        });
        const text = await response.text();
        if (!response.ok) throw new Error(`${method} ${path}: ${response.status} ${text}`);
        return text && JSON.parse(text);
    }

    async browse() {
        this.browser ??= await chromium.launch({
            executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
            args: process.getuid() === 0 ? ["--no-sandbox"] : [],
        });
        return this.browser;
    }

    async end() {
        await this.browser?.close();
        for (const program of this.programs.reverse()) await program.stop();
        rmSync(this.folder, { recursive: true, force: true });
    }
}

/** What a page did that it must not do. */
export function watch(page, url) {
    const faults = [];
    page.on("console", (message) => {
        // A refused sign-in, a restarting controller, and a report that a device has not given yet
        // are told by the browser itself.
        const told = `${message.text()} ${message.location().url}`;
        const expected =
            /status of (401|403)|ERR_CONNECTION_REFUSED|ERR_INCOMPLETE_CHUNKED|ERR_EMPTY|status of 404.*\/(neighbors|config|topology|status|configuration)$/;
        if (message.type() === "error" && !expected.test(told)) faults.push(told);
    });
    page.on("pageerror", (error) => faults.push(String(error)));
    page.on("request", (request) => {
        const target = request.url();
        if (!target.startsWith(url) && !/^(data|blob):/.test(target))
            faults.push(`asked ${target}`);
    });
    return faults;
}

/** axe-core's findings on the page, in a line each. */
export async function axe(page) {
    await page.evaluate(axeSource);
    return page.evaluate(async () => {
        const { violations } = await globalThis.axe.run();
        return violations.map(
            ({ id, nodes }) => `${id}: ${nodes.map((node) => node.html.slice(0, 120)).join(" | ")}`,
        );
    });
}
