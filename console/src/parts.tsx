// The small parts that every view is made of.
import type { ComponentChildren, InputHTMLAttributes } from "preact";
import { useEffect, useId, useRef, useState } from "preact/hooks";
import { Failure, type ConfigState, type Device, type State } from "./api";
import { exactTime, shortTime } from "./format";
import type { Loaded } from "./load";
import {
    configHints,
    configTones,
    configWords,
    stateHints,
    stateTones,
    stateWords,
    type Tone,
} from "./words";

/** A time in the reader's zone, the exact one on hover. */
export function Time({ at }: { at: number | null | undefined }) {
    if (!at) return <span class="mute">never</span>;
    return (
        <time dateTime={new Date(at * 1000).toISOString()} title={exactTime(at)}>
            {shortTime(at)}
        </time>
    );
}

/** A word with a sign of its own shape: colour is never alone. */
export function Badge(props: { tone: Tone; title?: string; children: ComponentChildren }) {
    return (
        <span class={`badge ${props.tone}`} title={props.title}>
            <i aria-hidden="true" />
            {props.children}
        </span>
    );
}

export function StateBadge({ state, since }: { state: State; since?: number }) {
    return (
        <Badge tone={stateTones[state]} title={stateHints[state]}>
            {stateWords[state]}
            {since && state !== "online" ? (
                <>
                    {" since "}
                    <Time at={since} />
                </>
            ) : null}
        </Badge>
    );
}

export function ConfigBadge({ state }: { state: ConfigState }) {
    return (
        <Badge tone={configTones[state]} title={configHints[state]}>
            {configWords[state]}
        </Badge>
    );
}

export const deviceHref = (serial: string, part = "") =>
    `/devices/${encodeURIComponent(serial)}${part ? `/${part}` : ""}`;

export function DeviceLink({ serial, name }: { serial: string; name?: string }) {
    return <a href={deviceHref(serial)}>{name || serial}</a>;
}

export const nameOf = (device: Pick<Device, "name" | "serial">) => device.name || device.serial;

export function Notice(props: {
    tone: "bad" | "warn" | "good" | "mute";
    children: ComponentChildren;
}) {
    return (
        <div class={`notice ${props.tone}`} role={props.tone === "bad" ? "alert" : "status"}>
            {props.children}
        </div>
    );
}

export function FailureNotice({ failure, retry }: { failure: Failure; retry?: () => void }) {
    const all = failure.problem.problems;
    return (
        <Notice tone="bad">
            {all?.length ? (
                <ul>
                    {all.map((one) => (
                        <li key={one.field}>
                            <code>{one.field}</code> {one.detail}
                        </li>
                    ))}
                </ul>
            ) : (
                <span>{sentence(failure.message)}</span>
            )}
            {retry && <button onClick={retry}>Try again</button>}
        </Notice>
    );
}

export const sentence = (text: string) => text.charAt(0).toUpperCase() + text.slice(1);

/** Shows what was loaded: the last good answer stays, with a word when it is old. */
export function Show<T>(props: {
    of: Loaded<T>;
    missing?: ComponentChildren; // instead of a failure where 404 only means "not yet"
    children: (data: T) => ComponentChildren;
}) {
    const { data, failure, at, reload } = props.of;
    if (data === undefined) {
        if (failure?.status === 404 && props.missing !== undefined) return <>{props.missing}</>;
        if (failure) return <FailureNotice failure={failure} retry={reload} />;
        return (
            <p class="mute" role="status">
                Loading…
            </p>
        );
    }
    return (
        <>
            {failure && (
                <Notice tone="warn">
                    Not up to date, this is of <Time at={at / 1000} />: {failure.message}.{" "}
                    <button onClick={reload}>Try again</button>
                </Notice>
            )}
            {props.children(data)}
        </>
    );
}

export function Empty({ children }: { children: ComponentChildren }) {
    return <p class="empty">{children}</p>;
}

export interface Column<T> {
    name: string; // the head
    sort?: string; // the list's own name of this order
    wide?: boolean; // left out on a narrow screen
    number?: boolean;
    cell: (row: T) => ComponentChildren;
}

