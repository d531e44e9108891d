// Records as a table: the same range and names as the chart, the newest first, some hundreds at a time.

import {archive_path, get} from "./api.js";
import {within} from "./chart_data.js";
import {dating} from "./charts_view.js";
import {el, fill, foreign} from "./dom.js";
import {PERIODS, Records, chooser, full_title, range_controls} from "./records.js";
import {iso, minute} from "./time.js";
import {number, t} from "./words.js";

const PAGE = 500;  // records
const ALL = 1000000;  // points: nothing is left out

export function table_view(route, element) {
    const records = new Records(route);
    const closed = new AbortController();
    let asked = null;
    let until = [];  // where the pages that were turned over end
    const range = range_controls(records, () => changed());
    const choices = chooser(records, () => changed(), Infinity);
    choices.element.open = matchMedia("(min-width: 70rem)").matches;
    const csv = el("a", {class: "button", download: true}, t("csv"));
    const place = el("div", {class: "records"});

    function cell(value, bad) {
        if (value === null) return el("td", {class: "number none"}, "–");
        return el("td", {class: `number ${bad ? "bad" : ""}`, title: bad ? t("bad quality") : null}, number(value),
                  bad ? [el("span", {"aria-hidden": "true"}, " *"), el("span", {class: "hidden"}, t("bad quality"))] : null);
    }

    function table(answer, chosen) {
        const head = el("tr", {}, el("th", {scope: "col"}, t("time")), chosen.map((archive) =>
            el("th", {scope: "col", title: dating(archive)}, el("span", {}, full_title(archive)), el("br"), foreign(archive.name, {class: "name"}),
               archive.unit ? [" ", foreign(archive.unit, {class: "unit"})] : null)));
        return el("div", {class: "scroll", tabindex: 0, role: "region", "aria-label": t("records")},
            el("table", {class: "data"}, el("thead", {}, head), el("tbody", {}, [...answer.rows].reverse().map(([time, ...values]) =>
                el("tr", {}, el("th", {scope: "row"}, el("time", {datetime: iso(time), title: iso(time)}, minute(time))),
                   values.map((value, index) => cell(value, within(answer.bad?.[answer.names[index]], time))))))));
    }

    function turn(older, text, action) {
        return el("button", {type: "button", id: older ? "older" : "newer", on: {click: action}}, text);
    }

    /** The records before a time; where there are none, those before the hole. */
    async function page(end, begin, names, signal) {
        let length = PAGE * PERIODS[records.kind];
        for (let from = end; from > begin; length *= 8) {
            const next = Math.max(begin, from - length);
            const answer = await get(archive_path(route.uuid, route.n, {kind: records.kind, names, from: next, to: from}, {points: ALL}), signal);
            if (answer.rows.length > 0 || next === begin) return {...answer, rows: answer.rows.slice(-PAGE)};
            from = next;
        }
        return null;
    }

    async function load() {
        asked?.abort();
        asked = new AbortController();
        const [window, whole, chosen] = [records.window, records.whole, records.chosen];
        if (!window || !whole) {
            fill(place, el("p", {class: "quiet"}, t("no records")));
            return;
        }
        const names = chosen.map(({name}) => name);
        csv.href = archive_path(route.uuid, route.n, {kind: records.kind, names, from: window[0], to: window[1]}, {format: "csv"});
        const [begin, end] = [Math.max(window[0], whole[0]), Math.min(window[1], whole[1])];
        place.setAttribute("aria-busy", "true");
        try {
            const answer = await page(until.at(-1) ?? end, begin, names, asked.signal);
            const first = answer?.rows[0]?.[0];
            const turns = el("p", {class: "turns"},
                until.length > 0 ? turn(false, t("newer"), () => {
                    until.pop();
                    load();
                }) : null,
                first > begin ? turn(true, t("older", {n: PAGE}), () => {
                    until.push(first);
                    load();
                }) : null);
            fill(place, answer?.rows.length > 0 ? [table(answer, chosen), turns] : el("p", {class: "quiet"}, t("no records here")),
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
            if (error.name !== "AbortError") fill(place, el("p", {class: "fault"}, `${t("cannot read")} ${error.message}`));
        }
    }

    fill(element, range.element, el("div", {class: "charting"}, choices.element, el("div", {class: "picture"}, el("div", {class: "tools"}, csv), place)));
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
