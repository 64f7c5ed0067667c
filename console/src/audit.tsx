// Who did what and how it ended.
import { Pages } from "./alarms";
import { get } from "./api";
import { useLoaded } from "./load";
import { Badge, Empty, Show, Table, Time } from "./parts";
import { param } from "./router";
import type { AuditEntry } from "./rows";

export function Audit() {
    const cursor = param("cursor");
    const audit = useLoaded(`audit ${cursor}`, (signal) =>
        get("/api/v1/audit", { query: { cursor, limit: 100 }, signal }),
    );
    return (
        <>
            <h1>Audit</h1>
            <Show of={audit}>
                {(page) =>
                    page.items.length === 0 ? (
                        <Empty>Nobody has changed anything yet.</Empty>
                    ) : (
                        <>
                            <Table
                                caption="What people did"
                                rows={page.items as unknown as AuditEntry[]}
                                id={(entry) => entry.id}
                                columns={[
                                    { name: "Time", cell: (entry) => <Time at={entry.at} /> },
                                    {
                                        name: "User",
                                        cell: (entry) => entry.user_name || <i>nobody</i>,
                                    },
                                    {
                                        name: "What",
                                        cell: (entry) => (
                                            <code class="wrap">
                                                {entry.action.split(" ")[0]}{" "}
                                                {entry.target.replace("/api/v1", "")}
                                            </code>
                                        ),
                                    },
                                    {
                                        name: "Detail",
                                        wide: true,
                                        cell: (entry) => <span class="wrap">{entry.detail}</span>,
                                    },
                                    {
                                        name: "Outcome",
                                        cell: (entry) =>
                                            entry.status < 300 ? (
                                                <Badge tone="good">Done</Badge>
                                            ) : (
                                                <Badge tone="bad">Refused, {entry.status}</Badge>
                                            ),
                                    },
                                ]}
                            />
                            <Pages next={page.next_cursor} />
                        </>
                    )
                }
            </Show>
        </>
    );
}
