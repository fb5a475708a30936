// How the stream arrives: figures, their course over time, inter-arrival times, and what was changed meanwhile.

import {button, outcome} from "../actions.js";
import {post} from "../api.js";
import {card, changed, choice, el, facts, field, printable, replace, stateMark, table} from "../dom.js";
import {histogramView} from "../histogram.js";
import {History} from "../history.js";
import {colour} from "../plots.js";
import {streamState} from "../status.js";
import {get} from "../store.js";
import {arrivalPlot, bitRatePlot, delayPlot, errorPlot, numbered, PlotGroup} from "../timeplots.js";
import {bitRateText, countText, isoTime, microsecondsText, millisecondsText, timeText, unknown, withoutZeros} from "../units.js";

/* global Dygraph */

const stretches = [
    ["60", "1 minute"], ["300", "5 minutes"], ["900", "15 minutes"], ["3600", "1 hour"], ["21600", "6 hours"],
    ["86400", "24 hours"]
];
const reloadMs = 250;

export default class Reception {
    id = "reception";
    title = "Reception";
    topics = ["connection", "line", "measurement", "arrivals", "marks"];
    span = 300 * 1000; // of the window, ms
    following = true;  // the window ends now

    build() {
        this.history = new History(300);
        const onMove = (from, to) => this.moveTo(from, to);
        this.plots = new PlotGroup(
            [bitRatePlot({onMove}), delayPlot({onMove}), errorPlot({onMove}), arrivalPlot({onMove})]);
        for (const plot of this.plots.plots) {
            plot.canvas.addEventListener("dblclick", () => this.follow());
            plot.canvas.addEventListener("keydown", (event) => this.key(event));
        }
        return [
            el("div", {class: "columns"}, this.figuresCard(), this.marksCard()), this.courseCard(),
            this.arrivalsCard()
        ];
    }

    figuresCard() {
        this.outcome = outcome();
        this.state = el("p", {class: "said"});
        this.figures = el("div", {});
        this.measure = button("Measure", this.outcome,
            () => post("/api/measure", {on: !get("measurement")?.measuring}).then(() => null),
            {class: "primary", title: "m"});
        return card("Now", this.state, this.figures,
            el("div", {class: "row"}, this.measure,
                el("span", {class: "soft"}, "Measuring stops the player.")),
            this.outcome);
    }

    marksCard() {
        this.marks = el("div", {});
        return card("What was changed", this.marks);
    }

    courseCard() {
        this.stretch = choice(stretches, "300", {onchange: () => this.choose(Number(this.stretch.value))});
        this.pauseButton = el("button",
            {type: "button", "aria-pressed": "false", title: "p", onclick: () => this.pause()}, "Pause");
        const step = (label, name, work) =>
            el("button", {type: "button", "aria-label": name, title: name, onclick: work}, label);
        this.csv = el("a", {class: "button", href: "/api/history.csv", download: "reception.csv"}, "CSV");
        const tools = el("div", {class: "row tools"}, field("Stretch", this.stretch),
            el("div", {class: "group", role: "group", "aria-label": "Zoom and pan"},
                step("◀", "earlier", () => this.shift(-0.5)), step("−", "zoom out", () => this.zoom(2)),
                step("+", "zoom in", () => this.zoom(0.5)), step("▶", "later", () => this.shift(0.5))),
            this.pauseButton, this.csv, this.window = el("span", {class: "soft readout"}));
        return card("Over time", tools,
            el("div", {class: "plots two"}, this.plots.plots.map((plot) => plot.element)),
            el("p", {class: "soft"},
                "Drag to zoom, Shift and drag to pan, double click for now; with the keyboard arrows pan, + and − zoom, 0 is now. "
                    +
                    "Shaded: no stream. Dashed with a number: what was changed."));
    }

