// What happens on the controller, for every view that wants to know.
import { signal } from "@preact/signals";
import { get, me } from "./api";
import { followEvents, type Link, type Message } from "./events-stream";

declare const EVENTS_WORKER: string;

export interface Happening {
    type: string;
    serial: string; // empty where no device is meant
    data: Record<string, unknown>;
}

export const link = signal<{ state: Link; since: number }>({ state: "connecting", since: 0 });

const listeners = new Set<(happening: Happening) => void>();

export function onHappening(listener: (happening: Happening) => void) {
    listeners.add(listener);
    return () => void listeners.delete(listener);
}

function take(message: Message) {
    if (message.kind === "link") {
        const since = link.value.state === message.link ? link.value.since : message.since;
        link.value = { state: message.link, since };
        // Refused: is it the session, which has ended? The call itself finds out.
        if (message.closed) void get("/api/v1/me").catch(() => undefined);
        return;
    }
    const { type, data } = message;
    const serial = typeof data.serial === "string" ? data.serial : "";
    for (const listener of listeners) listener({ type, serial, data });
}

let leave: (() => void) | null = null;

function join() {
    try {
        const { port } = new SharedWorker(EVENTS_WORKER, { type: "module", name: "norvex-events" });
        port.onmessage = ({ data }: MessageEvent<Message>) => take(data);
        port.postMessage("join");
        return () => {
            port.postMessage("leave");
            port.onmessage = null;
        };
    } catch {
        return followEvents(take); // a browser without shared workers
    }
}

/** Listens while somebody is signed in and the tab is there. */
export function startEvents() {
    me.subscribe((user) => {
        if (user && !leave) leave = join();
        if (!user && leave) {
            leave();
            leave = null;
        }
    });
    addEventListener("pagehide", () => {
        leave?.();
        leave = null;
    });
    addEventListener("pageshow", () => {
        if (me.value && !leave) leave = join();
    });
}
