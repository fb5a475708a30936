// The desk around a virtual instrument: senders, cable, daemon, and whatever can be made to go wrong.

import {button, form, outcome, showError} from "../actions.js";
import {fetchJson, post, remove} from "../api.js";
import {card, changed, choice, el, facts, field, printable, replace, stateMark, table} from "../dom.js";
import {get, on, set} from "../store.js";
import {bitRateText, byteCount, timeText, unknown} from "../units.js";

const askMs = 2000;
const known = {
    configured: "the FPGA has a configuration (1) or has lost it (0)",
    "done-stuck": "1: the done line never rises",
    "spi-fail": "this SPI transfer after the program pulse fails",
    "export-rate": "bytes a second that the stream input takes; 0 stalls it, -1 takes all",
    "export-fails": "1: writes to the stream input fail",
    "export-absent": "1: the stream input can not be opened"
};

/// "9.5M" as bit/s; null of nothing.
export function rateOf(text) {
    const found = /^\s*([\d.]+)\s*([kMG]?)\s*$/.exec(text);
    return found ? Math.round(Number(found[1]) * {"": 1, k: 1e3, M: 1e6, G: 1e9}[found[2]]) : null;
}

export default class Desk {
    id = "desk";
    title = "Desk";
    topics = ["desk", "instrument"];

    constructor() {
        on("desk", () => {
            this.isTold = !this.asking;
        });
    }

    build() {
        this.outcome = outcome();
        this.only = el("p", {class: "note"}, "The desk is there with a virtual instrument only.");
        this.senders = el("div", {});
        this.machine = el("div", {});
        this.behaviours = el("div", {});
        this.about = el("div", {});
        this.parts =
            el("div", {class: "page"}, this.outcome, card("Stream senders", this.senders, this.senderForm()),
                el("div", {class: "columns"}, card("Cable and daemon", this.machine, this.machineButtons()),
                    this.knobCard(), this.dabCard(), this.behaviourCard()));
        return [this.only, this.parts];
    }

    senderForm() {
        this.file = choice([], "", {required: true});
        const url = el("input", {
            value: "udp://239.0.0.1:1234",
            required: true,
            spellcheck: "false",
            pattern: "(udp|rtp)://.+:[0-9]+"
        });
        const rate = el(
            "input", {placeholder: "its own", pattern: "\\s*[\\d.]+\\s*[kMG]?\\s*", title: "such as 9.5M"});
        const errors = el("input", {type: "number", min: "0", step: "any", value: "0"});
        return form(
            [
                field("Stream", this.file), field("To", url), field("Bit rate", rate),
                field("Continuity errors a second", errors)
            ],
            "Start sender", async () => {
                await post("/api/desk/senders", {
                    file: this.file.value,
                    url: url.value.trim(),
                    bit_rate: rateOf(rate.value),
                    cc_errors_per_second: Number(errors.value),
                    loop: true
                });
                this.ask();
                return null;
            });
    }

    order(label, path, value, attributes) {
        return button(label, this.outcome, async () => {
            await post(`/api/desk/${path}`, typeof value === "function" ? value() : value);
            this.ask();
            return null;
        }, attributes);
    }

    machineButtons() {
        const daemon = (action) =>
            this.order(`${action[0].toUpperCase()}${action.slice(1)} the daemon`, "daemon", {action});
        return el("div", {class: "stack"},
            el("div", {class: "row"}, this.order("Plug the cable in", "link", {up: true}),
                this.order("Pull it out", "link", {up: false})),
            el("div", {class: "row"}, ["start", "stop", "kill", "restart"].map(daemon)));
    }

    knobCard() {
        this.knobs = el("div", {});
        const name = choice(Object.keys(known).map((each) => [each, each]), "configured",
            {onchange: () => replace(about, known[name.value])});
        const about = el("p", {class: "soft"}, known.configured);
        const value = el("input", {value: "1", required: true, pattern: "-?\\d+"});
        return this.knobPart = card("FPGA", this.knobs,
                   form([field("Knob", name), field("Value", value)], "Turn it", async () => {
                       await post("/api/desk/knobs", {[name.value]: value.value});
                       this.ask();
                       return null;
                   }, {primary: false}), about);
    }

    dabCard() {
        const number = (value) => el("input", {type: "number", min: "0", step: "any", value: String(value)});
        this.dab = {open_after_s: number(2), answer_after_s: number(0), die_at: number(0)};
        this.never = el("input", {type: "checkbox"});
        return this.dabPart = card("DAB receiver",
                   form(
                       [
                           field("Seconds until its socket opens", this.dab.open_after_s),
                           field("Seconds before each answer", this.dab.answer_after_s),
                           field("Dies at block", this.dab.die_at, "0: never"),
                           el("label", {class: "check"}, this.never, "never opens")
                       ],
                       "Set", async () => {
                           const value = Object.fromEntries(
                               Object.entries(this.dab).map(([key, input]) => [key, Number(input.value)]));
                           const pieces = get("desk")?.dab?.pieces ?? [];
                           await post("/api/desk/dab", {...value, pieces, never_opens: this.never.checked});
                           return el("p", {class: "soft"}, "set");
                       }, {primary: false}));
    }

