// HTML out of calls: whatever comes from a gateway becomes text or an attribute, never markup.

/** el("a", {class: "x", href: "#/", on: {click: f}}, "text", node, [nodes], null). */
export function el(tag, attributes = {}, ...children) {
    const element = tag === "svg" || tag === "path" ? document.createElementNS("http://www.w3.org/2000/svg", tag) :
                                                      document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (name === "on") {
            for (const [event, handler] of Object.entries(value)) element.addEventListener(event, handler);
        } else if (value === true) {
            element.setAttribute(name, "");
        } else if (value !== false && value !== null && value !== undefined) {
            element.setAttribute(name, value);
        }
    }
    element.append(
        ...children.flat(Infinity).filter((child) => child !== null && child !== undefined && child !== false));
    return element;
}

/**
 * A text of unknown length and direction: it keeps to its place, is cut where there is no room, and is whole on hover.
 */
export function foreign(text, attributes = {}) {
    return el("bdi", {title: text, ...attributes, class: `foreign ${attributes.class ?? ""}`}, text);
}

// Each level has a shape of its own, too.
const SHAPES = {
    ok: "M8 1a7 7 0 1 0 0 14A7 7 0 0 0 8 1zM4.2 8.2l1.2-1.2 1.8 1.8 3.6-3.8 1.2 1.2-4.8 5z",
    warning: "M8 .8 15.6 14.6H.4zM7 5.6h2l-.3 4.4H7.3zM7 11h2v2H7z",
    critical:
        "M5 .8h6l4.2 4.2v6L11 15.2H5L.8 11V5zM5.7 4.6 4.6 5.7 6.9 8l-2.3 2.3 1.1 1.1L8 9.1l2.3 2.3 1.1-1.1L9.1 8l2.3-2.3-1.1-1.1L8 6.9z",
    unknown:
        "M8 1a7 7 0 1 0 0 14A7 7 0 0 0 8 1zM5.4 6.2c0-1.6 1.1-2.6 2.7-2.6s2.6 1 2.6 2.3c0 1-.5 1.6-1.2 2.1-.6.4-.8.6-.8 1.2H7.2c0-1.2.4-1.7 1.1-2.2.5-.4.7-.6.7-1.1s-.3-.8-.9-.8c-.7 0-1.1.4-1.1 1.1zM7.1 10.6h1.8v1.8H7.1z",
    note: "M8 1a7 7 0 1 0 0 14A7 7 0 0 0 8 1zM7.1 3.6h1.8v1.8H7.1zM7.1 6.6h1.8v5.8H7.1z",
};

export function symbol(shape) {
    return el(
        "svg", {class: "symbol", viewBox: "0 0 16 16", "aria-hidden": "true"},
        el("path", {"fill-rule": "evenodd", d: SHAPES[shape] ?? SHAPES.unknown}));
}

/** Puts new children into a place; what had the focus has it again, when it has an id and is still there. */
export function fill(place, ...children) {
    const focused = place.contains(document.activeElement) ? document.activeElement.id : "";
    place.replaceChildren(...children.flat(Infinity).filter(Boolean));
    if (focused) document.getElementById(focused)?.focus({preventScroll: true});
    return place;
}

/** The address of this page may hold a name and a password, which browsers refuse in what a script asks. */
export const whole_address = (path) => new URL(path, location.origin).href;

/** Calls after `ms` without another call. */
export function calmly(ms, action) {
    let timer = 0;
    const calm = (...words) => {
        clearTimeout(timer);
        timer = setTimeout(() => action(...words), ms);
    };
    calm.stop = () => clearTimeout(timer);
    return calm;
}
