// The recording on the memory card: made, played, sent on.

import {form, outcome, runButton} from "../actions.js";
import {run} from "../api.js";
import {card, changed, el, facts, field, replace, stateMark} from "../dom.js";
import {get} from "../store.js";
import {byteCount} from "../units.js";

export default class Recorder {
    id = "recorder";
    title = "Recorder";
    topics = ["recorder", "job"];

    build() {
        this.state = el("p", {class: "said"});
        this.about = el("div", {});
        this.seconds = el("input", {type: "number", min: "1", placeholder: "until stopped"});
        const place = outcome();
        return [el("div", {class: "columns"},
            card("Recording", this.state, this.about,
                form([field("Seconds", this.seconds)], "Record the current stream", () => run([
                    "record", "start", ...(this.seconds.value ? ["--seconds", this.seconds.value] : [])
                ]).then(() => null),
                    {place}),
                el("div", {class: "row"}, runButton("Stop", place, ["record", "stop"], {
                    show: () => null,
                    sure: "Stopping the recording ends the current source, too, and a measurement. Stop it?"
                }),
                    runButton("Ask its size", place, ["record", "status"])),
                el("p", {class: "soft"},
                    "There is one recording: a new one takes the place of the old one.")),
            this.useCard())];
    }

    useCard() {
        const place = outcome();
        return card("Use it",
            el("p", {}, "Scanned, the recording is the current stream: its services can be played."),
            el("div", {class: "row"},
                runButton("Scan the recording", place, ["scan", "--source", "recording"], {
                    show: (found) => el("p", {}, `${found.services.length} services; `,
                        el("a", {href: "#stream"}, "show them"))
                }),
                runButton("Send it to the FPGA", place, ["export"], {
                    sure:
                        "The instrument answers nothing else until the whole recording has been sent. Send it?"
                })),
            place);
    }

    update() {
        const recorder = get("recorder");
        if (!changed(this, "recorder", recorder)) return;
        replace(this.state,
            recorder?.recording ?
                stateMark("bad", "records") :
                stateMark("idle", recorder?.bytes ? "a recording is there" : "no recording"));
        replace(this.about, facts([["size", byteCount(recorder?.bytes)]]));
    }
}
