// How far a device is from its site's configuration, and why.
import { useState } from "preact/hooks";
import { call, Failure, get, may, type Difference, type Overrides } from "./api";
import { useReport, type PartProps } from "./device";
import { valueText } from "./format";
import { useLoaded } from "./load";
import { Act, ConfigBadge, Empty, FailureNotice, sentence, Show, Table, Time } from "./parts";
import { configHints, differenceWords, pathWords } from "./words";

export function DeviceConfig({ device }: PartProps) {
    const config = useReport(device.serial, "config");
    const differences = device.differences ?? [];
    return (
        <>
            <section class="card">
                <h2>
                    <ConfigBadge state={device.config_state} />
                </h2>
                <p>
                    {configHints[device.config_state]}.{" "}
                    {device.config_reason && `${sentence(device.config_reason)}. `}
                    {device.site !== null ? (
                        <a href={`/sites/${device.site}/configuration`}>
                            Configuration of its site
                        </a>
                    ) : (
                        "Move it to a site to have it configured."
                    )}
                </p>
                {differences.length > 0 && (
                    <Table
                        caption="Differences"
                        rows={differences}
                        id={(one: Difference) => one.path}
                        columns={[
                            {
                                name: "What",
                                cell: (one) => <span title={one.path}>{pathWords(one.path)}</span>,
                            },
                            { name: "Wanted", cell: (one) => valueText(one.wanted) },
                            { name: "Found", cell: (one) => valueText(one.found) },
                            { name: "Why", cell: (one) => differenceWords[one.kind] },
                        ]}
                    />
                )}
            </section>
            {device.site !== null && <OverridesCard serial={device.serial} />}
            <section class="card">
                <h2>As the device reported it</h2>
                <Show of={config} missing={<Empty>It was not read from the device yet.</Empty>}>
                    {({ answer, asked_at }) => (
                        <details>
                            <summary>
                                Read <Time at={asked_at} />, without pass phrases
                            </summary>
                            <pre tabIndex={0}>{JSON.stringify(answer, null, 2)}</pre>
                        </details>
                    )}
                </Show>
            </section>
        </>
    );
}

/** What differs for this device from its site, as the document that it is. */
function OverridesCard({ serial }: { serial: string }) {
    const overrides = useLoaded(`overrides ${serial}`, (signal) =>
        get("/api/v1/devices/{serial}/overrides", { path: { serial }, signal }),
    );
    const [text, setText] = useState<string>();
    const [fault, setFault] = useState<Failure>();
    const save = async () => {
        setFault(undefined);
        try {
            const body = JSON.parse(text || "{}") as Overrides;
            await call("put", "/api/v1/devices/{serial}/overrides", { path: { serial }, body });
            setText(undefined);
            overrides.reload();
        } catch (error) {
            const detail = `this is no JSON: ${(error as Error).message}`;
            setFault(error instanceof Failure ? error : new Failure(400, { detail }));
        }
    };
    return (
        <section class="card">
            <h2>Overrides for this device</h2>
            <p class="mute">
                Merged into the configuration of its site: SSIDs by their names, radios by their
                bands.
            </p>
            <Show of={overrides}>
                {(known) => {
                    const shown = JSON.stringify(known, null, 2);
                    return (
                        <>
                            {text === undefined ? (
                                <pre tabIndex={0}>{shown === "{}" ? "none" : shown}</pre>
                            ) : (
                                <textarea
                                    class="mono"
                                    rows={12}
                                    aria-label="Overrides, JSON"
                                    value={text}
                                    spellcheck={false}
                                    onInput={(event) => setText(event.currentTarget.value)}
                                />
                            )}
                            {fault && <FailureNotice failure={fault} />}
                            {may("operator") && (
                                <div class="buttons">
                                    {text === undefined ? (
                                        <button onClick={() => setText(shown)}>Edit</button>
                                    ) : (
                                        <>
                                            <Act main act={save}>
                                                Save
                                            </Act>
                                            <button onClick={() => setText(undefined)}>
                                                Cancel
                                            </button>
                                        </>
                                    )}
                                </div>
                            )}
                        </>
                    );
                }}
            </Show>
        </section>
    );
}
