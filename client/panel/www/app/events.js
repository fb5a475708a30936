// The panel's server-sent events, into the store. `connection` is a topic of this page itself: {up, since}.

import {append, set} from "./store.js";
import {askForToken, tokenIsMissing} from "./token.js";

const whole = [
    "panel", "line", "instrument", "stream", "play", "measurement", "arrivals", "recorder", "job", "done",
    "marks", "desk"
];
const appended = ["line_log", "commands", "daemon_log"];
const retryMs = 1000;

let isUp;
function tell(up) {
    if (up === isUp) return;
    isUp = up;
    set("connection", {up, since: Date.now() / 1000});
}

/// Connects, and again whenever the connection is lost, for as long as the page is open.
export function connect() {
    const source = new EventSource("/api/events");
    const fresh = new Set();
    source.addEventListener("open", () => {
        for (const topic of appended) fresh.add(topic); // what is kept comes anew
        tell(true);
    });
    for (const topic of whole) source.addEventListener(topic, (event) => set(topic, JSON.parse(event.data)));
    for (const topic of appended)
        source.addEventListener(topic, (event) => {
            if (fresh.delete(topic)) set(topic, []);
            append(topic, [].concat(JSON.parse(event.data)));
        });
    source.addEventListener("error", async () => {
        tell(false);
        if (source.readyState !== EventSource.CLOSED) return; // the browser tries again by itself
        if (await tokenIsMissing())
            askForToken();
        else
            setTimeout(connect, retryMs);
    });
}
