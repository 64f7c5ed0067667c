// The REST API with the types of its reference.
import { signal } from "@preact/signals";
import type { components, paths } from "./api-types";

type Schemas = components["schemas"];
export type Device = Schemas["Device"];
export type State = Schemas["State"];
export type ConfigState = Schemas["ConfigState"];
export type Difference = Schemas["Difference"];
export type Role = Schemas["Role"];
export type Site = Schemas["Site"];
export type Ssid = Schemas["Ssid"];
export type Radio = Schemas["Radio"];
export type Configuration = Schemas["Overrides"];
export type Overrides = Schemas["Overrides"];
export type Command = Schemas["Command"];
export type Stay = Schemas["Stay"];
export type Problem = Schemas["Problem"];

type Method = "get" | "post" | "put" | "patch" | "delete";
type PathOf<M extends Method> = {
    [P in keyof paths]: paths[P] extends Record<M, { responses: unknown }> ? P : never;
}[keyof paths];
type Content<R> = R extends { content: { "application/json": infer T } } ? T : null;
type Answer<P, M extends Method> =
    P extends Record<M, { responses: infer R }>
        ? Content<R[keyof R & (200 | 201 | 202 | 204)]>
        : never;

export class Failure extends Error {
    constructor(
        readonly status: number, // 0: no answer at all
        readonly problem: Partial<Problem>,
    ) {
        super(problem.detail ?? problem.title ?? "the controller does not answer");
    }
}

export interface Me {
    user: string;
    role: Role;
}

/** Who is signed in; null: nobody; undefined: not known yet. */
export const me = signal<Me | null | undefined>(undefined);

const rank = { viewer: 1, operator: 2, admin: 3 };
export const may = (role: Role) => !!me.value && rank[me.value.role] >= rank[role];

export interface Options {
    path?: Record<string, string | number>;
    query?: Record<string, string | number | undefined>;
    body?: unknown;
    etag?: string; // changes only what still is as it was read
    key?: string; // an order with the same key is carried out once
    signal?: AbortSignal;
}

/** An answer with its ETag. Throws Failure. */
export async function call<M extends Method, P extends PathOf<M>>(
    method: M,
    path: P,
    options: Options = {},
): Promise<{ data: Answer<paths[P], M>; etag: string }> {
    const url = new URL(
        path.replace(/\{(\w+)\}/g, (_, name) => encodeURIComponent(options.path?.[name] ?? "")),
        location.origin,
    );
    for (const [name, value] of Object.entries(options.query ?? {})) {
        if (value !== undefined && value !== "") url.searchParams.set(name, String(value));
    }
    const headers: Record<string, string> = {};
    if (options.body !== undefined) headers["content-type"] = "application/json";
    if (options.etag) headers["if-match"] = options.etag;
    if (options.key) headers["idempotency-key"] = options.key;
    const response = await fetch(url, {
        method: method.toUpperCase(),
        headers,
        body: options.body === undefined ? undefined : JSON.stringify(options.body),
        signal: options.signal,
    }).catch((error) => {
        throw options.signal?.aborted ? error : new Failure(0, {});
    });
    const data = response.status === 204 ? null : await response.json().catch(() => ({}));
    if (!response.ok) {
        if (response.status === 401) me.value = null;
        throw new Failure(response.status, data);
    }
    return { data, etag: response.headers.get("etag") ?? "" };
}

export const get = async <P extends PathOf<"get">>(path: P, options?: Options) =>
    (await call("get", path, options)).data;

/** Orders a command of a device and returns its answer; a verdict other than 0 throws. */
export async function order(serial: string, command: string, request?: unknown, queue = false) {
    const { data } = await call("post", "/api/v1/devices/{serial}/commands", {
        path: { serial },
        body: {
            command,
            ...(request === undefined ? {} : { request }),
            ...(queue ? { queue } : {}),
        },
        key: crypto.randomUUID?.() ?? String(Math.random()),
    });
    if (data.state === "answered" && data.resp_code) {
        throw new Failure(200, { detail: `the device refused: it answered ${data.resp_code}` });
    }
    return data;
}