/** A table; `sorted` and `onSort` make its heads buttons. */
export function Table<T>(props: {
    caption: string;
    columns: Column<T>[];
    rows: T[];
    id: (row: T) => string | number;
    sorted?: string;
    onSort?: (order: string) => void;
    select?: { has: (row: T) => boolean; toggle: (row: T) => void; all: () => void };
}) {
    const { columns, rows, sorted = "", onSort, select } = props;
    const cellClass = (column: Column<T>) =>
        [column.wide && "wide", column.number && "number"].filter(Boolean).join(" ") || undefined;
    const every = !!select && rows.length > 0 && rows.every(select.has);
    return (
        <div class="scroll" tabIndex={0} role="region" aria-label={props.caption}>
            <table>
                <caption class="hidden">{props.caption}</caption>
                <thead>
                    <tr>
                        {select && (
                            <th class="check">
                                <input
                                    type="checkbox"
                                    aria-label="Select all that are shown"
                                    checked={every}
                                    onChange={select.all}
                                />
                            </th>
                        )}
                        {columns.map((column) => (
                            <Head
                                key={column.name}
                                column={column}
                                class={cellClass(column)}
                                {...{ sorted, onSort }}
                            />
                        ))}
                    </tr>
                </thead>
                <tbody>
                    {rows.map((row) => (
                        <tr key={props.id(row)} class={select?.has(row) ? "selected" : undefined}>
                            {select && (
                                <td class="check">
                                    <input
                                        type="checkbox"
                                        aria-label={`Select ${props.id(row)}`}
                                        checked={select.has(row)}
                                        onChange={() => select.toggle(row)}
                                    />
                                </td>
                            )}
                            {columns.map((column) => (
                                <td key={column.name} class={cellClass(column)}>
                                    {column.cell(row)}
                                </td>
                            ))}
                        </tr>
                    ))}
                </tbody>
            </table>
        </div>
    );
}

function Head<T>(props: {
    column: Column<T>;
    class?: string;
    sorted: string;
    onSort?: (order: string) => void;
}) {
    const { column, sorted, onSort } = props;
    if (!column.sort || !onSort) return <th class={props.class}>{column.name}</th>;
    const rises = sorted === column.sort;
    const falls = sorted === `-${column.sort}`;
    return (
        <th class={props.class} aria-sort={rises ? "ascending" : falls ? "descending" : "none"}>
            <button class="plain" onClick={() => onSort(rises ? `-${column.sort}` : column.sort!)}>
                {column.name}
                <span aria-hidden="true">{rises ? " ↑" : falls ? " ↓" : ""}</span>
            </button>
        </th>
    );
}

/** A labelled control, with its fault below. */
export function Field(props: {
    label: string;
    hint?: string;
    fault?: string;
    children: (attributes: {
        id: string;
        "aria-describedby"?: string;
        "aria-invalid"?: boolean;
    }) => ComponentChildren;
}) {
    const id = useId();
    const note = props.fault || props.hint;
    return (
        <div class="field">
            <label for={id}>{props.label}</label>
            {props.children({
                id,
                "aria-describedby": note ? `${id}-note` : undefined,
                "aria-invalid": props.fault ? true : undefined,
            })}
            {note && (
                <small id={`${id}-note`} class={props.fault ? "fault" : "mute"}>
                    {note}
                </small>
            )}
        </div>
    );
}

type Value = string | number;
type Choice = readonly [value: Value, text: string];

export function Select(props: {
    label: string;
    value: Value;
    choices: readonly Choice[];
    onChange: (value: string) => void;
    hint?: string;
    disabled?: boolean;
}) {
    return (
        <Field label={props.label} hint={props.hint}>
            {(attributes) => (
                <select
                    {...attributes}
                    value={props.value}
                    disabled={props.disabled}
                    onChange={(event) => props.onChange(event.currentTarget.value)}
                >
                    {props.choices.map(([value, text]) => (
                        <option key={value} value={value}>
                            {text}
                        </option>
                    ))}
                </select>
            )}
        </Field>
    );
}

