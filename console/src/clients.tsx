// Where a client is and was, on all devices.
import { useState } from "preact/hooks";
import { get, type Stay } from "./api";
import { duration } from "./format";
import { calmMs, useLoaded } from "./load";
import { DeviceLink, Empty, Show, Table, Text, Time } from "./parts";
import { go, param, withParams } from "./router";

const shortest = 3; // characters that the search takes

export function Clients() {
    const q = param("q");
    const [text, setText] = useState(q);
    const search = (value: string) => {
        setText(value);
        go(withParams({ q: value.trim() }), true);
    };
    return (
        <>
            <h1>Clients</h1>
            <div class="bar">
                <div class="grow">
                    <Text
                        label="MAC or IP address"
                        hint="The beginning is enough, three characters at least"
                        type="search"
                        value={text}
                        onText={search}
                        spellcheck={false}
                    />
                </div>
            </div>
            {q.length < shortest ? (
                <Empty>Tell a client's address to see where it is and was.</Empty>
            ) : (
                <Found q={q} />
            )}
        </>
    );
}

function Found({ q }: { q: string }) {
    const stays = useLoaded(
        `clients ${q}`,
        async (signal) => {
            await new Promise((done) => setTimeout(done, 200)); // until the typing rests
            return signal.aborted
                ? { items: [] }
                : get("/api/v1/clients", { query: { q }, signal });
        },
        (happening) => happening.type === "report" && happening.data.report === "status",
        calmMs,
    );
    return (
        <Show of={stays}>
            {({ items }) =>
                items.length === 0 ? (
                    <Empty>No client with an address that begins with “{q}” is known.</Empty>
                ) : (
                    <Table
                        caption="Stays of clients"
                        rows={items}
                        id={(stay: Stay) =>
                            `${stay.mac} ${stay.serial} ${stay.ssid} ${stay.band} ${stay.first_seen}`
                        }
                        columns={[
                            { name: "MAC", cell: (stay) => <span class="mono">{stay.mac}</span> },
                            { name: "IP", cell: (stay) => stay.ip || "–" },
                            {
                                name: "Device",
                                cell: (stay) => <DeviceLink serial={stay.serial ?? ""} />,
                            },
                            { name: "SSID", cell: (stay) => stay.ssid },
                            { name: "Band", cell: (stay) => `${stay.band} GHz` },
                            {
                                name: "First seen",
                                wide: true,
                                cell: (stay) => <Time at={stay.first_seen} />,
                            },
                            { name: "Last seen", cell: (stay) => <Time at={stay.last_seen} /> },
                            {
                                name: "For",
                                wide: true,
                                number: true,
                                cell: (stay) =>
                                    duration((stay.last_seen ?? 0) - (stay.first_seen ?? 0)),
                            },
                        ]}
                    />
                )
            }
        </Show>
    );
}
