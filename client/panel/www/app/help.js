// The keys, and whose name stands beside what is ordered from here.

import {myName} from "./api.js";
import {el, field, table} from "./dom.js";
import {keep, kept} from "./kept.js";

export const shortcutsAreOn = () => kept("shortcuts") !== "off";

/// Opens the list; `keys` are [key, what].
export function showHelp(keys) {
    if (document.querySelector("dialog[open]")) return;
    const name = el(
        "input", {value: myName(), autocomplete: "nickname", oninput: () => keep("name", name.value.trim())});
    const on = el("input", {
        type: "checkbox",
        checked: shortcutsAreOn(),
        onchange: () => keep("shortcuts", on.checked ? "on" : "off")
    });
    const dialog =
        el("dialog", {"aria-label": "Keys and name", class: "help", onclose: () => dialog.remove()},
            el("form", {method: "dialog"}, el("h2", {}, "Keys"),
                table("Keys", [{title: "key"}, {title: "does"}],
                    keys.map(([key, what]) => [el("kbd", {}, key), what])),
                el("label", {class: "check"}, on, "single keys act (Tab, Enter and arrows always do)"),
                el("h2", {}, "You"),
                field("Name", name,
                    "Stands beside commands that you start, for the others who look at this panel."),
                el("div", {class: "row end"}, el("button", {class: "primary"}, "Close"))));
    document.body.append(dialog);
    dialog.showModal();
}