export function Text(
    props: {
        label: string;
        value: string;
        onText: (value: string) => void;
        hint?: string;
        fault?: string;
        type?: "text" | "password" | "search" | "number" | "time";
    } & Pick<
        InputHTMLAttributes<HTMLInputElement>,
        | "required"
        | "disabled"
        | "min"
        | "max"
        | "minLength"
        | "maxLength"
        | "placeholder"
        | "autocomplete"
        | "autofocus"
        | "spellcheck"
    >,
) {
    const { label, value, onText, hint, fault, ...rest } = props;
    return (
        <Field label={label} hint={hint} fault={fault}>
            {(attributes) => (
                <input
                    {...(rest as object)}
                    {...attributes}
                    value={value}
                    onInput={(event) => onText(event.currentTarget.value)}
                />
            )}
        </Field>
    );
}

export function Check(props: {
    label: string;
    checked: boolean;
    onChange: (checked: boolean) => void;
    disabled?: boolean;
}) {
    return (
        <label class="check">
            <input
                type="checkbox"
                checked={props.checked}
                disabled={props.disabled}
                onChange={(event) => props.onChange(event.currentTarget.checked)}
            />
            {props.label}
        </label>
    );
}

/** A dialog of the browser's own: it holds the focus, and Escape closes it. */
export function Dialog(props: { title: string; onClose: () => void; children: ComponentChildren }) {
    const dialog = useRef<HTMLDialogElement>(null);
    const id = useId();
    useEffect(() => dialog.current?.showModal(), []);
    return (
        <dialog ref={dialog} aria-labelledby={id} onClose={props.onClose}>
            <h2 id={id}>{props.title}</h2>
            {props.children}
        </dialog>
    );
}

/** A button whose work takes a while; it tells a failure beside itself. */
export function Act(props: {
    children: ComponentChildren;
    act: () => Promise<unknown>;
    danger?: boolean;
    main?: boolean;
    disabled?: boolean;
    ask?: { title: string; text: string }; // confirmed first
}) {
    const [busy, setBusy] = useState(false);
    const [failure, setFailure] = useState<Failure>();
    const [asks, setAsks] = useState(false);
    const run = async () => {
        setAsks(false);
        setBusy(true);
        setFailure(undefined);
        try {
            await props.act();
        } catch (error) {
            setFailure(
                error instanceof Failure ? error : new Failure(0, { detail: String(error) }),
            );
        }
        setBusy(false);
    };
    const look = props.danger ? "danger" : props.main ? "main" : undefined;
    return (
        <span class="act">
            <button
                class={look}
                disabled={busy || props.disabled}
                aria-busy={busy}
                onClick={() => (props.ask ? setAsks(true) : void run())}
            >
                {props.children}
            </button>
            {failure && (
                <span class="fault" role="alert">
                    {sentence(failure.message)}
                </span>
            )}
            {asks && props.ask && (
                <Dialog title={props.ask.title} onClose={() => setAsks(false)}>
                    <p>{props.ask.text}</p>
                    <div class="buttons">
                        <button class={look} onClick={() => void run()}>
                            {props.children}
                        </button>
                        <button onClick={() => setAsks(false)}>Cancel</button>
                    </div>
                </Dialog>
            )}
        </span>
    );
}

/** Members and their values. */
export function Facts({ rows }: { rows: (readonly [string, ComponentChildren] | false)[] }) {
    return (
        <dl class="facts">
            {rows
                .filter((row) => row !== false)
                .map(([name, value]) => (
                    <div key={name}>
                        <dt>{name}</dt>
                        <dd>
                            {value === "" || value === undefined || value === null ? "–" : value}
                        </dd>
                    </div>
                ))}
        </dl>
    );
}

/** Links to the parts of something; the one that is shown is marked. */
export function Tabs(props: {
    label: string;
    at: string;
    tabs: (readonly [href: string, text: string])[];
}) {
    return (
        <nav class="tabs" aria-label={props.label}>
            {props.tabs.map(([href, text]) => (
                <a key={href} href={href} aria-current={props.at === href ? "page" : undefined}>
                    {text}
                </a>
            ))}
        </nav>
    );
}
