// What a device is, how it runs, its radios and SSIDs.
import type { PartProps } from "./device";
import { useReport } from "./device";
import { useSites } from "./devices";
import { duration, macText, rate } from "./format";
import { deviceHref, Empty, Facts, Show, Table, Time, Badge } from "./parts";
import type { ConfigReport, RadioReport, SsidReport, StatusReport } from "./rows";

const waiting = (
    <Empty>
        The device has not given this report yet. It is asked a few seconds after it connects.
    </Empty>
);

function Share({ percent, name }: { percent: number | undefined; name: string }) {
    if (percent === undefined) return <>–</>;
    return (
        <>
            <meter min={0} max={100} high={90} value={percent} aria-label={name} /> {percent} %
        </>
    );
}

export function Status({ device }: PartProps) {
    const status = useReport(device.serial, "status");
    const sites = useSites();
    const site = sites.find((one) => one.id === device.site);
    const identity = device.identity as Record<string, unknown> | undefined;
    const binding = device.binding as Record<string, unknown> | undefined;
    const bound = binding?.cloud_manage === 1;
    return (
        <>
            <div class="cards">
                <section class="card">
                    <h2>Device</h2>
                    <Facts
                        rows={[
                            ["Model", device.model],
                            ["Firmware", device.firmware],
                            ["Serial number", <span class="mono">{device.serial}</span>],
                            ["MAC", <span class="mono">{macText(device.mac)}</span>],
                            ["Brand", String(identity?.brand ?? "")],
                            ["Site", site ? <a href={`/sites/${site.id}`}>{site.name}</a> : "none"],
                            [
                                "Binding",
                                binding
                                    ? bound
                                        ? `project ${binding.project_id}, ${binding.cloud_id || "no account"}`
                                        : "not bound"
                                    : "",
                            ],
                            ["First seen", <Time at={device.first_seen} />],
                            ["Last seen", <Time at={device.last_seen} />],
                        ]}
                    />
                </section>
                <section class="card">
                    <h2>Running</h2>
                    <Show of={status} missing={waiting}>
                        {({ answer, asked_at }) => (
                            <Running answer={answer as StatusReport} at={asked_at} />
                        )}
                    </Show>
                </section>
            </div>
            <section class="card">
                <h2>Radios</h2>
                <Show of={status} missing={waiting}>
                    {({ answer }) => (
                        <Radios rows={(answer as StatusReport).ap_status?.rf_rule ?? []} />
                    )}
                </Show>
            </section>
            <SsidCard device={device} />
        </>
    );
}

function Running({ answer, at }: { answer: StatusReport; at: number }) {
    const run = answer.run_status ?? {};
    const front = run.front_dev;
    const listed = answer.user_list?.length ?? 0;
    return (
        <Facts
            rows={[
                ["Processor", <Share percent={run.cpu_info} name="Processor" />],
                ["Memory", <Share percent={run.mem_info} name="Memory" />],
                ["Running for", run.run_time ? duration(Number(run.run_time)) : ""],
                [
                    "Clients",
                    run.user_num === listed
                        ? String(listed)
                        : `${run.user_num ?? "–"}, of them ${listed} listed`,
                ],
                ["Uplink receives", run.up_rate ? rate(Number(run.up_rate)) : ""],
                ["Uplink sends", run.down_rate ? rate(Number(run.down_rate)) : ""],
                ["Address", answer.dev_info?.manage_ip],
                ["Hardware", answer.dev_info?.hard_ver],
                !!front?.mac && [
                    "Connected to",
                    `${front.sn || front.mac}${front.port ? `, port ${front.port}` : ""}`,
                ],
                ["As of", <Time at={at} />],
            ]}
        />
    );
}

function Radios({ rows }: { rows: RadioReport[] }) {
    return (
        <Table
            caption="Radios"
            rows={rows.slice(0, 2)}
            id={(radio) => rows.indexOf(radio)}
            columns={[
                { name: "Band", cell: (radio) => `${rows.indexOf(radio) === 0 ? "2.4" : "5"} GHz` },
                {
                    name: "State",
                    cell: (radio) => (
                        <Badge tone={radio.radioenable ? "good" : "mute"}>
                            {radio.radioenable ? "On" : "Off"}
                        </Badge>
                    ),
                },
                { name: "Channel", number: true, cell: (radio) => radio.radioflag || "–" },
                {
                    name: "Set to",
                    number: true,
                    cell: (radio) => (radio.channel === 0 ? "automatic" : radio.channel),
                },
                { name: "Width", number: true, cell: (radio) => `${radio.bindwidth} MHz` },
                { name: "Power", number: true, cell: (radio) => `${radio.power} dBm` },
                {
                    name: "Weakest client",
                    wide: true,
                    number: true,
                    cell: (radio) => `${radio.rssi} dBm`,
                },
                {
                    name: "Mode",
                    wide: true,
                    cell: (radio) =>
                        radio.is_ap_client ? "client of another access point" : "access point",
                },
            ]}
        />
    );
}

interface SsidRow extends SsidReport {
    band: string;
}

const securityWords: Record<number, string> = { 0: "Open", 1: "WPA", 2: "WPA2" };

function SsidCard({ device }: PartProps) {
    const config = useReport(device.serial, "config");
    return (
        <section class="card">
            <h2>SSIDs</h2>
            <Show of={config} missing={waiting}>
                {({ answer, asked_at }) => {
                    const report = (answer as ConfigReport).wireless?.wireless_config ?? {};
                    const on = [
                        ...(report.radio1 ?? []).map((ssid): SsidRow => ({ ...ssid, band: "2.4" })),
                        ...(report.radio2 ?? []).map((ssid): SsidRow => ({ ...ssid, band: "5" })),
                    ].filter((ssid) => ssid.status === 1);
                    return (
                        <>
                            <p class="mute">
                                {on.length} switched on, read from the device <Time at={asked_at} />
                                .{" "}
                                <a href={deviceHref(device.serial, "config")}>
                                    Compared with its site
                                </a>
                            </p>
                            {on.length > 0 && (
                                <Table
                                    caption="SSIDs that are on"
                                    rows={on}
                                    id={(ssid) => `${ssid.band} ${ssid.ssididx}`}
                                    columns={[
                                        {
                                            name: "SSID",
                                            cell: (ssid) => <span class="wrap">{ssid.ssid}</span>,
                                        },
                                        { name: "Band", cell: (ssid) => `${ssid.band} GHz` },
                                        {
                                            name: "Security",
                                            cell: (ssid) => securityWords[ssid.encrypt] ?? "other",
                                        },
                                        {
                                            name: "VLAN",
                                            number: true,
                                            cell: (ssid) => ssid.vlan || "default",
                                        },
                                        {
                                            name: "Hidden",
                                            wide: true,
                                            cell: (ssid) => (ssid.hide ? "yes" : "no"),
                                        },
                                        {
                                            name: "Isolation",
                                            wide: true,
                                            cell: (ssid) => (ssid.client_quarantine ? "yes" : "no"),
                                        },
                                        {
                                            name: "Client limit",
                                            wide: true,
                                            number: true,
                                            cell: (ssid) => ssid.max_conn || "none",
                                        },
                                    ]}
                                />
                            )}
                        </>
                    );
                }}
            </Show>
        </section>
    );
}
