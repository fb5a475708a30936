// A panel that listens beyond this machine wants its token; the server keeps it in a cookie.

import {el, field} from "./dom.js";

export async function tokenIsMissing() {
    try {
        return (await fetch("/api/state")).status === 401;
    } catch {
        return false; // nobody answers: that is no matter of tokens
    }
}

/// In place of the page, until the right one has been given.
export function askForToken() {
    const token = el("input", {type: "password", autocomplete: "current-password", required: true});
    const form = el("form", {
        class: "card token",
        onsubmit: (event) => {
            event.preventDefault();
            location.assign(`/?token=${encodeURIComponent(token.value)}${location.hash}`);
        },
    },
        el("h1", {}, "This panel asks for its token"),
        el("p", {}, "It is the one that tessary-panel was started with."), field("Token", token),
        el("button", {class: "primary"}, "Open the panel"));
    document.body.replaceChildren(el("main", {class: "alone"}, form));
    token.focus();
}
