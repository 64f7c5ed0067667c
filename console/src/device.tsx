// One device: what it is, how it does, what can be done with it.
import { signal } from "@preact/signals";
import { useState } from "preact/hooks";
import { call, get, may, order, type Device } from "./api";
import { shortTime } from "./format";
import { useLoaded } from "./load";
import { Around } from "./device-around";
import { Charts } from "./device-charts";
import { DeviceClients } from "./device-clients";
import { Commands } from "./device-commands";
import { DeviceConfig } from "./device-config";
import { Logs } from "./device-logs";
import { Status } from "./device-status";
import { useSites } from "./devices";
import {
    Act,
    ConfigBadge,
    deviceHref,
    Dialog,
    FailureNotice,
    nameOf,
    Notice,
    Select,
    Show,
    StateBadge,
    Tabs,
    Text,
} from "./parts";
import { go } from "./router";
import type { Failure } from "./api";
import type { StatusReport } from "./rows";

const parts = [
    ["", "Status", Status],
    ["clients", "Clients", DeviceClients],
    ["charts", "Charts", Charts],
    ["around", "Ports and neighbours", Around],
    ["config", "Configuration", DeviceConfig],
    ["logs", "Alarms and logs", Logs],
    ["commands", "Commands", Commands],
] as const;

/** The last report of a kind; loaded again when a newer one came. */
export function useReport(serial: string, report: "status" | "topology" | "config") {
    const path = `/api/v1/devices/{serial}/${report}` as const;
    return useLoaded(
        `${report} ${serial}`,
        (signal) => get(path, { path: { serial }, signal }),
        (happening) =>
            happening.type === "report" &&
            happening.serial === serial &&
            happening.data.report === report,
    );
}

export interface PartProps {
    device: Device;
}

export function DevicePage({ serial, part }: { serial: string; part: string }) {
    const device = useLoaded(
        `device ${serial}`,
        (signal) => get("/api/v1/devices/{serial}", { path: { serial }, signal }),
        (happening) =>
            happening.serial === serial &&
            ["presence", "config_state", "device"].includes(happening.type),
    );
    const shown = parts.find(([name]) => name === part);
    const View = shown?.[2];
    return (
        <Show of={device}>
            {(known) => (
                <>
                    <Head device={known} />
                    <Tabs
                        label="Parts of the device"
                        at={deviceHref(serial, part)}
                        tabs={parts.map(
                            ([name, text]) => [deviceHref(serial, name), text] as const,
                        )}
                    />
                    {known.state !== "online" && (
                        <Notice tone="warn">
                            <StateBadge state={known.state} since={known.state_since} />. What
                            follows is what was known then.
                        </Notice>
                    )}
                    {View ? <View device={known} /> : <p>There is no such part.</p>}
                </>
            )}
        </Show>
    );
}

function Head({ device }: PartProps) {
    const [edits, setEdits] = useState(false);
    return (
        <>
            <div class="head">
                <h1>{nameOf(device)}</h1>
                <StateBadge state={device.state} since={device.state_since} />
                {device.config_state !== "none" && (
                    <a href={deviceHref(device.serial, "config")}>
                        <ConfigBadge state={device.config_state} />
                    </a>
                )}
                {device.tags.length > 0 && (
                    <span class="tags">
                        {device.tags.map((tag) => (
                            <span key={tag}>{tag}</span>
                        ))}
                    </span>
                )}
            </div>
            {may("operator") && (
                <div class="bar">
                    <button onClick={() => setEdits(true)}>Name, site, tags</button>
                    {device.state === "online" ? (
                        <OnlineActions device={device} />
                    ) : (
                        <Act
                            danger
                            ask={{
                                title: `Forget ${nameOf(device)}?`,
                                text: "Its reports, charts, logs and alarms are removed. It comes back when its agent connects again.",
                            }}
                            act={async () => {
                                await call("delete", "/api/v1/devices/{serial}", {
                                    path: { serial: device.serial },
                                });
                                go("/devices");
                            }}
                        >
                            Forget
                        </Act>
                    )}
                    <Restarting device={device} />
                </div>
            )}
            {edits && <EditDialog serial={device.serial} onClose={() => setEdits(false)} />}
        </>
    );
}

