// The fleet list: filters and order live in the address, pages come from the controller.
import { useEffect, useRef, useState } from "preact/hooks";
import { get, may, type Device } from "./api";
import { BulkActions } from "./bulk";
import { counted, csvRow, figure } from "./format";
import { useLoaded } from "./load";
import {
    Act,
    ConfigBadge,
    DeviceLink,
    Empty,
    nameOf,
    Select,
    Show,
    StateBadge,
    Table,
    Text,
    Time,
    type Column,
} from "./parts";
import { go, param, withParams } from "./router";
import { configWords, stateWords } from "./words";

const pageSize = 100;
const largestPage = 1000; // of an export
const filters = ["q", "site", "state", "config_state", "model", "firmware", "sort"] as const;

/** The list's filters as the address has them. */
const filtersOfAddress = () => Object.fromEntries(filters.map((name) => [name, param(name)]));

/** All devices that the filters take, page by page. */
async function everyDevice(query: Record<string, string>, signal?: AbortSignal) {
    const all: Device[] = [];
    let cursor: string | undefined;
    do {
        const page = await get("/api/v1/devices", {
            query: { ...query, limit: largestPage, cursor },
            signal,
        });
        all.push(...page.items);
        cursor = page.next_cursor ?? undefined;
    } while (cursor);
    return all;
}

export function useSites() {
    const sites = useLoaded("sites", (signal) => get("/api/v1/sites", { signal }));
    return sites.data?.items ?? [];
}

async function exportCsv() {
    const time = (at: number) => (at ? new Date(at * 1000).toISOString() : "");
    const names =
        "serial,name,state,state_since,config_state,site,model,firmware,mac,tags,clients,last_seen";
    let text = names + "\r\n";
    for (const device of await everyDevice(filtersOfAddress())) {
        text += csvRow([
            device.serial,
            device.name,
            device.state,
            time(device.state_since),
            device.config_state,
            device.site,
            device.model,
            device.firmware,
            device.mac,
            device.tags.join(" "),
            device.figures.clients,
            time(device.last_seen),
        ]);
    }
    const link = document.createElement("a");
    link.href = URL.createObjectURL(new Blob([text], { type: "text/csv" }));
    link.download = "devices.csv";
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 10_000);
}

/** Search as you type: the address follows when the typing rests. */
function Search() {
    const q = param("q");
    const [text, setText] = useState(q);
    useEffect(() => setText(q), [q]);
    useEffect(() => {
        if (text === q) return undefined;
        const timer = setTimeout(() => go(withParams({ q: text, cursor: "" }), true), 250);
        return () => clearTimeout(timer);
    }, [text]);
    return (
        <Text
            label="Search"
            type="search"
            placeholder="Serial number, name, MAC, model or tag"
            value={text}
            onText={setText}
            spellcheck={false}
        />
    );
}

function Filters() {
    const sites = useSites();
    const choose = (name: string) => (value: string) =>
        go(withParams({ [name]: value, cursor: "" }));
    const choices = (words: Record<string, string>) =>
        [["", "All"], ...Object.entries(words)] as [string, string][];
    return (
        <div class="bar">
            <div class="grow">
                <Search />
            </div>
            <Select
                label="Presence"
                value={param("state")}
                choices={choices(stateWords)}
                onChange={choose("state")}
            />
            <Select
                label="Configuration"
                value={param("config_state")}
                choices={choices(configWords)}
                onChange={choose("config_state")}
            />
            <Select
                label="Site"
                value={param("site")}
                choices={[
                    ["", "All"],
                    ["none", "No site"],
                    ...sites.map((site) => [String(site.id), site.name] as const),
                ]}
                onChange={choose("site")}
            />
            {(["model", "firmware"] as const).map(
                (name) =>
                    param(name) && (
                        <a key={name} class="button" href={withParams({ [name]: "", cursor: "" })}>
                            {name === "model" ? "Model" : "Firmware"} {param(name)} ✕
                        </a>
                    ),
            )}
        </div>
    );
}

