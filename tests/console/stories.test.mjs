// What people do with the page, in chromium, against the real controller, broker and agents.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { after, before, test } from "node:test";
import { axe, until, watch, World } from "./world.mjs";

const office = "NXOFFICE00001";
const lobby = "NXLOBBY000001";
let world;
let page;
let faults;

before(async () => {
    world = await World.make([office, lobby]);
    world.vap("station", "add", world.device(office), "--band", "24");
    const browser = await world.browse();
    const context = await browser.newContext({ viewport: { width: 1280, height: 800 } });
    page = await context.newPage();
    page.setDefaultTimeout(30_000);
    faults = watch(page, world.url);
});
after(() => world?.end());

const open = (path) => page.goto(world.url + path);
const link = (name) => page.getByRole("link", { name, exact: true });
const button = (name) => page.getByRole("button", { name, exact: true });
const heading = (name) => page.getByRole("heading", { name, exact: true });
const seen = (text) => page.getByText(text).first().waitFor();
const noFaults = () => assert.deepEqual(faults.splice(0), []);

test("a wrong password is told, the right one signs in where one wanted to go", async () => {
    await open("/devices");
    await page.getByLabel("User").fill("admin");
    await page.getByLabel("Password").fill("not this one");
    await button("Sign in").click();
    await seen("The user or the password is wrong");
    await page.getByLabel("Password").fill(world.password);
    await page.keyboard.press("Enter");
    await heading("Devices").waitFor();
    await seen("2 devices");
    noFaults();
});

test("the overview counts, and a figure leads to the list behind it", async () => {
    await link("Overview").click();
    await link("Online 2").click();
    assert.match(page.url(), /\/devices\?state=online$/);
    await seen("2 devices");
    noFaults();
});

test("the list searches, filters, keeps it in the address, and exports", async () => {
    await page.getByLabel("Search").fill("lobby");
    await seen("1 device");
    assert.match(page.url(), /q=lobby/);
    await page.reload();
    await seen("1 device");
    assert.equal(await page.getByLabel("Search").inputValue(), "lobby");
    const downloaded = page.waitForEvent("download");
    await button("Export CSV").click();
    const rows = readFileSync(await (await downloaded).path(), "utf8")
        .trim()
        .split("\r\n");
    assert.equal(rows.length, 2);
    assert.ok(rows[1].startsWith(`${lobby},`));
    await page.getByLabel("Presence").selectOption("offline");
    await seen("No device fits");
    await link("Show all devices").click();
    await seen("2 devices");
    noFaults();
});

test("a site is made, its devices are moved to it, and an SSID reaches them", async () => {
    await link("Sites").click();
    await link("New site").click();
    await page.getByLabel("Name").fill("Harbour");
    await page.getByLabel("Project").fill("42");
    await button("Make the site").click();
    await link("Devices").click();
    await page.getByLabel("Select all that are shown").check();
    await button("Move to a site").click();
    const dialog = page.getByRole("dialog");
    await dialog.getByLabel("Site").selectOption({ label: "Harbour" });
    await dialog.getByRole("button", { name: "Move to a site" }).click();
    await dialog.getByRole("button", { name: "Move to a site" }).click();
    await seen("2 of 2 ended, 0 not done.");
    await dialog.getByRole("button", { name: "Close" }).click();

    await link("Sites").click();
    await link("Harbour").click();
    await link("Configuration").click();
    await button("Add an SSID").click();
    await page.getByLabel("Name").fill("Guests");
    await page.getByLabel("Pass phrase").fill("welcome-2024");
    await page.getByLabel("Keep clients apart").check();
    await button("Preview the change").click();
    await seen("2 devices of 2 change.");
    await button("Apply").click();
    await link("State").click();
    await until("both devices in sync", async () => {
        const { total } = await world.api("GET", "/devices?config_state=in_sync&limit=1");
        return total === 2;
    });
    await until("the page tells it", async () => (await page.getByText("2 in sync").count()) > 0);
    const name = world.vap("get", world.device(office), "wl2g.ssid0.ssid");
    assert.match(name, /Guests/);
    noFaults();
});

test("a change that is regretted goes back, pass phrase included", async () => {
    await link("Configuration").click();
    await page.getByLabel("Name").fill("Visitors");
    await page.getByLabel("Pass phrase").fill("another-2025");
    await button("Preview the change").click();
    await seen("Visitors: name");
    await button("Apply").click();
    const ssid = () => world.vap("get", world.device(lobby), "wl2g.ssid0.ssid");
    await until("it reaches a device", () => ssid().includes("Visitors"));
    await link("Versions").click();
    await button("Bring back").click();
    await seen("What version 1 changes");
    await button("Apply").click();
    await page.getByRole("cell", { name: "3", exact: true }).waitFor();
    await until("the old one is back", () => ssid().includes("Guests"));
    assert.match(world.vap("get", world.device(lobby)), /welcome-2024/);
    noFaults();
});

test("one device shows its clients, and a kick reaches it", async () => {
    await link("Devices").click();
    await link(office).click();
    await link("Clients").last().click();
    await button("Kick").click();
    await page.getByRole("dialog").getByRole("button", { name: "Kick" }).click();
    await until("the device was told", () =>
        world.vap("journal", world.device(office)).includes("sta_kickoff"),
    );
    noFaults();
});

