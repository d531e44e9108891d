// The meter's own list of events: code, begin, end, how long.

import {get, meter_path} from "./api.js";
import {el, fill, foreign} from "./dom.js";
import {duration, iso, moment} from "./time.js";
import {number, t} from "./words.js";

const PAGE = 500;

function time_cell(epoch) {
    return el("td", {}, epoch === null ? "–" : el("time", {datetime: iso(epoch), title: iso(epoch)}, moment(epoch)));
}

function row({code, begin, end}) {
    const ended = begin !== null && end !== null && end >= begin;
    return el("tr", {}, el("th", {scope: "row"}, foreign(code)), time_cell(begin), time_cell(end),
              el("td", {}, ended ? duration(end - begin) : "–"));
}

export function events_view(route, element) {
    const closed = new AbortController();
    let events = null;
    let shown = PAGE;

    function show() {
        if (events.length === 0) {
            fill(element, el("p", {class: "quiet"}, t("no events")));
            return;
        }
        const more = el("button", {type: "button", id: "older", on: {click() {
            shown += PAGE;
            show();
        }}}, t("older", {n: PAGE}));
        const heads = [t("code"), t("begin"), t("end"), t("duration")].map((text) => el("th", {scope: "col"}, text));
        const table = el("table", {class: "data"}, el("thead", {}, el("tr", {}, heads)),
                         el("tbody", {}, events.slice(0, shown).map(row)));
        fill(element, el("p", {class: "note"}, t("events in all", {n: number(events.length)})),
             el("div", {class: "scroll", tabindex: 0, role: "region", "aria-label": t("events")}, table),
             shown < events.length ? el("p", {class: "turns"}, more) : null);
    }

    async function refresh() {
        try {
            events = (await get(meter_path(route.uuid, route.n, "events"), closed.signal)).events;
            events.sort((a, b) => (b.begin ?? b.end) - (a.begin ?? a.end));
            show();
        } catch (error) {
            if (error.name === "AbortError") return;
            if (error.status === 404) {
                events = [];
                show();
            } else if (!events) {
                fill(element, el("p", {class: "fault"}, `${t("cannot read")} ${error.message}`));
            }
        }
    }

    fill(element, el("p", {class: "quiet"}, t("reading")));
    refresh();
    return {refresh, records: refresh, close: () => closed.abort()};
}
