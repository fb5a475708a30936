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

/// Plots below each other that show the same window; they are drawn one a frame, so that the page answers meanwhile.
export class PlotGroup {
    constructor(plots) { Object.assign(this, {plots, toDraw: [], drawn: 0}); }

    /// Whether a window of so many milliseconds that ends now has moved by a pixel since it was drawn; at most once a second.
    isDue(span) {
        const width = this.plots[0].canvas.clientWidth || 1;
        return Date.now() - this.drawn > Math.max(950, span / width);
    }

    /// `window` is a pair of milliseconds.
    draw(history, window, marks) {
        this.drawn = Date.now();
        const begun = this.toDraw.length > 0;
        this.what = {
            rows: history.rows,
            window,
            about: {marks: numbered(marks), absences: history.absences()}
        };
        this.toDraw = [...this.plots];
        if (!begun) this.drawNext();
    }

    drawNext() {
        this.toDraw.shift().show(this.what.rows, this.what.window, this.what.about);
        if (this.toDraw.length > 0) requestAnimationFrame(() => this.drawNext());
    }

    resize() { this.plots.forEach((plot) => plot.resize()); }
    recolour() { this.plots.forEach((plot) => plot.recolour()); }
}

/// The marks of what was changed, with a number each, for plots and their list.
export const numbered = (marks) =>
    (marks ?? []).map((mark, at) => ({...mark, number: at + 1, date: new Date(mark.time)}));