    arrivalsCard() {
        this.histogram = histogramView();
        this.logarithmic = el("input", {type: "checkbox", onchange: () => this.showArrivals()});
        this.statistics = el("div", {});
        this.frames = el("div", {
            class: "plot usual",
            tabindex: "0",
            role: "group",
            "aria-label": "Inter-arrival times frame by frame"
        });
        return card("Inter-arrival times of the newest datagrams",
            el("div", {class: "columns"},
                el("div", {}, el("h3", {}, "Histogram"), this.histogram.element,
                    el("label", {class: "check"}, this.logarithmic, "logarithmic counts")),
                el("div", {}, el("h3", {}, "Frame by frame"), this.frames, this.statistics)));
    }

    update() {
        const measurement = get("measurement");
        this.measure.textContent = measurement?.measuring ? "Stop measuring" : "Measure";
        const state = streamState();
        if (changed(this.state, "state", state))
            replace(
                this.state, stateMark(state.kind, state.text), el("span", {class: "more"}, ` ${state.more}`));
        this.showFigures(measurement);
        this.showMarks();
        if (this.following && this.plots.isDue(this.span)) this.draw();
        if (!this.paused && changed(this, "arrivals", get("arrivals"))) this.showArrivals();
    }

    showFigures(measurement) {
        const figures = measurement?.state === "valid" ? measurement.figures : null;
        const total = measurement?.since_start;
        if (!changed(this.figures, "figures", [figures, total])) return;
        const unsure = total && !total.exact ? ` (${countText(total.errors_unsure)} more or fewer, ${
                           countText(total.periods_missed_at_most)} periods missed at most)` :
                                               "";
        replace(this.figures, facts([
            ["bit rate", bitRateText(figures?.bit_rate)],
            ["delay factor", millisecondsText(figures?.delay_factor_ms)],
            ["continuity errors", countText(figures?.continuity_errors)],
            [
                "since the start",
                total ?
                    `${countText(total.continuity_errors)} in ${countText(total.periods)} periods${unsure}` :
                    unknown
            ],
            [
                "datagram",
                figures ? `${figures.packets_per_datagram} × ${figures.packet_size} bytes` : unknown
            ],
            ["all that came in", bitRateText(figures?.received_bit_rate)]
        ]));
    }

    showMarks() {
        const marks = numbered(get("marks"));
        if (!changed(this.marks, "marks", marks)) return;
        replace(this.marks,
            marks.length === 0 ? el("p", {class: "soft"},
                "Nothing since the panel runs. What is ordered of the instrument is marked in the plots.") :
                                 table("What was changed",
                                     [
                                         {title: "#", number: true}, {title: "time", wideOnly: true},
                                         {title: "what"}, {title: "", spoken: "show"}
                                     ],
                                     marks.slice(-8).reverse().map(
                                         (mark) => [mark.number,
                                             el("span", {class: "nowrap"}, timeText(mark.time)),
                                             [
                                                 printable(mark.text),
                                                 el("small", {class: "narrowonly"}, ` ${timeText(mark.time)}`)
                                             ],
                                             el("button", {
                                                 type: "button",
                                                 class: "small",
                                                 "aria-label": `Show mark ${mark.number}`,
                                                 "data-key": `mark-${mark.number}`,
                                                 onclick: () => this.moveTo(
                                                     mark.date - this.span / 2, +mark.date + this.span / 2)
                                             },
                                                 "Show")]),
                                     {class: "pinned"}));
    }

    range() {
        const to = this.following ? Date.now() : this.to;
        return [to - this.span, to];
    }

    draw() {
        const window = this.range();
        this.plots.draw(this.history, window, get("marks"));
        this.window.textContent = `${timeText(window[0] / 1000)} to ${timeText(window[1] / 1000)}`;
        this.csv.href = `/api/history.csv?from=${encodeURIComponent(isoTime(new Date(window[0])))}&to=${
            encodeURIComponent(isoTime(new Date(window[1])))}`;
    }

    choose(seconds) {
        this.span = seconds * 1000;
        this.follow();
    }

