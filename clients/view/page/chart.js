// The picture of records: a Dygraph with the page's own axes, marks, cursor and gestures.

import {chart_rows, joined} from "./chart_data.js";
import {el} from "./dom.js";
import {listen} from "./gestures.js";
import {number_ticks, time_ticks} from "./ticks.js";

const COLOURS = 8;  // --line-0 and on
const BAD_HEIGHT = 7;
const DASHES = [8, 4];
const LABEL_ROOM = 30;
const DENSE = 20;  // pixels a mark: with less there is no room for lines over the whole height

let library = null;

/** Read when the first chart is wanted. Of its plugins those are used that write no markup. */
function read_library() {
    library ??= new Promise((resolve, reject) => {
                    const failed = () => {
                        library = null;
                        reject(new Error("dygraph.min.js"));
                    };
                    document.head.append(
                        el("link", {rel: "stylesheet", href: "/dygraph.min.css"}),
                        el("script", {src: "/dygraph.min.js", on: {load: resolve, error: failed}}));
                }).then(() => {
        window.Dygraph.PLUGINS =
            window.Dygraph.PLUGINS.filter((plugin) => /^(Axes|Gridline) /.test(plugin.prototype.toString()));
        return window.Dygraph;
    });
    return library;
}

const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
export const line_colour = (index) => `--line-${index % COLOURS}`;
const em = () => parseFloat(getComputedStyle(document.documentElement).fontSize);

