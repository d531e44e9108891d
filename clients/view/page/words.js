// The words of the page in the reader's language, and how his place on earth writes numbers and dates.

import {whole_address} from "./dom.js";

const LANGUAGES = {
    en: "English",
    de: "Deutsch",
    ru: "Русский"
};
const KEPT = "heatmeter-language";

let words = {};
let titles = {};
let chosen = "en";

export const languages = () => Object.entries(LANGUAGES);
export const language = () => chosen;

/** The reader's own form of the language, such as British English, when his browser names one. */
export function locale() { return navigator.languages.find((name) => name.split("-")[0] === chosen) ?? chosen; }

async function read(name) {
    const answer = await fetch(whole_address(`/words.${name}.json`));
    if (!answer.ok) throw new Error(`no words: ${answer.status}`);
    return answer.json();
}

export async function load() {
    const wished = [keep(KEPT), ...navigator.languages.map((name) => name.split("-")[0])];
    chosen = wished.find((name) => Object.hasOwn(LANGUAGES, name ?? "")) ?? "en";
    const english = await read("en");
    const own = chosen === "en" ? english : await read(chosen);
    words = {...english.words, ...own.words};
    titles = own.titles ?? {};
    document.documentElement.lang = chosen;
}

export async function choose(name) {
    keep(KEPT, name);
    await load();
}

/** t("older", {n: 500}): the words of this key, with {n} in its place. */
export function t(key, values = {}) {
    const text = words[key] ?? key;
    return text.replace(/\{(\w+)\}/g, (whole, name) => (Object.hasOwn(values, name) ? values[name] : whole));
}

/** The catalogue's English title in the reader's language. What is not in the catalogue stays as it is. */
export function title(english) { return Object.hasOwn(titles, english) ? titles[english] : english; }

/** Reads, or with a second word keeps, a choice of the reader; a browser that keeps nothing is fine. */
export function keep(name, value) {
    try {
        if (value === undefined) return localStorage.getItem(name);
        if (value === null)
            localStorage.removeItem(name);
        else
            localStorage.setItem(name, value);
    } catch {
        // private window
    }
    return value ?? null;
}

const formats = new Map();

/** Formats are dear to make and used often. */
export function format(kind, options) {
    const key = `${kind.name} ${locale()} ${JSON.stringify(options)}`;
    if (!formats.has(key)) formats.set(key, new kind(locale(), options));
    return formats.get(key);
}

export function number(value, options = {}) {
    if (Math.abs(value) >= 1e15 || (value !== 0 && Math.abs(value) < 1e-6)) return value.toPrecision(7);
    return format(Intl.NumberFormat, {maximumFractionDigits: 6, ...options}).format(value);
}
