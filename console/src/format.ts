// Figures and times as people read them.

const two = (value: number) => String(value).padStart(2, "0");

/** "14:02" of today, else "21 Nov 14:02", with the year when it is another one. */
export function shortTime(seconds: number, now = Date.now()) {
    const date = new Date(seconds * 1000);
    const today = new Date(now);
    const clock = `${two(date.getHours())}:${two(date.getMinutes())}`;
    if (date.toDateString() === today.toDateString()) return clock;
    const year = date.getFullYear() === today.getFullYear() ? undefined : "numeric";
    const day = date.toLocaleDateString("en-GB", { day: "numeric", month: "short", year });
    return `${day} ${clock}`;
}

export function exactTime(seconds: number) {
    return new Date(seconds * 1000).toLocaleString("en-GB", {
        dateStyle: "full",
        timeStyle: "long",
    });
}

/** The two largest units that are not 0: "3 d 4 h", "42 s". */
export function duration(seconds: number) {
    const units: [number, string][] = [
        [86400, "d"],
        [3600, "h"],
        [60, "min"],
        [1, "s"],
    ];
    let rest = Math.max(0, Math.round(seconds));
    const first = units.findIndex(([size]) => rest >= size);
    if (first < 0) return "0 s";
    const parts: string[] = [];
    for (const [size, unit] of units.slice(first, first + 2)) {
        const count = Math.floor(rest / size);
        if (count > 0) parts.push(`${count} ${unit}`);
        rest -= count * size;
    }
    return parts.join(" ");
}

function scaled(value: number, base: number, units: string[]) {
    let size = Math.abs(value);
    let at = 0;
    while (size >= base && at < units.length - 1) {
        size /= base;
        at += 1;
    }
    const digits = size >= 100 || at === 0 ? 0 : size >= 10 ? 1 : 2;
    const number = size.toFixed(size > 0 && size < 10 && at === 0 && size % 1 !== 0 ? 1 : digits);
    return `${value < 0 ? "-" : ""}${number} ${units[at]}`;
}

/** A rate of kbit/s. */
export const rate = (kbit: number) => scaled(kbit, 1000, ["kbit/s", "Mbit/s", "Gbit/s"]);

/** An amount of KiB. */
export const amount = (kib: number) => scaled(kib, 1024, ["KiB", "MiB", "GiB", "TiB"]);

export const whole = (value: number) => value.toLocaleString("en-US");

/** "1 device", "10,000 devices". */
export const counted = (count: number, one: string, many = one + "s") =>
    `${whole(count)} ${count === 1 ? one : many}`;

/** A figure of a device; a dash for none. */
export const figure = (value: number | null | undefined, unit = "") =>
    value === null || value === undefined ? "–" : `${whole(Math.round(value))}${unit}`;

/** Any value of a configuration in a sentence. */
export function valueText(value: unknown): string {
    if (value === null || value === undefined) return "none";
    if (typeof value === "boolean") return value ? "on" : "off";
    if (Array.isArray(value)) return value.map(valueText).join(", ") || "none";
    if (typeof value === "object") {
        return Object.entries(value)
            .map(([name, inner]) => `${name} ${valueText(inner)}`)
            .join(", ");
    }
    return String(value);
}

/** A row of a CSV file; a leading sign that a spreadsheet would run is kept from it. */
export function csvRow(values: (string | number | null | undefined)[]) {
    return (
        values
            .map((value) => {
                const text = value === null || value === undefined ? "" : String(value);
                const safe =
                    typeof value === "string" && /^[=+\-@\t]/.test(text) ? `'${text}` : text;
                return /[",\n\r]/.test(safe) ? `"${safe.replaceAll('"', '""')}"` : safe;
            })
            .join(",") + "\r\n"
    );
}

/** A MAC in the way clients are listed: identities have no colons, reports have capitals. */
export function macText(mac: string) {
    const digits = mac.toLowerCase().replace(/[^0-9a-f]/g, "");
    return digits.length === 12 ? digits.match(/../g)!.join(":") : mac.toLowerCase();
}
