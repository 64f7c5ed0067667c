// The clients of a device's last status report.
import { may, order } from "./api";
import { useReport, type PartProps } from "./device";
import { amount, counted, duration, macText, rate } from "./format";
import { Act, Empty, Show, Table, Time } from "./parts";
import type { ClientReport, StatusReport } from "./rows";
import { bandOf } from "./words";

const mostListed = 128; // of a band; above it the device lists none

export function DeviceClients({ device }: PartProps) {
    const status = useReport(device.serial, "status");
    const kick = async (client: ClientReport) => {
        // The device compares capitals only, and lets the client in again after five seconds.
        await order(device.serial, "force_off", [{ mac: client.user_mac.toUpperCase() }]);
        await order(device.serial, "status_upload");
    };
    return (
        <Show of={status} missing={<Empty>The device has not given a status report yet.</Empty>}>
            {({ answer, asked_at }) => {
                const report = answer as StatusReport;
                const rows = report.user_list ?? [];
                const count = report.run_status?.user_num ?? rows.length;
                return (
                    <>
                        <p class="mute">
                            {counted(rows.length, "client")} as of <Time at={asked_at} />
                            {count > rows.length &&
                                `; ${count} are associated: those of a band with more than ${mostListed}, or of an SSID that is off, are not listed`}
                        </p>
                        {rows.length === 0 ? (
                            <Empty>No clients.</Empty>
                        ) : (
                            <Table
                                caption="Clients"
                                rows={rows}
                                id={(client) =>
                                    `${client.user_mac} ${client.access_type} ${client.assoc_ssid}`
                                }
                                columns={[
                                    {
                                        name: "MAC",
                                        cell: (client) => (
                                            <a
                                                class="mono"
                                                href={`/clients?q=${macText(client.user_mac)}`}
                                            >
                                                {macText(client.user_mac)}
                                            </a>
                                        ),
                                    },
                                    { name: "IP", cell: (client) => client.ip || "–" },
                                    { name: "SSID", cell: (client) => client.assoc_ssid },
                                    {
                                        name: "Band",
                                        cell: (client) => `${bandOf(client.access_type)} GHz`,
                                    },
                                    {
                                        name: "Signal",
                                        number: true,
                                        cell: (client) => <Signal dbm={client.signal_intensity} />,
                                    },
                                    {
                                        name: "Receives",
                                        number: true,
                                        cell: (client) => rate(Number(client.down_rate)),
                                    },
                                    {
                                        name: "Sends",
                                        number: true,
                                        cell: (client) => rate(Number(client.up_rate)),
                                    },
                                    {
                                        name: "Received",
                                        wide: true,
                                        number: true,
                                        cell: (client) => amount(Number(client.down_flow)),
                                    },
                                    {
                                        name: "Sent",
                                        wide: true,
                                        number: true,
                                        cell: (client) => amount(Number(client.up_flow)),
                                    },
                                    {
                                        name: "For",
                                        wide: true,
                                        number: true,
                                        cell: (client) => duration(Number(client.online_time)),
                                    },
                                    ...(may("operator") && device.state === "online"
                                        ? [
                                              {
                                                  name: "Actions",
                                                  cell: (client: ClientReport) => (
                                                      <Act
                                                          ask={{
                                                              title: `Kick ${macText(client.user_mac)}?`,
                                                              text: "The client is thrown out. The device lets it in again after five seconds.",
                                                          }}
                                                          act={() => kick(client)}
                                                      >
                                                          Kick
                                                      </Act>
                                                  ),
                                              },
                                          ]
                                        : []),
                                ]}
                            />
                        )}
                    </>
                );
            }}
        </Show>
    );
}

const weakest = -80; // dBm; below, rates suffer
const fair = -67;

function Signal({ dbm }: { dbm: number }) {
    const word = dbm >= fair ? "good" : dbm >= weakest ? "fair" : "weak";
    return (
        <span title={`${word} signal`}>
            {dbm} dBm{word === "weak" && " ▾"}
        </span>
    );
}
