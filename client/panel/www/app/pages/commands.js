// All commands of the protocol with what its page says of each, and a line to type into.

import {form, outcome} from "../actions.js";
import {Refusal, run} from "../api.js";
import {card, el, field, printable, replace, table} from "../dom.js";
import {rows} from "../protocolrows.js";
import {resultView} from "../result.js";
import {HexView} from "../tableview.js";
import {bytesOf} from "../units.js";
import {toolLines, wordsOf} from "../words.js";

export default class Commands {
    id = "commands";
    title = "Commands";
    topics = [];

    build() {
        this.input = el("input", {
            class: "mono",
            required: true,
            spellcheck: "false",
            autocomplete: "off",
            placeholder: "scan udp://239.0.0.1:1234",
            list: "command-lines",
            onkeydown: (event) => this.recall(event)
        });
        this.past = [];
        this.outcome = outcome();
        this.list = el("div", {class: "commands"});
        const filter = el("input",
            {type: "search", placeholder: "word, section, reply", oninput: () => this.show(filter.value)});
        this.show("");
        return [
            card("A line to type into",
                el("p", {class: "soft"},
                    "As behind tessaryctl on a command line: “raw TEXT” sends any text as it is. Arrows bring back lines of before."),
                form([field("tessaryctl", this.input)], "Run", () => this.run(), {place: this.outcome}),
                el("datalist", {id: "command-lines"},
                    [...new Set(Object.values(toolLines).map(([line]) => line))].map(
                        (line) => el("option", {value: line})))),
            card("The protocol's commands", field("Only with", filter), this.list)
        ];
    }

    async run() {
        let words;
        try {
            words = wordsOf(this.input.value);
        } catch (error) {
            throw new Refusal(error.message, "close it");
        }
        this.past = [...this.past.filter((line) => line !== this.input.value), this.input.value];
        this.at = this.past.length;
        const answer = await run(words);
        if (typeof answer?.hex !== "string" || answer.hex === "") return resultView(answer);
        const hex = new HexView();
        hex.show(bytesOf(answer.hex));
        return el("div", {}, resultView(answer), hex.element);
    }

    recall(event) {
        const step = {ArrowUp: -1, ArrowDown: 1}[event.key];
        if (step === undefined || this.past.length === 0) return;
        event.preventDefault();
        this.at = Math.min(Math.max((this.at ?? this.past.length) + step, 0), this.past.length);
        this.input.value = this.past[this.at] ?? "";
    }

    show(wanted) {
        const text = wanted.trim().toLowerCase();
        const fitting = rows.filter(
            (row) => `${row.row} ${row.word} ${row.section} ${row.reply} ${JSON.stringify(row.about)}`
                         .toLowerCase()
                         .includes(text));
        replace(this.list,
            fitting.length === 0 ? el("p", {class: "soft"}, "No command has that.") :
                                   fitting.map((row) => this.rowView(row)));
    }

    rowView(row) {
        const [line, page] = toolLines[row.row];
        const take = (text, name) => el("button", {
            type: "button",
            class: "small",
            "data-key": `${name}-${row.row}`,
            onclick: () => {
                this.input.value = text;
                this.input.focus();
            }
        },
            el("code", {}, text));
        return el("details", {class: "command"},
            el("summary", {}, el("span", {class: "number"}, row.row), el("code", {}, row.word),
                el("span", {class: "soft"}, row.section), el("span", {class: "soft"}, row.reply)),
            el("div", {class: "about"}, row.condition ? el("p", {}, `When ${row.condition}.`) : null,
                row.about.map(blockView),
                el("p", {class: "row"}, "Type it:", take(line, "tool"), take(`raw '${row.word}'`, "raw"),
                    page === this.id ? null : el("a", {href: `#${page}`}, "or go to its page"))));
    }

    update() {}
}

function blockView(block) {
    if (block.kind === "code") return el("pre", {tabindex: "0"}, block.text);
    if (block.kind === "item") return el("p", {class: "item"}, block.text);
    if (block.kind === "text") return el("p", {}, printable(block.text));
    const [head, ...body] = block.rows;
    return table("Values", head.map((title) => ({title, spoken: "value"})), body);
}
