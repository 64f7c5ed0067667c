// The shell around every view: who is signed in, where one can go, whether the page is live.
import { render, type ComponentChildren } from "preact";
import { useEffect, useErrorBoundary, useState } from "preact/hooks";
import { Alarms } from "./alarms";
import { call, Failure, get, may, me, type Role } from "./api";
import { Audit } from "./audit";
import { Clients } from "./clients";
import { DevicePage } from "./device";
import { Devices } from "./devices";
import { link, startEvents } from "./events";
import { Overview } from "./overview";
import { FailureNotice, Notice, Text, Time } from "./parts";
import { place } from "./router";
import { SitePage } from "./site";
import { NewSite, Sites } from "./sites";
import { Users } from "./users";
import "uplot/dist/uPlot.min.css";
import "./style.css";

interface View {
    path: RegExp;
    title: string;
    menu?: string; // where it stands in the navigation
    role?: Role;
    show: (parts: string[]) => ComponentChildren;
}

const views: View[] = [
    { path: /^\/$/, title: "Overview", menu: "/", show: () => <Overview /> },
    { path: /^\/devices$/, title: "Devices", menu: "/devices", show: () => <Devices /> },
    {
        path: /^\/devices\/([^/]+)(?:\/(\w+))?$/,
        title: "Device",
        show: ([serial = "", part = ""]) => <DevicePage key={serial} serial={serial} part={part} />,
    },
    { path: /^\/sites$/, title: "Sites", menu: "/sites", show: () => <Sites /> },
    { path: /^\/sites\/new$/, title: "New site", role: "operator", show: () => <NewSite /> },
    {
        path: /^\/sites\/(\d+)(?:\/(\w+))?$/,
        title: "Site",
        show: ([id = "", part = ""]) => <SitePage key={id} id={Number(id)} part={part} />,
    },
    { path: /^\/clients$/, title: "Clients", menu: "/clients", show: () => <Clients /> },
    { path: /^\/alarms$/, title: "Alarms", menu: "/alarms", show: () => <Alarms /> },
    { path: /^\/audit$/, title: "Audit", menu: "/audit", role: "admin", show: () => <Audit /> },
    { path: /^\/users$/, title: "Users", menu: "/users", role: "admin", show: () => <Users /> },
];

function SignIn() {
    const [user, setUser] = useState("");
    const [password, setPassword] = useState("");
    const [failure, setFailure] = useState<Failure>();
    const [busy, setBusy] = useState(false);
    useEffect(() => void (document.title = "Sign in · norvex"), []);
    const submit = async (event: Event) => {
        event.preventDefault();
        setBusy(true);
        try {
            await call("post", "/api/v1/session", { body: { user, password } });
            await whoAmI();
        } catch (error) {
            setFailure(error as Failure);
        }
        setBusy(false);
    };
    return (
        <main class="sign-in" tabIndex={-1}>
            <form onSubmit={submit}>
                <h1>norvex</h1>
                <Text
                    label="User"
                    value={user}
                    onText={setUser}
                    autocomplete="username"
                    required
                    autofocus
                />
                <Text
                    label="Password"
                    type="password"
                    value={password}
                    onText={setPassword}
                    autocomplete="current-password"
                    required
                />
                {failure && <FailureNotice failure={failure} />}
                <button class="main" disabled={busy}>
                    Sign in
                </button>
            </form>
        </main>
    );
}

async function whoAmI() {
    const found = await get("/api/v1/me");
    me.value = { user: found.user ?? "", role: found.role as Role };
}

async function signOut() {
    await call("delete", "/api/v1/session").catch(() => undefined);
    me.value = null;
}

const themes = ["system", "light", "dark"] as const;

