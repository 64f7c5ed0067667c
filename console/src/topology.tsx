// A site as a picture, and as a table for who cannot see it.
import { hierarchy, tree, type HierarchyPointNode } from "d3-hierarchy";
import { get, type Device } from "./api";
import { counted, figure } from "./format";
import { calmMs, useLoaded } from "./load";
import { deviceHref, Empty, Notice, Show, StateBadge, Table } from "./parts";
import { merge, type Node, type Seen } from "./topology-merge";
import type { State } from "./api";
import type { TopologyReport } from "./rows";
import { stateTones } from "./words";

const mostDevices = 300; // each is one request
const atOnce = 4;
const rowHeight = 44;
const columnWidth = 210;

async function load(site: number, signal: AbortSignal) {
    const page = await get("/api/v1/devices", { query: { site, limit: mostDevices }, signal });
    const seen: Seen[] = [];
    const waiting = [...page.items];
    const worker = async () => {
        for (let device = waiting.shift(); device; device = waiting.shift()) {
            const known: Device = device;
            const report = await get("/api/v1/devices/{serial}/topology", {
                path: { serial: known.serial },
                signal,
            }).catch((failure) => {
                if (failure.status === 404) return null; // not given yet
                throw failure;
            });
            seen.push({ device: known, report: (report?.answer as TopologyReport) ?? null });
        }
    };
    await Promise.all(Array.from({ length: atOnce }, worker));
    seen.sort((one, other) => (one.device.serial < other.device.serial ? -1 : 1));
    return {
        total: page.total,
        silent: seen.filter((one) => !one.report).length,
        nodes: merge(seen),
    };
}

export function Topology({ site }: { site: number }) {
    const topology = useLoaded(
        `topology of ${site}`,
        (signal) => load(site, signal),
        (happening) =>
            happening.type === "presence" ||
            (happening.type === "report" && happening.data.report === "topology"),
        calmMs,
    );
    return (
        <Show of={topology}>
            {({ nodes, total, silent }) =>
                nodes.length === 0 ? (
                    <Empty>The site has no devices.</Empty>
                ) : (
                    <>
                        {total > mostDevices && (
                            <Notice tone="warn">
                                The first {mostDevices} of {total} devices are shown.
                            </Notice>
                        )}
                        {silent > 0 && (
                            <Notice tone="mute">
                                {counted(silent, "device")} gave no topology report yet and stand
                                alone.
                            </Notice>
                        )}
                        <Picture nodes={nodes} />
                        <p class="legend">
                            <span>Solid line: wired</span>
                            <span>Dashed line: wireless</span>
                            <span>Circle: access point, filled when online</span>
                            <span>Square: anything else</span>
                        </p>
                        <NodeTable nodes={nodes} />
                    </>
                )
            }
        </Show>
    );
}

interface Branch {
    node: Node | null; // null: the root above all roots
    children: Branch[];
}

function branches(nodes: Node[]): Branch {
    const all = new Map(nodes.map((node) => [node.mac, { node, children: [] } as Branch]));
    const root: Branch = { node: null, children: [] };
    for (const branch of all.values()) {
        (all.get(branch.node!.parent ?? "") ?? root).children.push(branch);
    }
    return root;
}

function Picture({ nodes }: { nodes: Node[] }) {
    const root = tree<Branch>().nodeSize([rowHeight, columnWidth])(hierarchy(branches(nodes)));
    const shown = root.descendants().filter((one) => one.data.node);
    const rows = shown.map((one) => one.x);
    const top = Math.min(...rows);
    const height = Math.max(...rows) - top + rowHeight;
    const width = Math.max(...shown.map((one) => one.depth)) * columnWidth;
    const x = (one: HierarchyPointNode<Branch>) => (one.depth - 1) * columnWidth + 16;
    const y = (one: HierarchyPointNode<Branch>) => one.x - top + rowHeight / 2;
    return (
        <div class="picture" tabIndex={0} role="region" aria-label="Picture of the site">
            <svg width={width} height={height} role="group" aria-label="Devices and their links">
                {shown.map(
                    (one) =>
                        one.parent?.data.node && (
                            <path
                                key={one.data.node!.mac}
                                class={one.data.node!.wireless ? "wireless" : undefined}
                                d={`M${x(one.parent)},${y(one.parent)} h${columnWidth - 26} V${y(one)} H${x(one)}`}
                            />
                        ),
                )}
                {shown.map((one) => (
                    <g key={one.data.node!.mac} transform={`translate(${x(one)},${y(one)})`}>
                        <Shape node={one.data.node!} />
                    </g>
                ))}
            </svg>
        </div>
    );
}

const short = (text: string, most: number) =>
    text.length > most ? `${text.slice(0, most - 1)}…` : text;

function Shape({ node }: { node: Node }) {
    const tone = node.state ? stateTones[node.state as State] : "other";
    const second = [
        node.type,
        node.state,
        node.clients !== null && counted(node.clients, "client"),
    ].filter(Boolean);
    const inner = (
        <g class={tone}>
            <title>{`${node.name}, ${second.join(", ")}`}</title>
            {node.serial ? (
                <circle class="shape" r={7} />
            ) : (
                <rect class="shape" x={-6} y={-6} width={12} height={12} />
            )}
            <text x={13} y={-5}>
                {short(node.name, 22)}
            </text>
            <text x={13} y={17} class="second">
                {second.join(", ")}
            </text>
        </g>
    );
    return node.serial ? <a href={deviceHref(node.serial)}>{inner}</a> : inner;
}

function NodeTable({ nodes }: { nodes: Node[] }) {
    const names = new Map(nodes.map((node) => [node.mac, node.name]));
    return (
        <Table
            caption="Devices and their links"
            rows={nodes}
            id={(node) => node.mac}
            columns={[
                {
                    name: "Name",
                    cell: (node) =>
                        node.serial ? <a href={deviceHref(node.serial)}>{node.name}</a> : node.name,
                },
                { name: "Type", cell: (node) => node.type },
                {
                    name: "Presence",
                    cell: (node) =>
                        node.state ? <StateBadge state={node.state as State} /> : "not managed",
                },
                {
                    name: "Connected to",
                    cell: (node) =>
                        node.parent
                            ? `${names.get(node.parent)}, ${node.wireless ? "wireless" : "wired"}`
                            : "–",
                },
                { name: "Clients", number: true, cell: (node) => figure(node.clients) },
                { name: "MAC", wide: true, cell: (node) => <span class="mono">{node.mac}</span> },
            ]}
        />
    );
}
