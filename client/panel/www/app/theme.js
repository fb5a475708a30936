// Light, dark, or as the machine has it.

import {el, replace} from "./dom.js";
import {keep, kept} from "./kept.js";

const order = ["auto", "light", "dark"];
const names = {
    auto: "◑ as the system",
    light: "☀ light",
    dark: "☾ dark"
};

/// The button that goes through them; `onChange` is called after each.
export function themeButton(onChange) {
    const button = el("button", {type: "button", class: "quiet theme", title: "t", onclick: () => next()});
    const set = (theme) => {
        document.documentElement.dataset.theme = theme;
        keep("theme", theme);
        replace(button, el("span", {class: "unseen"}, "Colours: "), names[theme]);
        onChange();
    };
    const next = () => set(order[(order.indexOf(document.documentElement.dataset.theme) + 1) % order.length]);
    set(order.includes(kept("theme")) ? kept("theme") : "auto");
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", onChange);
    return button;
}
