// Figures of a device over time.
import { useEffect, useRef, useState } from "preact/hooks";
import uPlot from "uplot";
import { get } from "./api";
import type { PartProps } from "./device";
import { rate, shortTime, whole } from "./format";
import { useLoaded } from "./load";
import { Empty, Show } from "./parts";
import { param, withParams } from "./router";

const ranges: Record<string, [seconds: number, words: string]> = {
    "1h": [3600, "1 hour"],
    "6h": [6 * 3600, "6 hours"],
    "24h": [86400, "24 hours"],
    "7d": [7 * 86400, "7 days"],
    "30d": [30 * 86400, "30 days"],
};
const points = 300; // of a line, about one for each three pixels

interface Chart {
    title: string;
    lines: [metric: string, words: string][];
    text: (value: number) => string;
    most?: number;
}

const charts: Chart[] = [
    {
        title: "Clients",
        lines: [
            ["clients_24", "2.4 GHz"],
            ["clients_5", "5 GHz"],
        ],
        text: (value) => whole(Math.round(value * 10) / 10),
    },
    {
        title: "Uplink",
        lines: [
            ["up_rate", "receives"],
            ["down_rate", "sends"],
        ],
        text: rate,
    },
    {
        title: "Load",
        lines: [
            ["cpu", "processor"],
            ["memory", "memory"],
        ],
        text: (value) => `${Math.round(value)} %`,
        most: 100,
    },
];

/** Lines over one common row of times; a step without a sample is a gap, not a guess. */
export function align(
    lines: number[][][],
    from: number,
    to: number,
    step: number,
): [number[], ...(number | null)[][]] {
    const first = Math.floor(from / step) * step;
    const times: number[] = [];
    for (let at = first; at <= to; at += step) times.push(at);
    const rows = lines.map((line) => {
        const known = new Map(line.map(([at, value]) => [at, value ?? null]));
        return times.map((at) => known.get(at) ?? null);
    });
    return [times, ...rows];
}

export function Charts({ device }: PartProps) {
    const range = ranges[param("range")] ? param("range") : "24h";
    return (
        <>
            <nav class="buttons bar" aria-label="Range">
                {Object.entries(ranges).map(([name, [, words]]) => (
                    <a
                        key={name}
                        class={name === range ? "button main" : "button"}
                        aria-current={name === range ? "true" : undefined}
                        href={withParams({ range: name })}
                    >
                        {words}
                    </a>
                ))}
            </nav>
            {charts.map((chart) => (
                <section class="card" key={chart.title}>
                    <h2>{chart.title}</h2>
                    <OneChart chart={chart} serial={device.serial} range={range} />
                </section>
            ))}
        </>
    );
}

function OneChart(props: { chart: Chart; serial: string; range: string }) {
    const { chart, serial, range } = props;
    const seconds = ranges[range]![0];
    const samples = useLoaded(
        `${chart.title} ${serial} ${range}`,
        async (signal) => {
            const to = Math.floor(Date.now() / 1000);
            const step = Math.max(60, Math.ceil(seconds / points / 60) * 60);
            const query = { from: to - seconds, to: to + 1, step };
            const lines = await Promise.all(
                chart.lines.map(([metric]) =>
                    get("/api/v1/devices/{serial}/samples", {
                        path: { serial },
                        query: { ...query, metric },
                        signal,
                    }),
                ),
            );
            return align(
                lines.map((line) => line.values),
                query.from,
                to,
                step,
            );
        },
        (happening) =>
            happening.type === "report" &&
            happening.serial === serial &&
            happening.data.report === "status",
    );
    return (
        <Show of={samples}>
            {(data) => {
                const [times, ...rows] = data;
                const last = rows.map((row) => row.findLast((value) => value !== null) ?? null);
                if (last.every((value) => value === null)) {
                    return <Empty>No samples in this range.</Empty>;
                }
                const text = (value: number | null) =>
                    value === null ? "no value" : chart.text(value);
                const sum = chart.lines
                    .map(([, words], i) => `${words} ${text(last[i] ?? null)}`)
                    .join(", ");
                return (
                    <>
                        <p class="legend">
                            {chart.lines.map(([metric, words], i) => (
                                <span key={metric}>
                                    <i class={i === 0 ? "one" : "two"} />
                                    {words} {text(last[i] ?? null)}
                                </span>
                            ))}
                        </p>
                        <Plot
                            label={`${chart.title}, ${ranges[range]![1]} up to ${shortTime(times.at(-1) ?? 0)}; last: ${sum}`}
                            data={data}
                            chart={chart}
                        />
                    </>
                );
            }}
        </Show>
    );
}

function Plot(props: { label: string; data: [number[], ...(number | null)[][]]; chart: Chart }) {
    const place = useRef<HTMLDivElement>(null);
    const plot = useRef<uPlot | null>(null);
    const [theme, setTheme] = useState(0);

    useEffect(() => {
        const again = () => setTheme((count) => count + 1);
        const scheme = matchMedia("(prefers-color-scheme: dark)");
        addEventListener("themechange", again);
        scheme.addEventListener("change", again);
        return () => {
            removeEventListener("themechange", again);
            scheme.removeEventListener("change", again);
        };
    }, []);

    useEffect(() => {
        const element = place.current!;
        const made = new uPlot(options(element, props.chart), props.data, element);
        plot.current = made;
        const resized = new ResizeObserver(() =>
            made.setSize({ width: element.clientWidth, height: 200 }),
        );
        resized.observe(element);
        return () => {
            resized.disconnect();
            made.destroy();
        };
    }, [theme, props.chart]);

    useEffect(() => plot.current?.setData(props.data), [props.data]);
    return <div class="chart" role="img" aria-label={props.label} ref={place} />;
}

/** The canvas knows no variables of the style sheet: the colours are looked up. */
function options(element: HTMLElement, chart: Chart): uPlot.Options {
    const probe = document.createElement("span");
    element.append(probe);
    const color = (name: string) => {
        probe.className = "";
        probe.style.color = `var(${name})`;
        return getComputedStyle(probe).color;
    };
    const axis = { stroke: color("--soft"), grid: { stroke: color("--line"), width: 1 } };
    const strokes = [color("--chart-1"), color("--chart-2")];
    probe.remove();
    return {
        width: element.clientWidth,
        height: 200,
        legend: { show: false },
        cursor: { drag: { x: false, y: false } },
        scales: {
            y: { range: (_, __, most) => [0, chart.most ?? Math.max(most * 1.1, 1)] },
        },
        axes: [
            {
                ...axis,
                values: (_, times) => times.map((at) => shortTime(at)),
                space: 90,
            },
            { ...axis, values: (_, values) => values.map(chart.text), size: 95 },
        ],
        series: [
            {},
            ...chart.lines.map(([, label], i) => ({
                label,
                stroke: strokes[i]!,
                width: 1.5,
                points: { show: true, size: 3, fill: strokes[i]! },
            })),
        ],
    };
}
