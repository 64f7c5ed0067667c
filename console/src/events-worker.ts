// Holds one event stream for all tabs of a browser, which allows only six connections.
import { followEvents, type Message } from "./events-stream";

const ports = new Set<MessagePort>();
let end: (() => void) | null = null;
let link: Message | null = null;

function tell(message: Message) {
    if (message.kind === "link") {
        // Only the first moment of a loss tells since when.
        if (link?.kind === "link" && link.link === message.link && !message.closed) return;
        link = message;
    }
    for (const port of ports) port.postMessage(message);
}

addEventListener("connect", (event) => {
    const port = (event as MessageEvent).ports[0];
    if (!port) return;
    port.onmessage = ({ data }: MessageEvent<"join" | "leave">) => {
        if (data === "join") {
            ports.add(port);
            if (link) port.postMessage(link);
            end ??= followEvents(tell);
        } else {
            ports.delete(port);
            if (ports.size === 0) {
                end?.();
                end = link = null;
            }
        }
    };
});
