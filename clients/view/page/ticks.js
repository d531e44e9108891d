// Where the axes have their marks. Those of time stand at round times of the gateway's wall, across summer time.

import {from_wall, to_wall, write} from "./time.js";
import {number} from "./words.js";

const MINUTE = 60;
const HOUR = 3600;
const DAY = 86400;

// Seconds, or months from the month on.
const STEPS =
    [MINUTE, 5 * MINUTE, 10 * MINUTE, 30 * MINUTE, HOUR, 2 * HOUR, 3 * HOUR, 6 * HOUR, 12 * HOUR, DAY, 2 * DAY, 7 * DAY]
        .map((seconds) => ({seconds}))
        .concat([1, 2, 3, 6, 12, 24, 60, 120].map((months) => ({months, seconds: months * 30.4 * DAY})));
const MONDAY = 4 * DAY;  // 1970 began with a Thursday

function* walls(step, from, to) {
    if (step.months) {
        const first = new Date(from * 1000);
        let month = Math.floor((first.getUTCFullYear() * 12 + first.getUTCMonth()) / step.months) * step.months;
        for (;; month += step.months) {
            const wall = Date.UTC(Math.floor(month / 12), month % 12, 1) / 1000;
            if (wall > to) return;
            if (wall >= from) yield wall;
        }
    }
    const shift = step.seconds === 7 * DAY ? MONDAY : 0;
    for (let wall = Math.ceil((from - shift) / step.seconds) * step.seconds + shift; wall <= to; wall += step.seconds)
        yield wall;
}

function label(step, wall, epoch, first) {
    const at_midnight = wall % DAY === 0;
    const begins_year =
        at_midnight && new Date(wall * 1000).getUTCMonth() === 0 && new Date(wall * 1000).getUTCDate() === 1;
    if (step.months >= 12) return write(epoch, {year: "numeric"});
    if (step.months) return write(epoch, begins_year || first ? {month: "short", year: "numeric"} : {month: "short"});
    if (step.seconds >= DAY)
        return write(
            epoch, begins_year ? {day: "numeric", month: "short", year: "numeric"} : {day: "numeric", month: "short"});
    const clock = {hour: "numeric", minute: "2-digit"};
    return write(
        epoch,
        at_midnight ? {day: "numeric", month: "short"} :
            first   ? {day: "numeric", month: "short", ...clock} :
                      clock);
}

/** Marks between two times in ms, for an axis of this many pixels: [{v, label}]. */
export function time_ticks(from_ms, to_ms, pixels, em) {
    const [from, to] = [to_wall(from_ms / 1000), to_wall(to_ms / 1000)];
    const most = Math.max(2, pixels / (7 * em));
    const step = STEPS.find(({seconds}) => (to - from) / seconds <= most) ?? STEPS.at(-1);
    const ticks = [];
    for (const wall of walls(step, from, to)) {
        const epoch = from_wall(wall);
        if (to_wall(epoch) !== wall) continue;  // an hour that this day does not have
        ticks.push({v: epoch * 1000, label: label(step, wall, epoch, ticks.length === 0)});
    }
    return ticks;
}

/** Round numbers. */
export function number_ticks(from, to, pixels, em) {
    const rough = (to - from) / Math.max(2, pixels / (3 * em));
    if (!(rough > 0) || !Number.isFinite(rough)) return [];
    const power = 10 ** Math.floor(Math.log10(rough));
    const step = [1, 2, 5, 10].map((factor) => factor * power).find((size) => size >= rough * 0.999);
    const digits = Math.min(12, Math.max(0, -Math.floor(Math.log10(step) + 1e-9)));
    const ticks = [];
    for (let count = Math.ceil(from / step); count * step <= to && ticks.length < 100; count += 1) {
        ticks.push({
            v: count * step,
            label: number(count * step, {minimumFractionDigits: digits, maximumFractionDigits: digits})
        });
    }
    return ticks;
}
