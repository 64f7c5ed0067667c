// One act on many devices, some at a time, each with its own outcome.
import { useRef, useState } from "preact/hooks";
import { call, Failure, order, type Device, type Site } from "./api";
import { counted } from "./format";
import { Act, Badge, DeviceLink, Dialog, nameOf, Select, Table, Text } from "./parts";
import type { Tone } from "./words";

const atOnce = 6; // as many as a browser has connections

interface Outcome {
    device: Device;
    tone: Tone;
    text: string;
}

interface Work {
    title: string;
    danger?: string; // what happens, asked first
    run: (device: Device) => Promise<string>; // returns the outcome in a word
}

export function patchDevice(device: Pick<Device, "serial">, body: Record<string, unknown>) {
    return call("patch", "/api/v1/devices/{serial}", { path: { serial: device.serial }, body });
}

const commandWork = (title: string, command: string, request?: unknown, danger?: string): Work => ({
    title,
    danger,
    run: async (device) => {
        if (device.state !== "online") throw new Failure(409, { detail: `it is ${device.state}` });
        await order(device.serial, command, request);
        return "Answered";
    },
});

export function BulkActions(props: {
    devices: Device[];
    sites: Site[];
    total: number;
    selectAll: () => Promise<void>;
    clear: () => void;
}) {
    const { devices, sites, total } = props;
    const [work, setWork] = useState<Work>();
    const [moves, setMoves] = useState(false);
    const [tags, setTags] = useState(false);
    return (
        <div class="notice mute">
            <div class="buttons">
                <b>{counted(devices.length, "device")} selected</b>
                {devices.length < total && <Act act={props.selectAll}>Select all {total}</Act>}
                <button onClick={props.clear}>Select none</button>
                <button onClick={() => setMoves(true)}>Move to a site</button>
                <button onClick={() => setTags(true)}>Add a tag</button>
                <button onClick={() => setWork(commandWork("Refresh status", "status_upload"))}>
                    Refresh status
                </button>
                <button
                    class="danger"
                    onClick={() =>
                        setWork(
                            commandWork(
                                "Restart",
                                "reboot_download",
                                undefined,
                                "Their clients lose the network for a while.",
                            ),
                        )
                    }
                >
                    Restart
                </button>
            </div>
            {moves && (
                <Choose
                    title="Move to a site"
                    label="Site"
                    choices={[
                        ["", "No site"],
                        ...sites.map((site) => [String(site.id), site.name] as const),
                    ]}
                    onClose={() => setMoves(false)}
                    onChosen={(value) => {
                        const site = value ? Number(value) : null;
                        setMoves(false);
                        setWork({
                            title: "Move to a site",
                            run: (device) => patchDevice(device, { site }).then(() => "Moved"),
                        });
                    }}
                />
            )}
            {tags && (
                <Choose
                    title="Add a tag"
                    label="Tag"
                    onClose={() => setTags(false)}
                    onChosen={(tag) => {
                        setTags(false);
                        setWork({
                            title: `Add the tag ${tag}`,
                            run: async (device) => {
                                const all = [...new Set([...device.tags, tag])];
                                await patchDevice(device, { tags: all });
                                return "Tagged";
                            },
                        });
                    }}
                />
            )}
            {work && (
                <Progress
                    key={work.title}
                    work={work}
                    devices={devices}
                    onClose={() => setWork(undefined)}
                />
            )}
        </div>
    );
}

function Choose(props: {
    title: string;
    label: string;
    choices?: (readonly [string, string])[];
    onChosen: (value: string) => void;
    onClose: () => void;
}) {
    const [value, setValue] = useState("");
    const submit = (event: Event) => {
        event.preventDefault();
        props.onChosen(value.trim());
    };
    return (
        <Dialog title={props.title} onClose={props.onClose}>
            <form onSubmit={submit}>
                <div class="form">
                    {props.choices ? (
                        <Select
                            label={props.label}
                            value={value}
                            choices={props.choices}
                            onChange={setValue}
                        />
                    ) : (
                        <Text
                            label={props.label}
                            value={value}
                            onText={setValue}
                            required
                            maxLength={64}
                        />
                    )}
                </div>
                <div class="buttons">
                    <button class="main">{props.title}</button>
                    <button type="button" onClick={props.onClose}>
                        Cancel
                    </button>
                </div>
            </form>
        </Dialog>
    );
}

function Progress({
    work,
    devices,
    onClose,
}: {
    work: Work;
    devices: Device[];
    onClose: () => void;
}) {
    const [outcomes, setOutcomes] = useState<Outcome[]>([]);
    const [phase, setPhase] = useState<"asks" | "runs" | "done">("asks");
    const stopped = useRef(false);
    const all = useRef(devices).current;

    const run = async () => {
        setPhase("runs");
        const waiting = [...all];
        const worker = async () => {
            for (
                let device = waiting.shift();
                device && !stopped.current;
                device = waiting.shift()
            ) {
                const ended = device;
                const outcome = await work.run(ended).then(
                    (text): Outcome => ({ device: ended, tone: "good", text }),
                    (error): Outcome => ({ device: ended, tone: "bad", text: error.message }),
                );
                setOutcomes((before) => [...before, outcome]);
            }
        };
        await Promise.all(Array.from({ length: atOnce }, worker));
        setPhase("done");
    };
    const bad = outcomes.filter((outcome) => outcome.tone === "bad");
    return (
        <Dialog
            title={work.title}
            onClose={() => {
                stopped.current = true;
                onClose();
            }}
        >
            {phase === "asks" ? (
                <>
                    <p>
                        {work.title}: {counted(all.length, "device")}. {work.danger}
                    </p>
                    <div class="buttons">
                        <button class={work.danger ? "danger" : "main"} onClick={() => void run()}>
                            {work.title}
                        </button>
                        <button onClick={onClose}>Cancel</button>
                    </div>
                </>
            ) : (
                <>
                    <p role="status">
                        {outcomes.length} of {all.length} ended, {bad.length} not done.
                        {phase === "done" &&
                            outcomes.length < all.length &&
                            " Stopped; the others were not begun."}
                    </p>
                    {bad.length > 0 && (
                        <Table
                            caption="What was not done"
                            rows={bad}
                            id={(outcome) => outcome.device.serial}
                            columns={[
                                {
                                    name: "Device",
                                    cell: ({ device }) => (
                                        <DeviceLink serial={device.serial} name={nameOf(device)} />
                                    ),
                                },
                                {
                                    name: "Outcome",
                                    cell: ({ tone, text }) => <Badge tone={tone}>{text}</Badge>,
                                },
                            ]}
                        />
                    )}
                    <div class="buttons">
                        {phase === "runs" && (
                            <button onClick={() => (stopped.current = true)}>
                                Stop with those not begun
                            </button>
                        )}
                        <button onClick={onClose}>Close</button>
                    </div>
                </>
            )}
        </Dialog>
    );
}
