// A table as it is on the air: the decoded tree beside the bytes, each telling where the other is.

import {button, outcome} from "./actions.js";
import {fetchJson} from "./api.js";
import {card, choice, el, field, printable, replace} from "./dom.js";
import {bytesOf, hexOf, letterOf} from "./units.js";

const tables = [
    ["sdt", "SDT: services"], ["nit", "NIT: network"], ["pmt", "PMT: of the program played last"],
    ["t2mi", "T2-MI packet: the last"]
];
const perLine = 16;
const shownBytes = 8192;

/// Bytes in lines of sixteen: offset, hexadecimal, letters; each can be marked.
export class HexView {
    constructor(onPick) {
        this.onPick = onPick;
        this.element = el("div", {class: "hex mono", tabindex: "0", role: "region", "aria-label": "Bytes"});
    }

    show(bytes) {
        this.cells = [];
        const lines = [];
        const all = Math.min(bytes.length, shownBytes);
        for (let at = 0; at < all; at += perLine)
            lines.push(this.line(bytes, at, Math.min(at + perLine, all)));
        replace(this.element, lines,
            bytes.length > all ? el("p", {}, `and ${bytes.length - all} bytes more`) : null);
    }

    line(bytes, from, to) {
        const pairs = [];
        const letters = [];
        for (let at = from; at < to; at += 1) {
            const pick = () => this.onPick?.(at);
            const pair = el("span", {onclick: pick}, hexOf(bytes[at]));
            const letter = el("span", {onclick: pick}, letterOf(bytes[at]));
            this.cells[at] = [pair, letter];
            pairs.push(pair, " ");
            letters.push(letter);
        }
        return el("div", {}, el("span", {class: "soft"}, `${from.toString(16).padStart(6, "0")}  `),
            el("span", {class: "pairs"}, pairs), el("span", {class: "letters"}, letters));
    }

    mark(offset, length) {
        for (const cell of this.element.querySelectorAll(".marked")) cell.classList.remove("marked");
        for (let at = offset; at < Math.min(offset + length, this.cells.length); at += 1)
            for (const cell of this.cells[at] ?? []) cell.classList.add("marked");
        this.cells[offset]?.[0].scrollIntoView({block: "nearest"});
    }
}

/// The tree as WAI-ARIA's pattern has it: arrows move, open and close.
class Tree {
    constructor(onChoose) {
        this.onChoose = onChoose;
        this.element = el("ul",
            {class: "tree", role: "tree", "aria-label": "Decoded", onkeydown: (event) => this.key(event)});
    }

    show(root) {
        replace(this.element, [].concat(root ?? []).map((node) => this.item(node, 0)));
        const first = this.element.querySelector("[role=treeitem]");
        if (first) first.tabIndex = 0;
    }

    item(node, depth) {
        const children = node.children ?? [];
        const label = el("span", {class: "node"}, el("span", {class: "twist", "aria-hidden": "true"}),
            el("span", {class: "name"}, printable(node.name)),
            node.value === null || node.value === undefined || node.value === "" ?
                null :
                el("span", {class: "value"}, printable(node.value)));
        const item = el("li", {role: "treeitem", tabindex: "-1", "aria-selected": "false"}, label);
        if (children.length > 0) {
            item.setAttribute("aria-expanded", String(depth < 2));
            item.append(el("ul", {role: "group"}, children.map((child) => this.item(child, depth + 1))));
        }
        item.node = node;
        label.addEventListener("click", () => {
            if (children.length > 0 && item.getAttribute("aria-selected") === "true")
                this.expand(item, item.getAttribute("aria-expanded") !== "true");
            this.choose(item);
        });
        return item;
    }

    expand(item, open) {
        if (item.hasAttribute("aria-expanded")) item.setAttribute("aria-expanded", String(open));
    }

    choose(item) {
        for (const each of this.element.querySelectorAll("[role=treeitem]")) {
            each.tabIndex = each === item ? 0 : -1;
            each.setAttribute("aria-selected", String(each === item));
        }
        item.focus({preventScroll: true});
        item.querySelector(".node").scrollIntoView({block: "nearest"});
        this.onChoose(item.node);
    }

    /// The innermost part that holds this byte.
    chooseByte(at) {
        const holding = [...this.element.querySelectorAll("[role=treeitem]")].filter(
            ({node}) => at >= node.offset && at < node.offset + node.length);
        const item = holding.at(-1);
        if (!item) return;
        for (let up = item.parentElement.closest("[role=treeitem]"); up;
             up = up.parentElement.closest("[role=treeitem]"))
            this.expand(up, true);
        this.choose(item);
    }

    key(event) {
        const item = event.target.closest("[role=treeitem]");
        const visible = [...this.element.querySelectorAll("[role=treeitem]")].filter(
            (each) => !each.parentElement.closest("[aria-expanded=false]"));
        const at = visible.indexOf(item);
        const open = item.getAttribute("aria-expanded");
        const moves = {
            ArrowDown: () => visible[at + 1],
            ArrowUp: () => visible[at - 1],
            Home: () => visible[0],
            End: () => visible.at(-1),
            ArrowRight: () => (open === "false" ? (this.expand(item, true), item) :
                    open === "true"             ? visible[at + 1] :
                                                  null),
            ArrowLeft: () => (open === "true" ? (this.expand(item, false), item) :
                                                item.parentElement.closest("[role=treeitem]")),
            Enter: () => item,
        };
        if (!moves[event.key]) return;
        event.preventDefault();
        event.stopPropagation();
        const next = moves[event.key]();
        if (next) this.choose(next);
    }
}

/// The card: which table, its tree and its bytes.
export class TableView {
    constructor(kinds = tables) {
        this.hex = new HexView((at) => this.tree.chooseByte(at));
        this.tree = new Tree((node) => this.hex.mark(node.offset, node.length));
        this.kind = choice(kinds, kinds[0][0]);
        this.outcome = outcome();
        this.both = el("div", {class: "bytes", hidden: true}, this.tree.element, this.hex.element);
        this.element = card(kinds.length > 1 ? "Tables, byte by byte" : "Byte by byte",
            el("div", {class: "row"}, kinds.length > 1 ? field("Table", this.kind) : null,
                button(kinds.length > 1 ? "Fetch" : "Fetch its bytes", this.outcome, () => this.fetch(),
                    {class: "primary"})),
            this.outcome, this.both);
    }

    async fetch() {
        const {hex, decoded} = await fetchJson(`/api/table/${this.kind.value}`);
        const bytes = bytesOf(hex);
        this.both.hidden = false;
        this.hex.show(bytes);
        this.tree.show(decoded);
        return el("p", {class: "soft"},
            `${bytes.length} bytes; choose a part to see its bytes, or a byte to see its part`);
    }

    update() {}
}
