// Ports of a device with what is behind them, and the networks that it hears.
import { get, may, order } from "./api";
import { useReport, type PartProps } from "./device";
import { useLoaded } from "./load";
import { macText, rate } from "./format";
import { Act, deviceHref, Empty, Show, Table, Time } from "./parts";
import type { Neighbour, TopologyNeighbour, TopologyPort, TopologyReport } from "./rows";

// The names of ports as the device's housing has them.
const portWords: Record<number, string> = { 1: "Port 1", 2: "Port 2", 255: "Wireless" };

export function Around({ device }: PartProps) {
    const topology = useReport(device.serial, "topology");
    return (
        <>
            <section class="card">
                <h2>Ports</h2>
                <Show
                    of={topology}
                    missing={<Empty>The device has not given a topology report yet.</Empty>}
                >
                    {({ answer, asked_at }) => (
                        <Ports report={answer as TopologyReport} at={asked_at} />
                    )}
                </Show>
            </section>
            <Networks device={device} />
        </>
    );
}

function Ports({ report, at }: { report: TopologyReport; at: number }) {
    const ports = Object.values(report.dev_topo?.port_info ?? {});
    const up = report.dev_topo?.dev_info?.up_port;
    const wireless = (port: TopologyPort) => port.port === 255;
    return (
        <>
            <p class="mute">
                As of <Time at={at} />. {up === 224 && "Which port is the uplink is not known."}
            </p>
            <Table
                caption="Ports"
                rows={ports}
                id={(port) => port.port}
                columns={[
                    {
                        name: "Port",
                        cell: (port) =>
                            `${portWords[port.port] ?? port.port}${port.port === up ? ", uplink" : ""}`,
                    },
                    {
                        name: "Link",
                        cell: (port) =>
                            wireless(port) ? "–" : port.link_rate > 0 ? "up" : "no link",
                    },
                    {
                        name: "Receives",
                        number: true,
                        wide: true,
                        cell: (port) => (wireless(port) ? "–" : rate(port.rx_rate)),
                    },
                    {
                        name: "Sends",
                        number: true,
                        wide: true,
                        cell: (port) => (wireless(port) ? "–" : rate(port.tx_rate)),
                    },
                    {
                        name: "VLANs",
                        wide: true,
                        cell: (port) => port.vlan_id?.split(" ").join(", ") || "–",
                    },
                    {
                        name: "Neighbours",
                        cell: (port) => (
                            <Neighbours rows={Object.values(port.neighbour_devs ?? {})} />
                        ),
                    },
                ]}
            />
        </>
    );
}

function Neighbours({ rows }: { rows: TopologyNeighbour[] }) {
    if (rows.length === 0) return <>–</>;
    return (
        <>
            {rows.map((one) => (
                <div key={one.mac}>
                    {one.type}{" "}
                    {one.type === "ap" && one.sn ? (
                        <a href={deviceHref(one.sn)}>{one.sn}</a>
                    ) : (
                        one.sn || one.mac
                    )}
                    , {one.ip}
                </div>
            ))}
        </>
    );
}

function Networks({ device }: PartProps) {
    const { serial } = device;
    const neighbors = useLoaded(
        `neighbors ${serial}`,
        (signal) => get("/api/v1/devices/{serial}/neighbors", { path: { serial }, signal }),
        (happening) => happening.serial === serial && happening.data.report === "neighbors",
    );
    return (
        <section class="card">
            <h2>Networks around</h2>
            {may("operator") && device.state === "online" && (
                <div class="bar">
                    <Act
                        ask={{
                            title: "Scan now?",
                            text: "The radios leave their channels for some seconds, which clients feel.",
                        }}
                        act={() => order(serial, "radio_optimiza_upload")}
                    >
                        Scan now
                    </Act>
                </div>
            )}
            <Show of={neighbors} missing={<p class="mute">Nobody has ordered a scan yet.</p>}>
                {({ items, asked_at }) => {
                    const heard = ((items ?? []) as Neighbour[]).filter((one) => one.bssid);
                    return (
                        <>
                            <p class="mute">
                                Scanned <Time at={asked_at} />.
                            </p>
                            <Table
                                caption="Networks that the scan heard"
                                rows={heard.sort(
                                    (one, other) => (other.rssi ?? 0) - (one.rssi ?? 0),
                                )}
                                id={(one) => `${one.bssid} ${one.band_type}`}
                                columns={[
                                    { name: "SSID", cell: (one) => one.ssid || <i>hidden</i> },
                                    {
                                        name: "BSSID",
                                        wide: true,
                                        cell: (one) => (
                                            <span class="mono">{macText(one.bssid ?? "")}</span>
                                        ),
                                    },
                                    {
                                        name: "Band",
                                        cell: (one) => (one.band_type === 1 ? "2.4 GHz" : "5 GHz"),
                                    },
                                    {
                                        name: "Channel",
                                        number: true,
                                        cell: (one) => one.chanspec?.primary_channel,
                                    },
                                    {
                                        name: "Width",
                                        number: true,
                                        wide: true,
                                        cell: (one) => `${one.chanspec?.bandwidth} MHz`,
                                    },
                                    {
                                        name: "Signal",
                                        number: true,
                                        cell: (one) => `${one.rssi} dBm`,
                                    },
                                ]}
                            />
                        </>
                    );
                }}
            </Show>
        </section>
    );
}
