// Elements out of texts. Nothing here or elsewhere in the page makes HTML of a text: names out of streams are hostile.

const svgSpace = "http://www.w3.org/2000/svg";
const properties =
    new Set(["value", "checked", "disabled", "hidden", "selected", "open", "readOnly", "required"]);

function give(element, attributes) {
    for (const [name, value] of Object.entries(attributes)) {
        if (value === undefined || value === null) continue;
        if (name.startsWith("on"))
            element.addEventListener(name.slice(2), value);
        else if (properties.has(name))
            element[name] = value;
        else if (value === true)
            element.setAttribute(name, "");
        else if (value !== false)
            element.setAttribute(name, value);
    }
    return element;
}

/// An element with attributes, listeners ("onclick": function) and children; texts and numbers become text, null is nothing.
export function el(tag, attributes = {}, ...children) {
    const element = give(document.createElement(tag), attributes);
    add(element, children);
    return element;
}

/// The same in SVG.
export function svg(tag, attributes = {}, ...children) {
    const element = document.createElementNS(svgSpace, tag);
    for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
    add(element, children);
    return element;
}

function add(element, children) {
    for (const child of children.flat(Infinity))
        if (child !== null && child !== undefined && child !== false) element.append(child);
}

/// Writes a text only where it differs, so that nothing is announced or drawn for nothing.
export function setText(element, text) {
    const shown = printable(String(text));
    if (element.textContent !== shown) element.textContent = shown;
}

/// Control characters, and those that turn the writing direction, as visible signs: as the tool prints them harmlessly.
export function printable(text) {
    return String(text).replace(/[\u0000-\u001f\u007f-\u009f\u200e\u200f\u202a-\u202e\u2066-\u2069]/g, " ");
}

/// Other children in place of those that are there; what had the focus has it again if it came back (data-key).
export function replace(container, ...children) {
    const focused = document.activeElement;
    const key = container.contains(focused) ? focused.dataset.key : undefined;
    container.replaceChildren();
    add(container, children);
    if (key !== undefined)
        [...container.querySelectorAll("[data-key]")].find((each) => each.dataset.key === key)?.focus();
}

/// Whether the value is another one than at the last call for this holder: to leave alone what needs no new drawing.
export function changed(holder, name, value) {
    const text = JSON.stringify(value) ?? "";
    holder.lastSeen ??= {};
    if (holder.lastSeen[name] === text) return false;
    holder.lastSeen[name] = text;
    return true;
}

const shapes = {
    good: "●",
    bad: "▲",
    warn: "◆",
    idle: "○",
    busy: "◐"
};

/// A state in a word and a shape; the colour only repeats it. Kinds: good, bad, warn, idle, busy.
export function stateMark(kind, text) {
    return el("span", {class: `state ${kind}`},
        el("span", {class: "shape", "aria-hidden": "true"}, shapes[kind]), printable(text));
}

let numbers = 0;
/// A name that no other element of the page has, to tie labels to what they name.
export function freshId(stem) {
    numbers += 1;
    return `${stem}-${numbers}`;
}

/// A control with its label above and, when given, a line of help below.
export function field(label, control, help) {
    control.id ||= freshId("field");
    const parts = [
        el("label",
            { for: control.id
            },
            label),
        control
    ];
    if (help) {
        const note = el("small", {id: freshId("help")}, help);
        control.setAttribute("aria-describedby", note.id);
        parts.push(note);
    }
    return el("div", {class: "field"}, ...parts);
}

export function choice(options, value, attributes = {}) {
    return el("select", attributes,
        options.map(([key, text]) => el("option", {value: key, selected: key === value}, text)));
}

/// A part of a page with a heading, as a card.
export function card(title, ...children) {
    return el("section", {class: "card"}, el("h2", {}, title), ...children);
}

/// Names and values side by side.
export function facts(rows) {
    return el("dl", {class: "facts"}, rows.filter(Boolean).map(([
        name, value
    ]) => [el("dt", {}, name), el("dd", {}, value instanceof Node ? value : printable(value ?? "–"))]));
}

/// For the cells of a column: figures to the right; what a narrow window has no room for, away.
export function classOf({number, wideOnly}) {
    return [number && "number", wideOnly && "wideonly"].filter(Boolean).join(" ") || undefined;
}

/// A table with a caption for screen readers. Columns: {title, number, wideOnly}; cells are texts or nodes.
export function table(caption, columns, rows, attributes = {}) {
    const cell = (value, column) => el("td", {class: classOf(column)},
        value instanceof Node || Array.isArray(value) ? value : printable(value ?? "–"));
    return el("div", {class: "wide", tabindex: "0", role: "region", "aria-label": caption},
        el("table", attributes, el("caption", {class: "unseen"}, caption),
            el("thead", {},
                el("tr", {},
                    columns.map(
                        (column) => el("th", {scope: "col", class: classOf(column)},
                            column.title || el("span", {class: "unseen"}, column.spoken ?? "action"))))),
            el("tbody", {},
                rows.map((row) => (row instanceof Node ?
                                 row :
                                 el("tr", {}, row.map((value, at) => cell(value, columns[at]))))))));
}
