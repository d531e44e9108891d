// What the lines of a chart are: title, scale, how their times are to be read, and their values under the cursor.

import {line_colour} from "./chart.js";
import {within} from "./chart_data.js";
import {el, fill, foreign} from "./dom.js";
import {full_title, scale_of, scale_title} from "./records.js";
import {iso, minute} from "./time.js";
import {number, t} from "./words.js";

/** How the times of an archive are to be read. */
export function dating(archive) {
    if (archive.nature === "counter" || archive.dating === "end") return t(`dated end ${archive.kind}`);
    return t(`dated ${archive.nature === "mean" ? "mean" : "state"} ${archive.kind}`);
}

const is_number = (value) => typeof value === "number" && !Number.isNaN(value);

export class Legend {
    #chosen = [];
    #places = [];

    constructor() {
        this.scales = el("div", {class: "scales"});
        this.keys = el("div", {class: "legend"});
        this.pointer = el("p", {class: "pointer"});
    }

    /** `scales`: the keys of the left and of the right one. */
    show(chosen, scales) {
        this.#chosen = chosen;
        const side = (index) => (scales.length > 1 ? t(index === 0 ? "left" : "right") : "");
        const title = (key) => scale_title(chosen.find((archive) => scale_of(archive) === key));
        fill(this.scales, scales.map((key, index) => el("span", {}, el("b", {}, side(index)), " ", title(key))));
        this.#places = chosen.map(() => el("span", {class: "key-value"}));
        fill(this.keys, chosen.map((archive, index) => {
            const scale = scales.indexOf(scale_of(archive));
            const swatch = el("span", {class: `swatch ${scale === 1 ? "dashed" : ""}`, "aria-hidden": "true"});
            swatch.style.borderTopColor = `var(${line_colour(index)})`;
            const words = [side(scale), dating(archive)].filter(Boolean).join(" · ");
            const title_and_name = [full_title(archive), " ", foreign(archive.name, {class: "name"})];
            return el("div", {class: "key"}, swatch, el("span", {}, title_and_name), this.#places[index],
                      el("span", {class: "key-dating"}, words));
        }));
        this.point(null);
    }

    /** The values of a row of this answer, and the events near it. */
    point(row, answer, events = []) {
        this.#places.forEach((place, index) => {
            fill(place, row ? this.#value(row, answer, index) : null);
        });
        if (!row) {
            fill(this.pointer, t("chart hint"));
            return;
        }
        const near = events.map(({code, time}) => `${code} (${minute(time)})`).join(", ");
        const words = near ? ` · ${t("events")}: ${near}` : null;
        fill(this.pointer, el("b", {title: iso(row.time)}, minute(row.time)), words);
    }

    #value(row, answer, index) {
        const archive = this.#chosen[index];
        const value = row.values[index];
        if (!is_number(value)) return ["–"];
        const bad = within(answer.bad?.[archive.name], row.time);
        const word = el("span", {class: "bad-word"}, t(answer.step > 0 ? "some bad" : "bad quality"));
        return [el("b", {}, number(value)), archive.unit ? [" ", foreign(archive.unit)] : null, bad ? word : null];
    }
}
