// The configuration of a site while it is edited.
import type { Configuration, Radio, Ssid } from "./api";

export const bands = ["2.4", "5"] as const;
export type Band = (typeof bands)[number];

export const slots: Record<Band, number> = { "2.4": 8, "5": 4 }; // SSIDs that a band has room for

const range = (first: number, last: number, step: number) =>
    Array.from({ length: (last - first) / step + 1 }, (_, i) => first + i * step);

export const channels: Record<Band, number[]> = {
    "2.4": range(1, 13, 1),
    "5": [...range(36, 64, 4), ...range(100, 144, 4), ...range(149, 165, 4)],
};

export const days = ["mon", "tue", "wed", "thu", "fri", "sat", "sun"] as const;

export const newSsid = (): Ssid => ({
    name: "",
    bands: [...bands],
    enabled: true,
    hidden: false,
    security: "wpa2",
    cipher: "aes",
    vlan: null,
    isolate_clients: false,
    max_clients: 0,
    off_times: null,
});

const newRadio = (): Radio => ({
    enabled: true,
    channel: "auto",
    power_dbm: 20,
    min_signal_dbm: -90,
});

/** What a site that was never configured begins with. */
export const newConfiguration = (): Configuration => ({
    ssids: [],
    radios: { "2.4": newRadio(), "5": newRadio() },
    reboot: null,
});

/** As it is sent: without what only answers have, and without what has no meaning. */
export function sent(draft: Configuration): Configuration {
    const ssids = (draft.ssids ?? []).map((ssid) => {
        const { passphrase_set: _, ...own } = ssid;
        if (own.security === "open") {
            delete own.passphrase;
            delete own.cipher;
        } else if (!own.passphrase) {
            delete own.passphrase; // the one that is there stays
        }
        return own;
    });
    return { ...draft, ssids };
}

/** What is wrong, by the JSON pointers of the controller's own answers. */
export function faults(draft: Configuration): Record<string, string> {
    const found: Record<string, string> = {};
    const names = new Set<string>();
    for (const [i, ssid] of (draft.ssids ?? []).entries()) {
        const bytes = new TextEncoder().encode(ssid.name).length;
        if (bytes < 1 || bytes > 32) found[`/ssids/${i}/name`] = "A name takes 1 to 32 bytes";
        else if (names.has(ssid.name)) found[`/ssids/${i}/name`] = "Another SSID has this name";
        names.add(ssid.name);
        if (!ssid.bands?.length) found[`/ssids/${i}/bands`] = "One band at least";
        const phrase = ssid.passphrase ?? "";
        const isKey = /^[0-9a-fA-F]{64}$/.test(phrase);
        const isPhrase = /^[\x20-\x7e]{8,63}$/.test(phrase);
        const needed = ssid.security !== "open" && !ssid.passphrase_set;
        if (ssid.security !== "open" && (phrase || needed) && !isKey && !isPhrase) {
            found[`/ssids/${i}/passphrase`] =
                "8 to 63 printable characters, or 64 hexadecimal digits";
        }
    }
    for (const band of bands) {
        const used = (draft.ssids ?? []).filter((ssid) => ssid.bands?.includes(band)).length;
        if (used > slots[band]) {
            found["/ssids"] = `A device has ${slots[band]} SSIDs on ${band} GHz, these are ${used}`;
        }
    }
    const reboot = draft.reboot;
    if (reboot && !reboot.every_minutes && !reboot.days?.length) {
        found["/reboot/days"] = "One day at least";
    }
    return found;
}

export interface Changed {
    serial: string;
    name?: string;
    state: string;
    problem?: string;
    changes: { path: string; before?: unknown; after?: unknown }[];
}

/** Devices whose changes are the same, the largest group first. */
export function grouped(items: Changed[]) {
    const groups = new Map<string, Changed[]>();
    for (const item of items) {
        const key = JSON.stringify([item.problem ?? "", item.changes]);
        groups.set(key, [...(groups.get(key) ?? []), item]);
    }
    return [...groups.values()].sort((one, other) => other.length - one.length);
}

/** What the change does to those who use the network. */
export function effects(changes: Changed["changes"]) {
    const radios = changes.some(({ path }) => path !== "/reboot");
    const vlans = changes.some(({ path }) => path.startsWith("/ssids/") && path.endsWith("/vlan"));
    if (vlans) return "The radios restart, and the device may restart because VLANs change.";
    if (radios) return "The radios restart: clients lose the network for some seconds.";
    return "Nothing is interrupted.";
}
