// All meters at a glance: how each is, why, what to do, and how old what it left is.

import {el, fill, foreign, symbol} from "./dom.js";
import {address} from "./route.js";
import {age_element} from "./time.js";
import {language, number, t} from "./words.js";

const ORDER = ["critical", "unknown", "warning", "ok"];

export function badge(level) {
    return el("span", {class: `badge level-${ORDER.includes(level) ? level : "unknown"}`}, symbol(level), t(level));
}

/** Reasons and helps are the gateway's own English. */
export function reason_list(reasons) {
    if (reasons.length === 0) return null;
    return el("ul", {class: "reasons"}, reasons.map((reason) => {
        const shape = reason.level === "ok" ? "note" : reason.level;
        return el("li", {class: `reason level-${shape}`}, symbol(shape), el("div", {lang: language() === "en" ? null : "en"},
            foreign(reason.text, {class: "clamped"}),
            reason.help ? el("p", {class: "help"}, el("span", {class: "help-word", lang: language()}, t("what to do")), " ",
                             foreign(reason.help, {class: "clamped"})) : null));
    }));
}

export function meter_facts(meter) {
    const facts = [meter.model || meter.family, meter.serial ? `${t("no.")} ${meter.serial}` : null].filter(Boolean);
    return facts.length > 0 ? foreign(facts.join(" · "), {class: "facts"}) : null;
}

function system_row(meter, system) {
    const link = (epoch, what, kind) => el("td", {}, epoch === null ? "–" :
        el("a", {href: address({uuid: meter.uuid, n: system.n, what, kind}), id: `${what}-${kind}-${meter.uuid}-${system.n}`}, age_element(epoch)));
    return el("tr", {},
        el("th", {scope: "row"}, String(system.n), system.connected === 0 ? el("span", {class: "silent"}, t("no answer")) : null),
        link(system.value, "values"), link(system.hourly, "charts", "hourly"), link(system.daily, "charts", "daily"));
}

function system_table(meter) {
    if (meter.systems.length === 0) return el("p", {class: "quiet"}, t("no system"));
    return el("div", {class: "scroll"}, el("table", {class: "systems"},
        el("thead", {}, el("tr", {}, [t("system"), t("newest value"), t("hourly"), t("daily")].map((text) =>
            el("th", {scope: "col"}, text)))),
        el("tbody", {}, meter.systems.map((system) => system_row(meter, system)))));
}

function card(meter, index) {
    const first = meter.systems[0]?.n ?? 1;
    const heading = `meter-${index}`;
    return el("article", {class: `card level-${meter.level}`, "aria-labelledby": heading},
        el("header", {},
           el("div", {class: "card-title"},
              el("h2", {id: heading}, el("a", {href: address({what: "values", uuid: meter.uuid, n: first}), id: `open-${meter.uuid}`},
                                         foreign(meter.uuid))),
              meter_facts(meter)),
           badge(meter.level)),
        reason_list(meter.reasons),
        system_table(meter));
}

function summary(overview) {
    const counts = ORDER.map((level) => [level, overview.meters.filter((meter) => meter.level === level).length]);
    return el("ul", {class: "summary", "aria-label": t("levels")}, counts.filter(([, count]) => count > 0).map(([level, count]) =>
        el("li", {class: `level-${level}`}, symbol(level), el("b", {}, number(count)), " ", t(level))));
}

function content(gateway) {
    const overview = gateway.overview;
    const heading = el("h1", {}, t("overview"));
    if (!overview) {
        return [heading, el("p", {class: gateway.trouble ? "fault" : "quiet"},
                            gateway.trouble ? `${t("cannot read")} ${gateway.trouble.message}` : t("reading"))];
    }
    const meters = overview.meters.map((meter, index) => ({meter, index}))
        .sort((a, b) => ORDER.indexOf(a.meter.level) - ORDER.indexOf(b.meter.level) || a.index - b.index);
    return [
        el("div", {class: "head"}, heading, summary(overview)),
        overview.gateway.reasons.length > 0
            ? el("section", {class: "gateway", "aria-label": t("gateway")}, el("h2", {}, t("gateway"), " ", badge(overview.gateway.level)),
                 reason_list(overview.gateway.reasons))
            : null,
        meters.length > 0 ? el("div", {class: "cards"}, meters.map(({meter, index}) => card(meter, index)))
                          : el("p", {class: "quiet"}, t("no meters")),
    ];
}

export function overview_view(gateway) {
    const element = el("div", {class: "overview"});
    const show = () => fill(element, content(gateway));
    show();
    return {element, title: "", overview: show};
}
