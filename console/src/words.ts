// The words of the API as people read them.
import type { Command, ConfigState, Difference, State } from "./api";

export const stateWords: Record<State, string> = {
    online: "Online",
    offline: "Offline",
    unknown: "Unknown",
};

/** Why a presence is what it is. */
export const stateHints: Record<State, string> = {
    online: "Its connection to the broker stands",
    offline: "The broker said that its connection ended",
    unknown: "The controller has no connection to its broker",
};

export const configWords: Record<ConfigState, string> = {
    in_sync: "In sync",
    pending: "Pending",
    applying: "Applying",
    differs: "Differs",
    locally_managed: "Locally managed",
    unknown: "Unknown",
    none: "No site",
};

export const configHints: Record<ConfigState, string> = {
    in_sync: "Read back from the device and equal to what its site wants",
    pending: "A change waits for its turn",
    applying: "Being sent to the device now",
    differs: "Read back from the device and not what its site wants",
    locally_managed: "Somebody manages the device on the spot; nothing is sent to it",
    unknown: "Not read back since the device was last seen",
    none: "The device belongs to no site, so nothing is wanted of it",
};

/** How a state looks: proof of good, of bad, or nothing to tell. */
export type Tone = "good" | "bad" | "warn" | "busy" | "mute";

export const stateTones: Record<State, Tone> = { online: "good", offline: "bad", unknown: "mute" };

export const configTones: Record<ConfigState, Tone> = {
    in_sync: "good",
    pending: "busy",
    applying: "busy",
    differs: "warn",
    locally_managed: "warn",
    unknown: "mute",
    none: "mute",
};

export const differenceWords: Record<Difference["kind"], string> = {
    drift: "Drift: changed on the device",
    substituted: "Substituted: the device took a value of its own limits instead",
    refused: "Refused: the device does not take it",
};

export const commandWords: Record<Command["state"], string> = {
    queued: "Waits for the device",
    sent: "Sent, not answered yet",
    answered: "Answered",
    refused: "Refused by the device",
    offline: "Device was offline",
    unknown: "No answer: unknown whether it was carried out",
    cancelled: "Cancelled",
};

const members: Record<string, string> = {
    name: "name",
    bands: "bands",
    enabled: "enabled",
    hidden: "hidden",
    security: "security",
    cipher: "cipher",
    passphrase: "pass phrase",
    vlan: "VLAN",
    isolate_clients: "client isolation",
    max_clients: "client limit",
    off_times: "off times",
    channel: "channel",
    power_dbm: "power, dBm",
    min_signal_dbm: "weakest client signal, dBm",
};

/** "/ssids/Guests/vlan" as "Guests: VLAN". */
export function pathWords(path: string) {
    const [, part, name, ...rest] = path.split("/");
    const member = rest.length ? (members[rest.join("/")] ?? rest.join(" ")) : "";
    if (part === "ssids" && name) return member ? `${name}: ${member}` : name;
    if (part === "radios" && name) return `Radio ${name} GHz${member ? `: ${member}` : ""}`;
    if (part === "reboot") return ["Scheduled restart", name].filter(Boolean).join(": ");
    return path;
}

export const bandOf = (accessType: number) => (accessType === 0 ? "2.4" : "5");
