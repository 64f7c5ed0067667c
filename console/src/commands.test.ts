import assert from "node:assert/strict";
import { test } from "node:test";
import reference from "../../tools/commands.json";
import { membersOf, withValue, type CommandEntry } from "./commands";

const commands = (reference as unknown as { commands: CommandEntry[] }).commands;
const request = (name: string) => commands.find((command) => command.name === name)!.request!;

test("a form has a control for each member, of objects within too", () => {
    const paths = (name: string) =>
        membersOf(request(name))?.map((member) => member.path.join("."));
    assert.deepEqual(paths("dev_locate"), ["op"]);
    assert.ok(paths("radio_opt_set")?.includes("rf_optimize.channel_1"));
    assert.equal(membersOf(request("wlan_config_set")), null, "lists are edited as text");
    assert.equal(membersOf(request("config_sync")), null, "a file has no members");
});

test("setting and clearing members leaves no empty objects behind", () => {
    const set = withValue(undefined, ["rf_optimize", "channel_1"], 6);
    assert.deepEqual(set, { rf_optimize: { channel_1: 6 } });
    const more = withValue(set, ["timestamp"], 1);
    assert.deepEqual(withValue(more, ["rf_optimize", "channel_1"], undefined), { timestamp: 1 });
    assert.equal(withValue(set, ["rf_optimize", "channel_1"], undefined), undefined);
});