export class Chart {
    /** `moved(from, to)` and `whole()` in seconds; `pointed(row)` with the values of a time, or null; `reset()`. */
    constructor({moved, pointed, whole, reset, label}) {
        this.pointed = pointed;
        this.moved = moved;
        this.whole_span = whole;
        this.shortest = 3600;  // seconds between two records
        this.plot = el("div", {class: "plot"});
        this.line = el("div", {class: "cursor", hidden: true});
        this.element =
            el("div", {class: "chart", tabindex: 0, role: "group", "aria-label": label}, this.plot, this.line);
        for (const name of ["mousemove", "mouseout", "mouseover"]) {  // the cursor is ours
            this.element.addEventListener(name, (event) => event.stopPropagation(), true);
        }
        const {zoom, pan} = listen({
            element: this.element,
            area: () => ({left: this.graph?.getArea().x ?? 0, width: this.graph?.getArea().w ?? 1}),
            window: () => this.window ?? [0, 1],
            whole: () => this.whole_span()?.map((time) => time * 1000) ?? [0, 1],
            move: (from, to) => this.#move(from, to),
            cursor: (x) => this.#point_at(x === null ? null : this.#row_at(x)),
            step: (count) => this.#step(count),
            reset,
        });
        this.zoom = zoom;
        this.pan = pan;
        this.resized = new ResizeObserver(() => this.graph && this.plot.clientWidth > 0 && this.#resize());
        this.resized.observe(this.plot);
    }

    get width() { return Math.max(200, this.plot.clientWidth); }

    /** `series`: [{axis: 0 or 1}] by the names of the answer. Times of the window in seconds. */
    async show(answer, series, window) {
        const Dygraph = await read_library();
        if (this.closed) return;
        this.answer = answer;
        this.series = series;
        this.holes = joined(answer.holes);
        this.bad = joined(answer.bad);
        this.window = window.map((time) => time * 1000);
        this.rows = chart_rows(answer);
        if (this.rows.length === 0) this.rows = this.window.map((time) => [time, ...series.map(() => null)]);
        this.#point_at(null);
        const shape = JSON.stringify(series);
        if (this.graph && this.shape === shape) {
            this.graph.updateOptions({...this.#options(), file: this.rows});
            return;
        }
        this.graph?.destroy();
        this.shape = shape;
        this.graph = new Dygraph(this.plot, this.rows, this.#options());
    }

    /** Events as [{time, code, chosen}] in seconds. */
    mark(marks) {
        this.marks = marks;
        this.graph?.updateOptions({});
    }

    /** In the colours of now. */
    repaint() { this.graph?.updateOptions(this.#options()); }

    close() {
        this.closed = true;
        this.resized.disconnect();
        this.graph?.destroy();
        this.graph = null;
    }

    #options() {
        const size = em();
        const names = this.series.map((_, index) => `s${index}`);  // names are a gateway's texts
        const right = this.series.some(({axis}) => axis === 1);
        const numbers = (axis) => ({
            ticker: (from, to, pixels) => number_ticks(from, to, pixels, size),
            axisLabelFontSize: 0.8 * size,
            axisLabelWidth: this.#label_width(axis) * size
        });
        // Dashes would not be seen where a pixel has hours.
        const hands = [{axis: "y1"}, {axis: "y2", strokePattern: this.answer.step === 0 ? DASHES : null}];
        return {
            labels: ["time", ...names],
            series: Object.fromEntries(names.map((name, index) => [name, hands[this.series[index].axis]])),
            colors: names.map((_, index) => colour(line_colour(index))),
            dateWindow: this.window,
            connectSeparatedPoints: true,
            drawGapEdgePoints: true,
            pointSize: 1.5,
            strokeWidth: 1.6,
            yRangePad: 10,
            gridLineWidth: 1,
            highlightCircleSize: 4,
            interactionModel: {},
            gridLineColor: colour("--grid"),
            axisLineColor: colour("--line"),
            rightGap: right ? 0 : Math.round(size),
            axes: {
                x: {
                    ticker: (from, to, pixels) => time_ticks(from, to, pixels, size),
                    axisLabelWidth: 7 * size,
                    axisLabelFontSize: 0.8 * size
                },
                y: numbers(0),
                y2: {...numbers(1), drawGrid: false, independentTicks: true},
            },
            underlayCallback: (canvas, area, graph) => this.#paint_under(canvas, area, graph),
        };
    }

    /** In em: room for the longest number of an axis. */
    #label_width(axis) {
        let [least, greatest] = [Infinity, -Infinity];
        for (const row of this.rows) {
            for (let column = 1; column < row.length; column += 1) {
                if (row[column] === null || this.series[column - 1].axis !== axis) continue;
                if (row[column] < least) least = row[column];
                if (row[column] > greatest) greatest = row[column];
            }
        }
        const lengths = number_ticks(least, greatest, 300, 16).map(({label}) => label.length);
        return 0.4 + 0.5 * Math.max(3, ...lengths);
    }

    // ---- what lies under the lines

    #paint_under(canvas, area, graph) {
        const place = (from, to) => {
            const left = Math.max(area.x, graph.toDomXCoord(from));
            const right = Math.min(area.x + area.w, graph.toDomXCoord(to));
            return right < area.x || left > area.x + area.w || right < left ? null : [left, Math.max(1, right - left)];
        };
        canvas.fillStyle = colour("--hole");
        for (const [from, to] of this.holes) {
            const at = place(from, to);
            if (at) canvas.fillRect(at[0], area.y, at[1], area.h);
        }
        this.#paint_bad(canvas, area, place);
        this.#paint_marks(canvas, area, place);
    }

    /** A hatched strip at the bottom. */
    #paint_bad(canvas, area, place) {
        const bottom = area.y + area.h;
        canvas.save();
        canvas.beginPath();
        for (const [from, to] of this.bad) {
            const at = place(from, to);
            if (at) canvas.rect(at[0], bottom - BAD_HEIGHT, Math.max(2, at[1]), BAD_HEIGHT);
        }
        canvas.clip();
        canvas.fillStyle = colour("--bad");
        canvas.strokeStyle = colour("--card");
        canvas.fillRect(area.x, bottom - BAD_HEIGHT, area.w, BAD_HEIGHT);
        canvas.beginPath();
        for (let x = area.x - BAD_HEIGHT; x < area.x + area.w; x += 5) {
            canvas.moveTo(x, bottom);
            canvas.lineTo(x + BAD_HEIGHT, bottom - BAD_HEIGHT);
        }
        canvas.stroke();
        canvas.restore();
    }

    #paint_marks(canvas, area, place) {
        canvas.save();
        canvas.font = `${0.75 * em()}px sans-serif`;
        canvas.fillStyle = colour("--event");
        canvas.strokeStyle = colour("--event");
        canvas.textBaseline = "top";
        const dense = (this.marks?.length ?? 0) > area.w / DENSE;
        let free = -Infinity;
        for (const {time, code, chosen} of this.marks ?? []) {
            const at = place(time * 1000, time * 1000);
            if (!at) continue;
            canvas.lineWidth = chosen ? 3 : 1;
            canvas.setLineDash(chosen ? [] : [2, 3]);
            const x = Math.round(at[0]) + 0.5;
            canvas.beginPath();
            canvas.moveTo(x, area.y);
            canvas.lineTo(x, dense && !chosen ? area.y + em() : area.y + area.h);
            canvas.stroke();
            if (x < free || x > area.x + area.w - LABEL_ROOM) continue;
            canvas.fillText(code.slice(0, 6), x + 3, area.y + 2);
            free = x + LABEL_ROOM;
        }
        canvas.restore();
    }

    // ---- moves

    #move(from, to) {
        if (!this.graph || !this.whole_span()) return;
        const [length, start] = this.#fit(from, to);
        this.window = [start, start + length];
        this.#point_at(null);
        this.frame ??= requestAnimationFrame(() => {
            this.frame = null;
            this.graph?.updateOptions({dateWindow: this.window});
        });
        this.moved(this.window[0] / 1000, this.window[1] / 1000);
    }

