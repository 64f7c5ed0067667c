// The commands of the agent as its reference describes them.
import reference from "../../tools/commands.json";

export interface Schema {
    $ref?: string;
    type?: string;
    properties?: Record<string, Schema>;
    required?: string[];
    items?: Schema;
    default?: unknown;
    description?: string;
    deprecated?: boolean;
    minimum?: number;
    maximum?: number;
    oneOf?: { const: number | string; title: string }[];
}

export interface CommandEntry {
    family: string;
    name: string;
    does: string;
    fails_when?: string;
    request?: Schema;
    example?: unknown;
}

const definitions = (reference as unknown as { $defs: Record<string, Schema> }).$defs;

export function resolved(schema: Schema): Schema {
    const name = schema.$ref?.split("/").pop();
    return name ? { ...definitions[name], ...schema } : schema;
}

export function exampleText(command: CommandEntry) {
    if (!command.request || command.request.type === "string") return "";
    return command.example === undefined ? "" : JSON.stringify(command.example, null, 2);
}

/** The members of a request that a form can hold: numbers and texts, objects' by their path. */
export interface Member {
    path: string[];
    schema: Schema;
    required: boolean;
}

/** null: the request has a list, or is none of members; only its text can be edited. */
export function membersOf(request: Schema, path: string[] = []): Member[] | null {
    const schema = resolved(request);
    if (schema.type !== "object") return null;
    const members: Member[] = [];
    for (const [name, inner] of Object.entries(schema.properties ?? {})) {
        const member = resolved(inner);
        if (member.deprecated) continue;
        const at = [...path, name];
        if (member.type === "object") {
            const nested = membersOf(member, at);
            if (!nested) return null;
            members.push(...nested);
        } else if (member.type === "array") {
            return null;
        } else {
            members.push({ path: at, schema: member, required: !!schema.required?.includes(name) });
        }
    }
    return members;
}

export function valueAt(document: unknown, path: string[]): unknown {
    return path.reduce<unknown>(
        (value, name) => (value as Record<string, unknown> | undefined)?.[name],
        document,
    );
}

/** The document with a member set; undefined takes it away, and objects that are left empty. */
export function withValue(document: unknown, path: string[], value: unknown): unknown {
    const [name, ...rest] = path;
    if (name === undefined) return value;
    const object = { ...((document as Record<string, unknown>) ?? {}) };
    const inner = withValue(object[name], rest, value);
    if (inner === undefined) delete object[name];
    else object[name] = inner;
    return path.length > 0 && Object.keys(object).length === 0 && value === undefined
        ? undefined
        : object;
}
