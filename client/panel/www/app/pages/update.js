// A software package for the instrument.

import {confirmed, form} from "../actions.js";
import {Refusal, run, upload} from "../api.js";
import {card, changed, el, facts, field, replace, stateMark} from "../dom.js";
import {resultView} from "../result.js";
import {get} from "../store.js";
import {byteCount, unknown} from "../units.js";

const lineBytesPerSecond = 11520;

export default class Update {
    id = "update";
    title = "Update";
    topics = ["panel", "instrument", "job"];

    build() {
        this.about = el("div", {});
        this.allowed = el("p", {});
        this.file =
            el("input", {type: "file", accept: ".deb", required: true, onchange: () => this.showFile()});
        this.size = el("p", {class: "soft"});
        return [
            card("Software", this.about),
            card("Update", this.allowed,
                el("p", {},
                    "The package goes over the serial line, about 15 minutes for 10 MB. The instrument answers nothing else until it is installed. "
                        +
                        "Its networking is off from then on, until it starts anew."),
                form([field("Debian package", this.file)], "Send and install", () => this.send()), this.size)
        ];
    }

    showFile() {
        const file = this.file.files[0];
        replace(this.size,
            file ? `${byteCount(file.size)}, about ${
                Math.max(1, Math.round(file.size / lineBytesPerSecond / 60))} min on the line` :
                   null);
    }

    async send() {
        const file = this.file.files[0];
        const limit = get("panel")?.upload_limit_bytes;
        if (limit && file.size > limit)
            throw new Refusal(`the file has ${byteCount(file.size)}, the panel takes ${byteCount(limit)}`,
                "start the panel with another limit");
        if (!(await confirmed(
                `Send ${file.name} (${byteCount(file.size)}) to the instrument and have it installed?`)))
            return null;
        const {file: kept} = await upload(file);
        return resultView(await run(["update", kept]));
    }

    update() {
        const allows = get("panel")?.allows;
        if (changed(this, "allows", allows))
            replace(this.allowed,
                allows?.update === false ?
                    [stateMark("warn", "off"), ": start tessary-panel with --allow-update"] :
                    null);
        const instrument = get("instrument");
        if (changed(this, "instrument", [instrument?.software, instrument?.fpga]))
            replace(this.about, facts([
                ["software", instrument?.software ?? unknown],
                ["FPGA", instrument?.fpga?.built ?? instrument?.fpga?.problem ?? unknown]
            ]));
    }
}
