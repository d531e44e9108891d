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
import {moment, now, set_zone, tick_ages} from "./time.js";
import {values_view} from "./values_view.js";
import * as words from "./words.js";
import {t} from "./words.js";

const VIEWS = {values: values_view, charts: charts_view, table: table_view, events: events_view};
const THEMES = ["system", "light", "dark"];
const KEPT_THEME = "heatmeter-theme";

const place = (id) => document.getElementById(id);
const live = new Live();
const gateway = {overview: null, trouble: null, gone_since: null};
let view = null;  // {element, title, overview(), refresh(), values(data), records(data), close()}: the first is a must

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
    const said = after.meters.filter((meter) => old.has(meter.uuid) && old.get(meter.uuid) !== meter.level)
        .map((meter) => t("meter is now", {meter: meter.uuid.slice(0, 40), level: t(meter.level)}) +
                        (meter.reasons[0] ? `: ${meter.reasons[0].text.slice(0, 200)}` : ""));
    if (before.gateway.level !== after.gateway.level) {
        said.unshift(t("gateway is now", {level: t(after.gateway.level)}));
    }
    if (said.length > 0) place("spoken").textContent = said.join(". ");
}

async function read_overview() {
    try {
        const overview = await get("/api/overview");
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

function show_connection() {
    const gone = gateway.gone_since !== null;
    document.body.classList.toggle("gone", gone);
    const banner = place("banner");
    banner.hidden = !gone;
    if (gone) {
        const since = gateway.gone_since;
        const text = [symbol("warning"), el("span", {}, el("strong", {}, banner_text(gateway.stream_trouble)), " ",
                      since ? t("banner since", {time: moment(since)}) : "", " ", t("banner again"))];
        if (banner.textContent !== text[1].textContent) fill(banner, text);
    } else {
        fill(banner);
    }
    const version = gateway.overview?.version;
    fill(place("connection"), el("span", {class: `dot ${gone ? "dot-gone" : ""}`, "aria-hidden": "true"}),
         el("span", {}, gone ? t("not connected") : gateway.overview ? t("live") : t("connecting")),
         version ? el("span", {class: "version"}, String(version).slice(0, 30)) : null);
}

live.addEventListener("up", read_everything);
live.addEventListener("down", ({detail}) => {
    gateway.gone_since ??= now() ?? 0;
    gateway.stream_trouble = detail;
    show_connection();
});
live.addEventListener("status", calmly(200, read_overview));
live.addEventListener("values", ({detail}) => view?.values?.(detail));
live.addEventListener("records", ({detail}) => {
    read_overview_later();
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
    fill(place("language"), words.languages().map(([name, text]) =>
        el("option", {value: name, lang: name, selected: name === words.language()}, text)));
    fill(place("theme"), THEMES.map((name) =>
        el("option", {value: name, selected: name === (words.keep(KEPT_THEME) ?? "system")}, t(`theme ${name}`))));
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
