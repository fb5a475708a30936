// The plots of the reception, by the columns of the history.

import {History} from "./history.js";
import {TimePlot} from "./plots.js";
import {bitRateText, countText, microsecondsText, millisecondsText, withoutZeros} from "./units.js";

const one = (name, column, colour) => [{name, column: History.at(column), colour}];

export const bitRatePlot = (options) => new TimePlot({
    title: "Bit rate",
    series: one("bit rate", "bit_rate", "blue"),
    format: bitRateText,
    axis: (rate) => withoutZeros(bitRateText(rate)),
    ...options
});

export const delayPlot = (options) => new TimePlot({
    title: "Delay factor",
    series: one("delay factor", "delay_factor_ms", "green"),
    format: millisecondsText,
    axis: (time) => `${time} ms`,
    steps: true,
    ...options
});

export const errorPlot = (options) => new TimePlot({
    title: "Continuity errors a second",
    series: one("errors", "continuity_errors", "red"),
    format: countText,
    axis: (count) => (Number.isInteger(count) ? String(count) : ""),
    steps: true,
    ...options
});

export const arrivalPlot = (options) => new TimePlot({
    title: "Inter-arrival times",
    format: microsecondsText,
    axis: (time) => withoutZeros(microsecondsText(time)),
    series: [
        ...one("median", "iat_median_us", "blue"), ...one("95 %", "iat_p95_us", "green"),
        ...one("99 %", "iat_p99_us", "orange"), ...one("longest", "iat_longest_us", "purple")
    ],
    ...options
});

/// The marks of what was changed, with a number each, for plots and their list.
export const numbered = (marks) =>
    (marks ?? []).map((mark, at) => ({...mark, number: at + 1, date: new Date(mark.time)}));
