// The frame around the pages: head, navigation, keys; the page that is shown follows its topics.

import {post, run} from "./api.js";
import {changed, el, printable, replace, setText, stateMark} from "./dom.js";
import {connect} from "./events.js";
import {shortcutsAreOn, showHelp} from "./help.js";
import {jobStrip} from "./jobs.js";
import Commands from "./pages/commands.js";
import Dab from "./pages/dab.js";
import Desk from "./pages/desk.js";
import Fpga from "./pages/fpga.js";
import Line from "./pages/line.js";
import Network from "./pages/network.js";
import Overview from "./pages/overview.js";
import Picture from "./pages/picture.js";
import Reception from "./pages/reception.js";
import Recorder from "./pages/recorder.js";
import Stream from "./pages/stream.js";
import T2mi from "./pages/t2mi.js";
import Update from "./pages/update.js";
import {lineState, playState, streamState} from "./status.js";
import {get, on} from "./store.js";
import {themeButton} from "./theme.js";

const pages = [
    Overview, Stream, Picture, Reception, Recorder, T2mi, Network, Fpga, Dab, Update, Commands, Line, Desk
].map((Page) => new Page());
const keys = ["1", "2", "3", "4", "5", "6", "7", "8", "9", "u", "c", "i", "d"];

const states = {};
const main = el("main", {id: "main", tabindex: "-1"});
const banner = el("div", {class: "banner", role: "alert", hidden: true});
let shown = null;
let drawing = false;

function state(name, page) {
    states[name] = el("a", {href: `#${page}`, class: "chip"});
    return states[name];
}

function head() {
    return el("header", {class: "top"},
        el("a", {class: "brand", href: "#overview"}, el("span", {"aria-hidden": "true", class: "logo"}, "▚"),
            "Tessary"),
        el("div", {class: "chips"}, state("line", "line"), state("stream", "reception"),
            state("play", "picture")),
        el("div", {class: "row"},
            themeButton(() => pages.forEach((page) => page.isBuilt && page.recolour?.())),
            el("button",
                {type: "button", class: "quiet", "aria-label": "Keys and name", title: "?", onclick: help},
                "?")));
}

function navigation() {
    return el("nav", {class: "side", "aria-label": "Pages"},
        el("ul", {},
            pages.map((page, at) => el("li", {},
                          page.link = el("a", {href: `#${page.id}`, title: keys[at]}, page.title)))));
}

function showHead() {
    const all = {line: lineState(), stream: streamState(), play: playState()};
    for (const [name, {kind, text, more}] of Object.entries(all)) {
        if (!changed(states, name, [kind, text, more])) continue;
        replace(states[name], stateMark(kind, text));
        states[name].title = printable(more);
    }
    const trouble = all.line.kind === "bad" ? all.line.more : "";
    banner.hidden = trouble === "";
    setText(banner, trouble);
    document.body.classList.toggle("stale", all.line.kind === "bad");
}

function redraw() {
    if (drawing) return;
    drawing = true;
    requestAnimationFrame(() => {
        drawing = false;
        showHead();
        shown?.update();
    });
}

function go() {
    const wanted = pages.find((page) => `#${page.id}` === location.hash) ?? pages[0];
    if (wanted === shown) return;
    shown?.hidden?.();
    if (shown) shown.frame.hidden = true;
    const first = shown === null;
    shown = wanted;
    if (!shown.isBuilt) shown.frame.append(...shown.build());
    shown.isBuilt = true;
    shown.frame.hidden = false;
    document.title = `${shown.title} – Tessary`;
    for (const page of pages)
        page.link[page === shown ? "setAttribute" : "removeAttribute"]("aria-current", "page");
    shown.link.scrollIntoView({block: "nearest", inline: "center"});
    scrollTo(0, 0);
    if (!first) main.focus({preventScroll: true});
    shown.update();
    shown.shown?.();
}

const common = {
    s: ["scan the stream", () => run(["scan"]).catch(() => null)], // the strip says what became of it
    m: [
        "measure, or end it",
        () => post("/api/measure", {on: !get("measurement")?.measuring}).catch(() => null)
    ],
    t: ["light, dark, or as the system", () => document.querySelector(".theme").click()],
    "?": ["these keys", help],
};

function help() {
    const list = (shortcuts) => Object.entries(shortcuts ?? {}).map(([key, [what]]) => [key, what]);
    showHelp(
        [...pages.map((page, at) => [keys[at], page.title]), ...list(common), ...list(shown?.shortcuts)]);
}

function press(event) {
    if (event.ctrlKey || event.altKey || event.metaKey || event.defaultPrevented) return;
    if (event.target.closest("input, select, textarea, dialog") || (!shortcutsAreOn() && event.key !== "?"))
        return;
    const work =
        shown?.shortcuts?.[event.key]?.[1] ?? common[event.key]?.[1] ?? (keys.includes(event.key) ? () => {
            location.hash = pages[keys.indexOf(event.key)].id;
        } : null);
    if (!work) return;
    event.preventDefault();
    work();
}

function begin() {
    document.body.append(el("a", {
        class: "skip",
        href: "#main",
        onclick: (event) => {
            event.preventDefault();
            main.focus();
        }
    },
                             "To the page"),
        head(), navigation(), el("div", {class: "middle"}, banner, jobStrip(), main));
    for (const topic of new Set(["connection", "line", ...pages.flatMap((page) => page.topics)]))
        on(topic, redraw);
    for (const page of pages) {
        page.frame =
            el("div", {id: page.id, class: `page ${page.id}`, hidden: true}, el("h1", {}, page.title));
        main.append(page.frame);
    }
    addEventListener("hashchange", go);
    addEventListener("keydown", press);
    addEventListener("resize", () => shown?.resized?.());
    document.addEventListener(
        "visibilitychange", () => (document.hidden ? shown?.hidden?.() : shown?.shown?.()));
    setInterval(redraw, 1000); // what is shown as fresh gets old
    showHead();
    go();
    connect();
}

begin();
