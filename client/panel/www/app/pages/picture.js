// What the instrument shows and sounds: of a virtual one here in the page, of a real one on its own display.

import {fetchJson} from "../api.js";
import {card, changed, el, facts, replace, stateMark} from "../dom.js";
import {SoundPlayer} from "../sound.js";
import {playState} from "../status.js";
import {get, on} from "../store.js";
import {unknown} from "../units.js";

const floorDb = -60;
const fullDb = 0;

export default class Picture {
    id = "picture";
    title = "Picture and sound";
    topics = ["play", "instrument", "measurement"];

    constructor() {
        // A picture that was cut off with the panel stays as it was, and says nothing.
        on("connection", ({up}) => {
            if (!up || !this.isShown) return;
            this.hidden();
            this.shown();
        });
    }

    build() {
        this.state = el("p", {class: "said"});
        this.about = el("div", {});
        this.place = el("div", {class: "screen"});
        this.real = el("p", {class: "note"},
            "This is a real instrument: its picture is on its display, its sound at its output.");
        this.display = card("Picture", this.place);
        this.soundCard = this.buildSound();
        return [
            this.real,
            el("div", {class: "columns wideleft"}, this.display,
                el("div", {}, card("Program", this.state, this.about), this.soundCard))
        ];
    }

    buildSound() {
        this.meters = el("div", {class: "meters"});
        this.listen = el("button",
            {type: "button", "aria-pressed": "false", title: "l", onclick: () => this.toggleSound()},
            "Listen");
        this.volume = el("input", {
            type: "range",
            min: "0",
            max: "1",
            step: "0.01",
            value: "0.7",
            "aria-label": "Volume",
            oninput: () => this.player.setVolume(Number(this.volume.value))
        });
        this.soundState = el("p", {class: "soft", role: "status"});
        this.player =
            new SoundPlayer((levels) => this.showLevels(levels), (text) => replace(this.soundState, text));
        return card(
            "Sound", this.meters, el("div", {class: "row"}, this.listen, this.volume), this.soundState);
    }

    update() {
        const virtual = get("instrument")?.virtual === true;
        this.real.hidden = get("instrument") === undefined || virtual;
        this.display.hidden = this.soundCard.hidden = !virtual;
        const state = playState();
        if (changed(this, "state", state)) replace(this.state, stateMark(state.kind, state.text));
        if (changed(this, "play", [get("play"), this.size])) this.showProgram(get("play"));
        if (virtual && this.isShown && !this.image) this.shown();
    }

    showProgram(play) {
        const presentation = play?.presentation;
        replace(this.about, facts([
            ["program", play ? `${play.program}${play.name ? `, ${play.name}` : ""}` : unknown],
            ["to be seen and heard", presentation?.text], ["video", presentation?.video],
            ["size", presentation?.width ? `${presentation.width} × ${presentation.height}` : unknown],
            ["audio", presentation?.audio], ["scrambled", presentation?.scrambled],
            [
                "display",
                this.size?.width ? `${this.size.width} × ${this.size.height}${
                    this.size.pictures_per_second ? `, ${this.size.pictures_per_second} pictures/s` : ""}` :
                                                    unknown
            ]
        ]));
    }

    /// Picture and sound flow only while they are looked at: a browser allows few connections to one place.
    shown() {
        this.isShown = true;
        if (get("instrument")?.virtual !== true || this.image) return;
        this.image = el("img",
            {src: `/api/display?${Date.now()}`, alt: "The instrument's display", onerror: () => this.lost()});
        replace(this.place, this.image);
        this.player.start();
        this.askSize();
        clearInterval(this.timer);
        this.timer = setInterval(() => this.askSize(), 2000);
    }

    hidden() {
        this.isShown = false;
        clearInterval(this.timer);
        this.image?.removeAttribute("src"); // ends the connection
        this.image = null;
        replace(this.place);
        this.player.stop();
        this.showListening();
    }

    lost() {
        if (!this.isShown || !this.image) return;
        replace(this.place, el("p", {class: "soft"}, "No picture comes at the moment."));
        this.image = null;
        setTimeout(() => {
            if (this.isShown) this.shown();
        }, 2000);
    }

    async askSize() {
        try {
            this.size = await fetchJson("/api/display.json");
            this.update();
        } catch { /* the head of the page says what is wrong */
        }
    }

    toggleSound() {
        this.player.listen(!this.player.listening, Number(this.volume.value));
        this.showListening();
    }

    showListening() {
        this.listen.setAttribute("aria-pressed", String(this.player.listening));
        this.listen.textContent = this.player.listening ? "Listening" : "Listen";
    }

    showLevels(levels) {
        if (this.meters.children.length !== levels.length)
            replace(this.meters,
                levels.map(
                    (_, at) => el("label", {class: "meter"}, levels.length === 2 ? "LR"[at] : String(at + 1),
                        el("meter", {min: floorDb, max: fullDb, low: -40, high: -9, optimum: -20}),
                        el("span", {class: "mono"}))));
        levels.forEach(({peak}, at) => {
            const db = peak > 0 ? Math.max(20 * Math.log10(peak), floorDb) : floorDb;
            this.meters.children[at].querySelector("meter").value = db;
            this.meters.children[at].querySelector("span").textContent =
                db <= floorDb ? "silent" : `${db.toFixed(0)} dBFS`;
        });
    }

    shortcuts = {l: ["listen to the sound, or not", () => this.toggleSound()]};
}
