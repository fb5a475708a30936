// Plots over time, by dygraphs, in the page's colours. Their legends are the page's own: dygraphs' one is HTML with styles in it,
// which the content security policy rightly refuses.

/* global Dygraph */
import {el, replace, setText} from "./dom.js";
import {clockText, dateText} from "./units.js";

/// The value of one of the style sheet's colours, as the canvas wants it.
export function colour(name) {
    const probe = el("span", {hidden: true});
    document.body.append(probe);
    probe.style.color = `var(--${name})`;
    const value = getComputedStyle(probe).color;
    probe.remove();
    return value;
}

function axisTime(date, granularity) {
    if (granularity >= Dygraph.DAILY) return dateText(date);
    return granularity >= Dygraph.MINUTELY ? clockText(date).slice(0, 5) : clockText(date);
}

// Its legend would set styles that the content security policy refuses, even where it is never shown.
Dygraph.PLUGINS = Dygraph.PLUGINS.filter((plugin) => plugin !== Dygraph.Plugins.Legend);

const patterns = [undefined, [7, 3], [2, 3], [9, 3, 2, 3]];

/// A plot with one axis of time. `series` are {name, column, colour}; `format` writes a value with its unit, `axis` one at the axis.
export class TimePlot {
    constructor({title, series, format, axis, steps = false, height = "usual", onMove}) {
        Object.assign(this, {title, series, format, axis, steps, onMove});
        this.readout = el("span", {class: "readout"});
        this.canvas = el("div", {
            class: `plot ${height}`,
            tabindex: "0",
            role: "group",
            "aria-label": `${title}, plot over time`
        });
        this.element = el("figure", {},
            el("figcaption", {}, el("strong", {}, title), this.legend(), this.readout), this.canvas);
        this.marks = [];
        this.absences = [];
    }

    legend() {
        if (this.series.length < 2) return null;
        return el("span", {class: "legend"},
            this.series.map((each, at) => el("span", {class: `key ${each.colour} dash${at}`}, each.name)));
    }

    /// Rows of Date and values; the window is a pair of milliseconds.
    show(rows, window, {marks = [], absences = []} = {}) {
        Object.assign(this, {marks, absences, window});
        const own = rows.map((row) => [row[0], ...this.series.map((each) => row[each.column])]);
        if (this.graph)
            this.graph.updateOptions({file: own, dateWindow: window});
        else if (own.length > 0 && this.canvas.clientWidth > 0)
            this.begin(own, window);
        this.tellLast(own);
    }

    begin(rows, window) {
        replace(this.canvas);
        this.graph = new Dygraph(this.canvas, rows, {
            ...this.look(),
            dateWindow: window,
            labels: ["time", ...this.series.map((each) => each.name)],
            legend: "never",
            stepPlot: this.steps,
            fillGraph: this.series.length === 1,
            fillAlpha: 0.14,
            strokeWidth: 1.6,
            includeZero: true,
            animatedZooms: false,
            highlightCircleSize: 3,
            series:
                Object.fromEntries(this.series.map((each, at) => [each.name, {strokePattern: patterns[at]}])),
            underlayCallback: (context, area, graph) => this.underlay(context, area, graph),
            highlightCallback: (event, x, points) => this.tell(x, points),
            unhighlightCallback: () => this.tellLast(),
            drawCallback: (graph, initial) => {
                if (!initial) this.tellMove(graph.xAxisRange());
            },
        });
    }

    /// Another window than the one to show: somebody has zoomed or panned by hand.
    tellMove([from, to]) {
        if (Math.abs(from - this.window[0]) > 1 || Math.abs(to - this.window[1]) > 1) this.onMove?.(from, to);
    }

    look() {
        const soft = colour("soft");
        return {
            colors: this.series.map((each) => colour(each.colour)),
            gridLineColor: colour("line"),
            axisLineColor: colour("line"),
            axisLabelColor: soft,
            axisLabelFontSize: 12,
            axes: {
                x: {axisLabelFormatter: axisTime, pixelsPerLabel: 84},
                y: {axisLabelFormatter: (value) => this.axis(value), axisLabelWidth: 64, pixelsPerLabel: 34},
            },
        };
    }

    /// After another theme has been chosen.
    recolour() { this.graph?.updateOptions(this.look()); }

    resize() { this.graph?.resize(); }

    underlay(context, area, graph) {
        context.save();
        context.fillStyle = colour("absent");
        for (const [from, to] of this.absences) {
            const left = Math.max(graph.toDomXCoord(from), area.x);
            context.fillRect(
                left, area.y, Math.max(Math.min(graph.toDomXCoord(to), area.x + area.w) - left, 2), area.h);
        }
        context.strokeStyle = context.fillStyle = colour("purple");
        context.setLineDash([3, 3]);
        context.font = "600 11px system-ui, sans-serif";
        this.marks.forEach((mark, at) => {
            const x = graph.toDomXCoord(mark.date);
            if (x < area.x || x > area.x + area.w) return;
            context.beginPath();
            context.moveTo(x, area.y);
            context.lineTo(x, area.y + area.h);
            context.stroke();
            context.fillText(String(mark.number ?? at + 1), x + 3, area.y + 11);
        });
        context.restore();
    }

    tell(x, points) {
        const values =
            points.filter((point) => point.yval !== null && !Number.isNaN(point.yval))
                .map((point) => (this.series.length > 1 ? `${point.name} ${this.format(point.yval)}` :
                                                          this.format(point.yval)));
        setText(this.readout, `${clockText(new Date(x))}   ${values.join("   ")}`);
        this.held = true;
    }

    tellLast(rows) {
        if (rows === undefined) this.held = false;
        if (this.held) return;
        this.last = (rows ?? []).at(-1) ?? this.last;
        const values = this.series.map((each, at) => [each.name, this.last?.[at + 1]])
                           .filter(([, value]) => value !== null && value !== undefined)
                           .map(([name, value]) => (this.series.length > 1 ? `${name} ${this.format(value)}` :
                                                                             this.format(value)));
        setText(this.readout, values.join("   "));
    }
}