    behaviourCard() {
        const text = (placeholder) => el("input", {placeholder, spellcheck: "false"});
        const program = el("input", {required: true, value: "smcroute", spellcheck: "false"});
        const fields = {
            when: text("any call"),
            status: el("input", {type: "number", placeholder: "runs as usual"}),
            delay: el("input", {type: "number", min: "0", step: "any", placeholder: "0"}),
            stderr: text("nothing"),
            times: el("input", {type: "number", min: "1", placeholder: "always"})
        };
        return card("Programs that the daemon runs", this.behaviours,
            form(
                [
                    field("Program", program), field("Only with argument", fields.when),
                    field("Ends with status", fields.status), field("Waits seconds", fields.delay),
                    field("Says on standard error", fields.stderr), field("Times", fields.times)
                ],
                "Let it", async () => {
                    const order = {program: program.value.trim()};
                    for (const [key, input] of Object.entries(fields))
                        if (input.value !== "")
                            order[key] = input.type === "number" ? Number(input.value) : input.value;
                    await post("/api/desk/behave", order);
                    this.ask();
                    return null;
                }, {primary: false}));
    }

    update() {
        const virtual = get("instrument")?.virtual === true;
        this.only.hidden = get("instrument") === undefined || virtual;
        this.parts.hidden = !virtual;
        const desk = get("desk");
        if (!desk || !changed(this, "desk", desk)) return;
        this.showStreams(desk.streams ?? []);
        this.showSenders(desk.senders ?? []);
        replace(this.machine, facts([
            ["cable", desk.link?.up ? stateMark("good", "plugged in") : stateMark("bad", "out")],
            [
                "daemon",
                desk.daemon?.running ? stateMark("good", `runs, PID ${desk.daemon.pid}`) :
                                       stateMark("bad", "does not run")
            ],
            desk.card && ["memory card", `${byteCount(desk.card.free)} of ${byteCount(desk.card.bytes)} free`]
        ]));
        this.knobPart.hidden = desk.knobs === null || desk.knobs === undefined;
        this.dabPart.hidden = desk.dab === null || desk.dab === undefined;
        replace(this.knobs, facts(Object.entries(desk.knobs ?? {})));
        if (desk.dab && changed(this, "dab", desk.dab)) this.fillDab(desk.dab);
        this.showBehaviours(desk.behaviours ?? []);
    }

    fillDab(dab) {
        for (const [key, input] of Object.entries(this.dab)) input.value = dab[key];
        this.never.checked = dab.never_opens;
    }

    showStreams(streams) {
        if (!changed(this, "streams", streams)) return;
        const chosen = this.file.value;
        replace(this.file,
            streams.map(({file, bytes, about}) => el("option", {value: file, selected: file === chosen},
                            printable(`${file} (${byteCount(bytes)}${about ? `, ${about}` : ""})`))));
    }

    showSenders(senders) {
        replace(this.senders,
            senders.length === 0 ?
                el("p", {class: "soft"}, "No sender runs: there is no stream.") :
                table("Stream senders",
                    [
                        {title: "state"}, {title: "stream"}, {title: "to"}, {title: "bit rate", number: true},
                        {title: "errors a second", number: true}, {title: "since"},
                        {title: "", spoken: "stop"}
                    ],
                    senders.map(
                        (sender) => [sender.running ? stateMark("good", "sends") :
                                                      [
                                                          stateMark("bad", "ended"),
                                                          el("small", {}, ` ${printable(sender.said ?? "")}`)
                                                      ],
                            printable(sender.file), el("span", {class: "mono"}, printable(sender.url)),
                            sender.bit_rate ? bitRateText(sender.bit_rate) : "its own",
                            sender.cc_errors_per_second ?? 0, timeText(sender.since),
                            button(sender.running ? "Stop" : "Forget", this.outcome,
                                () => remove(`/api/desk/senders/${sender.id}`)
                                          .then(() => this.ask())
                                          .then(() => null),
                                {
                                    class: "small",
                                    "aria-label": `Stop sender of ${printable(sender.file)}`,
                                    "data-key": `stop-${sender.id}`
                                })])));
    }

    showBehaviours(behaviours) {
        replace(this.behaviours,
            behaviours.length === 0 ?
                el("p", {class: "soft"}, "All programs behave as they are.") :
                table("Made to behave", [{title: "program"}, {title: "how"}, {title: "", spoken: "real"}],
                    behaviours.map(
                        (each) => [printable(each.program),
                            printable(Object.entries(each)
                                          .filter(([key, value]) =>
                                                      key !== "program" && value !== null && value !== "")
                                          .map(([key, value]) => `${key} ${value}`)
                                          .join(", ")
                                || unknown),
                            this.order("Real again", "behave", {program: each.program, real: true},
                                {class: "small", "aria-label": `${printable(each.program)} real again`})])));
    }

    async ask() {
        this.asking = true;
        try {
            set("desk", await fetchJson("/api/desk"));
        } catch (error) {
            if (this.isShown) showError(this.outcome, error);
        }
        this.asking = false;
    }

    shown() {
        this.isShown = true;
        const again = () => {
            if (get("instrument")?.virtual && !this.isTold) this.ask();
        };
        again();
        this.timer = setInterval(again, askMs);
    }

    hidden() {
        this.isShown = false;
        clearInterval(this.timer);
    }
}
