// Buttons and forms that have something done, and say what became of it beside them.

import {Refusal, run} from "./api.js";
import {el, replace, stateMark} from "./dom.js";
import {resultView} from "./result.js";

/// Where an action's outcome is written; read out when it changes.
export const outcome = () => el("div", {class: "outcome", role: "status"});

export function showError(place, error) {
    if (!(error instanceof Refusal)) console.error(error);
    replace(place, el("p", {class: "failure"}, stateMark("bad", "failed"), " ", error.message),
        error.remedy ? el("p", {class: "remedy"}, error.remedy) : null);
}

/// Does `work` with the button out of use, and shows in `place` what it returned (a node or nothing) or why it failed.
export async function doing(button, place, work) {
    if (button.getAttribute("aria-busy") === "true") return;
    button.setAttribute("aria-busy", "true");
    replace(place);
    try {
        replace(place, await work());
    } catch (error) {
        showError(place, error);
    } finally {
        button.removeAttribute("aria-busy");
    }
}

/// A button that does `work`; its outcome goes to `place`.
export function button(label, place, work, attributes = {}) {
    const it = el("button", {type: "button", ...attributes, onclick: () => doing(it, place, work)}, label);
    return it;
}

/// A button that runs a tessaryctl command line. `words` is one, or a function that makes one; `show` makes a node of its JSON.
export function runButton(label, place, words, {show = resultView, sure, ...attributes} = {}) {
    return button(label, place, async () => {
        if (sure && !(await confirmed(sure))) return null;
        return show(await run(typeof words === "function" ? words() : words));
    }, attributes);
}

/// A form whose submission does `work`, with a button of this label and `more` beside it.
export function form(controls, label, work, {primary = true, place = outcome(), more = []} = {}) {
    const submit = el("button", {class: primary ? "primary" : undefined}, label);
    return el("form", {
        onsubmit: (event) => {
            event.preventDefault();
            doing(submit, place, work);
        }
    },
        el("div", {class: "fields"}, controls), el("div", {class: "row"}, submit, more), place);
}

/// Asks before what can not be taken back.
export function confirmed(question) {
    return new Promise((resolve) => {
        const dialog = el("dialog", {
            "aria-label": "Please confirm",
            onclose: () => {
                resolve(dialog.returnValue === "yes");
                dialog.remove();
            }
        },
            el("form", {method: "dialog"}, el("p", {}, question),
                el("div", {class: "row end"}, el("button", {value: "no"}, "Leave it"),
                    el("button", {value: "yes", class: "primary"}, "Do it"))));
        document.body.append(dialog);
        dialog.showModal();
    });
}
