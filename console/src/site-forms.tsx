// The forms of a site's configuration, as an operator thinks of it.
import type { Configuration, Radio, Ssid } from "./api";
import { bands, channels, days, type Band } from "./draft";
import { Check, Select, Text } from "./parts";

const securityChoices = [
    ["wpa2", "WPA2"],
    ["wpa", "WPA"],
    ["open", "Open: no pass phrase"],
] as const;

const cipherChoices = [
    ["aes", "AES"],
    ["tkip", "TKIP"],
    ["tkip+aes", "TKIP and AES"],
] as const;

const numberOr = (text: string, otherwise: number | null) =>
    text === "" ? otherwise : Number(text);

export function SsidForm(props: {
    ssid: Ssid;
    fault: (member: string) => string | undefined;
    onChange: (ssid: Ssid | null) => void;
}) {
    const { ssid, fault, onChange } = props;
    const set = (changes: Partial<Ssid>) => onChange({ ...ssid, ...changes });
    const open = ssid.security === "open";
    return (
        <fieldset>
            <legend>{ssid.name || "New SSID"}</legend>
            <div class="form">
                <Text
                    label="Name"
                    value={ssid.name}
                    fault={fault("name")}
                    onText={(name) => set({ name })}
                    spellcheck={false}
                />
                <Select
                    label="Security"
                    value={ssid.security ?? "wpa2"}
                    choices={securityChoices}
                    onChange={(security) => set({ security: security as "open" })}
                />
                {!open && (
                    <>
                        <Text
                            label="Pass phrase"
                            type="password"
                            autocomplete="new-password"
                            value={ssid.passphrase ?? ""}
                            fault={fault("passphrase")}
                            hint={
                                ssid.passphrase_set
                                    ? "One is set; leave this empty to keep it"
                                    : undefined
                            }
                            onText={(passphrase) => set({ passphrase })}
                        />
                        <Select
                            label="Cipher"
                            value={ssid.cipher ?? "aes"}
                            choices={cipherChoices}
                            onChange={(cipher) => set({ cipher: cipher as "aes" })}
                        />
                    </>
                )}
                <Text
                    label="VLAN"
                    hint="1 to 4094; empty: the default VLAN"
                    type="number"
                    min={1}
                    max={4094}
                    value={ssid.vlan ? String(ssid.vlan) : ""}
                    onText={(text) => set({ vlan: numberOr(text, null) })}
                />
                <Text
                    label="Client limit"
                    hint="0: no limit"
                    type="number"
                    min={0}
                    value={String(ssid.max_clients ?? 0)}
                    onText={(text) => set({ max_clients: numberOr(text, 0) ?? 0 })}
                />
                <Text
                    label="Off times"
                    hint="Such as 22:00-06:00; empty: always on"
                    value={ssid.off_times ?? ""}
                    onText={(text) => set({ off_times: text || null })}
                />
            </div>
            <div class="choices">
                <Check
                    label="Switched on"
                    checked={ssid.enabled !== false}
                    onChange={(enabled) => set({ enabled })}
                />
                {bands.map((band) => (
                    <Check
                        key={band}
                        label={`${band} GHz`}
                        checked={!!ssid.bands?.includes(band)}
                        onChange={(on) =>
                            set({
                                bands: bands.filter((one) =>
                                    one === band ? on : ssid.bands?.includes(one),
                                ),
                            })
                        }
                    />
                ))}
                <Check
                    label="Hidden"
                    checked={!!ssid.hidden}
                    onChange={(hidden) => set({ hidden })}
                />
                <Check
                    label="Keep clients apart"
                    checked={!!ssid.isolate_clients}
                    onChange={(isolate_clients) => set({ isolate_clients })}
                />
                <button
                    class="danger"
                    onClick={() => onChange(null)}
                    aria-label={`Remove ${ssid.name}`}
                >
                    Remove
                </button>
            </div>
            {fault("bands") && <small class="fault">{fault("bands")}</small>}
        </fieldset>
    );
}

export function RadioForm(props: { band: Band; radio: Radio; onChange: (radio: Radio) => void }) {
    const { band, radio, onChange } = props;
    const set = (changes: Partial<Radio>) => onChange({ ...radio, ...changes });
    return (
        <fieldset>
            <legend>{band} GHz</legend>
            <Check
                label="Switched on"
                checked={radio.enabled !== false}
                onChange={(enabled) => set({ enabled })}
            />
            <div class="form">
                <Select
                    label="Channel"
                    value={radio.channel ?? "auto"}
                    choices={[
                        ["auto", "Automatic"],
                        ...channels[band].map((channel) => [channel, String(channel)] as const),
                    ]}
                    onChange={(text) => set({ channel: text === "auto" ? "auto" : Number(text) })}
                />
                <Text
                    label="Power, dBm"
                    hint="The device keeps it within its own limits"
                    type="number"
                    min={0}
                    max={30}
                    value={String(radio.power_dbm ?? 20)}
                    onText={(text) => set({ power_dbm: Number(text) })}
                />
                <Text
                    label="Weakest client signal, dBm"
                    type="number"
                    min={-100}
                    max={0}
                    value={String(radio.min_signal_dbm ?? -90)}
                    onText={(text) => set({ min_signal_dbm: Number(text) })}
                />
            </div>
        </fieldset>
    );
}

type Reboot = NonNullable<Configuration["reboot"]>;

const dayWords: Record<(typeof days)[number], string> = {
    mon: "Monday",
    tue: "Tuesday",
    wed: "Wednesday",
    thu: "Thursday",
    fri: "Friday",
    sat: "Saturday",
    sun: "Sunday",
};

export function RebootForm(props: {
    reboot: Reboot | null;
    fault?: string;
    onChange: (reboot: Reboot | null) => void;
}) {
    const { reboot, fault, onChange } = props;
    const kind = !reboot ? "never" : reboot.every_minutes ? "cycle" : "days";
    const starts: Record<string, Reboot | null> = {
        never: null,
        days: { at: "03:00", days: ["sun"] },
        cycle: { every_minutes: 1440 },
    };
    return (
        <fieldset>
            <legend>When devices restart by themselves</legend>
            <div class="form">
                <Select
                    label="Restart"
                    value={kind}
                    choices={[
                        ["never", "Never"],
                        ["days", "On days of the week"],
                        ["cycle", "At intervals"],
                    ]}
                    onChange={(next) => onChange(starts[next] ?? null)}
                />
                {kind === "days" && (
                    <Text
                        label="Time"
                        hint="In the site's time zone"
                        type="time"
                        required
                        value={reboot?.at ?? ""}
                        onText={(at) => onChange({ ...reboot, at })}
                    />
                )}
                {kind === "cycle" && (
                    <Text
                        label="Minutes"
                        type="number"
                        min={10}
                        max={43200}
                        value={String(reboot?.every_minutes ?? "")}
                        onText={(text) => onChange({ every_minutes: Number(text) })}
                    />
                )}
            </div>
            {kind === "days" && (
                <div class="choices">
                    {days.map((day) => (
                        <Check
                            key={day}
                            label={dayWords[day]}
                            checked={!!reboot?.days?.includes(day)}
                            onChange={(on) =>
                                onChange({
                                    ...reboot,
                                    days: days.filter((one) =>
                                        one === day ? on : reboot?.days?.includes(one),
                                    ),
                                })
                            }
                        />
                    ))}
                </div>
            )}
            {fault && <small class="fault">{fault}</small>}
        </fieldset>
    );
}
