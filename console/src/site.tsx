// One site: its state, its configuration, the picture of it.
import { useState } from "preact/hooks";
import { call, get, may, type Device, type Site } from "./api";
import { counted } from "./format";
import { useLoaded, type Loaded } from "./load";
import {
    Act,
    ConfigBadge,
    DeviceLink,
    Empty,
    nameOf,
    Show,
    StateBadge,
    Table,
    Tabs,
} from "./parts";
import { go } from "./router";
import { SiteConfiguration } from "./site-config";
import { siteBody, SiteForm, StateCounts } from "./sites";
import { Versions } from "./site-versions";
import { Topology } from "./topology";

const tabs = [
    ["", "State"],
    ["configuration", "Configuration"],
    ["versions", "Versions"],
    ["topology", "Topology"],
    ["settings", "Settings"],
] as const;

export function SitePage({ id, part }: { id: number; part: string }) {
    const site = useLoaded(
        `site ${id}`,
        (signal) => call("get", "/api/v1/sites/{id}", { path: { id }, signal }),
        (happening) => ["config_state", "device"].includes(happening.type),
    );
    const href = (name: string) => `/sites/${id}${name ? `/${name}` : ""}`;
    return (
        <Show of={site}>
            {({ data, etag }) => (
                <>
                    <div class="head">
                        <h1>{data.name}</h1>
                        <StateCounts site={data} />
                    </div>
                    <Tabs
                        label="Parts of the site"
                        at={href(part)}
                        tabs={tabs.map(([name, text]) => [href(name), text] as const)}
                    />
                    {part === "" && <State id={id} />}
                    {part === "configuration" && (
                        <SiteConfiguration id={id} applied={site.reload} />
                    )}
                    {part === "versions" && (
                        <Versions id={id} current={data.configuration_version ?? 0} />
                    )}
                    {part === "topology" && <Topology site={id} />}
                    {part === "settings" && (
                        <Settings id={id} site={data} etag={etag} page={site} />
                    )}
                    {!tabs.some(([name]) => name === part) && <p>There is no such part.</p>}
                </>
            )}
        </Show>
    );
}

const mostShown = 200;

/** Its devices, those first of which something is to be done. */
function State({ id }: { id: number }) {
    const devices = useLoaded(
        `devices of ${id}`,
        (signal) =>
            get("/api/v1/devices", {
                query: { site: id, sort: "config_state", limit: mostShown },
                signal,
            }),
        (happening) => ["presence", "config_state", "device"].includes(happening.type),
    );
    return (
        <Show of={devices}>
            {({ items, total }) =>
                items.length === 0 ? (
                    <Empty>
                        No devices. <a href="/devices?site=none">Choose some that have no site</a>
                    </Empty>
                ) : (
                    <>
                        <p>
                            <a href={`/devices?site=${id}`}>{counted(total, "device")}</a>
                            {total > items.length &&
                                `, the first ${items.length} by configuration state:`}
                        </p>
                        <Table
                            caption="Devices of the site"
                            rows={items}
                            id={(device: Device) => device.serial}
                            columns={[
                                {
                                    name: "Device",
                                    cell: (device) => (
                                        <DeviceLink serial={device.serial} name={nameOf(device)} />
                                    ),
                                },
                                {
                                    name: "Presence",
                                    cell: (device) => (
                                        <StateBadge
                                            state={device.state}
                                            since={device.state_since}
                                        />
                                    ),
                                },
                                {
                                    name: "Configuration",
                                    cell: (device) => (
                                        <a
                                            href={`/devices/${encodeURIComponent(device.serial)}/config`}
                                        >
                                            <ConfigBadge state={device.config_state} />
                                        </a>
                                    ),
                                },
                                { name: "Model", wide: true, cell: (device) => device.model },
                            ]}
                        />
                    </>
                )
            }
        </Show>
    );
}

function Settings(props: { id: number; site: Site; etag: string; page: Loaded<unknown> }) {
    const { id, site, page } = props;
    // What is edited is what was there when the form opened; a newer version refuses it.
    const [etag, setEtag] = useState(props.etag);
    const save = async (changed: Site) => {
        const answer = await call("put", "/api/v1/sites/{id}", {
            path: { id },
            body: siteBody(changed),
            etag,
        });
        setEtag(answer.etag);
        page.reload();
    };
    return (
        <>
            <SiteForm site={site} save={save} action="Save" />
            {may("operator") && (
                <p class="apart">
                    <Act
                        danger
                        disabled={!!site.devices}
                        ask={{
                            title: `Remove ${site.name}?`,
                            text: "The site and all versions of its configuration are removed.",
                        }}
                        act={async () => {
                            await call("delete", "/api/v1/sites/{id}", { path: { id } });
                            go("/sites");
                        }}
                    >
                        Remove the site
                    </Act>{" "}
                    {!!site.devices && (
                        <span class="mute">It still has {counted(site.devices, "device")}.</span>
                    )}
                </p>
            )}
        </>
    );
}
