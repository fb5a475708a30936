// What a command answered, laid out by its keys: for the commands that have no view of their own.

import {el, facts, printable, table} from "./dom.js";
import {bitRateText, byteCount, countText, pidText, timeText, unknown} from "./units.js";

const left = new Set(["hex", "sent_hex", "descriptors"]);

/// "received_bit_rate" as "received bit rate"; units that the value carries are left out.
export function nameOf(key) { return key.replace(/_(bytes|us|ms|hz|mbps)$/, "").replaceAll("_", " "); }

function withUnit(key, value) {
    if (key.endsWith("pid")) return pidText(value);
    if (key.endsWith("bit_rate")) return bitRateText(value);
    if (key === "bytes" || key.endsWith("_bytes")) return byteCount(value);
    if (key.endsWith("_us")) return `${countText(value)} µs`;
    if (key.endsWith("_ms")) return `${value} ms`;
    if (key.endsWith("_hz")) return `${value / 1e6} MHz`;
    if (key.endsWith("_mbps")) return `${value} Mbit/s`;
    if (key === "seconds" || key.endsWith("_seconds")) return `${value} s`;
    return String(value);
}

export function valueText(key, value) {
    if (value === null || value === undefined || value === "") return unknown;
    if (value === true) return "yes";
    if (value === false) return "no";
    if (typeof value === "number") return withUnit(key, value);
    return key === "time" || key.endsWith("_time") ? timeText(value) : printable(value);
}

function listView(key, list) {
    if (list.length === 0) return unknown;
    if (typeof list[0] !== "object") return list.map((each) => valueText(key, each)).join(", ");
    const keys = Object.keys(list[0]).filter((each) => !left.has(each));
    return table(nameOf(key),
        keys.map((each) => ({title: nameOf(each), number: typeof list[0][each] === "number"})),
        list.map((item) => keys.map((each) => part(each, item[each]))));
}

function part(key, value) {
    if (Array.isArray(value)) return listView(key, value);
    if (value !== null && typeof value === "object") return resultView(value);
    if (key === "text" || key === "output") return el("pre", {tabindex: "0"}, value ?? unknown);
    return valueText(key, value);
}

/// All keys of the answer but its time and bytes.
export function resultView(value) {
    if (value === null || value === undefined) return el("p", {class: "soft"}, "done");
    return facts(
        Object.entries(value).filter(([key]) => key !== "time" && !left.has(key)).map(([key,
            each]) => [nameOf(key), part(key, each)]));
}
