// The form of a command's request: a control for each member, or its text.
import { membersOf, valueAt, withValue, type CommandEntry, type Member } from "./commands";
import { Field, Select, Text } from "./parts";

function parsed(text: string): { value?: unknown; fault?: string } {
    if (!text.trim()) return { value: undefined };
    try {
        return { value: JSON.parse(text) };
    } catch (error) {
        return { fault: (error as Error).message };
    }
}

export function CommandForm(props: {
    command: CommandEntry;
    text: string;
    onText: (text: string) => void;
}) {
    const { command, text, onText } = props;
    const members = command.request ? membersOf(command.request) : null;
    const isFile = command.request?.type === "string";
    const { value, fault } = isFile ? {} : parsed(text);
    const set = (path: string[], next: unknown) => {
        const changed = withValue(value, path, next);
        onText(changed === undefined ? "" : JSON.stringify(changed, null, 2));
    };
    return (
        <>
            {members && !fault && (
                <div class="form">
                    {members.map((member) => (
                        <MemberField
                            key={member.path.join(".")}
                            {...{ member }}
                            value={valueAt(value, member.path)}
                            set={set}
                        />
                    ))}
                </div>
            )}
            <Field label={isFile ? "The file's text" : "Request, JSON"} fault={fault}>
                {(attributes) => (
                    <textarea
                        {...attributes}
                        class="mono"
                        rows={Math.min(16, Math.max(3, text.split("\n").length))}
                        value={text}
                        spellcheck={false}
                        onInput={(event) => onText(event.currentTarget.value)}
                    />
                )}
            </Field>
            <p />
        </>
    );
}

function MemberField(props: {
    member: Member;
    value: unknown;
    set: (path: string[], value: unknown) => void;
}) {
    const { member, value, set } = props;
    const { schema, path, required } = member;
    const label = path.join(".") + (required ? " (required)" : "");
    const fallback =
        schema.default === undefined ? "" : `without it ${JSON.stringify(schema.default)}`;
    const hint = [schema.description?.replaceAll("`", ""), fallback].filter(Boolean).join("; ");
    const shown = value === undefined || value === null ? "" : String(value);
    const numeric = schema.type === "integer" || schema.type === "number";
    const change = (text: string) =>
        set(path, text === "" ? undefined : numeric ? Number(text) : text);
    if (schema.oneOf) {
        return (
            <Select
                label={label}
                hint={hint}
                value={shown}
                choices={[
                    ["", "left out"],
                    ...schema.oneOf.map(
                        (one) => [String(one.const), `${one.const}: ${one.title}`] as const,
                    ),
                ]}
                onChange={change}
            />
        );
    }
    return (
        <Text
            label={label}
            hint={hint}
            type={numeric ? "number" : "text"}
            min={schema.minimum}
            max={schema.maximum}
            value={shown}
            onText={change}
        />
    );
}
