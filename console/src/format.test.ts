import assert from "node:assert/strict";
import { test } from "node:test";
import { amount, csvRow, duration, exactTime, rate, shortTime, valueText } from "./format";

test("figures take the unit that fits", () => {
    const rows: [string, string][] = [
        [rate(0), "0 kbit/s"],
        [rate(0.4), "0.4 kbit/s"],
        [rate(752), "752 kbit/s"],
        [rate(1000), "1.00 Mbit/s"],
        [rate(25_758.81), "25.8 Mbit/s"],
        [amount(1023), "1023 KiB"],
        [amount(1024 * 1024), "1.00 GiB"],
        [duration(0), "0 s"],
        [duration(59.6), "1 min"],
        [duration(3 * 86400 + 4 * 3600 + 120), "3 d 4 h"],
        [duration(86400), "1 d"],
    ];
    for (const [got, wanted] of rows) assert.equal(got, wanted);
});

test("a time names its day when it is not today's", () => {
    const now = new Date(2026, 10, 23, 15, 0).getTime();
    const at = (...parts: [number, number, number, number, number]) =>
        shortTime(new Date(...parts).getTime() / 1000, now);
    assert.equal(at(2026, 10, 23, 4, 5), "04:05");
    assert.equal(at(2026, 10, 22, 14, 2), "22 Nov 14:02");
    assert.equal(at(2025, 10, 23, 14, 2), "23 Nov 2025 14:02");
    assert.match(
        exactTime(new Date(2026, 10, 23, 4, 5, 9).getTime() / 1000),
        /23 November 2026.*09/,
    );
});

test("a CSV row survives a spreadsheet", () => {
    assert.equal(csvRow(["a", 1, null]), "a,1,\r\n");
    assert.equal(csvRow(['say "x", y', "=1+1", -5]), '"say ""x"", y",\'=1+1,-5\r\n');
});

test("values of a configuration read as words", () => {
    assert.equal(valueText({ at: "03:00", days: ["sun", "sat"] }), "at 03:00, days sun, sat");
    assert.equal(valueText(null), "none");
    assert.equal(valueText(false), "off");
});
