// The gateway's clock and the gateway's zone. The reader's own clock and zone are never asked.

import {format, t} from "./words.js";

let base = null;  // the gateway's time minus the time of this page
let offsets = [[0, 0]];

/** A message has told the gateway's time. */
export function set_clock(epoch) { base = epoch - performance.now() / 1000; }

/** Null before the first message. */
export const now = () => (base === null ? null : base + performance.now() / 1000);

export function set_zone(list) {
    if (list.length > 0) offsets = list;
}

function offset_at(epoch) {
    let low = 0;
    let high = offsets.length;
    while (high - low > 1) {
        const middle = (low + high) >> 1;
        if (offsets[middle][0] <= epoch)
            low = middle;
        else
            high = middle;
    }
    return offsets[low][1];
}

/** Seconds that a clock on the wall of the gateway shows, as if they were of UTC; and back. */
export const to_wall = (epoch) => epoch + offset_at(epoch);

export function from_wall(wall) {
    const first = wall - offset_at(wall - offset_at(wall));
    return to_wall(first) === wall ? first : wall - offset_at(first);
}

/** A Date whose UTC fields are those of the gateway's wall. */
export const wall_date = (epoch) => new Date(to_wall(epoch) * 1000);

/** A moment written by the reader's habit. */
export function write(epoch, options) {
    const date = wall_date(epoch);
    return Number.isNaN(date.getTime()) ? String(epoch) :
                                          format(Intl.DateTimeFormat, {timeZone: "UTC", ...options}).format(date);
}

export const moment = (epoch) => write(epoch, {dateStyle: "medium", timeStyle: "medium"});
export const minute = (epoch) => write(epoch, {dateStyle: "medium", timeStyle: "short"});
export const day = (epoch) => write(epoch, {dateStyle: "medium"});

/** With the offset, the same in every language: 2026-11-01T10:00:00+03:00. */
export function iso(epoch) {
    const date = wall_date(epoch);
    if (Number.isNaN(date.getTime())) return String(epoch);
    const minutes = Math.round(offset_at(epoch) / 60);
    const two = (figure) => String(figure).padStart(2, "0");
    const sign = minutes < 0 ? "-" : "+";
    return date.toISOString().slice(0, 19) + sign + two(Math.floor(Math.abs(minutes) / 60)) + ":" +
        two(Math.abs(minutes) % 60);
}

const UNITS = [["day", 86400], ["hour", 3600], ["minute", 60], ["second", 1]];

function largest(seconds) {
    const [unit, size] = UNITS.find(([, length]) => seconds >= 2 * length) ?? UNITS.at(-1);
    return [unit, Math.floor(seconds / size)];
}

/** "5 minutes". */
export function duration(seconds) {
    const [unit, count] = largest(Math.max(0, seconds));
    return format(Intl.NumberFormat, {style: "unit", unit, unitDisplay: "long"}).format(count);
}

/** "5 min. ago" by the gateway's clock. What is later than that clock is called so: the clock was set back. */
export function age(epoch) {
    const at = now();
    if (epoch === null || epoch === undefined || at === null) return "–";
    const seconds = at - epoch;
    if (seconds < -60) return t("ahead");
    const [unit, count] = largest(Math.max(0, seconds));
    return format(Intl.RelativeTimeFormat, {style: "short", numeric: "always"}).format(-count, unit);
}

/** Makes a <time> show the age of a moment; `tick_ages` keeps it true. */
export function show_age(element, epoch) {
    if (epoch === null || epoch === undefined) {
        element.textContent = "–";
        delete element.dataset.epoch;
        return element;
    }
    element.dataset.epoch = epoch;
    element.dateTime = iso(epoch);
    element.title = `${moment(epoch)} (${iso(epoch)})`;
    element.textContent = age(epoch);
    return element;
}

export const age_element = (epoch) => show_age(document.createElement("time"), epoch);

export function tick_ages() {
    for (const element of document.querySelectorAll("time[data-epoch]")) {
        const text = age(Number(element.dataset.epoch));
        if (element.textContent !== text) element.textContent = text;
    }
}
