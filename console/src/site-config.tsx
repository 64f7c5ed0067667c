// SSIDs, radios and restarts of a site: draft, preview, apply.
import { useState } from "preact/hooks";
import { call, Failure, may, type Configuration, type Ssid } from "./api";
import {
    bands,
    effects,
    faults,
    grouped,
    newConfiguration,
    newSsid,
    sent,
    type Changed,
} from "./draft";
import { counted, valueText } from "./format";
import { useLoaded } from "./load";
import {
    Act,
    DeviceLink,
    Dialog,
    Empty,
    FailureNotice,
    nameOf,
    Notice,
    Show,
    Table,
} from "./parts";
import { RadioForm, RebootForm, SsidForm } from "./site-forms";
import { pathWords } from "./words";

interface Draft {
    etag: string; // of the version that it began with
    configuration: Configuration;
}

// Drafts outlive their view, so that a look elsewhere loses nothing; by the sites' ids.
const drafts = new Map<number, Draft>();

addEventListener("beforeunload", (event) => {
    if (drafts.size > 0) event.preventDefault();
});

export function SiteConfiguration({ id, applied }: { id: number; applied: () => void }) {
    const found = useLoaded(`configuration ${id}`, (signal) =>
        call("get", "/api/v1/sites/{id}/configuration", { path: { id }, signal }).catch(
            (failure) => {
                if (failure.status !== 404) throw failure;
                return { data: null, etag: "" }; // never configured
            },
        ),
    );
    return (
        <Show of={found}>
            {({ data, etag }) => (
                <Editor
                    key={etag}
                    id={id}
                    stored={{ etag, configuration: data ?? newConfiguration() }}
                    isNew={!data}
                    applied={() => {
                        found.reload();
                        applied();
                    }}
                />
            )}
        </Show>
    );
}

function Editor(props: { id: number; stored: Draft; isNew: boolean; applied: () => void }) {
    const { id, stored, isNew, applied } = props;
    const [draft, setDraft] = useState(drafts.get(id));
    const [preview, setPreview] = useState<Changed[]>();
    const [failure, setFailure] = useState<Failure>();
    const shown = draft ?? stored;
    const { configuration } = shown;
    const wrong = draft ? faults(configuration) : {};
    const outdated = !!draft && draft.etag !== stored.etag;
    const edits = may("operator");

    const set = (changes: Partial<Configuration>) => {
        const next = { ...shown, configuration: { ...configuration, ...changes } };
        drafts.set(id, next);
        setDraft(next);
    };
    const discard = () => {
        drafts.delete(id);
        setDraft(undefined);
        setFailure(undefined);
    };
    const showPreview = async () => {
        setFailure(undefined);
        try {
            const { data } = await call("post", "/api/v1/sites/{id}/configuration/preview", {
                path: { id },
                body: sent(configuration),
            });
            setPreview(data.items);
        } catch (error) {
            setFailure(error as Failure);
        }
    };
    const apply = async () => {
        await call("put", "/api/v1/sites/{id}/configuration", {
            path: { id },
            body: sent(configuration),
            etag: shown.etag,
        });
        setPreview(undefined);
        discard();
        applied();
    };
    const setSsid = (at: number, ssid: Ssid | null) => {
        const ssids = [...(configuration.ssids ?? [])];
        if (ssid) ssids[at] = ssid;
        else ssids.splice(at, 1);
        set({ ssids });
    };

    return (
        <>
            {isNew && !draft && (
                <Notice tone="mute">
                    This site has no configuration yet: its devices stay as they are.
                </Notice>
            )}
            {outdated && (
                <Notice tone="warn">
                    Somebody applied another version since this draft was begun.{" "}
                    <button onClick={discard}>Discard the draft</button>
                </Notice>
            )}
            <fieldset disabled={!edits} class="group">
                <h2>SSIDs</h2>
                {(configuration.ssids ?? []).length === 0 && (
                    <Empty>No SSIDs: all are switched off.</Empty>
                )}
                {(configuration.ssids ?? []).map((ssid, i) => (
                    <SsidForm
                        key={i}
                        ssid={ssid}
                        fault={(name) => wrong[`/ssids/${i}/${name}`]}
                        onChange={(next) => setSsid(i, next)}
                    />
                ))}
                {wrong["/ssids"] && <Notice tone="bad">{wrong["/ssids"]}</Notice>}
                {edits && (
                    <p>
                        <button
                            onClick={() =>
                                set({ ssids: [...(configuration.ssids ?? []), newSsid()] })
                            }
                        >
                            Add an SSID
                        </button>
                    </p>
                )}
                <h2>Radios</h2>
                <div class="cards">
                    {bands.map((band) => (
                        <RadioForm
                            key={band}
                            band={band}
                            radio={configuration.radios?.[band] ?? {}}
                            onChange={(radio) =>
                                set({ radios: { ...configuration.radios, [band]: radio } })
                            }
                        />
                    ))}
                </div>
                <h2>Scheduled restart</h2>
                <RebootForm
                    reboot={configuration.reboot ?? null}
                    fault={wrong["/reboot/days"]}
                    onChange={(reboot) => set({ reboot })}
                />
            </fieldset>
            {failure && <FailureNotice failure={failure} />}
            {edits && (
                <div class="buttons sticky">
                    <Act
                        main
                        disabled={!draft || outdated || Object.keys(wrong).length > 0}
                        act={showPreview}
                    >
                        Preview the change
                    </Act>
                    <button disabled={!draft} onClick={discard}>
                        Discard
                    </button>
                    <span class="mute" role="status">
                        {draft ? "Not applied yet." : ""}
                    </span>
                </div>
            )}
            {preview && (
                <Preview items={preview} apply={apply} onClose={() => setPreview(undefined)} />
            )}
        </>
    );
}

