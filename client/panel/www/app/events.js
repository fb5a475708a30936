// The panel's server-sent events, into the store. `connection` is a topic of this page itself: {up, since}.

import {append, set} from "./store.js";
import {askForToken, tokenIsMissing} from "./token.js";

const whole = [
    "panel", "line", "instrument", "stream", "play", "measurement", "arrivals", "recorder", "job", "done",
    "desk"
];
const appended = ["marks", "line_log", "commands", "daemon_log"];
const retryMs = 1000;
const silenceMs = 6000; // the panel says something every two seconds, if only that it is there

let current;   // the connection
let heard = 0; // when something came over it, ms
let isUp;
function tell(up) {
    if (up === isUp) return;
    isUp = up;
    set("connection", {up, since: Date.now() / 1000});
}

/// Connects, and again whenever the connection is lost, for as long as the page is open.
export function connect() {
    const source = new EventSource("/api/events");
    current = source;
    const hear = () => {
        heard = performance.now();
    };
    let number = ""; // of the event before
    const listen = (topic, take) => source.addEventListener(topic, (event) => {
        const isOfAll =
            event.lastEventId === number; // what a browser that was behind is told at once has one number
        number = event.lastEventId;
        hear();
        take(topic, JSON.parse(event.data), isOfAll);
    });
    source.addEventListener("heartbeat", hear);
    source.addEventListener("open", () => {
        hear();
        for (const topic of appended) set(topic, []);
        tell(true);
    });
    for (const topic of whole) listen(topic, set);
    for (const topic of appended)
        listen(topic, (name, entries, isAll) => (isAll ? set : append)(name, [].concat(entries)));
    source.addEventListener("error", async () => {
        tell(false);
        if (source.readyState !== EventSource.CLOSED) return; // the browser tries again by itself
        if (await tokenIsMissing())
            askForToken();
        else
            setTimeout(connect, retryMs);
    });
}

/// A panel that hangs keeps its connections, and says nothing any more.
setInterval(() => {
    if (!isUp || performance.now() - heard < silenceMs) return;
    tell(false);
    current.close();
    connect();
}, 1000);
