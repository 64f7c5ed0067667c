// The reports of a site's devices as one picture: what each sees becomes one graph, and the
// graph a forest whose roots are nearest to the gateway.
import type { Device } from "./api";
import { macText } from "./format";
import type { TopologyReport } from "./rows";

const wirelessPort = 255;

export interface Node {
    mac: string; // lower case
    type: string; // ap, switch, router, ...
    name: string;
    serial: string; // of a device of the controller; else empty
    state: string; // presence; empty for what the controller does not manage
    clients: number | null;
    parent: string | null; // its MAC
    wireless: boolean; // is the link to the parent one?
}

export interface Seen {
    device: Device;
    report: TopologyReport | null;
}

/** Every node once, parents found by the ports that devices call their uplinks. */
export function merge(seen: Seen[]): Node[] {
    const nodes = new Map<string, Node>();
    for (const { device } of seen) {
        nodes.set(macOf(device), {
            mac: macOf(device),
            type: "ap",
            name: device.name || device.serial,
            serial: device.serial,
            state: device.state,
            clients: device.state === "online" ? (device.figures.clients ?? null) : null,
            parent: null,
            wireless: false,
        });
    }
    const below: [child: string, parent: string, wireless: boolean][] = [];
    for (const { device, report } of seen) {
        const own = nodes.get(macOf(device))!;
        const up = report?.dev_topo?.dev_info?.up_port;
        for (const port of Object.values(report?.dev_topo?.port_info ?? {})) {
            const wireless = port.port === wirelessPort;
            for (const one of Object.values(port.neighbour_devs ?? {})) {
                const mac = macText(one.mac);
                if (!nodes.has(mac)) {
                    nodes.set(mac, {
                        mac,
                        type: one.type || "device",
                        name: one.sn || one.mac,
                        serial: "",
                        state: "",
                        clients: null,
                        parent: null,
                        wireless: false,
                    });
                }
                if (port.port === up) {
                    own.parent ??= mac;
                    own.wireless = wireless;
                } else {
                    below.push([mac, own.mac, wireless]);
                }
            }
        }
    }
    // A device's own word about its uplink counts more than what others see of it.
    for (const [mac, parent, wireless] of below) {
        const child = nodes.get(mac)!;
        if (child.parent === null && !isAbove(nodes, mac, parent)) {
            child.parent = parent;
            child.wireless = wireless;
        }
    }
    breakCycles(nodes);
    return [...nodes.values()];
}

/** Two that call each other their uplink: the first of them is taken for the upper one. */
function breakCycles(nodes: Map<string, Node>) {
    for (const node of nodes.values()) {
        if (node.parent !== null && isAbove(nodes, node.mac, node.parent)) node.parent = null;
    }
}

/** Is `upper` met on the way up from `mac`? */
function isAbove(nodes: Map<string, Node>, upper: string, mac: string) {
    const met = new Set<string>();
    for (
        let at: string | null = mac;
        at !== null && !met.has(at);
        at = nodes.get(at)?.parent ?? null
    ) {
        if (at === upper) return true;
        met.add(at);
    }
    return false;
}

const macOf = (device: Device) => macText(device.mac || device.serial);
