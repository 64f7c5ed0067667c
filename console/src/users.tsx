// Users and tokens.
import { useState } from "preact/hooks";
import { call, Failure, get, me, type Role } from "./api";
import { useLoaded } from "./load";
import {
    Act,
    Dialog,
    Empty,
    FailureNotice,
    Notice,
    Select,
    Show,
    Table,
    Text,
    Time,
} from "./parts";
import type { Token } from "./rows";

const roles: readonly (readonly [Role, string])[] = [
    ["viewer", "Viewer: sees everything but secrets"],
    ["operator", "Operator: acts and edits sites"],
    ["admin", "Admin: users and tokens, too"],
];

interface User {
    name: string;
    role: Role;
}

export function Users() {
    const users = useLoaded("users", (signal) => get("/api/v1/users", { signal }));
    const tokens = useLoaded("tokens", (signal) => get("/api/v1/tokens", { signal }));
    const [edits, setEdits] = useState<User | "new">();
    const [makes, setMakes] = useState(false);
    const removeUser = async (name: string) => {
        await call("delete", "/api/v1/users/{name}", { path: { name } });
        users.reload();
    };
    const removeToken = async (id: string) => {
        await call("delete", "/api/v1/tokens/{id}", { path: { id } });
        tokens.reload();
    };
    return (
        <>
            <h1>Users</h1>
            <Show of={users}>
                {({ items }) => (
                    <Table
                        caption="Users"
                        rows={items as unknown as User[]}
                        id={(user) => user.name}
                        columns={[
                            { name: "Name", cell: (user) => <span class="wrap">{user.name}</span> },
                            { name: "Role", cell: (user) => user.role },
                            {
                                name: "Actions",
                                cell: (user) => (
                                    <span class="act">
                                        <button onClick={() => setEdits(user)}>Change</button>
                                        <Act
                                            danger
                                            disabled={user.name === me.value?.user}
                                            ask={{
                                                title: `Remove ${user.name}?`,
                                                text: "Sessions and tokens of this user end at once.",
                                            }}
                                            act={() => removeUser(user.name)}
                                        >
                                            Remove
                                        </Act>
                                    </span>
                                ),
                            },
                        ]}
                    />
                )}
            </Show>
            <button class="main" onClick={() => setEdits("new")}>
                Add a user
            </button>
            <h2 class="apart">Tokens of scripts</h2>
            <Show of={tokens}>
                {({ items }) =>
                    items.length === 0 ? (
                        <Empty>No tokens. A script sends one as “Authorization: Bearer”.</Empty>
                    ) : (
                        <Table
                            caption="Tokens"
                            rows={items as unknown as Token[]}
                            id={(token) => token.id}
                            columns={[
                                { name: "Name", cell: (token) => token.name },
                                { name: "Role", cell: (token) => token.role },
                                { name: "Made by", cell: (token) => token.user_name },
                                {
                                    name: "Made",
                                    wide: true,
                                    cell: (token) => <Time at={token.made_at} />,
                                },
                                { name: "Ends", cell: (token) => <Time at={token.expires_at} /> },
                                {
                                    name: "Actions",
                                    cell: (token) => (
                                        <Act
                                            danger
                                            ask={{
                                                title: `End ${token.name}?`,
                                                text: "Scripts that use it are refused then.",
                                            }}
                                            act={() => removeToken(token.id)}
                                        >
                                            End
                                        </Act>
                                    ),
                                },
                            ]}
                        />
                    )
                }
            </Show>
            <button onClick={() => setMakes(true)}>Make a token</button>
            {edits && (
                <UserDialog
                    user={edits === "new" ? undefined : edits}
                    onClose={() => {
                        setEdits(undefined);
                        users.reload();
                    }}
                />
            )}
            {makes && (
                <TokenDialog
                    onClose={() => {
                        setMakes(false);
                        tokens.reload();
                    }}
                />
            )}
        </>
    );
}

function UserDialog({ user, onClose }: { user?: User; onClose: () => void }) {
    const [name, setName] = useState(user?.name ?? "");
    const [role, setRole] = useState<string>(user?.role ?? "viewer");
    const [password, setPassword] = useState("");
    const [failure, setFailure] = useState<Failure>();
    const submit = async (event: Event) => {
        event.preventDefault();
        try {
            await call("post", "/api/v1/users", { body: { name, role, password } });
            onClose();
        } catch (error) {
            setFailure(error as Failure);
        }
    };
    return (
        <Dialog title={user ? `Change ${user.name}` : "Add a user"} onClose={onClose}>
            <form onSubmit={submit}>
                <div class="form">
                    <Text
                        label="Name"
                        value={name}
                        onText={setName}
                        disabled={!!user}
                        required
                        maxLength={64}
                    />
                    <Select label="Role" value={role} choices={roles} onChange={setRole} />
                    <Text
                        label="New password"
                        hint={
                            user
                                ? "At least 8 characters; ends the user's sessions"
                                : "At least 8 characters"
                        }
                        type="password"
                        value={password}
                        onText={setPassword}
                        required
                        minLength={8}
                        autocomplete="new-password"
                    />
                </div>
                {failure && <FailureNotice failure={failure} />}
                <div class="buttons">
                    <button class="main">{user ? "Change" : "Add"}</button>
                    <button type="button" onClick={onClose}>
                        Cancel
                    </button>
                </div>
            </form>
        </Dialog>
    );
}

function TokenDialog({ onClose }: { onClose: () => void }) {
    const [name, setName] = useState("");
    const [role, setRole] = useState("viewer");
    const [days, setDays] = useState("90");
    const [failure, setFailure] = useState<Failure>();
    const [token, setToken] = useState("");
    const submit = async (event: Event) => {
        event.preventDefault();
        try {
            const body = { name, role, ...(days ? { days: Number(days) } : {}) };
            setToken((await call("post", "/api/v1/tokens", { body })).data.token);
        } catch (error) {
            setFailure(error as Failure);
        }
    };
    if (token) {
        return (
            <Dialog title="The token" onClose={onClose}>
                <Notice tone="warn">Keep it now: it is not shown again.</Notice>
                <pre>{token}</pre>
                <button onClick={onClose}>Close</button>
            </Dialog>
        );
    }
    return (
        <Dialog title="Make a token" onClose={onClose}>
            <form onSubmit={submit}>
                <div class="form">
                    <Text label="Name" value={name} onText={setName} required maxLength={64} />
                    <Select label="Role" value={role} choices={roles} onChange={setRole} />
                    <Text
                        label="Days"
                        hint="Empty: it does not end by itself"
                        type="number"
                        min={1}
                        max={3650}
                        value={days}
                        onText={setDays}
                    />
                </div>
                {failure && <FailureNotice failure={failure} />}
                <div class="buttons">
                    <button class="main">Make</button>
                    <button type="button" onClick={onClose}>
                        Cancel
                    </button>
                </div>
            </form>
        </Dialog>
    );
}
