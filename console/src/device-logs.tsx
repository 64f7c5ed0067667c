// Alarms and logs of one device.
import { AlarmTable, Pages } from "./alarms";
import { get } from "./api";
import type { PartProps } from "./device";
import { useLoaded } from "./load";
import { Empty, Select, Show, Table, Time } from "./parts";
import { go, param, withParams } from "./router";
import type { Alarm, LogLine } from "./rows";

export function Logs({ device }: PartProps) {
    const { serial } = device;
    const kind = param("kind");
    const cursor = param("cursor");
    const alarms = useLoaded(
        `alarms ${serial}`,
        (signal) =>
            get("/api/v1/devices/{serial}/alarms", {
                path: { serial },
                query: { limit: 20 },
                signal,
            }),
        (happening) => happening.type === "alarm" && happening.serial === serial,
    );
    const logs = useLoaded(`logs ${serial} ${kind} ${cursor}`, (signal) =>
        get("/api/v1/devices/{serial}/logs", {
            path: { serial },
            query: { kind, cursor, limit: 100 },
            signal,
        }),
    );
    return (
        <>
            <section class="card">
                <h2>Alarms</h2>
                <Show of={alarms}>
                    {({ items }) =>
                        items.length ? (
                            <AlarmTable rows={items as unknown as Alarm[]} withDevice={false} />
                        ) : (
                            <p class="mute">None.</p>
                        )
                    }
                </Show>
            </section>
            <section class="card">
                <h2>Log</h2>
                <div class="bar">
                    <Select
                        label="Kind"
                        value={kind}
                        choices={[
                            ["", "All"],
                            ["system", "System log"],
                            ["running", "Running log"],
                        ]}
                        onChange={(value) => go(withParams({ kind: value, cursor: "" }))}
                    />
                    <button onClick={logs.reload}>Reload</button>
                </div>
                <Show of={logs}>
                    {(page) =>
                        page.items.length === 0 ? (
                            <Empty>Nothing was logged.</Empty>
                        ) : (
                            <>
                                <Table
                                    caption="Log lines, newest first"
                                    rows={page.items as unknown as LogLine[]}
                                    id={(line) => line.id}
                                    columns={[
                                        {
                                            name: "Received",
                                            cell: (line) => <Time at={line.received_at} />,
                                        },
                                        {
                                            name: "Device's clock",
                                            wide: true,
                                            cell: (line) =>
                                                line.kind === "system" ? line.time : "–",
                                        },
                                        {
                                            name: "Kind",
                                            cell: (line) => line.event_type || line.kind,
                                        },
                                        {
                                            name: "Event",
                                            cell: (line) => <span class="wrap">{line.event}</span>,
                                        },
                                    ]}
                                />
                                <Pages next={page.next_cursor} />
                            </>
                        )
                    }
                </Show>
            </section>
        </>
    );
}
