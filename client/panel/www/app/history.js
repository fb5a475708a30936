// The course of the measurement: a stretch of it as the panel keeps it, and each second as it comes.

import {fetchJson} from "./api.js";
import {get, on} from "./store.js";
import {dateOf, isoTime} from "./units.js";

const gapMs = 5000;  // without a row that long, nothing is known
const points = 1500; // more than a plot has pixels; the panel thins with least and most kept
const columns = [
    "present", "bit_rate", "delay_factor_ms", "continuity_errors", "iat_median_us", "iat_p95_us",
    "iat_p99_us", "iat_longest_us"
];

/// Rows [Date, present, bit_rate, ...] in the order of `columns`, oldest first.
export class History {
    constructor(seconds) {
        this.rows = [];
        this.seconds = seconds;
        this.loaded = 0;
        this.live = false; // rows are appended as they come
        on("measurement", (measurement) => this.take(measurement));
        on("connection", ({up}) => {
            if (up && (this.live || this.rows.length === 0)) this.loadNewest();
        });
    }

    /// The index of a column in a row.
    static at(column) { return columns.indexOf(column) + 1; }

    /// The last so many seconds, and what comes from now on.
    loadNewest(seconds = this.seconds) {
        this.seconds = seconds;
        this.live = true;
        const now = Date.now();
        return this.load(new Date(now - seconds * 1000), new Date(now));
    }

    /// Stays as it is, for whoever looks at something.
    hold() { this.live = false; }

    /// A stretch; an answer that comes after a later question is dropped.
    async load(from, to) {
        this.loaded += 1;
        const mine = this.loaded;
        const query = `from=${encodeURIComponent(isoTime(from))}&to=${
            encodeURIComponent(isoTime(to))}&points=${points}`;
        try {
            const answer = await fetchJson(`/api/history?${query}`);
            if (mine === this.loaded) this.rows = rowsOf(answer);
        } catch {
            return false; // the head of the page says that the panel is away
        }
        return mine === this.loaded;
    }

    /// A row of what has just been measured, once a second.
    take({time, measuring, state, figures, inter_arrival: arrivals}) {
        if (!measuring || !this.live) return;
        const date = dateOf(time) ?? new Date();
        const last = this.rows.at(-1)?.[0];
        if (last && date - last < 950) return;
        if (last && date - last > gapMs) this.rows.push(unknownFrom(last));
        const valid = state === "valid" ? figures : undefined;
        this.rows.push([
            date, state === "absent" ? 0 : 1,
            ...["bit_rate", "delay_factor_ms", "continuity_errors"].map((key) => valid?.[key] ?? null),
            ...["median_us", "percentile_95_us", "percentile_99_us", "longest_us"].map(
                (key) => (valid && arrivals?.[key]) ?? null)
        ]);
        if (this.rows.length > 2 * points) this.loadNewest();
    }

    /// Stretches without stream, as pairs of Dates.
    absences() {
        const found = [];
        let from = null;
        for (const row of this.rows) {
            if (row[1] === 0)
                from ??= row[0];
            else if (from !== null) {
                found.push([from, row[0]]);
                from = null;
            }
        }
        if (from !== null) found.push([from, this.rows.at(-1)[0]]);
        return found;
    }
}

function rowsOf({columns: named, rows}) {
    const places = ["time", ...columns].map((name) => named.indexOf(name));
    const all =
        rows.map((row) => places.map((place, at) => (at === 0 ? dateOf(row[place]) : number(row[place]))));
    const steps = all.slice(1).map((row, at) => row[0] - all[at][0]).sort((one, other) => one - other);
    const gap = Math.max(
        gapMs, 4 * (steps[(3 * (steps.length - 1)) >> 2] ?? 0)); // of a long stretch not every second comes
    const follows = (row, at) => at === 0 || row[0] - all[at - 1][0] <= gap;
    return all.flatMap((row, at) => (follows(row, at) ? [row] : [unknownFrom(all[at - 1][0]), row]));
}

/// Ends what is drawn: a row without values just behind this moment.
const unknownFrom = (date) => [new Date(+date + 1), ...columns.map(() => null)];

const number = (value) => (value === null || value === undefined ? null : Number(value));

/// The same for all pages that look at the newest minutes.
let shared;
export function newestHistory() {
    if (shared === undefined) {
        shared = new History(600);
        if (get("connection")?.up) shared.loadNewest();
    }
    return shared;
}