    /** Not smaller than some records, not larger than all, and not away from them. */
    #fit(from, to) {
        const [first, last] = this.whole_span().map((time) => time * 1000);
        const shortest = Math.min(last - first, 4 * this.shortest * 1000);
        const length = Math.min(Math.max(to - from, shortest), (last - first) * 1.02);
        const centre = (from + to) / 2;
        const least = first - length * 0.02;
        const most = Math.max(least, last - length * 0.98);
        return [length, Math.min(most, Math.max(least, centre - length / 2))];
    }

    #resize() {
        this.graph.resize();
        this.resizing?.();
    }

    // ---- the cursor

    #row_at(x) {
        if (!this.graph) return null;
        const time = this.graph.toDataXCoord(x);
        let best = null;
        for (let index = this.#first_from(this.window[0]);
             index < this.rows.length && this.rows[index][0] <= this.window[1]; index += 1) {
            if (!has_value(this.rows[index])) continue;
            if (best !== null && Math.abs(this.rows[index][0] - time) > Math.abs(this.rows[best][0] - time)) break;
            best = index;
        }
        return best;
    }

    #first_from(time) {
        const index = this.rows.findIndex((row) => row[0] >= time);
        return index < 0 ? this.rows.length : index;
    }

    #step(count) {
        if (!this.graph) return;
        let index = this.row ??
            (count > 0 ? this.#first_from(this.window[0]) - 1 :
                         this.rows.findLastIndex((row) => row[0] <= this.window[1]) + 1);
        do index += count;
        while (this.rows[index] && !has_value(this.rows[index]));
        const row = this.rows[index];
        if (row && row[0] >= this.window[0] && row[0] <= this.window[1]) this.#point_at(index);
    }

    #point_at(index) {
        if (index === (this.row ?? null)) return;
        this.row = index;
        this.line.hidden = index === null;
        if (index === null) {
            this.graph?.clearSelection();
            this.pointed(null);
            return;
        }
        this.line.style.left = `${this.graph.toDomXCoord(this.rows[index][0])}px`;
        this.graph.setSelection(index);
        const [time, ...values] = this.rows[index];
        this.pointed({time: time / 1000, values});
    }
}

const has_value = (row) => row.some((value, column) => column > 0 && value !== null && !Number.isNaN(value));
