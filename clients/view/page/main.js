// The page: what stands round the views, which of them is shown, and what all of them know.

import {get} from "./api.js";
import {charts_view} from "./charts_view.js";
import {calmly, el, fill, symbol} from "./dom.js";
import {events_view} from "./events_view.js";
import {Live} from "./live.js";
import {meter_frame} from "./meter.js";
import {overview_view} from "./overview.js";
import {parse_route} from "./route.js";
import {table_view} from "./table_view.js";
import {moment, set_zone, tick_ages} from "./time.js";
import {values_view} from "./values_view.js";
import * as words from "./words.js";
import {t} from "./words.js";

const VIEWS = {
    values: values_view,
    charts: charts_view,
    table: table_view,
    events: events_view
};
const THEMES = ["system", "light", "dark"];
const KEPT_THEME = "heatmeter-theme";

const place = (id) => document.getElementById(id);
const live = new Live();
const gateway = {
    overview: null,
    trouble: null,
    gone_since: null
};
let view = null;  // {element, title, overview(), system(uuid, n, times), refresh(), values(data), records(data),
                  // theme(), close()}: the first is a must

// ---- views

function show_view() {
    const route = parse_route(location.hash);
    view?.close?.();
    view = route.what === "overview" ? overview_view(gateway) : meter_frame(gateway, route, VIEWS[route.what]);
    fill(place("main"), view.element);
    document.title = view.title ? `${view.title} – ${t("heat meters")}` : t("heat meters");
}

function route_changed() {
    show_view();
    scrollTo(0, 0);
    place("main").focus({preventScroll: true});
}

// ---- what the gateway tells

/** For those who listen: only what has changed in the levels. */
function speak_changes(before, after) {
    if (!before) return;
    const old = new Map(before.meters.map((meter) => [meter.uuid, meter.level]));
    const changed = after.meters.filter(({uuid, level}) => old.has(uuid) && old.get(uuid) !== level);
    const said = changed.map((meter) => {
        const why = meter.reasons[0] ? `: ${meter.reasons[0].text.slice(0, 200)}` : "";
        return t("meter is now", {meter: meter.uuid.slice(0, 40), level: t(meter.level)}) + why;
    });
    if (before.gateway.level !== after.gateway.level) {
        said.unshift(t("gateway is now", {level: t(after.gateway.level)}));
    }
    if (said.length > 0) place("spoken").textContent = said.join(". ");
}

let reads = 0;

async function read_overview() {
    reads += 1;
    const turn = reads;
    try {
        const overview = await get("/api/overview");
        if (turn !== reads) return;  // a later answer is on its way
        speak_changes(gateway.overview, overview);
        gateway.overview = overview;
        gateway.trouble = null;
    } catch (error) {
        gateway.trouble = error;
        read_overview_later();
    }
    view?.overview?.();
    show_connection();
}
const read_overview_later = calmly(3000, read_overview);

async function read_zone() {
    try {
        set_zone((await get("/api/zone")).offsets);
    } catch {
        // The next beginning of the stream asks again.
    }
}

async function read_everything() {
    gateway.gone_since = null;
    await Promise.all([read_zone(), read_overview()]);
    view?.refresh?.();
}

// ---- connection

function banner_text(trouble) {
    if (trouble?.status === 401) return t("banner password");
    if (trouble?.status === 429) return t("banner wait");
    if (trouble?.status === 503) return t("banner busy");
    return t("banner gone");
}

function show_banner(gone) {
    const banner = place("banner");
    banner.hidden = !gone;
    const since = gateway.gone_since ? t("banner since", {time: moment(gateway.gone_since)}) : "";
    const text = gone ? [banner_text(gateway.stream_trouble), since, t("banner again")].filter(Boolean).join(" ") : "";
    if (banner.textContent !== text) fill(banner, symbol("warning"), el("span", {}, text));  // is read aloud once
}

function show_connection() {
    const gone = gateway.gone_since !== null;
    document.body.classList.toggle("gone", gone);
    show_banner(gone);
    const word = gone ? "not connected" : gateway.overview ? "live" : "connecting";
    const version = gateway.overview?.version;
    fill(place("connection"), el("span", {class: `dot ${gone ? "dot-gone" : ""}`, "aria-hidden": "true"}),
         el("span", {}, t(word)), version ? el("span", {class: "version"}, String(version).slice(0, 30)) : null);
}

live.addEventListener("up", read_everything);
live.addEventListener("down", ({detail}) => {
    gateway.gone_since ??= live.heard ?? 0;
    gateway.stream_trouble = detail;
    show_connection();
});
live.addEventListener("status", calmly(200, read_overview));

/** What the stream tells of a system holds for the overview, too. */
function newer(uuid, n, times) {
    const system = gateway.overview?.meters.find((meter) => meter.uuid === uuid)?.systems.find((one) => one.n === n);
    if (system) Object.assign(system, times);
    if (system) view?.system?.(uuid, n, system);
}

live.addEventListener("values", ({detail}) => {
    const times = detail.values.map(({time}) => time);
    if (times.length > 0) newer(detail.meter, detail.system, {value: Math.max(...times)});
    view?.values?.(detail);
});
live.addEventListener("records", ({detail}) => {
    newer(detail.meter, detail.system, {hourly: detail.hourly, daily: detail.daily});
    view?.records?.(detail);
});

// ---- the reader's choices

function apply_theme() {
    const wish = words.keep(KEPT_THEME) ?? "system";
    const dark = wish === "dark" || (wish !== "light" && matchMedia("(prefers-color-scheme: dark)").matches);
    document.documentElement.dataset.theme = dark ? "dark" : "light";
    view?.theme?.();
}

function show_choices() {
    place("brand").textContent = t("heat meters");
    place("skip").textContent = t("skip");
    place("language-label").textContent = t("language");
    place("theme-label").textContent = t("colours");
    const option = (name, text, chosen) => el("option", {value: name, selected: name === chosen}, text);
    const theme = words.keep(KEPT_THEME) ?? "system";
    fill(place("language"), words.languages().map(([name, text]) => option(name, text, words.language())));
    fill(place("theme"), THEMES.map((name) => option(name, t(`theme ${name}`), theme)));
}

place("language").addEventListener("change", async (event) => {
    await words.choose(event.target.value);
    show_choices();
    show_connection();
    show_view();
});
place("theme").addEventListener("change", (event) => {
    words.keep(KEPT_THEME, event.target.value);
    apply_theme();
});
place("skip").addEventListener("click", (event) => {
    event.preventDefault();  // the part behind # tells the view
    place("main").focus();
});
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", apply_theme);

// ---- the beginning

apply_theme();
await words.load();
show_choices();
show_connection();
await Promise.all([read_zone(), read_overview()]);
show_view();
addEventListener("hashchange", route_changed);
setInterval(tick_ages, 1000);
live.start();
