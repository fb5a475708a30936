// What the panel is doing for whom: the running command, those behind it, and the last that ended.

import {outcome, showError} from "./actions.js";
import {withdraw} from "./api.js";
import {changed, el, printable, replace, setText, stateMark} from "./dom.js";
import {get, on} from "./store.js";
import {dateOf, durationText} from "./units.js";

const shownMs = 12000;

export const wordsText = (words) =>
    printable((words ?? []).map((word) => (/^[\w@%+=:,./?&-]+$/.test(word) ? word : `'${word}'`)).join(" "));

function withdrawButton(job, place) {
    return el("button", {
        type: "button",
        class: "small",
        "data-key": `withdraw-${job.id}`,
        "aria-label": `Withdraw ${wordsText(job.words)}`,
        onclick: () => withdraw(job.id).catch((error) => showError(place, error)),
    },
        "Withdraw");
}

function runningView(job, place) {
    const known = typeof job.progress?.share === "number";
    return el("div", {class: "job"}, stateMark("busy", "running"), el("code", {}, wordsText(job.words)),
        el("span", {class: "soft", id: "job-time"}),
        job.who ? el("span", {class: "soft"}, `by ${printable(job.who)}`) : null, el("progress", {
            max: "1",
            value: known ? job.progress.share : undefined,
            "aria-label": `progress of ${wordsText(job.words)}`
        }),
        job.progress?.text ? el("span", {}, printable(job.progress.text)) : null, withdrawButton(job, place));
}

function waitingView(jobs, place) {
    return jobs.map(
        (job) => el("div", {class: "job"}, stateMark("idle", "waiting"), el("code", {}, wordsText(job.words)),
            job.who ? el("span", {class: "soft"}, `by ${printable(job.who)}`) : null,
            withdrawButton(job, place)));
}

/// The strip below the page's head.
export function jobStrip() {
    const jobs = el("div", {class: "jobs"});
    const last = el("div", {class: "ended", role: "status"});
    const place = outcome();
    const strip = el("section", {class: "strip", "aria-label": "Commands at work"}, jobs, last, place);
    let hide;
    on("job", (job) => {
        if (changed(jobs, "job", {...job, running: job.running && { ...job.running, since: 0 }}))
            replace(jobs, job.running ? runningView(job.running, place) : null,
                waitingView(job.waiting ?? [], place));
        tick();
    });
    on("done", (done) => {
        const ended = dateOf(done.ended);
        if (ended !== null && Date.now() - ended > shownMs) return; // told on connect
        const good = done.status === 0;
        replace(last, stateMark(good ? "good" : "bad", good ? "done" : "failed"),
            el("code", {}, wordsText(done.words)),
            el("span", {class: "soft"},
                [
                    typeof done.seconds === "number" ? `${done.seconds.toFixed(1)} s` : null,
                    done.who ? `by ${printable(done.who)}` : null
                ].filter(Boolean)
                    .join(", ")),
            good ? null : el("span", {}, printable(done.result?.error?.cause ?? `status ${done.status}`)));
        clearTimeout(hide);
        hide = setTimeout(() => replace(last), shownMs);
    });
    const tick = () => {
        const since = dateOf(get("job")?.running?.since);
        const place = strip.querySelector("#job-time");
        if (since !== null && place) setText(place, durationText(Math.max(0, (Date.now() - since) / 1000)));
    };
    setInterval(tick, 1000);
    return strip;
}