function columns(siteName: (id: number | null) => string): Column<Device>[] {
    return [
        {
            name: "Name",
            sort: "name",
            cell: (device) => (
                <span class="wrap">
                    <DeviceLink serial={device.serial} name={nameOf(device)} />{" "}
                    {device.tags.length > 0 && (
                        <span class="tags">
                            {device.tags.map((tag) => (
                                <span key={tag}>{tag}</span>
                            ))}
                        </span>
                    )}
                </span>
            ),
        },
        {
            name: "Presence",
            sort: "state",
            cell: (device) => <StateBadge state={device.state} since={device.state_since} />,
        },
        {
            name: "Configuration",
            sort: "config_state",
            cell: (device) => <ConfigBadge state={device.config_state} />,
        },
        {
            name: "Clients",
            sort: "clients",
            number: true,
            cell: (device) => (device.state === "online" ? figure(device.figures.clients) : "–"),
        },
        {
            name: "Site",
            sort: "site",
            wide: true,
            cell: (device) => <span class="wrap">{siteName(device.site)}</span>,
        },
        { name: "Model", sort: "model", wide: true, cell: (device) => device.model || "–" },
        {
            name: "Firmware",
            sort: "firmware",
            wide: true,
            cell: (device) => device.firmware || "–",
        },
        {
            name: "Serial number",
            sort: "serial",
            wide: true,
            cell: (device) => <span class="mono">{device.serial}</span>,
        },
        {
            name: "Last seen",
            sort: "last_seen",
            wide: true,
            cell: (device) => <Time at={device.last_seen} />,
        },
    ];
}

export function Devices() {
    const query = filtersOfAddress();
    const cursor = param("cursor");
    const [selected, setSelected] = useState(new Map<string, Device>());
    const sites = useSites();
    const siteName = (id: number | null) =>
        id === null ? "–" : (sites.find((site) => site.id === id)?.name ?? `Site ${id}`);
    const serials = useRef<Set<string>>(new Set());
    const page = useLoaded(
        `devices ${JSON.stringify(query)} ${cursor}`,
        (signal) =>
            get("/api/v1/devices", { query: { ...query, cursor, limit: pageSize }, signal }),
        (happening) =>
            ["presence", "config_state", "device"].includes(happening.type) ||
            // Figures of devices that are not on this page change nothing that is seen.
            (happening.data.report === "status" && serials.current.has(happening.serial)),
    );
    serials.current = new Set(page.data?.items.map((device) => device.serial));

    // While the next answer is on its way, the last list stays: typing makes nothing jump.
    const [kept, setKept] = useState(page.data);
    useEffect(() => void (page.data && setKept(page.data)), [page.data]);
    const shown = page.failure ? page : { ...page, data: page.data ?? kept };

    const toggle = (devices: Device[], on: boolean) => {
        const next = new Map(selected);
        for (const device of devices) {
            if (on) next.set(device.serial, device);
            else next.delete(device.serial);
        }
        setSelected(next);
    };
    const has = (device: Device) => selected.has(device.serial);
    return (
        <>
            <h1>Devices</h1>
            <Filters />
            <Show of={shown}>
                {({ items, total, next_cursor }) => (
                    <>
                        <div class="bar" aria-busy={page.loading}>
                            <span class="grow" role="status">
                                {counted(total, "device")}
                                {cursor && ", further ones"}
                            </span>
                            <Act act={exportCsv}>Export CSV</Act>
                        </div>
                        {selected.size > 0 && (
                            <BulkActions
                                devices={[...selected.values()]}
                                sites={sites}
                                total={total}
                                selectAll={async () => toggle(await everyDevice(query), true)}
                                clear={() => setSelected(new Map())}
                            />
                        )}
                        {items.length === 0 ? (
                            <Empty>
                                {Object.values(query).some(Boolean) ? (
                                    <>
                                        No device fits. <a href="/devices">Show all devices</a>
                                    </>
                                ) : (
                                    "No device has been heard yet."
                                )}
                            </Empty>
                        ) : (
                            <Table
                                caption="Devices"
                                rows={items}
                                id={(device) => device.serial}
                                columns={columns(siteName)}
                                sorted={query.sort || "serial"}
                                onSort={(sort) => go(withParams({ sort, cursor: "" }))}
                                select={
                                    may("operator")
                                        ? {
                                              has,
                                              toggle: (device) => toggle([device], !has(device)),
                                              all: () => toggle(items, !items.every(has)),
                                          }
                                        : undefined
                                }
                            />
                        )}
                        <nav class="buttons" aria-label="Pages">
                            {cursor && (
                                <a class="button" href={withParams({ cursor: "" })}>
                                    First page
                                </a>
                            )}
                            {next_cursor && (
                                <a class="button" href={withParams({ cursor: next_cursor })}>
                                    Next page
                                </a>
                            )}
                        </nav>
                    </>
                )}
            </Show>
        </>
    );
}
