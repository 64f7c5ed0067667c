// Is all well, and if not, where: every figure leads to the list behind it.
import type { ComponentChildren } from "preact";
import { get, type ConfigState, type State } from "./api";
import { Empty, Badge, DeviceLink, Show, Table, Time } from "./parts";
import { counted, whole } from "./format";
import { calmMs, useLoaded } from "./load";
import type { Alarm } from "./rows";
import { configTones, configWords, stateTones, stateWords } from "./words";

const telling = ["presence", "config_state", "device", "alarm", "report"];

function Counts(props: { rows: [href: string, name: ComponentChildren, count: number][] }) {
    return (
        <ul class="counts">
            {props.rows.map(([href, name, count]) => (
                <li key={href}>
                    <a href={href} class={count ? undefined : "zero"}>
                        <span>{name}</span> <b>{whole(count)}</b>
                    </a>
                </li>
            ))}
        </ul>
    );
}

export function Overview() {
    const summary = useLoaded(
        "summary",
        (signal) => get("/api/v1/summary", { signal }),
        (happening) => telling.includes(happening.type),
        calmMs,
    );
    const alarms = useLoaded(
        "alarms",
        (signal) => get("/api/v1/alarms", { query: { state: "open", limit: 8 }, signal }),
        (happening) => happening.type === "alarm",
    );
    return (
        <>
            <h1>Overview</h1>
            <Show of={summary}>
                {(fleet) => {
                    const list = (filter: string, value: string) =>
                        `/devices?${filter}=${encodeURIComponent(value)}`;
                    const spread = (
                        filter: "model" | "firmware",
                        rows: { name: string; devices: number }[],
                    ) =>
                        rows.map(
                            ({ name, devices }) =>
                                [list(filter, name), name || "not told yet", devices] as [
                                    string,
                                    string,
                                    number,
                                ],
                        );
                    if (fleet.devices === 0) {
                        return (
                            <Empty>
                                No device has been heard yet. It appears here as soon as its agent
                                connects to a broker of this controller.
                            </Empty>
                        );
                    }
                    return (
                        <>
                            <p>
                                <Verdict
                                    states={fleet.states}
                                    configs={fleet.config_states}
                                    alarms={fleet.open_alarms}
                                />
                            </p>
                            <div class="cards">
                                <section class="card">
                                    <h2>
                                        <a href="/devices">{counted(fleet.devices, "device")}</a>
                                    </h2>
                                    <Counts
                                        rows={Object.entries(stateWords).map(([state, word]) => [
                                            list("state", state),
                                            <Badge tone={stateTones[state as State]}>{word}</Badge>,
                                            fleet.states[state] ?? 0,
                                        ])}
                                    />
                                    <p class="mute">
                                        {counted(fleet.clients, "client")} on the devices that are
                                        online
                                    </p>
                                </section>
                                <section class="card">
                                    <h2>Configuration</h2>
                                    <Counts
                                        rows={Object.entries(configWords).map(([state, word]) => [
                                            list("config_state", state),
                                            <Badge tone={configTones[state as ConfigState]}>
                                                {word}
                                            </Badge>,
                                            fleet.config_states[state] ?? 0,
                                        ])}
                                    />
                                </section>
                                <div class="column">
                                    <section class="card">
                                        <h2>Firmware</h2>
                                        <Counts rows={spread("firmware", fleet.firmware)} />
                                    </section>
                                    <section class="card">
                                        <h2>Models</h2>
                                        <Counts rows={spread("model", fleet.models)} />
                                    </section>
                                </div>
                            </div>
                        </>
                    );
                }}
            </Show>
            <section class="card">
                <h2>
                    <a href="/alarms?state=open">Open alarms</a>
                </h2>
                <Show of={alarms}>
                    {(page) => <AlarmRows rows={page.items as unknown as Alarm[]} />}
                </Show>
            </section>
        </>
    );
}

function AlarmRows({ rows }: { rows: Alarm[] }) {
    if (rows.length === 0) return <p class="mute">None.</p>;
    return (
        <Table
            caption="Newest open alarms"
            rows={rows}
            id={(alarm) => alarm.id}
            columns={[
                { name: "Time", cell: (alarm) => <Time at={alarm.at} /> },
                { name: "Device", cell: (alarm) => <DeviceLink serial={alarm.serial} /> },
                { name: "Alarm", cell: (alarm) => alarm.event },
            ]}
        />
    );
}

/** One sentence; it says that all is well only when nothing speaks against it. */
function Verdict(props: {
    states: Record<string, number>;
    configs: Record<string, number>;
    alarms: number;
}) {
    const { states, configs, alarms } = props;
    const troubles = [
        states.offline && `${whole(states.offline)} offline`,
        states.unknown && `${whole(states.unknown)} unknown`,
        configs.differs && `${whole(configs.differs)} with a differing configuration`,
        configs.locally_managed && `${whole(configs.locally_managed)} managed locally`,
        alarms && counted(alarms, "open alarm"),
    ].filter(Boolean);
    if (troubles.length === 0) {
        return <Badge tone="good">All devices are online, and none reports trouble.</Badge>;
    }
    return <Badge tone={states.offline ? "bad" : "warn"}>Look at: {troubles.join(", ")}</Badge>;
}