function ThemeChoice() {
    const [theme, setTheme] = useState(localStorage.getItem("theme") ?? "system");
    const choose = (next: string) => {
        localStorage.setItem("theme", next);
        applyTheme();
        setTheme(next);
    };
    return (
        <label class="theme">
            <span>Theme</span>
            <select
                aria-label="Theme"
                value={theme}
                onChange={(event) => choose(event.currentTarget.value)}
            >
                {themes.map((name) => (
                    <option key={name}>{name}</option>
                ))}
            </select>
        </label>
    );
}

function applyTheme() {
    const theme = localStorage.getItem("theme");
    if (theme === "light" || theme === "dark") document.documentElement.dataset.theme = theme;
    else delete document.documentElement.dataset.theme;
    dispatchEvent(new Event("themechange"));
}

function Navigation({ current }: { current?: string }) {
    const shown = views.filter((view) => view.menu && may(view.role ?? "viewer"));
    return (
        <header class="top">
            <a class="brand" href="/">
                norvex
            </a>
            <nav aria-label="Main">
                {shown.map((view) => (
                    <a
                        key={view.menu}
                        href={view.menu}
                        aria-current={current === view.menu ? "page" : undefined}
                    >
                        {view.title}
                    </a>
                ))}
            </nav>
            <div class="who">
                <ThemeChoice />
                <span title={`Role: ${me.value?.role}`}>{me.value?.user}</span>
                {me.value?.user !== "open" && <button onClick={signOut}>Sign out</button>}
            </div>
        </header>
    );
}

/** Tells after a moment that the page does not hear the controller: a blink is no news. */
function LinkNotice() {
    const { state, since } = link.value;
    const [late, setLate] = useState(false);
    useEffect(() => {
        setLate(false);
        const timer = state === "lost" ? setTimeout(() => setLate(true), 1500) : undefined;
        return () => clearTimeout(timer);
    }, [state]);
    if (state !== "lost" || !late) return null;
    return (
        <Notice tone="warn">
            No connection to the controller since <Time at={since / 1000} />. What you see is of
            that time; the page goes on by itself.
        </Notice>
    );
}

function Guarded({ at, children }: { at: string; children: ComponentChildren }) {
    const [error, reset] = useErrorBoundary((fault) => console.error(fault));
    useEffect(reset, [at]);
    if (!error) return <>{children}</>;
    return (
        <Notice tone="bad">
            This view could not be shown: {String((error as Error).message ?? error)}{" "}
            <button onClick={reset}>Try again</button>
        </Notice>
    );
}

function Shell() {
    const { pathname } = place.value;
    const view = views.find((one) => one.path.test(pathname));
    const parts = (view?.path.exec(pathname)?.slice(1) ?? []).map((part) =>
        decodeURIComponent(part ?? ""),
    );
    const title = view?.title ?? "Not found";
    useEffect(() => void (document.title = `${title} · norvex`), [title, pathname]);
    const section = `/${pathname.split("/")[1]}`;
    const allowed = view && may(view.role ?? "viewer");
    return (
        <>
            <a class="skip" href="#main">
                Skip to content
            </a>
            <Navigation current={section} />
            <main id="main" tabIndex={-1}>
                <LinkNotice />
                <Guarded at={pathname}>
                    {allowed ? (
                        view.show(parts)
                    ) : (
                        <>
                            <h1>{view ? "Not for you" : "Not found"}</h1>
                            <p>
                                {view
                                    ? `This takes the role ${view.role}.`
                                    : "There is no such page."}
                            </p>
                        </>
                    )}
                </Guarded>
            </main>
        </>
    );
}

function App() {
    const [failure, setFailure] = useState<Failure>();
    const start = () => {
        setFailure(undefined);
        whoAmI().catch((error) => error.status !== 401 && setFailure(error));
    };
    useEffect(start, []);
    if (me.value) return <Shell />;
    if (me.value === null) return <SignIn />;
    return (
        <main tabIndex={-1}>{failure && <FailureNotice failure={failure} retry={start} />}</main>
    );
}

applyTheme();
startEvents();
render(<App />, document.getElementById("page")!);
