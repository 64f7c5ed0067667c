// Alarms of all devices.
import { call, get, may } from "./api";
import { counted } from "./format";
import { useLoaded } from "./load";
import { Act, Badge, DeviceLink, Empty, Select, Show, Table, Time, type Column } from "./parts";
import { go, param, withParams } from "./router";
import type { Alarm } from "./rows";

export async function acknowledge(id: number) {
    await call("post", "/api/v1/alarms/{id}/acknowledge", { path: { id } });
}

const columns = (withDevice: boolean): Column<Alarm>[] => [
    { name: "Time", cell: (alarm) => <Time at={alarm.at} /> },
    ...(withDevice
        ? [{ name: "Device", cell: (alarm: Alarm) => <DeviceLink serial={alarm.serial} /> }]
        : []),
    { name: "Alarm", cell: (alarm) => <span class="wrap">{alarm.event}</span> },
    {
        name: "State",
        cell: (alarm) =>
            alarm.state === "open" ? (
                <span class="act">
                    <Badge tone="bad">Open</Badge>
                    {may("operator") && <Act act={() => acknowledge(alarm.id)}>Acknowledge</Act>}
                </span>
            ) : (
                <span>
                    Acknowledged by {alarm.acknowledged_by}, <Time at={alarm.acknowledged_at} />
                </span>
            ),
    },
];

export function AlarmTable({ rows, withDevice }: { rows: Alarm[]; withDevice: boolean }) {
    return (
        <Table
            caption="Alarms"
            rows={rows}
            id={(alarm) => alarm.id}
            columns={columns(withDevice)}
        />
    );
}

/** Links between the pages of a list whose cursor is a row's number. */
export function Pages({ next }: { next: string | null }) {
    const at = param("cursor");
    if (!at && !next) return null;
    return (
        <nav class="buttons" aria-label="Pages">
            {at && (
                <a class="button" href={withParams({ cursor: "" })}>
                    Newest
                </a>
            )}
            {next && (
                <a class="button" href={withParams({ cursor: next })}>
                    Older
                </a>
            )}
        </nav>
    );
}

export function Alarms() {
    const state = param("state");
    const cursor = param("cursor");
    const alarms = useLoaded(
        `alarms ${state} ${cursor}`,
        (signal) => get("/api/v1/alarms", { query: { state, cursor, limit: 100 }, signal }),
        (happening) => happening.type === "alarm",
    );
    const acknowledgeAll = async (rows: Alarm[]) => {
        for (const alarm of rows) await acknowledge(alarm.id);
    };
    return (
        <>
            <h1>Alarms</h1>
            <div class="bar">
                <Select
                    label="State"
                    value={state}
                    choices={[
                        ["", "All"],
                        ["open", "Open"],
                        ["acknowledged", "Acknowledged"],
                    ]}
                    onChange={(value) => go(withParams({ state: value, cursor: "" }))}
                />
            </div>
            <Show of={alarms}>
                {(page) => {
                    const rows = page.items as unknown as Alarm[];
                    const open = rows.filter((alarm) => alarm.state === "open");
                    if (rows.length === 0)
                        return <Empty>No alarms{state && ` that are ${state}`}.</Empty>;
                    return (
                        <>
                            <AlarmTable rows={rows} withDevice />
                            <div class="buttons">
                                {may("operator") && open.length > 1 && (
                                    <Act act={() => acknowledgeAll(open)}>
                                        Acknowledge {counted(open.length, "alarm")} of this page
                                    </Act>
                                )}
                                <Pages next={page.next_cursor} />
                            </div>
                        </>
                    );
                }}
            </Show>
        </>
    );
}
