// The meter's events in a chart: marks, and a list of them whose focus makes a mark stand out.

import {get, meter_path} from "./api.js";
import {el, fill, foreign} from "./dom.js";
import {duration, minute} from "./time.js";
import {number, t} from "./words.js";

const LISTED = 100;
const TOLD = 5;

function sentence({code, begin, end, time}) {
    const until = begin !== null && end !== null ? ` – ${minute(end)} (${duration(end - begin)})` : "";
    return [el("b", {}, foreign(code)), " ", minute(time), until];
}

export class Marks {
    #events = [];
    #window = [0, 0];
    #chosen = null;

    constructor(chart) {
        this.chart = chart;
        this.element = el("details", {class: "marks"});
    }

    async read(route, signal) {
        const found = (await get(meter_path(route.uuid, route.n, "events"), signal)).events;
        this.#events = found.map((event) => ({...event, time: event.begin ?? event.end}))
            .filter(({time}) => time !== null)
            .sort((a, b) => a.time - b.time);
    }

    #seen() {
        return this.#events.filter(({time}) => time >= this.#window[0] && time < this.#window[1]);
    }

    #draw() {
        this.chart.mark(this.#seen().map((event) => ({...event, chosen: event === this.#chosen})));
    }

    /** In the chart alone: the window moves. */
    move(window) {
        this.#window = window;
        this.#draw();
    }

    show(window) {
        this.move(window);
        const choose = (event) => () => {
            this.#chosen = event;
            this.#draw();
        };
        const item = (event) => {
            const [on, off] = [choose(event), choose(null)];
            const handlers = {pointerenter: on, focus: on, pointerleave: off, blur: off};
            return el("li", {tabindex: 0, on: handlers}, sentence(event));
        };
        const seen = this.#seen();
        this.element.hidden = this.#events.length === 0;
        fill(this.element, el("summary", {}, t("events seen", {n: number(seen.length)})),
             el("ul", {}, seen.slice(-LISTED).reverse().map(item)));
    }

    /** Some of those that are not further away than that. */
    near(time, seconds) {
        return this.#events.filter((event) => Math.abs(event.time - time) <= seconds).slice(0, TOLD);
    }
}
