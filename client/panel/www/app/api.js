// Orders to the panel.

import {kept} from "./kept.js";
import {on} from "./store.js";

/// What was refused or failed, with what can be done about it.
export class Refusal extends Error {
    constructor(cause, remedy = "") {
        super(cause);
        this.remedy = remedy;
    }
}

const noPanel = "start tessary-panel again; this page connects by itself";

async function answerOf(request) {
    let response;
    try {
        response = await request;
    } catch {
        throw new Refusal("the panel does not answer", noPanel);
    }
    const isJson = (response.headers.get("Content-Type") ?? "").includes("json");
    const value = isJson ? await response.json() : {};
    if (!response.ok)
        throw new Refusal(
            value.error?.cause ?? `the panel answers with status ${response.status}`, value.error?.remedy);
    return value;
}

export const fetchJson = (path) => answerOf(fetch(path));
export const post = (path, value) => answerOf(fetch(
    path, {method: "POST", headers: {"Content-Type": "application/json"}, body: JSON.stringify(value)}));
export const remove = (path) => answerOf(fetch(path, {method: "DELETE"}));
export const upload = (file) => answerOf(fetch(`/api/upload?name=${encodeURIComponent(file.name)}`,
    {method: "POST", headers: {"Content-Type": "application/octet-stream"}, body: file}));

export const myName = () => kept("name") ?? "";

const awaited = new Map(); // id of a job: what to call with its end
const ended = new Map();   // ends that came before the answer with the id

on("done", (done) => {
    if (awaited.has(done.id))
        awaited.get(done.id)(done);
    else
        ended.set(done.id, done);
    awaited.delete(done.id);
    for (const id of ended.keys())
        if (ended.size > 20) ended.delete(id);
});

/// Has the panel run a tessaryctl command line, given as words. Resolves with its JSON; rejects with a Refusal.
export async function run(words) {
    const order = {words: words.map(String)};
    if (myName() !== "") order.who = myName();
    const {id} = await post("/api/run", order);
    const done = ended.get(id) ?? await new Promise((resolve) => {
        awaited.set(id, resolve);
    });
    if (done.status !== 0)
        throw new Refusal(
            done.result?.error?.cause ?? `ended with status ${done.status}`, done.result?.error?.remedy);
    return done.result;
}

// A job may end while the panel is away: what is not at work any more when it is back will not be told any more.
let wasAway = false;
on("connection", ({up}) => {
    wasAway ||= !up;
});
on("job", (job) => {
    if (!wasAway) return;
    wasAway = false;
    const alive = new Set([job.running?.id, ...(job.waiting ?? []).map((each) => each.id)]);
    const lost = [...awaited.keys()].filter((id) => !alive.has(id));
    setTimeout(() => lost.forEach(giveUp), 500); // its end may be the next that comes
});

function giveUp(id) {
    awaited.get(id)?.({
        status: 1,
        result: {error: {cause: "its end was not seen: the panel was away", remedy: "do it again"}}
    });
    awaited.delete(id);
}

export const withdraw = (id) => remove(`/api/run/${id}`);