export function Preview(props: {
    title?: string;
    items: Changed[];
    apply: () => Promise<void>;
    onClose: () => void;
}) {
    const { items, apply, onClose } = props;
    const changed = items.filter((item) => item.changes.length > 0 || item.problem);
    const away = changed.filter((item) => item.state !== "online").length;
    // The dialog shows one state of things; devices that change meanwhile do not move it.
    const [groups] = useState(() => grouped(changed));
    return (
        <Dialog title={props.title ?? "What changes"} onClose={onClose}>
            <p>
                {items.length === 0
                    ? "The site has no devices yet. The configuration waits for them."
                    : changed.length === 0
                      ? `Nothing changes on the ${counted(items.length, "device")} of this site.`
                      : `${counted(changed.length, "device")} of ${items.length} change.`}
                {away > 0 && ` ${counted(away, "device")} not online follow when they are back.`}
            </p>
            {groups.map((group, i) => (
                <PreviewGroup key={i} group={group} />
            ))}
            <div class="buttons">
                <Act main act={apply}>
                    Apply
                </Act>
                <button onClick={onClose}>Cancel</button>
            </div>
        </Dialog>
    );
}

const mostNamed = 5;

function PreviewGroup({ group }: { group: Changed[] }) {
    const { changes, problem } = group[0]!;
    return (
        <section>
            <h3>
                {group.slice(0, mostNamed).map((item, i) => (
                    <span key={item.serial}>
                        {i > 0 && ", "}
                        <DeviceLink serial={item.serial} name={nameOf({ name: "", ...item })} />
                    </span>
                ))}
                {group.length > mostNamed && ` and ${group.length - mostNamed} others`}
            </h3>
            {problem ? (
                <Notice tone="bad">Does not fit: {problem}</Notice>
            ) : (
                <p>{effects(changes)}</p>
            )}
            <Table
                caption="Changes"
                rows={changes}
                id={(change) => change.path}
                columns={[
                    { name: "What", cell: (change) => pathWords(change.path) },
                    { name: "Before", cell: (change) => valueText(change.before) },
                    { name: "After", cell: (change) => valueText(change.after) },
                ]}
            />
        </section>
    );
}
