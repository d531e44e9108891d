// What the gateway is asked.

import {whole_address} from "./dom.js";
import {set_clock} from "./time.js";

export class Trouble extends Error {
    constructor(status, message, wait = 0) {
        super(message);
        this.status = status;
        this.wait = wait;  // seconds before the next try makes sense
    }
}

/** A whole number that is too long for this language stays the text that was sent, where the browser still knows it. */
export function parse(text) {
    return JSON.parse(
        text,
        (_, value, context) =>
            Number.isInteger(value) && !Number.isSafeInteger(value) ? context?.source ?? value : value);
}

/** Status 0: nobody answers. */
export async function get(path, signal) {
    let answer;
    try {
        answer = await fetch(whole_address(path), {signal, cache: "no-store"});
    } catch (error) {
        if (error.name === "AbortError") throw error;
        throw new Trouble(0, error.message);
    }
    let content = null;
    try {
        content = parse(await answer.text());
    } catch (error) {
        if (error.name === "AbortError") throw error;
        if (answer.ok) throw new Trouble(0, error.message);  // torn off
    }
    if (!answer.ok) {
        const text = typeof content?.error === "string" ? content.error : `${answer.status} ${answer.statusText}`;
        throw new Trouble(answer.status, text, Number(answer.headers.get("Retry-After")) || 0);
    }
    if (typeof content.time === "number") set_clock(content.time);
    return content;
}

export const meter_path = (uuid, n, what) => `/api/meters/${encodeURIComponent(uuid)}/${n}/${what}`;

/** The query of a part of the records; the same for what is drawn, listed and taken away. */
export function archive_path(uuid, n, {kind, names, from, to}, more) {
    const query = new URLSearchParams(
        {kind, from: `@${Math.floor(from)}`, to: `@${Math.ceil(to)}`, names: names.join(","), ...more});
    return meter_path(uuid, n, "archive") + "?" + query;
}
