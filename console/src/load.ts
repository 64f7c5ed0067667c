// Loads what a view shows, and loads it again when something happened to it.
import { useCallback, useEffect, useRef, useState } from "preact/hooks";
import { Failure } from "./api";
import { onHappening, type Happening } from "./events";

export interface Loaded<T> {
    data: T | undefined; // the last that came; stays while a newer one is on its way
    at: number; // when it came, ms
    failure: Failure | undefined; // why there is no newer one
    loading: boolean;
    reload: () => void;
}

const quietMs = 700; // events come in swarms: one answer serves them all

/** For what concerns the whole fleet, whose events never rest. */
export const calmMs = 5000;

/** `key` names what is loaded: with another key the old data is dropped. `concerns` tells
 *  which happenings call for a new load; a reset of the stream always does. */
export function useLoaded<T>(
    key: string,
    load: (signal: AbortSignal) => Promise<T>,
    concerns: (happening: Happening) => boolean = () => false,
    quiet = quietMs,
): Loaded<T> {
    const [state, setState] = useState<{ key: string; data?: T; at: number; failure?: Failure }>({
        key: "",
        at: 0,
    });
    const [loading, setLoading] = useState(true);
    const latest = useRef({ load, concerns });
    latest.current = { load, concerns };
    const running = useRef<AbortController | null>(null);

    const reload = useCallback(() => {
        running.current?.abort();
        const own = (running.current = new AbortController());
        setLoading(true);
        latest.current.load(own.signal).then(
            (data) => {
                if (own.signal.aborted) return;
                setState({ key, data, at: Date.now() });
                setLoading(false);
            },
            (error) => {
                if (own.signal.aborted) return;
                const failure =
                    error instanceof Failure ? error : new Failure(0, { detail: String(error) });
                setState((old) => ({ ...(old.key === key ? old : { at: 0 }), key, failure }));
                setLoading(false);
            },
        );
    }, [key]);

    useEffect(() => {
        reload();
        return () => running.current?.abort();
    }, [reload]);

    useEffect(() => {
        let timer: ReturnType<typeof setTimeout> | undefined;
        const stop = onHappening((happening) => {
            if (happening.type !== "reset" && !latest.current.concerns(happening)) return;
            timer ??= setTimeout(() => {
                timer = undefined;
                reload();
            }, quiet);
        });
        return () => {
            stop();
            clearTimeout(timer);
        };
    }, [reload, quiet]);

    const own = state.key === key;
    return {
        data: own ? state.data : undefined,
        at: own ? state.at : 0,
        failure: own ? state.failure : undefined,
        loading,
        reload,
    };
}
