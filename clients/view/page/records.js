// Which records a view shows: kind, names, times. The same for chart and table, and told by the address.

import {archive_path, get, meter_path} from "./api.js";
import {calmly, el, fill, foreign} from "./dom.js";
import {RANGES, rewrite} from "./route.js";
import {from_wall, to_wall, wall_date} from "./time.js";
import {t, title} from "./words.js";

const DAY = 86400;
const TYPING = 600;  // ms
const SPANS = {
    day: DAY,
    week: 7 * DAY,
    month: 31 * DAY,
    year: 366 * DAY
};
export const PERIODS = {
    hourly: 3600,
    daily: DAY
};

/** What has one scale: counters dwarf what is counted in an hour. */
export const scale_of = (archive) => `${archive.quantity}|${archive.unit}|${archive.nature === "counter"}`;

/** "Heat, total, Gcal". */
export function scale_title(archive) {
    const words = t(`quantity ${archive.quantity}`) + (archive.nature === "counter" ? `, ${t("counter")}` : "");
    return [words, archive.unit ? [", ", foreign(archive.unit)] : null];
}

export function full_title(archive) { return archive.title ? title(archive.title) : archive.name; }

/** The archives of a system, and which part of them is looked at. */
export class Records {
    constructor(route) {
        this.route = route;
        this.archives = [];
    }

    async read(signal) {
        const all = (await get(meter_path(this.route.uuid, this.route.n, "archives"), signal)).archives;
        this.archives = all.filter(({kind}) => kind in PERIODS);
        this.events = all.some(({kind}) => kind === "events");
    }

    get kinds() {
        return Object.keys(PERIODS).filter((kind) => this.archives.some((archive) => archive.kind === kind));
    }

    get kind() { return this.kinds.includes(this.route.kind) ? this.route.kind : this.kinds[0] ?? "hourly"; }

    /** Of this kind. */
    get all() { return this.archives.filter(({kind}) => kind === this.kind); }

    get chosen() {
        const wished = this.all.filter(({name}) => this.route.names?.includes(name));
        return wished.length > 0 ? wished : this.#usual();
    }

    /** Temperatures and heat are what people look for first. */
    #usual() {
        const of = (quantity) =>
            this.all.filter((archive) => archive.quantity === quantity && archive.nature !== "counter");
        const usual = [...of("temperature").slice(0, 2), ...of("heat").slice(0, 1)];
        return usual.length > 0 ? usual : this.all.slice(0, 1);
    }

    /** From the first to the last record of what is chosen: [from, to), null when there is none. */
    get whole() {
        const times = this.chosen.flatMap(({from, to}) => (from === null || to === null ? [] : [from, to]));
        return times.length > 0 ? [Math.min(...times), Math.max(...times) + 1] : null;
    }

    get window() {
        if (this.route.from !== null) return [this.route.from, this.route.to];
        const whole = this.whole;
        if (!whole || this.range === "all") return whole;
        return [Math.max(whole[0], whole[1] - SPANS[this.range]), whole[1]];
    }

    /** Null when the times were chosen one by one. */
    get range() {
        return this.route.from !== null ? null : this.route.range ?? (this.kind === "daily" ? "year" : "week");
    }

    set(changes) {
        Object.assign(this.route, changes);
        rewrite(this.route);
    }

    look_at(from, to) {
        this.set({range: null, from: Math.floor(from), to: Math.max(Math.floor(from) + 1, Math.ceil(to))});
    }
}

const date_text = (epoch) => wall_date(epoch).toISOString().slice(0, 10);
const date_moment = (text) => from_wall(Date.parse(`${text}T00:00:00Z`) / 1000);

const FIRST_YEAR = "1990";  // while somebody types, a year has fewer figures

function date_input(name, changed) {
    const input = el("input", {type: "date", name, id: `date-${name}`, on: {change: changed}});
    const word = el("span", {}, t(name));
    return {input, element: el("label", {class: "date"}, word, input)};
}

