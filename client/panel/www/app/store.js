// What is known of instrument and panel, by topic, and who wants to hear of a change.

const values = new Map();
const listeners = new Map();

/// The value of a topic as it came last; undefined before the first.
export const get = (topic) => values.get(topic);

/// Calls `listener(value)` at each change from now on.
export function on(topic, listener) {
    if (!listeners.has(topic)) listeners.set(topic, new Set());
    listeners.get(topic).add(listener);
}

export function set(topic, value) {
    values.set(topic, value);
    for (const listener of listeners.get(topic) ?? []) listener(value);
}

const kept = 5000;

/// Entries behind those that a topic has; the oldest go when there are too many.
export function append(topic, entries) {
    const all = (values.get(topic) ?? []).concat(entries);
    set(topic, all.length > kept ? all.slice(all.length - kept) : all);
}
