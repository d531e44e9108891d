// Records as charts. Each window of time is asked for anew, thinned out by the gateway to what the screen can show.

import {archive_path, get} from "./api.js";
import {Chart} from "./chart.js";
import {Legend} from "./chart_legend.js";
import {Marks} from "./chart_marks.js";
import {calmly, el, fill} from "./dom.js";
import {PERIODS, Records, chooser, csv_link, range_controls, scale_of} from "./records.js";
import {duration} from "./time.js";
import {t} from "./words.js";

const PATIENCE = 120;  // ms without a move, before the gateway is asked
const MOST_SCALES = 2;
const MOST_POINTS = 10000;  // that are given
const NEAR = 6;             // pixels

/** A span of time keeps two rows for each name, so several names need more to be as fine as one. */
const rows_a_pixel = (names) => Math.min(4, Math.max(2, names));

function tool_buttons(chart) {
    const button = (text, label, action) =>
        el("button", {type: "button", "aria-label": label, title: label, on: {click: action}}, text);
    return el("div", {class: "buttons", role: "group", "aria-label": t("move")},
              button("←", t("earlier"), () => chart.pan(-0.5)), button("−", t("zoom out"), () => chart.zoom(2)),
              button("+", t("zoom in"), () => chart.zoom(0.5)), button("→", t("later"), () => chart.pan(0.5)));
}

export function charts_view(route, element) {
    const records = new Records(route);
    const closed = new AbortController();
    let asked = null;
    let answer = null;

    const chart = new Chart({
        label: t("chart help"),
        whole: () => records.whole,
        moved,
        reset() {
            records.set({range: "all", from: null, to: null});
            changed();
        },
        pointed: point,
    });
    const legend = new Legend();
    const marks = new Marks(chart);
    const range = range_controls(records, changed);
    const choices = chooser(records, changed, MOST_SCALES);
    const csv = csv_link(records);
    const note = el("p", {class: "note"});
    const fault = el("p", {class: "fault", hidden: true});
    const load_calmly = calmly(PATIENCE, load);
    chart.resizing = calmly(4 * PATIENCE, load);

    const scales = () => [...new Set(records.chosen.map(scale_of))];

    // ---- what the reader does

    function moved(from, to) {
        records.look_at(from, to);
        range.show();
        csv.show();
        marks.move(records.window);
        load_calmly();
    }

    function point(row) {
        if (!row || !answer) {
            legend.point(null);
            return;
        }
        const pixel = (records.window[1] - records.window[0]) / chart.width;
        legend.point(row, answer, marks.near(row.time, Math.max(PERIODS[records.kind] / 2, NEAR * pixel)));
    }

    function changed() {
        limit_scales();
        range.show();
        choices.show();
        csv.show();
        load();
    }

    /** An address can name more scales than there is room for. */
    function limit_scales() {
        const keys = scales().slice(0, MOST_SCALES);
        const fitting = records.chosen.filter((archive) => keys.includes(scale_of(archive)));
        if (fitting.length < records.chosen.length) records.set({names: fitting.map(({name}) => name)});
    }

    // ---- reading

    function path_of(window, whole) {
        const span = window[1] - window[0];
        const margin = span < (whole[1] - whole[0]) / 2 ? span / 2 : 0;  // something to see while the window moves
        const names = records.chosen.map(({name}) => name);
        const points = chart.width * rows_a_pixel(names.length) * (1 + (2 * margin) / span);
        const part = {kind: records.kind, names, from: window[0] - margin, to: window[1] + margin};
        return archive_path(route.uuid, route.n, part, {points: Math.min(MOST_POINTS, Math.round(points))});
    }

    function show_note() {
        const words = [
            answer.rows.length === 0 && t("no records here"),
            answer.step > 0 && t("thinned", {span: duration(answer.step)}),
            chart.holes.length > 0 && t("holes shaded"),
            chart.bad.length > 0 && t("bad striped"),
        ];
        fill(note, words.filter(Boolean).join(" "));
    }

    function show_fault(error) {
        if (error.name === "AbortError") return;
        fault.textContent = `${t("cannot read")} ${error.message}`;
        fault.hidden = false;
        chart.element.setAttribute("aria-busy", "false");
    }

    async function load() {
        load_calmly.stop();
        asked?.abort();
        asked = new AbortController();
        const [window, whole, chosen, keys] = [records.window, records.whole, records.chosen, scales()];
        chart.element.hidden = !window;
        if (!window) {
            fill(note, t("no records"));
            return;
        }
        chart.element.setAttribute("aria-busy", "true");
        try {
            answer = await get(path_of(window, whole), asked.signal);
            chart.shortest = PERIODS[records.kind];
            // The window may have moved on meanwhile; then the next answer is on its way.
            const series = chosen.map((archive) => ({axis: keys.indexOf(scale_of(archive))}));
            await chart.show(answer, series, records.window);
        } catch (error) {
            show_fault(error);
            return;
        }
        if (chart.closed) return;  // somebody has gone on meanwhile
        legend.show(chosen, keys);
        marks.show(records.window);
        show_note();
        fault.hidden = true;
        chart.element.setAttribute("aria-busy", "false");
    }

    async function refresh() {
        try {
            await Promise.all([records.read(closed.signal), marks.read(route, closed.signal).catch(() => {})]);
            changed();
        } catch (error) {
            show_fault(error);
        }
    }

    const refresh_calmly = calmly(500, refresh);
    const tools = el("div", {class: "tools"}, tool_buttons(chart), csv.element);
    const picture = [fault, legend.scales, chart.element, legend.pointer, legend.keys, note, marks.element];
    fill(element, range.element,
         el("div", {class: "charting"}, choices.element, el("div", {class: "picture"}, tools, picture)));
    refresh();
    return {
        refresh,
        records: refresh_calmly,
        theme: () => chart.repaint(),
        close() {
            closed.abort();
            asked?.abort();
            load_calmly.stop();
            refresh_calmly.stop();
            chart.close();
        },
    };
}
