// The present values of one system, live. What has just changed is marked for some seconds.

import {get, meter_path} from "./api.js";
import {el, fill, foreign} from "./dom.js";
import {age_element, minute, show_age} from "./time.js";
import {number, t, title} from "./words.js";

const MARKED = 6000;  // ms
const SIGNS = {changed: "•", risen: "▲", fallen: "▼"};

// By the catalogue's titles; what matches none is shown last.
const GROUPS = [
    ["group flow", /^(heat|volume|mass) flow \d$/],
    ["group temperature", /^(outdoor )?temperature( \d| difference)?$/],
    ["group pressure", /^pressure \d$/],
    ["group totals", /^(heat|mass|volume|running time)( \d)?$/],
    ["group settings", / (limit|diameter) \d$| conversion$|^(kind of )?port$|^(parity|stop|data) (code|bits)$|formula/],
    ["group device", /^(model|serial number|firmware.*)$|^(name|kind) of|third temperature|archive|records?$/],
    ["group state", /./],
];

const group_of = (english) => GROUPS.findIndex(([, pattern]) => pattern.test(english));

/** A clock is a moment; other numbers stay numbers. */
function shown(value) {
    if (value.value === null) return el("span", {class: "quiet"}, t("empty"));
    if (typeof value.value === "string") return foreign(value.value);
    if (value.title === "clock of the meter" && value.value > 0) return minute(value.value);
    return number(value.value);
}

class Row {
    constructor(value) {
        this.number = el("td", {class: "number"});
        this.age = age_element(value.time);
        const words = value.title ? title(value.title) : t("no title");
        const small = el("div", {class: "small"}, foreign(value.name), " · ", this.age);
        this.element = el("tr", {}, el("th", {scope: "row"}, words, small), this.number);
        this.timer = 0;
        this.show(value);
    }

    show(value) {
        this.value = value;
        const unit = value.title === "clock of the meter" ? "" : value.unit;
        fill(this.number, el("span", {class: "value"}, shown(value)),
             unit ? [" ", foreign(unit, {class: "unit"})] : null);
    }

    update(value) {
        const before = this.value;
        show_age(this.age, value.time);
        if (before.value === value.value && before.unit === value.unit) return;
        this.show(value);
        const both = typeof before.value === "number" && typeof value.value === "number";
        const word = !both ? "changed" : value.value > before.value ? "risen" : "fallen";
        this.number.prepend(el("span", {class: "mark", title: t(word)}, SIGNS[word]));
        this.element.classList.add("changed");
        clearTimeout(this.timer);
        this.timer = setTimeout(() => {
            this.element.classList.remove("changed");
            this.number.querySelector(".mark")?.remove();
        }, MARKED);
    }
}

function tables(rows) {
    const groups = GROUPS.map(([name]) => ({name, rows: []}));
    for (const row of rows.values()) groups[Math.max(0, group_of(row.value.title || "?"))].rows.push(row.element);
    const section = (group) =>
        el("section", {class: "group"},
           el("table", {class: "values"}, el("caption", {}, t(group.name)), el("tbody", {}, group.rows)));
    return groups.filter((group) => group.rows.length > 0).map(section);
}

export function values_view(route, element) {
    const rows = new Map();
    const asked = new AbortController();
    let heard = 0;  // messages of the stream

    function show() {
        const none = el("p", {class: "quiet"}, t("no values"));
        fill(element, rows.size > 0 ? el("div", {class: "groups"}, tables(rows)) : none);
    }

    /** Those that came; `all` of them when they were asked for. */
    function take(values, all) {
        const names = new Set(values.map(({name}) => name));
        const gone = all ? [...rows.keys()].filter((name) => !names.has(name)) : [];
        let differs = gone.length > 0 || (all && rows.size === 0);
        gone.forEach((name) => rows.delete(name));
        for (const value of values) {
            const row = rows.get(value.name);
            if (row && row.value.title === value.title) {
                row.update(value);
            } else {
                rows.set(value.name, new Row(value));
                differs = true;
            }
        }
        if (differs) show();
    }

    async function refresh() {
        try {
            const before = heard;
            const answer = await get(meter_path(route.uuid, route.n, "values"), asked.signal);
            if (heard !== before) return refresh();  // it may be older than what was heard meanwhile
            take(answer.values, true);
        } catch (error) {
            if (error.name === "AbortError") return;
            if (error.status === 404) {
                take([], true);
            } else if (rows.size === 0) {
                fill(element, el("p", {class: "fault"}, `${t("cannot read")} ${error.message}`));
            }
        }
    }

    fill(element, el("p", {class: "quiet"}, t("reading")));
    refresh();
    return {
        refresh,
        values(data) {
            heard += 1;
            if (rows.size > 0) take(data.values, false);
        },
        close: () => asked.abort(),
    };
}