/** One of some buttons is pressed. */
function button_group(label, names, pressed, word, action) {
    const button = (name) => {
        const attributes = {type: "button", id: `choose-${name}`, "aria-pressed": String(name === pressed)};
        return el("button", {...attributes, on: {click: () => action(name)}}, t(word(name)));
    };
    return el("div", {class: "buttons", role: "group", "aria-label": label}, names.map(button));
}

/** Buttons of kinds and ranges, and two dates; the second day is included. */
export function range_controls(records, changed) {
    const take_dates = calmly(TYPING, dates);
    const from = date_input("from", take_dates);
    const to = date_input("to", take_dates);
    const buttons = el("div", {class: "controls"});
    const element = el("div", {class: "controls"}, buttons, el("div", {class: "dates"}, from.element, to.element));

    function dates() {
        const [first, last] = [from.input.value, to.input.value].sort();
        if (first < FIRST_YEAR) return;
        records.look_at(date_moment(first), from_wall(to_wall(date_moment(last)) + DAY));
        changed();
    }

    function choose(changes) {
        records.set(changes);
        changed();
    }

    function show() {
        const kinds = button_group(t("records"), records.kinds, records.kind, (kind) => kind,
                                   (kind) => choose({kind, names: null}));
        const ranges = button_group(t("range"), RANGES, records.range, (range) => `range ${range}`,
                                    (range) => choose({range, from: null, to: null}));
        fill(buttons, records.kinds.length > 1 ? kinds : null, ranges);
        const window = records.window;
        if (!window || element.contains(document.activeElement?.closest(".date"))) return;
        from.input.value = date_text(window[0]);
        to.input.value = date_text(window[1] - 1);
    }

    show();
    return {element, show};
}

/** Exactly what is looked at, to take away. */
export function csv_link(records) {
    const element = el("a", {class: "button", download: true}, t("csv"));
    const {uuid, n} = records.route;
    function show() {
        const window = records.window;
        element.hidden = !window;
        if (!window) return;
        const part = {kind: records.kind, names: records.chosen.map(({name}) => name), from: window[0], to: window[1]};
        element.href = archive_path(uuid, n, part, {format: "csv"});
    }
    return {element, show};
}

export function unit_of(archive) {
    return archive.unit ? [" ", foreign(archive.unit, {class: "unit"})] : null;
}

/** Check boxes for what there is, in groups of one scale; `most_scales` at once. */
export function chooser(records, changed, most_scales) {
    const summary = el("summary", {});
    const body = el("div", {class: "choices"});
    const element = el("details", {class: "chooser", open: matchMedia("(min-width: 70rem)").matches}, summary, body);

    function toggle(name, on) {
        const names = records.chosen.map((archive) => archive.name);
        records.set({kind: records.kind, names: on ? [...names, name] : names.filter((other) => other !== name)});
        changed();
    }

    function choice(archive, chosen, scales) {
        const on = chosen.includes(archive);
        const full = !on && !scales.has(scale_of(archive)) && scales.size >= most_scales;
        const change = (event) => toggle(archive.name, event.target.checked);
        const state = {checked: on, disabled: full || (on && chosen.length === 1)};
        const box = el("input", {type: "checkbox", id: `choice-${archive.name}`, ...state, on: {change}});
        return el("label", {class: `choice ${full ? "off" : ""}`, title: full ? t("two scales") : null}, box,
                  el("span", {}, full_title(archive), " ", foreign(archive.name, {class: "name"}), unit_of(archive)));
    }

    function show() {
        const chosen = records.chosen;
        const scales = new Set(chosen.map(scale_of));
        const groups = new Map();
        for (const archive of records.all) {
            const key = scale_of(archive);
            groups.set(key, [...groups.get(key) ?? [], archive]);
        }
        const full = scales.size >= most_scales && groups.size > scales.size;
        const group = (archives) => el("fieldset", {}, el("legend", {}, scale_title(archives[0])),
                                       archives.map((archive) => choice(archive, chosen, scales)));
        fill(summary, t("quantities"), ` (${chosen.length})`);
        fill(body, full ? el("p", {class: "hint"}, t("two scales")) : null, [...groups.values()].map(group));
    }

    show();
    return {element, show};
}
