// DAB mode: display and sound are the receiver program's, and blocks go to it and come back.

import {form, outcome, runButton} from "../actions.js";
import {run} from "../api.js";
import {card, el, field} from "../dom.js";
import {HexView} from "../tableview.js";
import {bytesOf} from "../units.js";

export default class Dab {
    id = "dab";
    title = "DAB";
    topics = [];

    build() {
        const place = outcome();
        const block = el("input", {required: true, placeholder: "list?", spellcheck: "false"});
        const asHex = el("input", {type: "checkbox"});
        const hex = new HexView();
        hex.element.hidden = true;
        return [el("div", {class: "columns"},
            card("DAB mode",
                el("p", {},
                    "A start takes up to 43 s, a stop about 4 s, and the instrument answers nothing else meanwhile. After a stop nothing plays until a program is chosen."),
                el("div", {class: "row"}, runButton("Start DAB", place, ["dab", "start"], {class: "primary"}),
                    runButton("Stop DAB", place, ["dab", "stop"])),
                place),
            card("Ask the receiver",
                el("p", {class: "soft"},
                    "A block of 117 bytes goes there and one comes back; their layout is the receiver program's own."),
                form(
                    [
                        field("Block", block, "“dab” is put before it when it is missing."),
                        el("label", {class: "check"}, asHex, "bytes in hexadecimal")
                    ],
                    "Send",
                    async () => {
                        const answer = await run(
                            ["dab", "send", ...(asHex.checked ? ["--hex"] : []), "--", block.value]);
                        hex.element.hidden = false;
                        hex.show(bytesOf(answer.hex));
                        return el("p", {}, answer.text);
                    }),
                hex.element))];
    }

    update() {}
}
