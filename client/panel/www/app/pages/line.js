// What passed the serial line, and with a virtual instrument what the daemon ran and said.

import {changed, el, field, printable, replace} from "../dom.js";
import {get} from "../store.js";
import {bytesOf, hexOf, letterOf, preciseTimeText} from "../units.js";

const shownEntries = 400;
const shownBytes = 96;
const polling = ["getethernetmes?", "getiat?", "videostatus?", "PVR_reclist"].map(
    (word) => [...word].map((letter) => hexOf(letter.charCodeAt(0))).join(""));

const tabs = [
    {id: "line_log", title: "Serial line", text: (entry) => entry.hex, row: lineRow},
    {
        id: "commands",
        title: "Commands that the daemon ran",
        virtual: true,
        text: commandText,
        row: commandRow
    },
    {id: "daemon_log", title: "Daemon's log", virtual: true, text: logText, row: logRow},
];

/// As text or in hexadecimal; of a long entry the beginning, which opens.
function bytesView(all, write, joint) {
    const text = (bytes) => [...bytes].map(write).join(joint);
    if (all.length <= shownBytes) return text(all);
    return el("details", {}, el("summary", {}, `${text(all.slice(0, shownBytes))} … ${all.length} bytes`),
        text(all));
}

function lineRow(entry) {
    const bytes = bytesOf(entry.hex);
    const to = entry.direction === "to";
    return el("tr", {class: to ? "to" : "from"}, el("td", {class: "mono"}, preciseTimeText(entry.time)),
        el("td", {}, el("span", {"aria-hidden": "true"}, to ? "→ " : "← "), to ? "to" : "from"),
        el("td", {class: "mono text"}, bytesView(bytes, letterOf, "")),
        el("td", {class: "mono bytes16"}, bytesView(bytes, hexOf, " ")));
}

/// Without what the panel asks every second, and the answers to it.
function withoutPolling(entries) {
    let polled = false;
    return entries.filter((entry) => {
        if (entry.direction === "to") polled = polling.some((start) => entry.hex.startsWith(start));
        return !polled;
    });
}

const entryOf = (entry) => {
    if (typeof entry !== "string") return entry;
    try {
        return JSON.parse(entry);
    } catch {
        return {argv: [entry]};
    }
};
function commandText(entry) { return (entryOf(entry).argv ?? []).join(" "); }
function commandRow(entry) {
    const note = entryOf(entry);
    return el("tr", {}, el("td", {class: "mono"}, preciseTimeText(note.time ?? note.wall)),
        el("td", {}, note.kind ?? ""), el("td", {class: "mono text"}, printable((note.argv ?? []).join(" "))),
        el("td", {}, note.parent ? `by ${printable(note.parent)}` : ""));
}

function logText(entry) { return typeof entry === "string" ? entry : entry.text; }
function logRow(entry) {
    return el("tr", {},
        el("td", {class: "mono"}, typeof entry === "string" ? "" : preciseTimeText(entry.time)),
        el("td", {class: "mono text", colspan: "3"}, printable(logText(entry))));
}

export default class Line {
    id = "line";
    title = "Line";
    topics = ["line_log", "commands", "daemon_log", "instrument"];
    tab = tabs[0];

    build() {
        this.choices = el("div", {class: "group", role: "group", "aria-label": "What to show"},
            tabs.map((tab) => el("button", {
                type: "button",
                "aria-pressed": String(tab === this.tab),
                "data-key": tab.id,
                onclick: () => this.choose(tab)
            },
                         tab.title)));
        this.filter = el("input", {
            type: "search",
            placeholder: "text, or bytes as 67 65",
            spellcheck: "false",
            oninput: () => this.draw()
        });
        this.pauseButton = el("button",
            {type: "button", "aria-pressed": "false", title: "p", onclick: () => this.pause()}, "Pause");
        this.count = el("span", {class: "soft readout"});
        this.quiet = el("input", {type: "checkbox", onchange: () => this.draw()});
        this.quietLabel =
            el("label", {class: "check"}, this.quiet, "without the panel's questions of every second");
        this.body = el("tbody", {});
        this.place = el("div", {class: "log", tabindex: "0", role: "region", "aria-label": "Log"},
            el("table", {class: "logtable"}, this.body));
        return [el("section", {class: "card"},
            el("div", {class: "row tools"}, this.choices, field("Only with", this.filter), this.pauseButton,
                this.quietLabel, this.count),
            this.place)];
    }

    choose(tab) {
        this.tab = tab;
        for (const each of this.choices.children)
            each.setAttribute("aria-pressed", String(each.dataset.key === tab.id));
        this.draw();
    }

    pause() {
        this.paused = !this.paused;
        this.pauseButton.setAttribute("aria-pressed", String(this.paused));
        this.kept = this.paused ? get(this.tab.id) : undefined;
        this.draw();
    }

    update() {
        for (const [at, each] of [...this.choices.children].entries())
            each.hidden = tabs[at].virtual && get("instrument")?.virtual === false;
        if (!this.paused
            && changed(this, "count", [this.tab.id, get(this.tab.id)?.length, get(this.tab.id)?.at(-1)]))
            this.draw();
    }

    draw() {
        this.quietLabel.hidden = this.tab !== tabs[0];
        const entries = (this.paused && this.kept) || get(this.tab.id) || [];
        const asked = this.quiet.checked && this.tab === tabs[0] ? withoutPolling(entries) : entries;
        const wanted = asked.filter((entry) => this.fits(entry)).slice(-shownEntries);
        const atEnd = this.place.scrollTop + this.place.clientHeight >= this.place.scrollHeight - 30;
        replace(this.body, wanted.map((entry) => this.tab.row(entry)));
        this.count.textContent = `${wanted.length} of ${entries.length}${this.paused ? ", paused" : ""}`;
        if (atEnd) this.place.scrollTop = this.place.scrollHeight;
    }

    fits(entry) {
        const wanted = this.filter.value.trim().toLowerCase();
        if (wanted === "") return true;
        const text = this.tab.text(entry) ?? "";
        if (this.tab.id !== "line_log") return text.toLowerCase().includes(wanted);
        const digits = wanted.replaceAll(" ", "");
        return [...bytesOf(text)].map(letterOf).join("").toLowerCase().includes(wanted)
            || (/^[0-9a-f]+$/.test(digits) && text.includes(digits));
    }

    shown() {
        this.draw();
        this.place.scrollTop = this.place.scrollHeight;
    }
    shortcuts = {p: ["pause the log, or go on", () => this.pause()]};
}
