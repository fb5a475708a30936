// Quantities and dates as tessaryctl prints them.

function withUnit(value, units) {
    let unit = 0;
    for (; value >= 999.5 && unit + 1 < units.length; unit += 1) value /= 1000;
    const decimals = unit === 0 ? 0 : value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
    return `${value.toFixed(decimals)} ${units[unit]}`;
}

const known = (value) => typeof value === "number" && Number.isFinite(value);

export const unknown = "–";
export const byteCount = (bytes) =>
    (known(bytes) ? withUnit(bytes, ["bytes", "kB", "MB", "GB", "TB"]) : unknown);
export const bitRateText = (rate) =>
    (known(rate) ? withUnit(rate, ["bit/s", "kbit/s", "Mbit/s", "Gbit/s"]) : unknown);
export const microsecondsText = (time) => (known(time) ? withUnit(time, ["µs", "ms", "s"]) : unknown);
export const millisecondsText = (time) => (known(time) ? `${Math.round(time)} ms` : unknown);
export const countText = (count) => (known(count) ? String(count).replace(/\B(?=(\d{3})+$)/g, ",") : unknown);
export const pidText = (pid) => (known(pid) ? `${pid} (0x${pid.toString(16)})` : unknown);

export function durationText(seconds) {
    const all = Math.round(seconds);
    const two = (number) => String(number).padStart(2, "0");
    return all >= 3600 ? `${Math.floor(all / 3600)}:${two(Math.floor(all / 60) % 60)}:${two(all % 60)}` :
                         `${Math.floor(all / 60)}:${two(all % 60)}`;
}

const two = (number) => String(number).padStart(2, "0");
export const dateText = (date) => `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())}`;
export const clockText = (date) =>
    `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`;

/// "2026-11-21 22:05:11" in the reader's zone, of ISO 8601 or Unix seconds; the dash when there is none.
export function timeText(time) {
    const date = dateOf(time);
    return date === null ? unknown : `${dateText(date)} ${clockText(date)}`;
}

/// The clock alone, with milliseconds.
export function preciseTimeText(time) {
    const date = dateOf(time);
    return date === null ? unknown : `${clockText(date)}.${String(date.getMilliseconds()).padStart(3, "0")}`;
}

/// A Date of ISO 8601 or Unix seconds; null of anything else.
export function dateOf(time) {
    if (time === null || time === undefined) return null;
    const date = new Date(typeof time === "number" ? time * 1000 : time);
    return Number.isNaN(date.getTime()) ? null : date;
}

/// ISO 8601 with the zone's distance from UTC.
export function isoTime(date) {
    const east = -date.getTimezoneOffset();
    const zone = `${east < 0 ? "-" : "+"}${two(Math.floor(Math.abs(east) / 60))}:${two(Math.abs(east) % 60)}`;
    return `${dateText(date)}T${clockText(date)}.${String(date.getMilliseconds()).padStart(3, "0")}${zone}`;
}

export function bytesOf(hex) {
    const digits = (hex ?? "").replace(/[^0-9a-fA-F]/g, "");
    return Uint8Array.from(
        {length: Math.floor(digits.length / 2)}, (_, at) => parseInt(digits.substr(2 * at, 2), 16));
}

/// "5 Mbit/s" of "5.00 Mbit/s": for axes.
export const withoutZeros = (text) => text.replace(/(\.\d*?)0+ /, "$1 ").replace(". ", " ");

export const hexOf = (byte) => byte.toString(16).padStart(2, "0");
export const letterOf = (byte) => (byte >= 0x20 && byte < 0x7f ? String.fromCharCode(byte) : ".");
