// All meters at a glance: how each is, why, what to do, and how old what it left is.

import {el, fill, foreign, symbol} from "./dom.js";
import {address} from "./route.js";
import {age_element, show_age} from "./time.js";
import {language, number, t} from "./words.js";

const ORDER = ["critical", "unknown", "warning", "ok"];

export function badge(level) {
    return el("span", {class: `badge level-${ORDER.includes(level) ? level : "unknown"}`}, symbol(level), t(level));
}

/** Reasons and helps are the gateway's own English. */
function reason_item(reason) {
    const shape = reason.level === "ok" ? "note" : reason.level;
    const help_word = el("span", {class: "help-word", lang: language()}, t("what to do"));
    const help = el("p", {class: "help"}, help_word, " ", foreign(reason.help, {class: "clamped"}));
    return el("li", {class: `reason level-${shape}`}, symbol(shape),
              el("div", {lang: "en"}, foreign(reason.text, {class: "clamped"}), reason.help ? help : null));
}

export function reason_list(reasons) {
    return reasons.length > 0 ? el("ul", {class: "reasons"}, reasons.map(reason_item)) : null;
}

export function meter_facts(meter) {
    const facts = [meter.model || meter.family, meter.serial ? `${t("no.")} ${meter.serial}` : null].filter(Boolean);
    return facts.length > 0 ? foreign(facts.join(" · "), {class: "facts"}) : null;
}

function age_link(id, route, epoch) {
    if (epoch === null) return el("td", {}, "–");
    return el("td", {}, el("a", {href: address(route), id}, age_element(epoch)));
}

function system_row(meter, system) {
    const route = {uuid: meter.uuid, n: system.n, what: "charts"};
    const id = (what) => `${what}-${meter.uuid}-${system.n}`;
    const silent = system.connected === 0 ? el("span", {class: "silent"}, t("no answer")) : null;
    return el("tr", {}, el("th", {scope: "row"}, String(system.n), silent),
              age_link(id("values"), {...route, what: "values"}, system.value),
              age_link(id("hourly"), {...route, kind: "hourly"}, system.hourly),
              age_link(id("daily"), {...route, kind: "daily"}, system.daily));
}

function system_table(meter) {
    if (meter.systems.length === 0) return el("p", {class: "quiet"}, t("no system"));
    const titles = [t("system"), t("newest value"), t("hourly"), t("daily")];
    const heads = titles.map((text) => el("th", {scope: "col"}, text));
    return el("div", {class: "scroll"},
              el("table", {class: "systems"}, el("thead", {}, el("tr", {}, heads)),
                 el("tbody", {}, meter.systems.map((system) => system_row(meter, system)))));
}

function card(meter, index) {
    const first = meter.systems[0]?.n ?? 1;
    const heading = `meter-${index}`;
    const href = address({what: "values", uuid: meter.uuid, n: first});
    const title = el("h2", {id: heading}, el("a", {href, id: `open-${meter.uuid}`}, foreign(meter.uuid)));
    return el("article", {class: `card level-${meter.level}`, "aria-labelledby": heading},
              el("header", {}, el("div", {class: "card-title"}, title, meter_facts(meter)), badge(meter.level)),
              reason_list(meter.reasons), system_table(meter));
}

function summary(overview) {
    const counts = ORDER.map((level) => [level, overview.meters.filter((meter) => meter.level === level).length]);
    const item = ([level, count]) =>
        el("li", {class: `level-${level}`}, symbol(level), el("b", {}, number(count)), " ", t(level));
    return el("ul", {class: "summary", "aria-label": t("levels")}, counts.filter(([, count]) => count > 0).map(item));
}

function content(gateway) {
    const overview = gateway.overview;
    const heading = el("h1", {}, t("overview"));
    if (!overview) {
        const trouble = gateway.trouble;
        const text = trouble ? `${t("cannot read")} ${trouble.message}` : t("reading");
        return [heading, el("p", {class: trouble ? "fault" : "quiet"}, text)];
    }
    const {level, reasons} = overview.gateway;
    const own = el("section", {class: "gateway", "aria-label": t("gateway")},
                   el("h2", {}, t("gateway"), " ", badge(level)), reason_list(reasons));
    const place = (meter) => ORDER.indexOf(meter.level);
    const meters = [...overview.meters].sort((a, b) => place(a) - place(b));
    const none = el("p", {class: "quiet"}, t("no meters"));
    return [
        el("div", {class: "head"}, heading, summary(overview)),
        reasons.length > 0 ? own : null,
        meters.length > 0 ? el("div", {class: "cards"}, meters.map(card)) : none,
    ];
}

export function overview_view(gateway) {
    const element = el("div", {class: "overview"});
    const show = () => fill(element, content(gateway));
    show();

    /** Newer times of a system, without touching what stands round them. */
    function system(uuid, n, times) {
        for (const [id, epoch] of [["values", times.value], ["hourly", times.hourly], ["daily", times.daily]]) {
            const age = epoch && document.getElementById(`${id}-${uuid}-${n}`)?.firstChild;
            if (age) {
                show_age(age, epoch);
            } else if (epoch) {
                show();
                return;
            }
        }
    }

    return {element, title: "", overview: show, system};
}