    follow() {
        this.following = true;
        this.paused = false;
        this.showPause();
        this.history.loadNewest(this.span / 1000).then(() => this.draw());
    }

    pause() {
        if (!this.following) {
            this.follow();
            return;
        }
        this.to = Date.now();
        this.following = false;
        this.paused = true;
        this.history.hold();
        this.showPause();
    }

    showPause() {
        this.pauseButton.setAttribute("aria-pressed", String(!this.following));
        this.pauseButton.textContent = this.following ? "Pause" : "Back to now";
    }

    /// Zoomed or panned by hand: all plots show this window, in full as soon as the hand rests.
    moveTo(from, to) {
        this.following = false;
        this.span = Math.max(to - from, 5000);
        this.to = to;
        this.showPause();
        this.draw();
        clearTimeout(this.reload);
        this.reload =
            setTimeout(() => this.history.load(new Date(from - this.span / 2), new Date(+to + this.span / 2))
                                 .then((came) => came && this.draw()),
                reloadMs);
    }

    shift(share) {
        const [from, to] = this.range();
        this.moveTo(from + share * this.span, to + share * this.span);
    }

    zoom(factor) {
        const [from, to] = this.range();
        const middle = this.following ? to : (from + to) / 2;
        const after = this.following ? 0 : (this.span * factor) / 2;
        this.moveTo(middle + after - this.span * factor, middle + after);
    }

    key(event) {
        const keys = {
            ArrowLeft: () => this.shift(-0.2),
            ArrowRight: () => this.shift(0.2),
            "+": () => this.zoom(0.5),
            "-": () => this.zoom(2),
            0: () => this.follow()
        };
        if (!keys[event.key] || event.ctrlKey || event.altKey || event.metaKey) return;
        event.preventDefault();
        event.stopPropagation();
        keys[event.key]();
    }

    showArrivals() {
        const arrivals = get("arrivals");
        this.histogram.show(arrivals?.histogram, this.logarithmic.checked);
        requestAnimationFrame(() => this.showFrames(arrivals?.times_us ?? []));
        const s = get("measurement")?.inter_arrival;
        replace(this.statistics,
            s ? facts([
                ["median", microsecondsText(s.median_us)], ["95 %", microsecondsText(s.percentile_95_us)],
                ["99 %", microsecondsText(s.percentile_99_us)],
                [
                    "shortest, longest",
                    `${microsecondsText(s.shortest_us)}, ${microsecondsText(s.longest_us)}`
                ],
                ["mean, deviation", `${microsecondsText(s.mean_us)}, ${microsecondsText(s.deviation_us)}`]
            ]) :
                null);
    }

    showFrames(times) {
        if (times.length === 0 || this.frames.clientWidth === 0) return;
        const rows = times.map((time, at) => [at - times.length + 1, time]);
        if (this.frameGraph) {
            this.frameGraph.updateOptions({file: rows});
            return;
        }
        this.frameGraph = new Dygraph(this.frames, rows, {
            ...this.frameLook(),
            labels: ["frame", "inter-arrival time"],
            legend: "never",
            includeZero: true,
            strokeWidth: 1,
            drawPoints: true,
            pointSize: 1.4,
            highlightCircleSize: 3
        });
    }

    frameLook() {
        const soft = colour("soft");
        return {
            colors: [colour("blue")],
            gridLineColor: colour("line"),
            axisLineColor: colour("line"),
            axisLabelColor: soft,
            axisLabelFontSize: 12,
            axes: {
                y: {
                    axisLabelFormatter: (value) => withoutZeros(microsecondsText(value)),
                    axisLabelWidth: 64,
                    pixelsPerLabel: 34
                }
            }
        };
    }

    shown() {
        this.plots.resize();
        this.frameGraph?.resize();
        this.showArrivals();
        if (this.following) this.follow();
    }

    recolour() {
        this.plots.recolour();
        this.frameGraph?.updateOptions(this.frameLook());
    }

    shortcuts = {p: ["pause the plots, or back to now", () => this.pause()]};
}
