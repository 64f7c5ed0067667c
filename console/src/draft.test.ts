import assert from "node:assert/strict";
import { test } from "node:test";
import { effects, faults, grouped, newConfiguration, newSsid, sent, type Changed } from "./draft";

const guests = { ...newSsid(), name: "Guests", passphrase: "welcome-2024" };
const draftOf = (...ssids: (typeof guests)[]) => ({ ...newConfiguration(), ssids });

test("a pass phrase that is not told anew is kept, one of an open network is not sent", () => {
    const kept = { ...guests, passphrase: "", passphrase_set: true };
    const open = { ...guests, name: "Lobby", security: "open" as const };
    const body = sent(draftOf(kept, open, guests)).ssids!;
    assert.deepEqual(
        body.map((ssid) => ssid.passphrase),
        [undefined, undefined, "welcome-2024"],
    );
    assert.ok(body.every((ssid) => !("passphrase_set" in ssid)));
    assert.ok(!("cipher" in body[1]!));
});

test("a draft tells what the controller would refuse", () => {
    assert.deepEqual(faults(draftOf(guests)), {});
    assert.deepEqual(
        faults(draftOf({ ...guests, passphrase: "", passphrase_set: true } as never)),
        {},
    );
    const rows: [object, string][] = [
        [{ name: "" }, "/ssids/0/name"],
        [{ name: "ü".repeat(17) }, "/ssids/0/name"],
        [{ bands: [] }, "/ssids/0/bands"],
        [{ passphrase: "short" }, "/ssids/0/passphrase"],
        [{ passphrase: "" }, "/ssids/0/passphrase"],
        [{ passphrase: "g".repeat(64) }, "/ssids/0/passphrase"],
    ];
    for (const [change, pointer] of rows) {
        assert.deepEqual(Object.keys(faults(draftOf({ ...guests, ...change }))), [pointer]);
    }
    assert.ok("/ssids/1/name" in faults(draftOf(guests, guests)));
    const five = Array.from({ length: 5 }, (_, i) => ({ ...guests, name: `n${i}` }));
    assert.ok("/ssids" in faults(draftOf(...five)), "5 GHz has room for four");
    const never = { ...newConfiguration(), reboot: { at: "03:00", days: [] } };
    assert.ok("/reboot/days" in faults(never));
});

test("a preview groups devices whose changes are the same", () => {
    const vlan = [{ path: "/ssids/Guests/vlan", before: null, after: 30 }];
    const item = (serial: string, changes: Changed["changes"]) => ({
        serial,
        state: "online",
        changes,
    });
    const groups = grouped([item("a", []), item("b", vlan), item("c", vlan)]);
    assert.deepEqual(
        groups.map((group) => group.map(({ serial }) => serial)),
        [["b", "c"], ["a"]],
    );
    assert.match(effects(vlan), /device may restart/);
    assert.match(effects([{ path: "/radios/5/channel" }]), /radios restart/);
    assert.match(effects([{ path: "/reboot" }]), /Nothing/);
});
