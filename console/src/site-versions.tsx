// Every version of a site's configuration, and the way back to one.
import { useState } from "preact/hooks";
import { call, get, may } from "./api";
import type { Changed } from "./draft";
import { useLoaded } from "./load";
import { Act, Dialog, Empty, Show, Table, Time } from "./parts";
import { Preview } from "./site-config";

interface Version {
    version: number;
    made_at: number;
    made_by: string;
}

export function Versions({ id, current }: { id: number; current: number }) {
    const path = { id };
    const versions = useLoaded(`versions ${id} ${current}`, (signal) =>
        get("/api/v1/sites/{id}/configuration/versions", { path, signal }),
    );
    const [shown, setShown] = useState<{ version: number; text: string }>();
    const [preview, setPreview] = useState<{ version: number; items: Changed[]; etag: string }>();

    const read = (version: number) =>
        get("/api/v1/sites/{id}/configuration", { path, query: { version } });
    const look = async (version: number) =>
        setShown({ version, text: JSON.stringify(await read(version), null, 2) });
    const ask = async (version: number) => {
        // What is applied then must still be what the preview was compared with.
        const { etag } = await call("get", "/api/v1/sites/{id}/configuration", { path });

        const { data } = await call("post", "/api/v1/sites/{id}/configuration/preview", {
            path,
            query: { version },
        });
        setPreview({ version, items: data.items, etag });
    };
    const rollBack = async () => {
        const { version, etag } = preview!;
        await call("post", "/api/v1/sites/{id}/configuration/rollback", {
            path,
            body: { version },
            etag,
        });
        setPreview(undefined);
        versions.reload();
    };
    return (
        <>
            <Show of={versions}>
                {({ items }) =>
                    items.length === 0 ? (
                        <Empty>Nothing was applied yet.</Empty>
                    ) : (
                        <Table
                            caption="Versions, newest first"
                            rows={items as unknown as Version[]}
                            id={(row) => row.version}
                            columns={[
                                { name: "Version", number: true, cell: (row) => row.version },
                                { name: "Applied", cell: (row) => <Time at={row.made_at} /> },
                                { name: "By", cell: (row) => row.made_by },
                                {
                                    name: "Actions",
                                    cell: (row) => (
                                        <span class="act">
                                            <Act act={() => look(row.version)}>Show</Act>
                                            {may("operator") &&
                                                row.version !== items[0]?.version && (
                                                    <Act act={() => ask(row.version)}>
                                                        Bring back
                                                    </Act>
                                                )}
                                        </span>
                                    ),
                                },
                            ]}
                        />
                    )
                }
            </Show>
            {shown && (
                <Dialog title={`Version ${shown.version}`} onClose={() => setShown(undefined)}>
                    <pre tabIndex={0}>{shown.text}</pre>
                    <button onClick={() => setShown(undefined)}>Close</button>
                </Dialog>
            )}
            {preview && (
                <Preview
                    title={`What version ${preview.version} changes`}
                    items={preview.items}
                    apply={rollBack}
                    onClose={() => setPreview(undefined)}
                />
            )}
        </>
    );
}
