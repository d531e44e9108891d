// Records as charts. Each window of time is asked for anew, thinned out by the gateway to what the screen can show.

import {archive_path, get, meter_path} from "./api.js";
import {Chart, line_colour} from "./chart.js";
import {within} from "./chart_data.js";
import {calmly, el, fill, foreign} from "./dom.js";
import {Records, PERIODS, chooser, full_title, range_controls, scale_of} from "./records.js";
import {duration, iso, minute} from "./time.js";
import {number, t} from "./words.js";

const PATIENCE = 120;  // ms without a move, before the gateway is asked
const MOST_SCALES = 2;
const LISTED = 100;

/** A span of time keeps two rows for each name, so several names need more to be as fine as one. */
const rows_a_pixel = (names) => Math.min(4, Math.max(2, names));

/** How the times of an archive are to be read. */
export function dating(archive) {
    if (archive.nature === "counter" || archive.dating === "end") return t(`dated end ${archive.kind}`);
    return t(`dated ${archive.nature === "mean" ? "mean" : "state"} ${archive.kind}`);
}

export function charts_view(route, element) {
    const records = new Records(route);
    const closed = new AbortController();
    let asked = null;
    let events = [];
    let answer = null;
    let chosen_event = null;

    const chart = new Chart({
        label: t("chart help"),
        whole: () => records.whole,
        moved(from, to) {
            records.look_at(from, to);
            show_around();
            load_calmly();
        },
        reset() {
            records.set({range: "all", from: null, to: null});
            changed();
        },
        pointed: (row) => show_values(row),
    });
    const range = range_controls(records, () => changed());
    const choices = chooser(records, () => changed(), MOST_SCALES);
    const scales = el("div", {class: "scales"});
    const legend = el("div", {class: "legend"});
    const pointer = el("p", {class: "pointer", "aria-live": "off"});
    const note = el("p", {class: "note"});
    const fault = el("p", {class: "fault", hidden: true});
    const marks = el("details", {class: "marks"});
    const csv = el("a", {class: "button", download: true}, t("csv"));
    const load_calmly = calmly(PATIENCE, load);
    chart.resizing = calmly(500, load);
    choices.element.open = matchMedia("(min-width: 70rem)").matches;

    const button = (text, label, action) => el("button", {type: "button", "aria-label": label, title: label, on: {click: action}}, text);
    const tools = el("div", {class: "tools"},
        el("div", {class: "buttons", role: "group", "aria-label": t("move")},
           button("←", t("earlier"), () => chart.pan(-0.5)), button("−", t("zoom out"), () => chart.zoom(2)),
           button("+", t("zoom in"), () => chart.zoom(0.5)), button("→", t("later"), () => chart.pan(0.5))), csv);

    // ---- what stands round the picture

    function scale_text(archive) {
        const words = t(`quantity ${archive.quantity}`) + (archive.nature === "counter" ? `, ${t("counter")}` : "");
        return [words, archive.unit ? [", ", foreign(archive.unit)] : null];
    }

    function show_around() {
        range.show();
        choices.show();
        const window = records.window;
        if (!window) return;
        const names = records.chosen.map(({name}) => name);
        csv.href = archive_path(route.uuid, route.n, {kind: records.kind, names, from: window[0], to: window[1]}, {format: "csv"});
        show_marks(window);
    }

    function show_legend() {
        const keys = [...new Set(records.chosen.map(scale_of))];
        const first = (key) => records.chosen.find((archive) => scale_of(archive) === key);
        fill(scales, keys.slice(0, MOST_SCALES).map((key, index) =>
            el("span", {}, keys.length > 1 ? el("b", {}, index === 0 ? `${t("left")}: ` : `${t("right")}: `) : null, scale_text(first(key)))));
        fill(legend, records.chosen.map((archive, index) => {
            const right = keys.indexOf(scale_of(archive)) === 1;
            const swatch = el("span", {class: `swatch ${right ? "dashed" : ""}`, "aria-hidden": "true"});
            swatch.style.borderTopColor = `var(${line_colour(index)})`;
            return el("div", {class: "key"}, swatch,
                el("span", {class: "key-title"}, full_title(archive), " ", foreign(archive.name, {class: "name"})),
                el("span", {class: "key-value", "data-column": index}),
                el("span", {class: "key-dating"}, keys.length > 1 ? `${right ? t("right") : t("left")} · ` : "", dating(archive)));
        }));
        show_values(null);
    }

    function show_values(row) {
        for (const place of legend.querySelectorAll(".key-value")) {
            const index = Number(place.dataset.column);
            const value = row?.values[index];
            const archive = records.chosen[index];
            const there = value !== undefined && value !== null && !Number.isNaN(value);
            const bad = there && within(answer.bad?.[archive?.name], row.time);
            fill(place, !row ? "" : there ? [el("b", {}, number(value)), archive?.unit ? ` ${archive.unit}` : "",
                                             bad ? el("span", {class: "bad-word"}, t(answer.step ? "some bad" : "bad quality")) : null] : "–");
        }
        const window = records.window;
        const near = !row || !window ? [] : events.filter((event) => event.time !== null &&
            Math.abs(event.time - row.time) <= Math.max(PERIODS[records.kind] / 2, ((window[1] - window[0]) / chart.width) * 6));
        fill(pointer, row ? [el("b", {title: iso(row.time)}, minute(row.time)),
                             near.length > 0 ? ` · ${t("events")}: ${near.slice(0, 5).map((event) => `${event.code} (${minute(event.time)})`).join(", ")}` : ""]
                          : t("chart hint"));
    }

    function show_marks([from, to]) {
        chart.mark(events.filter(({time}) => time !== null && time >= from && time < to)
            .map((event) => ({...event, chosen: event === chosen_event})));
    }

    function list_marks() {
        const window = records.window;
        const seen = window ? events.filter(({time}) => time !== null && time >= window[0] && time < window[1]) : [];
        const choose = (event) => () => {
            chosen_event = event;
            if (records.window) show_marks(records.window);
        };
        marks.hidden = events.length === 0;
        fill(marks, el("summary", {}, t("events seen", {n: number(seen.length)})),
             el("ul", {}, seen.slice(-LISTED).reverse().map((event) =>
                 el("li", {tabindex: 0, on: {pointerenter: choose(event), focus: choose(event), pointerleave: choose(null), blur: choose(null)}},
                    el("b", {}, foreign(event.code)), " ", minute(event.time),
                    event.begin !== null && event.end !== null ? ` – ${minute(event.end)} (${duration(event.end - event.begin)})` : ""))));
    }

    // ---- reading

    async function load() {
        load_calmly.stop();
        asked?.abort();
        asked = new AbortController();
        const signal = asked.signal;
        const [window, whole, chosen] = [records.window, records.whole, records.chosen];
        if (!window || !whole) {
            fill(note, t("no records"));
            chart.element.hidden = true;
            return;
        }
        chart.element.hidden = false;
        chart.element.setAttribute("aria-busy", "true");
        const span = window[1] - window[0];
        const margin = span < (whole[1] - whole[0]) / 2 ? span / 2 : 0;  // something to see while the window moves
        const names = chosen.map(({name}) => name);
        const path = archive_path(route.uuid, route.n, {kind: records.kind, names, from: window[0] - margin, to: window[1] + margin},
                                  {points: Math.round(chart.width * rows_a_pixel(names.length) * (1 + (2 * margin) / span))});
        try {
            const found = await get(path, signal);
            const keys = [...new Set(chosen.map(scale_of))];
            chart.shortest = PERIODS[records.kind];
            answer = found;
            await chart.show(found, chosen.map((archive) => ({name: archive.name, axis: keys.indexOf(scale_of(archive))})), records.window ?? window);
            fault.hidden = true;
            const words = [found.rows.length === 0 ? t("no records here") : null,
                           found.step > 0 ? t("thinned", {span: duration(found.step)}) : null,
                           chart.holes?.length > 0 ? t("holes shaded") : null, chart.bad?.length > 0 ? t("bad striped") : null];
            fill(note, words.filter(Boolean).join(" "));
            show_marks(records.window ?? window);
            list_marks();
        } catch (error) {
            if (error.name === "AbortError") return;
            fault.textContent = `${t("cannot read")} ${error.message}`;
            fault.hidden = false;
        }
        chart.element.setAttribute("aria-busy", "false");
    }

    function changed() {
        limit_scales();
        show_around();
        show_legend();
        load();
    }

    /** An address can name more scales than there is room for. */
    function limit_scales() {
        const keys = [...new Set(records.chosen.map(scale_of))].slice(0, MOST_SCALES);
        const fitting = records.chosen.filter((archive) => keys.includes(scale_of(archive)));
        if (fitting.length < records.chosen.length) records.set({names: fitting.map(({name}) => name)});
    }

    async function read_events() {
        const found = await get(meter_path(route.uuid, route.n, "events"), closed.signal);
        events = found.events.map((event) => ({...event, time: event.begin ?? event.end}));
        events.sort((a, b) => a.time - b.time);
    }

    async function refresh() {
        try {
            await Promise.all([records.read(closed.signal), read_events().catch(() => {})]);
            changed();
        } catch (error) {
            if (error.name === "AbortError") return;
            fault.textContent = `${t("cannot read")} ${error.message}`;
            fault.hidden = false;
        }
    }

    fill(element, range.element,
         el("div", {class: "charting"}, choices.element,
            el("div", {class: "picture"}, tools, fault, scales, chart.element, pointer, legend, note, marks)));
    refresh();
    return {
        refresh,
        records: calmly(500, refresh),
        theme: () => chart.repaint(),
        close() {
            closed.abort();
            asked?.abort();
            load_calmly.stop();
            chart.close();
        },
    };
}
