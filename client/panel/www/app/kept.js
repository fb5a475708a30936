// What a browser keeps for a person from one visit to the next; nothing, where it is told to keep nothing.

export function kept(name) {
    try {
        return localStorage.getItem(name);
    } catch {
        return null;
    }
}

export function keep(name, value) {
    try {
        localStorage.setItem(name, value);
    } catch {
        // it holds until the page is left
    }
}
