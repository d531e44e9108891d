// Which records a view shows: kind, names, times. The same for chart and table, and told by the address.

import {get, meter_path} from "./api.js";
import {el, fill, foreign} from "./dom.js";
import {RANGES, rewrite} from "./route.js";
import {from_wall, to_wall, wall_date} from "./time.js";
import {t, title} from "./words.js";

const DAY = 86400;
const SPANS = {day: DAY, week: 7 * DAY, month: 31 * DAY, year: 366 * DAY};
export const PERIODS = {hourly: 3600, daily: DAY};

/** What has one scale: counters dwarf what is counted in an hour. */
export const scale_of = (archive) => `${archive.quantity}|${archive.unit}|${archive.nature === "counter"}`;

export function full_title(archive) {
    return archive.title ? title(archive.title) : archive.name;
}

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

    get kind() {
        return this.kinds.includes(this.route.kind) ? this.route.kind : this.kinds[0] ?? "hourly";
    }

    /** Of this kind. */
    get all() {
        return this.archives.filter(({kind}) => kind === this.kind);
    }

    get chosen() {
        const wished = this.all.filter(({name}) => this.route.names?.includes(name));
        return wished.length > 0 ? wished : this.#usual();
    }

    /** Temperatures and heat are what people look for first. */
    #usual() {
        const of = (quantity) => this.all.filter((archive) => archive.quantity === quantity && archive.nature !== "counter");
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
        return [whole[1] - SPANS[this.range], whole[1]];
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

/** Buttons of ranges, and two dates; the second day is included. */
export function range_controls(records, changed) {
    const element = el("div", {class: "controls"});

    function dates() {
        const from = element.querySelector("[name=from]").value;
        const to = element.querySelector("[name=to]").value;
        if (!from || !to) return;
        const [first, last] = from <= to ? [from, to] : [to, from];
        const after = from_wall(to_wall(date_moment(last)) + DAY);
        records.look_at(date_moment(first), after);
        changed();
    }

    function show() {
        const window = records.window;
        const button = (text, pressed, action, id) =>
            el("button", {type: "button", id, "aria-pressed": String(pressed), on: {click: action}}, text);
        const date = (name, epoch) => el("label", {class: "date"}, el("span", {}, t(name)),
            el("input", {type: "date", name, id: `date-${name}`, value: window ? date_text(epoch) : "", on: {change: dates}}));
        fill(element,
            records.kinds.length > 1
                ? el("div", {class: "buttons", role: "group", "aria-label": t("records")}, records.kinds.map((kind) =>
                    button(t(kind), kind === records.kind, () => {
                        records.set({kind, names: null});
                        changed();
                    }, `kind-${kind}`)))
                : null,
            el("div", {class: "buttons", role: "group", "aria-label": t("range")}, RANGES.map((range) =>
                button(t(`range ${range}`), range === records.range, () => {
                    records.set({range, from: null, to: null});
                    changed();
                }, `range-${range}`))),
            el("div", {class: "dates"}, date("from", window?.[0] ?? 0), date("to", (window?.[1] ?? 1) - 1)));
    }

    show();
    return {element, show};
}

/** Check boxes for what there is, in groups of one scale; `most_scales` at once. */
export function chooser(records, changed, most_scales) {
    const summary = el("summary", {});
    const body = el("div", {class: "choices"});
    const element = el("details", {class: "chooser"}, summary, body);

    function toggle(name, on) {
        const names = records.chosen.map((archive) => archive.name);
        records.set({kind: records.kind, names: on ? [...names, name] : names.filter((other) => other !== name)});
        changed();
    }

    function choice(archive, chosen, scales) {
        const on = chosen.includes(archive);
        const full = !on && !scales.has(scale_of(archive)) && scales.size >= most_scales;
        const last = on && chosen.length === 1;
        return el("label", {class: `choice ${full ? "off" : ""}`, title: full ? t("two scales") : null},
            el("input", {type: "checkbox", id: `choice-${archive.name}`, checked: on, disabled: full || last,
                         on: {change: (event) => toggle(archive.name, event.target.checked)}}),
            el("span", {}, full_title(archive), " ", foreign(archive.name, {class: "name"}), archive.unit ? [" ", foreign(archive.unit, {class: "unit"})] : null));
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
        fill(summary, t("quantities"), ` (${chosen.length})`);
        fill(body,
            full ? el("p", {class: "hint"}, t("two scales")) : null,
            [...groups.values()].map((archives) => el("fieldset", {},
                el("legend", {}, t(`quantity ${archives[0].quantity}`), archives[0].nature === "counter" ? `, ${t("counter")}` : ""),
                archives.map((archive) => choice(archive, chosen, scales)))));
    }

    show();
    return {element, show};
}