test("an expert orders any command by its form and sees the answer", async () => {
    await open(`/devices/${office}/commands?command=dev_locate`);
    await page.getByLabel("op").selectOption("1");
    await button("Send").click();
    await heading("Answer Answered").waitFor();
    await seen('"resp_code": 0');
    await page.getByRole("cell", { name: "dev_locate" }).waitFor();
    noFaults();
});

test("a device dies and comes back while it is looked at", async () => {
    await open(`/devices/${lobby}`);
    await seen("Online");
    const agent = world.agents.get(lobby);
    await agent.stop();
    await seen("Offline since");
    agent.start();
    await until("online again", async () => (await page.getByText("Offline since").count()) === 0);
    noFaults();
});

test("the controller restarts under the page, which tells it and goes on", async () => {
    await open("/devices");
    await seen("2 devices");
    const { controller } = world;
    await controller.stop();
    await seen("No connection to the controller since");
    controller.start();
    await until(
        "the notice goes",
        async () => (await page.getByText("No connection").count()) === 0,
    );
    await until(
        "both are online",
        async () => (await page.getByText("Online", { exact: true }).count()) >= 2,
    );
    noFaults();
});

test("tabs share one event stream", async () => {
    const tabs = [];
    for (let i = 0; i < 8; ++i) tabs.push(await page.context().newPage());
    await Promise.all(tabs.map((tab) => tab.goto(`${world.url}/devices`)));
    await Promise.all(tabs.map((tab) => tab.getByText("2 devices").first().waitFor()));
    const streams = await page.evaluate(async () => {
        const text = await (await fetch("/metrics")).text();
        return Number(/^norvex_event_streams (\d+)/m.exec(text)[1]);
    });
    assert.equal(streams, 1);
    for (const tab of tabs) await tab.close();
});

test("a viewer is offered nothing that is refused", async () => {
    await world.api("POST", "/users", { name: "vera", role: "viewer", password: "only-looking" });
    const context = await (await world.browse()).newContext();
    const other = await context.newPage();
    await other.goto(`${world.url}/devices/${office}`);
    await other.getByLabel("User").fill("vera");
    await other.getByLabel("Password").fill("only-looking");
    await other.keyboard.press("Enter");
    await other.getByRole("heading", { name: office }).waitFor();
    for (const name of ["Restart", "Factory reset", "Name, site, tags"]) {
        assert.equal(await other.getByRole("button", { name }).count(), 0, name);
    }
    assert.equal(await other.getByRole("link", { name: "Users" }).count(), 0);
    await other.goto(`${world.url}/users`);
    await other.getByText("This takes the role admin").waitFor();
    await context.close();
});

const views = [
    ["/", "Overview"],
    ["/devices", "Devices"],
    ["/devices?q=nothing-is-called-so", "Devices"],
    [`/devices/${office}`, office],
    [`/devices/${office}/clients`, office],
    [`/devices/${office}/charts?range=1h`, office],
    [`/devices/${office}/around`, office],
    [`/devices/${office}/config`, office],
    [`/devices/${office}/logs`, office],
    [`/devices/${office}/commands?command=radio_opt_set`, office],
    ["/sites", "Sites"],
    ["/sites/new", "New site"],
    ["/sites/1", "Harbour"],
    ["/sites/1/configuration", "Harbour"],
    ["/sites/1/versions", "Harbour"],
    ["/sites/1/topology", "Harbour"],
    ["/sites/1/settings", "Harbour"],
    ["/clients?q=02:", "Clients"],
    ["/alarms", "Alarms"],
    ["/audit", "Audit"],
    ["/users", "Users"],
];

async function show(path, title) {
    await open(path);
    await heading(title).waitFor();
    const loads = page.getByText("Loading…");
    await until(`${path} has loaded`, async () => (await loads.count()) === 0);
}

for (const scheme of ["light", "dark"]) {
    test(`every view is without findings of axe-core, ${scheme}`, async () => {
        await page.emulateMedia({ colorScheme: scheme });
        for (const [path, title] of views) {
            await show(path, title);
            assert.deepEqual(await axe(page), [], path);
        }
        noFaults();
    });
}

test("nothing is wider than a phone", async () => {
    await page.setViewportSize({ width: 360, height: 740 });
    for (const [path, title] of views) {
        await show(path, title);
        const width = await page.evaluate(() => document.documentElement.scrollWidth);
        assert.ok(width <= 360, `${path} is ${width} wide`);
    }
    await page.setViewportSize({ width: 1280, height: 800 });
    noFaults();
});

test("signing out shows the sign-in, also in a tab that only listens", async () => {
    const tab = await page.context().newPage();
    await tab.goto(`${world.url}/devices`);
    await tab.getByText("2 devices").waitFor();
    await button("Sign out").click();
    await page.getByLabel("Password").waitFor();
    await tab.getByLabel("Search").fill("x");
    await tab.getByLabel("Password").waitFor();
    noFaults();
});
