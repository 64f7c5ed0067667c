// For experts: any command of the agent, with a form made from its members, and its answer.
import { useState } from "preact/hooks";
import reference from "../../tools/commands.json";
import { Pages } from "./alarms";
import { call, get, may, type Command, type Failure } from "./api";
import { exampleText, type CommandEntry } from "./commands";
import { CommandForm } from "./command-form";
import type { PartProps } from "./device";
import { useLoaded } from "./load";
import { Act, Badge, Empty, FailureNotice, Field, Show, Table, Time } from "./parts";
import { go, param, withParams } from "./router";
import { commandWords, type Tone } from "./words";

const commands = (reference as unknown as { commands: CommandEntry[] }).commands;

const tones: Record<Command["state"], Tone> = {
    queued: "busy",
    sent: "busy",
    answered: "good",
    refused: "bad",
    offline: "bad",
    unknown: "mute",
    cancelled: "mute",
};

const tone = (command: Command): Tone =>
    command.state === "answered" && command.resp_code ? "bad" : tones[command.state];

export function Commands({ device }: PartProps) {
    const cursor = param("cursor");
    const history = useLoaded(
        `commands ${device.serial} ${cursor}`,
        (signal) =>
            get("/api/v1/devices/{serial}/commands", {
                path: { serial: device.serial },
                query: { limit: 20, cursor },
                signal,
            }),
        (happening) => happening.type === "command" && happening.serial === device.serial,
    );
    return (
        <>
            {may("operator") && <Order device={device} done={history.reload} />}
            <section class="card">
                <h2>History</h2>
                <Show of={history}>
                    {(page) =>
                        page.items.length === 0 ? (
                            <Empty>Nobody has ordered a command yet.</Empty>
                        ) : (
                            <>
                                <Table
                                    caption="Commands, newest first"
                                    rows={page.items as unknown as Command[]}
                                    id={(row) => row.id}
                                    columns={[
                                        {
                                            name: "Ordered",
                                            cell: (row) => <Time at={row.ordered_at} />,
                                        },
                                        {
                                            name: "Command",
                                            cell: (row) => <code>{row.command}</code>,
                                        },
                                        { name: "By", cell: (row) => row.ordered_by },
                                        {
                                            name: "Outcome",
                                            cell: (row) => (
                                                <Outcome row={row} serial={device.serial} />
                                            ),
                                        },
                                        {
                                            name: "Took",
                                            wide: true,
                                            number: true,
                                            cell: (row) =>
                                                row.duration_ms == null
                                                    ? "–"
                                                    : `${Math.round(row.duration_ms)} ms`,
                                        },
                                        {
                                            name: "Request and answer",
                                            wide: true,
                                            cell: (row) => (
                                                <details>
                                                    <summary>Show</summary>
                                                    <pre tabIndex={0}>
                                                        {JSON.stringify(
                                                            {
                                                                request: row.request,
                                                                answer: row.answer,
                                                            },
                                                            null,
                                                            2,
                                                        )}
                                                    </pre>
                                                </details>
                                            ),
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

function Outcome({ row, serial }: { row: Command; serial: string }) {
    const cancel = () =>
        call("delete", "/api/v1/devices/{serial}/commands/{id}", { path: { serial, id: row.id } });
    return (
        <span class="act">
            <Badge tone={tone(row)}>
                {commandWords[row.state]}
                {row.resp_code ? `: ${row.resp_code}` : ""}
            </Badge>
            {row.state === "queued" && may("operator") && <Act act={cancel}>Take back</Act>}
        </span>
    );
}

function Order({ device, done }: PartProps & { done: () => void }) {
    const name = param("command") || "status_upload";
    const command = commands.find((one) => one.name === name) ?? commands[0]!;
    return (
        <section class="card">
            <h2>Order a command</h2>
            <div class="form">
                <Field label="Command" hint={command.does}>
                    {(attributes) => (
                        <select
                            {...attributes}
                            value={command.name}
                            onChange={(event) =>
                                go(withParams({ command: event.currentTarget.value }), true)
                            }
                        >
                            {[...new Set(commands.map((one) => one.family))].map((family) => (
                                <optgroup key={family} label={family}>
                                    {commands
                                        .filter((one) => one.family === family)
                                        .map((one) => (
                                            <option key={one.name}>{one.name}</option>
                                        ))}
                                </optgroup>
                            ))}
                        </select>
                    )}
                </Field>
            </div>
            <Request key={command.name} command={command} device={device} done={done} />
        </section>
    );
}

function Request(props: PartProps & { command: CommandEntry; done: () => void }) {
    const { command, device, done } = props;
    const [text, setText] = useState(exampleText(command));
    const [answer, setAnswer] = useState<Command>();
    const [failure, setFailure] = useState<Failure>();
    const offline = device.state !== "online";
    const send = async () => {
        setAnswer(undefined);
        setFailure(undefined);
        const request = requestOf(command, text);
        try {
            const { data } = await call("post", "/api/v1/devices/{serial}/commands", {
                path: { serial: device.serial },
                body: {
                    command: command.name,
                    ...(request === undefined ? {} : { request }),
                    queue: offline,
                },
            });
            setAnswer(data);
        } catch (error) {
            setFailure(error as Failure);
        }
        done();
    };
    return (
        <>
            {command.fails_when && (
                <p class="mute">Fails when {command.fails_when.replaceAll("`", "")}.</p>
            )}
            {command.request && <CommandForm command={command} text={text} onText={setText} />}
            <Act main act={send}>
                {offline ? "Send when it is back" : "Send"}
            </Act>
            {failure && <FailureNotice failure={failure} />}
            {answer && (
                <>
                    <h3>
                        Answer{" "}
                        <Badge tone={tone(answer)}>
                            {commandWords[answer.state]}
                            {answer.resp_code ? `: ${answer.resp_code}` : ""}
                        </Badge>
                    </h3>
                    <pre tabIndex={0}>{JSON.stringify(answer.answer, null, 2)}</pre>
                </>
            )}
        </>
    );
}

function requestOf(command: CommandEntry, text: string): unknown {
    if (!command.request) return undefined;
    if (command.request.type === "string") return text;
    return text.trim() ? JSON.parse(text) : undefined;
}
