// What matters first: is there a stream, what is in it, how does it arrive, what plays.

import {button, outcome, runButton} from "../actions.js";
import {post} from "../api.js";
import {changed, el, printable, replace, stateMark} from "../dom.js";
import {newestHistory} from "../history.js";
import {kindOfService, lineState, playState, streamState} from "../status.js";
import {get} from "../store.js";
import {bitRatePlot, delayPlot, PlotGroup} from "../timeplots.js";
import {bitRateText, countText, microsecondsText, millisecondsText, timeText, unknown} from "../units.js";

const shownServices = 12;
const seconds = 300;

function answer(question, page) {
    const said = el("p", {class: "said"});
    const more = el("p", {class: "more"});
    const figures = el("div", {class: "figures"});
    const heading = el("h2", {}, el("a", {href: `#${page}`}, question));
    return {
        element: el("section", {class: `card answer ${page}`}, heading, said, more, figures),
        said,
        more,
        figures
    };
}

function figure(name, value, kind) {
    return el("div", {class: `figure ${kind ?? ""}`}, el("span", {}, name), el("b", {}, value));
}

export default class Overview {
    id = "overview";
    title = "Overview";
    topics = ["connection", "line", "instrument", "stream", "play", "measurement", "marks"];

    build() {
        this.stream = answer("Is there a stream?", "network");
        this.inside = answer("What is in it?", "stream");
        this.arrival = answer("How does it arrive?", "reception");
        this.plays = answer("What plays?", "picture");
        this.history = newestHistory();
        this.plots = new PlotGroup([bitRatePlot({height: "low"}), delayPlot({height: "low"})]);
        this.outcome = outcome();
        this.measure = button("Measure", this.outcome,
            () => post("/api/measure", {on: !get("measurement")?.measuring}).then(() => null),
            {class: "primary"});
        this.actions = el("div", {class: "row"}, this.measure,
            runButton("Scan the stream", this.outcome, ["scan"], {show: () => null}),
            el("span", {class: "soft"}, "Measuring and playing exclude each other."));
        return [
            this.actions, this.outcome,
            el("div", {class: "answers"}, this.stream.element, this.inside.element, this.arrival.element,
                this.plays.element),
            el("section", {class: "card", "aria-label": "The last five minutes"},
                el("div", {class: "plots two"}, this.plots.plots.map((plot) => plot.element)))
        ];
    }

    update() {
        const measuring = get("measurement")?.measuring === true;
        this.measure.textContent = measuring ? "Stop measuring" : "Measure";
        this.showStream();
        if (changed(this, "stream", [get("stream"), get("play")?.program, get("measurement")?.measuring]))
            this.showContent();
        this.showArrival();
        this.showPlaying();
        if (this.plots.isDue(seconds * 1000)) this.draw();
    }

    showStream() {
        const line = lineState();
        const state = line.kind === "bad" ? {...line, text: `not known: ${line.text}`} : streamState();
        const instrument = get("instrument");
        if (!changed(this.stream, "state", [state, instrument?.server, instrument?.interface])) return;
        replace(this.stream.said, stateMark(state.kind, state.text));
        replace(this.stream.more, state.more);
        const wired = instrument?.interface;
        replace(this.stream.figures,
            figure("stream server", printable(instrument?.server ?? unknown), "long"),
            figure("Ethernet",
                !wired ? unknown :
                    wired.link_detected === false || wired.connected === false ?
                         "no link" :
                         `${wired.address ?? "no address"}${
                             wired.speed_mbps ? `, ${wired.speed_mbps} Mbit/s` : ""}`,
                "long"));
    }

    showContent() {
        const stream = get("stream");
        const services = stream?.services ?? [];
        const network = stream?.network;
        if (!stream) {
            replace(this.inside.said, stateMark("idle", "not known"));
            replace(this.inside.more, "Scan the stream, to see its services.");
            replace(this.inside.figures);
            return;
        }
        replace(this.inside.said,
            stateMark(services.length > 0 ? "good" : "warn",
                `${services.length} service${services.length === 1 ? "" : "s"}`));
        replace(this.inside.more, [
            `transport stream ${stream.transport_stream_id ?? unknown}`,
            network ? `network ${printable(network.name || network.network_id)}` : "no NIT",
            stream.time ? `scanned ${timeText(stream.time)}` : null
        ].filter(Boolean).join(", "));
        replace(this.inside.figures,
            el("ul", {class: "services"},
                services.slice(0, shownServices).map((service) => this.service(service))),
            services.length > shownServices ?
                el("a", {href: "#stream"}, `and ${services.length - shownServices} more`) :
                null);
    }

    service(service) {
        const name = printable(service.name || `service ${service.service_id}`);
        const playing = get("play")?.program === service.service_id && !get("measurement")?.measuring;
        return el("li", {}, el("span", {class: "grow"}, name, el("small", {}, ` ${kindOfService(service)}`)),
            playing ? stateMark("good", "plays") :
                      runButton("Play", this.outcome, ["play", service.service_id], {
                          show: () => null,
                          class: "small",
                          "aria-label": `Play ${name}`,
                          "data-key": `play-${service.service_id}`
                      }));
    }

    showArrival() {
        const measurement = get("measurement");
        const figures = measurement?.measuring && measurement.state === "valid" ? measurement.figures : null;
        if (!changed(
                this.arrival, "figures", [figures, measurement?.since_start, measurement?.inter_arrival]))
            return;
        const total = measurement?.since_start;
        replace(this.arrival.said,
            figures ? el("b", {class: "big"}, bitRateText(figures.bit_rate)) :
                      stateMark("idle", "no figures"));
        replace(this.arrival.more,
            figures ? `${figures.packets_per_datagram} × ${figures.packet_size} bytes in a datagram` :
                      "Figures come while the instrument measures.");
        replace(this.arrival.figures,
            figures ?
                [
                    figure("delay factor", millisecondsText(figures.delay_factor_ms)),
                    figure("continuity errors", countText(figures.continuity_errors),
                        figures.continuity_errors > 0 ? "bad" : ""),
                    figure("since the start",
                        total ? `${countText(total.continuity_errors)}${total.exact ? "" : " or so"}` :
                                unknown),
                    figure("inter-arrival, median", microsecondsText(measurement.inter_arrival?.median_us)),
                    figure(
                        "inter-arrival, 99 %", microsecondsText(measurement.inter_arrival?.percentile_99_us)),
                    figure("longest", microsecondsText(measurement.inter_arrival?.longest_us))
                ] :
                                null);
    }

    showPlaying() {
        const state = playState();
        const play = get("play");
        if (!changed(this.plays, "state", [state, play])) return;
        replace(this.plays.said, stateMark(state.kind, state.text));
        replace(this.plays.more, printable(state.more));
        const presentation = state.kind === "idle" ? null : play?.presentation;
        replace(this.plays.figures,
            presentation ?
                [
                    figure("picture",
                        presentation.width ? `${printable(presentation.video)}, ${presentation.width} × ${
                            presentation.height}` :
                                             printable(presentation.video ?? "none")),
                    figure("sound", printable(presentation.audio ?? "none")),
                    figure("scrambled", presentation.scrambled)
                ] :
                null);
    }

    draw() {
        const now = Date.now();
        this.plots.draw(this.history, [now - seconds * 1000, now], get("marks"));
    }

    shown() {
        this.plots.resize();
        if (this.history.rows.length === 0) this.history.loadNewest().then(() => this.draw());
    }

    recolour() { this.plots.recolour(); }
}
