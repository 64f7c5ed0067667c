// The event stream, wherever it is held: by a worker for all tabs, or by a tab itself.

export type Link = "connecting" | "live" | "lost";

export type Message =
    | { kind: "link"; link: Link; since: number; closed?: boolean }
    | { kind: "event"; type: string; data: Record<string, unknown> };

const types = ["reset", "presence", "config_state", "device", "report", "alarm", "command"];
const retryMs = 5000; // after the service refused; a lost connection is the browser's to renew

/** Follows the stream until it is told to end; returns what ends it. */
export function followEvents(tell: (message: Message) => void) {
    let source: EventSource;
    let timer = 0 as unknown as ReturnType<typeof setTimeout>;
    let last = "";
    const open = () => {
        source = new EventSource(`/api/v1/events${last ? `?last_event_id=${last}` : ""}`);
        source.onopen = () => tell({ kind: "link", link: "live", since: Date.now() });
        source.onerror = () => {
            const closed = source.readyState === EventSource.CLOSED;
            tell({ kind: "link", link: "lost", since: Date.now(), closed });
            if (closed) timer = setTimeout(open, retryMs);
        };
        for (const type of types) {
            source.addEventListener(type, (event) => {
                last = event.lastEventId || last;
                tell({ kind: "event", type, data: JSON.parse(event.data) });
            });
        }
    };
    open();
    return () => {
        clearTimeout(timer);
        source.close();
    };
}
