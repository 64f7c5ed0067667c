import assert from "node:assert/strict";
import { test } from "node:test";
import type { Device } from "./api";
import { merge, type Seen } from "./topology-merge";

const mac = (n: number) => `02:00:00:00:00:0${n}`;

/** An access point with its uplink port and, by port, the neighbours it sees. */
function seen(n: number, up: number, ports: Record<number, [string, string][]>): Seen {
    const device = { serial: `AP${n}`, mac: mac(n).replaceAll(":", "").toUpperCase(), name: "" };
    const port_info = Object.fromEntries(
        Object.entries(ports).map(([port, list]) => [
            port,
            {
                port: Number(port),
                link_rate: 1000,
                tx_rate: 0,
                rx_rate: 0,
                neighbour_devs: Object.fromEntries(
                    list.map(([at, type]) => [at, { mac: at, ip: "", type, sn: `SN ${at}` }]),
                ),
            },
        ]),
    );
    const dev_info = { up_port: up, link_rate: 1000, total_vlan: "" };
    return {
        device: { ...device, state: "online", figures: { clients: n } } as unknown as Device,
        report: { dev_topo: { dev_info, port_info } },
    };
}

const links = (list: Seen[]) =>
    Object.fromEntries(
        merge(list).map((node) => [node.mac, [node.parent, node.wireless ? "wireless" : "wired"]]),
    );

test("a switch, an access point behind it, and one over the air", () => {
    const list = [
        seen(1, 1, { 1: [[mac(9), "switch"]], 255: [[mac(2), "ap"]] }),
        seen(2, 255, { 255: [[mac(1), "ap"]] }),
    ];
    assert.deepEqual(links(list), {
        [mac(1)]: [mac(9), "wired"],
        [mac(2)]: [mac(1), "wireless"],
        [mac(9)]: [null, "wired"],
    });
    const nodes = merge(list);
    assert.equal(nodes.length, 3, "each once, however MACs are written");
    assert.deepEqual(
        nodes.map(({ serial, clients }) => [serial, clients]),
        [
            ["AP1", 1],
            ["AP2", 2],
            ["", null],
        ],
    );
});

test("what no device calls its uplink hangs below the one that sees it", () => {
    assert.deepEqual(links([seen(1, 224, { 2: [[mac(5), "switch"]] })])[mac(5)], [mac(1), "wired"]);
});

test("two that call each other their uplink make no circle", () => {
    const circle = links([
        seen(1, 1, { 1: [[mac(2), "ap"]] }),
        seen(2, 1, { 1: [[mac(1), "ap"]] }),
    ]);
    assert.deepEqual(
        Object.values(circle).filter(([parent]) => parent === null).length,
        1,
        "one of them is the root",
    );
});

test("a device without a report stands alone", () => {
    const { device } = seen(1, 1, {});
    assert.deepEqual(links([{ device, report: null }]), { [mac(1)]: [null, "wired"] });
});
