// States of line, stream and player in words: one place, so that every page says the same.

import {get} from "./store.js";
import {bitRateText} from "./units.js";

/// Each is {kind, text, more}: a kind of stateMark, a few words, and a sentence.

export function lineState() {
    const connection = get("connection");
    const line = get("line");
    if (connection?.up === false)
        return {
            kind: "bad",
            text: "panel away",
            more: "The panel does not answer; what is shown is old. This page connects again by itself."
        };
    if (!line) return {kind: "idle", text: "connecting", more: ""};
    const remedy = line.remedy ? ` ${line.remedy}` : "";
    if (!line.open)
        return {
            kind: "bad",
            text: "no line",
            more: `${line.error ?? "The serial port is not open."}${remedy}`
        };
    if (line.error)
        return {
            kind: "bad",
            text: line.answers ? "line disturbed" : "no answer",
            more: `${line.error}${remedy}`
        };
    if (!line.answers)
        return {kind: "warn", text: "no answer", more: "The instrument has not answered the last question."};
    return {kind: "good", text: "connected", more: `on ${line.port}`};
}

/// Whether what is known of the instrument is of now.
export const isFresh = () => lineState().kind === "good" || lineState().kind === "warn";

export function streamState() {
    const measurement = get("measurement");
    if (!measurement?.measuring)
        return {
            kind: "idle",
            text: "not measured",
            more: "Measure, to see whether and how the stream arrives."
        };
    if (!isFresh()) return {kind: "bad", text: "not known", more: "No figures come at the moment."};
    if (measurement.link === false)
        return {kind: "bad", text: "no Ethernet link", more: "The instrument's Ethernet has no link."};
    if (measurement.state === "absent")
        return {kind: "bad", text: "no stream", more: "No datagram came within the last second."};
    if (measurement.state === "settling")
        return {kind: "busy", text: "stream comes", more: "The first figures are not the stream's own yet."};
    const errors = measurement.figures?.continuity_errors ?? 0;
    if (errors > 0)
        return {
            kind: "warn",
            text: "stream with errors",
            more: `${errors} continuity error${errors === 1 ? "" : "s"} in the last second.`
        };
    return {kind: "good", text: "stream present", more: bitRateText(measurement.figures?.bit_rate)};
}

export function playState() {
    const play = get("play");
    const player = get("instrument")?.player ?? play?.status;
    if (get("measurement")?.measuring)
        return {kind: "idle", text: "not playing", more: "Measuring stops the player."};
    if (!play || player !== "running")
        return {kind: "idle", text: "not playing", more: "Choose a service to play it."};
    const {picture, sound} = play.presentation ?? {};
    const troubled = [picture, sound].some((each) => each === "undecodable" || each === "awaited");
    return {
        kind: troubled ? "warn" : "good",
        text: `plays ${play.name ?? `program ${play.program}`}`,
        more: play.presentation?.text ?? ""
    };
}

export const kindOfService = (service) => {
    const program = service.program;
    if (!program) return service.type_name || "not known";
    if (program.picture && program.sound) return "picture and sound";
    if (program.picture) return "picture only";
    return program.sound ? "sound only" : "data";
};
