// All sites, and what describes one besides its configuration.
import { useState } from "preact/hooks";
import { call, Failure, get, may, type ConfigState, type Site } from "./api";
import { useLoaded } from "./load";
import { Badge, Empty, FailureNotice, Select, Show, Table, Text } from "./parts";
import { go } from "./router";
import { configTones, configWords } from "./words";

/** How many devices of a site are in which configuration state, each a link to them. */
export function StateCounts({ site }: { site: Site }) {
    const states = Object.entries(site.config_states ?? {}).filter(([, count]) => count > 0);
    if (states.length === 0) return <span class="mute">no devices</span>;
    return (
        <span class="buttons">
            {states.map(([state, count]) => (
                <a key={state} href={`/devices?site=${site.id}&config_state=${state}`}>
                    <Badge tone={configTones[state as ConfigState]}>
                        {count} {configWords[state as ConfigState].toLowerCase()}
                    </Badge>
                </a>
            ))}
        </span>
    );
}

export function Sites() {
    const sites = useLoaded(
        "all sites",
        (signal) => get("/api/v1/sites", { signal }),
        (happening) => ["config_state", "device"].includes(happening.type),
    );
    return (
        <>
            <div class="head">
                <h1>Sites</h1>
                {may("operator") && (
                    <a class="button main" href="/sites/new">
                        New site
                    </a>
                )}
            </div>
            <Show of={sites}>
                {({ items }) =>
                    items.length === 0 ? (
                        <Empty>
                            No sites. A site says what its devices shall be: SSIDs, radios, restart
                            schedule.
                        </Empty>
                    ) : (
                        <Table
                            caption="Sites"
                            rows={items}
                            id={(site) => site.id ?? 0}
                            columns={[
                                {
                                    name: "Name",
                                    cell: (site) => (
                                        <a class="wrap" href={`/sites/${site.id}`}>
                                            {site.name}
                                        </a>
                                    ),
                                },
                                {
                                    name: "Devices",
                                    number: true,
                                    cell: (site) => (
                                        <a href={`/devices?site=${site.id}`}>{site.devices}</a>
                                    ),
                                },
                                {
                                    name: "Configuration",
                                    cell: (site) => <StateCounts site={site} />,
                                },
                                {
                                    name: "Version",
                                    number: true,
                                    wide: true,
                                    cell: (site) => site.configuration_version || "none",
                                },
                                {
                                    name: "Time zone",
                                    wide: true,
                                    cell: (site) => `UTC${site.time_zone}`,
                                },
                            ]}
                        />
                    )
                }
            </Show>
        </>
    );
}

const bindWords = [
    ["unbound", "Bind devices that are bound to nobody"],
    ["always", "Bind all, also those bound elsewhere"],
    ["never", "Bind none"],
] as const;

const driftWords = [
    ["show", "Show what was changed on a device"],
    ["force", "Force the site's configuration back"],
] as const;

export function SiteForm(props: {
    site: Site;
    save: (site: Site) => Promise<void>;
    action: string;
}) {
    const [site, setSite] = useState(props.site);
    const [failure, setFailure] = useState<Failure>();
    const [saved, setSaved] = useState(false);
    const set = (changes: Partial<Site>) => {
        setSite({ ...site, ...changes });
        setSaved(false);
    };
    const fault = (name: string) =>
        failure?.problem.problems?.find(({ field }) => field === `/${name}`)?.detail ??
        (failure?.problem.field === `/${name}` ? failure.message : undefined);
    const submit = async (event: Event) => {
        event.preventDefault();
        setFailure(undefined);
        try {
            await props.save(site);
            setSaved(true);
        } catch (error) {
            setFailure(error as Failure);
        }
    };
    const policies = { bind: "unbound", drift: "show", ...site.policies } as const;
    return (
        <form onSubmit={submit}>
            <fieldset>
                <legend>Site</legend>
                <div class="form">
                    <Text
                        label="Name"
                        value={site.name}
                        onText={(name) => set({ name })}
                        fault={fault("name")}
                        required
                        maxLength={64}
                    />
                    <Text
                        label="Time zone"
                        hint="Hours from UTC, such as +8 or +5.5; the devices' schedules follow it"
                        value={site.time_zone ?? "+8"}
                        onText={(time_zone) => set({ time_zone })}
                        fault={fault("time_zone")}
                        required
                    />
                    <Text
                        label="Region"
                        hint="Number of the devices' region table"
                        type="number"
                        min={0}
                        max={999}
                        value={String(site.region ?? 38)}
                        onText={(text) => set({ region: Number(text) })}
                        fault={fault("region")}
                    />
                </div>
            </fieldset>
            <fieldset>
                <legend>Binding</legend>
                <div class="form">
                    <Text
                        label="Project"
                        hint="A number of at most 7 digits, the same for all devices of the site"
                        type="number"
                        min={0}
                        max={9999999}
                        value={String(site.project_id)}
                        onText={(text) => set({ project_id: Number(text) })}
                        fault={fault("project_id")}
                        required
                    />
                    <Text
                        label="Account"
                        value={site.cloud_id}
                        onText={(cloud_id) => set({ cloud_id })}
                        fault={fault("cloud_id")}
                        required
                        maxLength={63}
                    />
                    <Select
                        label="Binding policy"
                        value={policies.bind}
                        choices={bindWords}
                        onChange={(bind) =>
                            set({ policies: { ...policies, bind: bind as "never" } })
                        }
                    />
                    <Select
                        label="Drift policy"
                        value={policies.drift}
                        choices={driftWords}
                        onChange={(drift) =>
                            set({ policies: { ...policies, drift: drift as "show" } })
                        }
                    />
                </div>
            </fieldset>
            {failure && <FailureNotice failure={failure} />}
            <div class="buttons">
                {may("operator") && <button class="main">{props.action}</button>}
                <span role="status">{saved && "Saved."}</span>
            </div>
        </form>
    );
}

/** What a client may send of a site: not its figures. */
export function siteBody(site: Site) {
    const { name, time_zone, region, project_id, cloud_id, policies } = site;
    return { name, time_zone, region, project_id, cloud_id, policies };
}

export function NewSite() {
    const save = async (site: Site) => {
        const { data } = await call("post", "/api/v1/sites", { body: siteBody(site) });
        go(`/sites/${data.id}/configuration`);
    };
    return (
        <>
            <h1>New site</h1>
            <SiteForm
                site={{
                    name: "",
                    time_zone: zoneHere(),
                    region: 38,
                    project_id: 1,
                    cloud_id: "norvex",
                }}
                save={save}
                action="Make the site"
            />
        </>
    );
}

/** The reader's own offset from UTC: the likeliest one of a new site. */
function zoneHere() {
    const hours = -new Date().getTimezoneOffset() / 60;
    return `${hours < 0 ? "" : "+"}${hours}`;
}
