// T2-MI packets: the last one taken apart, a survey of all kinds, and its bytes.

import {form, outcome, runButton} from "../actions.js";
import {run} from "../api.js";
import {card, choice, el, field} from "../dom.js";
import {resultView} from "../result.js";
import {TableView} from "../tableview.js";

const types = [
    ["", "the last, of any type"], ["baseband", "baseband frame"], ["auxiliary", "auxiliary stream"],
    ["cells", "arbitrary cells"], ["l1-current", "L1-current"], ["l1-future", "L1-future"],
    ["bias", "P2 bias cells"], ["timestamp", "timestamp"], ["addressing", "individual addressing"],
    ["fef-null", "FEF: null"], ["fef-iq", "FEF: IQ"], ["fef-composite", "FEF: composite"],
    ["fef-sub", "FEF: sub-part"]
];

export default class T2mi {
    id = "t2mi";
    title = "T2-MI";
    topics = [];

    build() {
        const type = choice(types, "");
        const wait = el("input", {type: "number", min: "1", max: "600", value: "10"});
        const place = outcome();
        this.tables = new TableView([["t2mi", "T2-MI packet"]]);
        return [
            card("T2-MI packet",
                el("p", {class: "soft"}, "Of the current stream, when its server is one of T2-MI."),
                form([field("Packet", type), field("Seconds to wait, or to survey", wait)], "Fetch",
                    () => run([
                        "t2mi-frame", "--wait", wait.value, ...(type.value ? ["--type", type.value] : [])
                    ]).then(resultView),
                    {
                        place,
                        more: runButton("Survey types, PLPs and L1", place,
                            () => ["t2mi-frame", "--survey", "--wait", wait.value])
                    })),
            this.tables.element
        ];
    }

    update() {}
}
