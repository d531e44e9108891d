// Fingers, mouse, wheel and keys over a chart: they change the window of time, never the page behind it, and leave
// scrolling up and down to the page.

const TAP = 300;  // ms
const NEAR = 24;  // pixels
const SMALLEST_DRAG = 8;

/**
 * `chart` has: element, area() {left, width} in pixels of the element, window() and whole() as [from, to] in ms,
 * move(from, to) while it goes on, cursor(x) and step(count) for the values, reset().
 */
export function listen(chart) {
    const {element} = chart;
    const fingers = new Map();
    let start = null;  // {window, centre, spread} of what the fingers began with
    let drag = null;   // {x, pans, window} of the mouse
    let last_tap = null;
    const band = element.appendChild(document.createElement("div"));
    band.className = "band";
    band.hidden = true;

    const x_of = (event) => event.clientX - element.getBoundingClientRect().left;
    function time_of(x, [from, to]) {
        const {left, width} = chart.area();
        return from + ((x - left) / width) * (to - from);
    }

    function zoom(factor, x) {
        const [from, to] = chart.window();
        const centre = x === undefined ? (from + to) / 2 : time_of(x, [from, to]);
        chart.move(centre - (centre - from) * factor, centre + (to - centre) * factor);
    }

    function pan(share) {
        const [from, to] = chart.window();
        chart.move(from + (to - from) * share, to + (to - from) * share);
    }

    function show_band(x) {
        const {left, width} = chart.area();
        const [a, b] =
            [drag.x, x].map((at) => Math.min(left + width, Math.max(left, at))).sort((one, other) => one - other);
        band.hidden = b - a < SMALLEST_DRAG;
        band.style.left = `${a}px`;
        band.style.width = `${b - a}px`;
        return [a, b];
    }

    // ---- fingers

    function hold() {
        const xs = [...fingers.values()].map(({x}) => x);
        start = xs.length === 0 ? null : {
            window: chart.window(),
            centre: (Math.min(...xs) + Math.max(...xs)) / 2,
            spread: Math.max(...xs) - Math.min(...xs)
        };
    }

    function move_fingers() {
        const xs = [...fingers.values()].map(({x}) => x);
        const centre = (Math.min(...xs) + Math.max(...xs)) / 2;
        const spread = Math.max(...xs) - Math.min(...xs);
        const factor = xs.length > 1 ? Math.max(NEAR, start.spread) / Math.max(NEAR, spread) : 1;
        const {left, width} = chart.area();
        const held = time_of(start.centre, start.window);
        const length = (start.window[1] - start.window[0]) * factor;
        const from = held - ((centre - left) / width) * length;
        chart.move(from, from + length);
    }

    function tap(event) {
        const near = last_tap && event.timeStamp - last_tap.time < 2 * TAP && Math.abs(x_of(event) - last_tap.x) < NEAR;
        last_tap = near ? null : {time: event.timeStamp, x: x_of(event)};
        if (near)
            chart.reset();
        else
            chart.cursor(x_of(event));
    }

    // ---- events

    function pointer_down(event) {
        if (event.pointerType === "mouse") {
            if (event.button !== 0) return;
            drag = {x: x_of(event), pans: event.shiftKey || event.altKey, window: chart.window()};
        } else {
            fingers.set(event.pointerId, {x: x_of(event), from: x_of(event), time: event.timeStamp});
            hold();
        }
        element.setPointerCapture(event.pointerId);
    }

    function pointer_move(event) {
        const x = x_of(event);
        if (drag && drag.pans) {
            const shift = time_of(drag.x, drag.window) - time_of(x, drag.window);
            chart.move(drag.window[0] + shift, drag.window[1] + shift);
        } else if (drag) {
            show_band(x);
        } else if (fingers.has(event.pointerId)) {
            fingers.get(event.pointerId).x = x;
            if (fingers.size > 1 || Math.abs(x - fingers.get(event.pointerId).from) > SMALLEST_DRAG) move_fingers();
        } else {
            chart.cursor(x);
        }
    }

    function pointer_up(event) {
        if (drag) {
            const [a, b] = show_band(x_of(event));
            if (!drag.pans && !band.hidden) chart.move(time_of(a, drag.window), time_of(b, drag.window));
            band.hidden = true;
            drag = null;
        }
        const finger = fingers.get(event.pointerId);
        if (finger) {
            fingers.delete(event.pointerId);
            if (fingers.size === 0 && event.timeStamp - finger.time < TAP &&
                Math.abs(finger.x - finger.from) <= SMALLEST_DRAG)
                tap(event);
            hold();
        }
    }

    function cancel(event) {
        fingers.delete(event.pointerId);
        drag = null;
        band.hidden = true;
        hold();
    }

    function wheel(event) {
        const [from, to] = chart.window();
        const [first, last] = chart.whole();
        if (Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
            event.preventDefault();
            pan(Math.sign(event.deltaX) * 0.08);
        } else if (event.deltaY < 0 || to - from < last - first) {  // what is whole already lets the page scroll
            event.preventDefault();
            zoom(event.deltaY < 0 ? 0.8 : 1.25, x_of(event));
        }
    }

    const keys = {
        "+": () => zoom(0.5),
        "=": () => zoom(0.5),
        "-": () => zoom(2),
        "0": () => chart.reset(),
        Home: () => chart.reset(),
        PageUp: () => pan(-0.5),
        PageDown: () => pan(0.5),
        ArrowLeft: (event) => (event.shiftKey ? pan(-0.1) : chart.step(-1)),
        ArrowRight: (event) => (event.shiftKey ? pan(0.1) : chart.step(1)),
        Escape: () => chart.cursor(null)
    };
    function key(event) {
        if (!keys[event.key] || event.ctrlKey || event.altKey || event.metaKey || event.target !== element) return;
        event.preventDefault();
        keys[event.key](event);
    }

    const handlers = {
        pointerdown: pointer_down,
        pointermove: pointer_move,
        pointerup: pointer_up,
        pointercancel: cancel,
        pointerleave: (event) => event.pointerType === "mouse" && drag === null && chart.cursor(null),
        dblclick: () => chart.reset(),
        wheel,
        keydown: key
    };
    for (const [name, handler] of Object.entries(handlers)) element.addEventListener(name, handler, {passive: false});
    return {zoom, pan};
}
