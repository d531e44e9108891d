// Records as a table: the same range and names as the chart, the newest first, some hundreds at a time.

import {archive_path, get} from "./api.js";
import {within} from "./chart_data.js";
import {dating} from "./chart_legend.js";
import {el, fill, foreign} from "./dom.js";
import {PERIODS, Records, chooser, csv_link, full_title, range_controls, unit_of} from "./records.js";
import {iso, minute} from "./time.js";
import {number, t} from "./words.js";

const PAGE = 500;   // records
const ALL = 10000;  // points, the most that is given: nothing is left out of a page

function head_cell(archive) {
    const name = foreign(archive.name, {class: "name"});
    return el("th", {scope: "col", title: dating(archive)}, full_title(archive), el("br"), name, unit_of(archive));
}

function cell(value, bad) {
    if (value === null) return el("td", {class: "number none"}, "–");
    const word = [el("span", {"aria-hidden": "true"}, " *"), el("span", {class: "hidden"}, t("bad quality"))];
    return el("td", {class: `number ${bad ? "bad" : ""}`}, number(value), bad ? word : null);
}

function table(answer, chosen) {
    const is_bad = (index, time) => within(answer.bad?.[answer.names[index]], time);
    const line = ([time, ...values]) =>
        el("tr", {}, el("th", {scope: "row"}, el("time", {datetime: iso(time), title: iso(time)}, minute(time))),
           values.map((value, index) => cell(value, is_bad(index, time))));
    const head = el("tr", {}, el("th", {scope: "col"}, t("time")), chosen.map(head_cell));
    const lines = [...answer.rows].reverse().map(line);
    return el("div", {class: "scroll", tabindex: 0, role: "region", "aria-label": t("records")},
              el("table", {class: "data"}, el("thead", {}, head), el("tbody", {}, lines)));
}

export function table_view(route, element) {
    const records = new Records(route);
    const closed = new AbortController();
    let asked = null;
    let until = [];  // where the pages that were turned over end
    const range = range_controls(records, changed);
    const choices = chooser(records, changed, Infinity);
    const csv = csv_link(records);
    const place = el("div", {class: "records"});

    /** The records before a time; where there are none, those before the hole. */
    async function page(end, begin, names, signal) {
        const usual = PAGE * PERIODS[records.kind];
        let length = usual;
        for (let to = end; to > begin;) {
            const from = Math.max(begin, to - length);
            const part = {kind: records.kind, names, from, to};
            const answer = await get(archive_path(route.uuid, route.n, part, {points: ALL}), signal);
            if (answer.step > 0) {  // more than there is room for: its newest are the page
                length = usual;
                to = answer.to + 1;
            } else if (answer.rows.length > 0) {
                return {...answer, rows: answer.rows.slice(-PAGE)};
            } else {
                to = from;
                length *= 8;
            }
        }
        return null;
    }

    function turns(first, begin) {
        const turn = (id, text, action) => el("button", {type: "button", id, on: {click() {
            action();
            load();
        }}}, text);
        return el("p", {class: "turns"}, until.length > 0 ? turn("newer", t("newer"), () => until.pop()) : null,
                  first > begin ? turn("older", t("older", {n: PAGE}), () => until.push(first)) : null);
    }

    async function load() {
        asked?.abort();
        asked = new AbortController();
        const [window, whole, chosen] = [records.window, records.whole, records.chosen];
        csv.show();
        if (!window) {
            fill(place, el("p", {class: "quiet"}, t("no records")));
            return;
        }
        const [begin, end] = [Math.max(window[0], whole[0]), Math.min(window[1], whole[1])];
        place.setAttribute("aria-busy", "true");
        try {
            const answer = await page(until.at(-1) ?? end, begin, chosen.map(({name}) => name), asked.signal);
            const none = el("p", {class: "quiet"}, t("no records here"));
            const rows = answer?.rows ?? [];
            fill(place, rows.length > 0 ? [table(answer, chosen), turns(rows[0][0], begin)] : none,
                 el("p", {class: "note"}, t("table note")));
        } catch (error) {
            if (error.name === "AbortError") return;
            fill(place, el("p", {class: "fault"}, `${t("cannot read")} ${error.message}`));
        }
        place.setAttribute("aria-busy", "false");
    }

    function changed() {
        until = [];
        range.show();
        choices.show();
        load();
    }

    async function refresh() {
        try {
            await records.read(closed.signal);
            range.show();
            choices.show();
            await load();
        } catch (error) {
            if (error.name === "AbortError") return;
            fill(place, el("p", {class: "fault"}, `${t("cannot read")} ${error.message}`));
        }
    }

    fill(element, range.element,
         el("div", {class: "charting"}, choices.element,
            el("div", {class: "picture"}, el("div", {class: "tools"}, csv.element), place)));
    refresh();
    return {
        refresh,
        records: refresh,
        close() {
            closed.abort();
            asked?.abort();
        },
    };
}