// Devices that were told to restart from this page, by their serial numbers: since when they
// had been online then.
const restarts = signal<ReadonlyMap<string, number>>(new Map());

function OnlineActions({ device }: PartProps) {
    const { serial } = device;
    const status = useReport(serial, "status");
    const locating = (status.data?.answer as StatusReport | undefined)?.dev_info?.is_location === 1;
    const restart = (command: string) => async () => {
        await order(serial, command);
        restarts.value = new Map(restarts.value).set(serial, device.state_since);
    };
    return (
        <>
            <Act act={() => order(serial, "status_upload")}>Refresh</Act>
            <Act
                act={async () => {
                    await order(serial, "dev_locate", { op: locating ? 0 : 1 });
                    await order(serial, "status_upload");
                }}
            >
                {locating ? "End locating" : "Locate by its LED"}
            </Act>
            <Act
                danger
                ask={{
                    title: `Restart ${nameOf(device)}?`,
                    text: "Its clients lose the network until it is back.",
                }}
                act={restart("reboot_download")}
            >
                Restart
            </Act>
            <Act
                danger
                ask={{
                    title: `Reset ${nameOf(device)} to factory settings?`,
                    text: "The device forgets its settings and its binding, and restarts. Clients are lost until it is configured again.",
                }}
                act={restart("nx_restore")}
            >
                Factory reset
            </Act>
        </>
    );
}

/** A restart is over when the device has gone and come back, not when it answered. */
function Restarting({ device }: PartProps) {
    const before = restarts.value.get(device.serial);
    if (before === undefined) return null;
    const back = device.state === "online" && device.state_since !== before;
    return (
        <span role="status">
            {back
                ? `Restarted, back at ${shortTime(device.state_since)}.`
                : device.state === "online"
                  ? "Ordered: waiting for the device to go."
                  : "Restarting: waiting for it to come back."}
        </span>
    );
}

function EditDialog({ serial, onClose }: { serial: string; onClose: () => void }) {
    const found = useLoaded(`edit ${serial}`, (signal) =>
        call("get", "/api/v1/devices/{serial}", { path: { serial }, signal }),
    );
    return (
        <Dialog title="Name, site, tags" onClose={onClose}>
            <Show of={found}>
                {({ data, etag }) => (
                    <EditForm key={etag} device={data} etag={etag} onClose={onClose} />
                )}
            </Show>
        </Dialog>
    );
}

function EditForm({ device, etag, onClose }: PartProps & { etag: string; onClose: () => void }) {
    const sites = useSites();
    const [name, setName] = useState(device.name);
    const [site, setSite] = useState(device.site === null ? "" : String(device.site));
    const [tags, setTags] = useState(device.tags.join(", "));
    const [failure, setFailure] = useState<Failure>();
    const submit = async (event: Event) => {
        event.preventDefault();
        const list = tags.split(",").map((tag) => tag.trim());
        try {
            await call("patch", "/api/v1/devices/{serial}", {
                path: { serial: device.serial },
                body: {
                    name,
                    site: site ? Number(site) : null,
                    tags: [...new Set(list.filter(Boolean))],
                },
                etag,
            });
            onClose();
        } catch (error) {
            setFailure(error as Failure);
        }
    };
    return (
        <form onSubmit={submit}>
            <div class="form">
                <Text label="Name" value={name} onText={setName} maxLength={64} />
                <Select
                    label="Site"
                    value={site}
                    hint="The device follows the configuration of its site"
                    choices={[
                        ["", "No site"],
                        ...sites.map((one) => [String(one.id), one.name] as const),
                    ]}
                    onChange={setSite}
                />
                <Text label="Tags" hint="With commas between them" value={tags} onText={setTags} />
            </div>
            {failure && <FailureNotice failure={failure} />}
            <div class="buttons">
                <button class="main">Save</button>
                <button type="button" onClick={onClose}>
                    Cancel
                </button>
            </div>
        </form>
    );
}
