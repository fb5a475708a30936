// The FPGA's stream, both ways, and the EBS frames that control it.

import {form, outcome, runButton} from "../actions.js";
import {run} from "../api.js";
import {card, changed, el, facts, field, replace, stateMark} from "../dom.js";
import {resultView} from "../result.js";
import {get} from "../store.js";
import {timeText, unknown} from "../units.js";

const byte = (attributes = {}) =>
    el("input", {type: "number", min: "0", max: "255", value: "1", required: true, ...attributes});

export default class Fpga {
    id = "fpga";
    title = "FPGA and EBS";
    topics = ["instrument"];

    build() {
        this.about = el("div", {});
        const place = outcome();
        return [el("div", {class: "columns"},
            card("FPGA", this.about, runButton("Ask again", place, ["version"]), place), this.streamCard(),
            this.ebsCard(), this.serviceCard())];
    }

    streamCard() {
        const place = outcome();
        return card("The FPGA's stream",
            el("p", {class: "soft"},
                "The front end's stream comes over PCIe; the current stream and the recording go the other way."),
            el("div", {class: "row"}, runButton("Scan the front end", place, ["scan", "--source", "fpga"], {
                show: (found) => el(
                    "p", {}, `${found.services.length} services; `, el("a", {href: "#stream"}, "show them"))
            }),
                runButton("Send the current stream to the FPGA", place, ["send-ts"])),
            place);
    }

    ebsCard() {
        const place = outcome();
        const ask = (label, ...words) => runButton(label, place, ["ebs", ...words]);
        const level = byte({value: "64"});
        return card("EBS frames",
            el("div", {class: "row"}, ask("Scan", "scan"), ask("Status", "status"), ask("Decoder", "info"),
                ask("Version", "version")),
            form([field("Audio level", level, "Acknowledged; the instrument leaves its sound as it is.")],
                "Send level", () => run(["ebs", "audio", level.value]).then(resultView),
                {primary: false, place}));
    }

    serviceCard() {
        const index = byte();
        const place = outcome();
        return card("EBS service by index",
            form([field("Index", index, "Counted from 1, in the order of the SDT.")], "Play",
                () => run(["ebs", "play", index.value]).then(resultView), {place}),
            runButton("Its name", place, () => ["ebs", "name", index.value]));
    }

    update() {
        const instrument = get("instrument");
        if (!changed(this, "fpga", [instrument?.fpga, instrument?.software])) return;
        const fpga = instrument?.fpga;
        replace(this.about,
            el("p", {class: "said"},
                !fpga                         ? stateMark("idle", "not known") :
                    fpga.configured === false ? stateMark("bad", "not configured") :
                    fpga.configured           ? stateMark("good", "configured") :
                                                stateMark("idle", "not told")),
            facts([
                ["bitstream built", fpga?.built ? timeText(fpga.built) : fpga?.problem ?? unknown],
                ["software", instrument?.software]
            ]));
    }
}
