// What stands over each view of one meter: who it is, how it is, its systems and its views.

import {el, fill, foreign} from "./dom.js";
import {badge, meter_facts, reason_list} from "./overview.js";
import {address} from "./route.js";
import {t} from "./words.js";

const WHATS = ["values", "charts", "table", "events"];

/** The view inside is made by `make(route, element)`; it may have refresh, values, records, theme and close. */
export function meter_frame(gateway, route, make) {
    const head = el("div", {});
    const body = el("section", {class: `view view-${route.what}`, "aria-label": t(route.what)});
    const element = el("div", {class: "meter"}, head, body);

    // A choice of names and times goes with the reader from view to view, but not to another system.
    function view_tab(what) {
        const current = what === route.what ? "page" : null;
        return el("a", {href: address({...route, what}), id: `tab-${what}`, "aria-current": current}, t(what));
    }

    function system_tab(n) {
        const href = address({what: route.what, uuid: route.uuid, n});
        const current = n === route.n ? "page" : null;
        return el("a", {href, id: `system-${n}`, "aria-current": current, "aria-label": t("system n", {n})}, String(n));
    }

    function system_tabs(meter) {
        const systems = [...new Set([...meter?.systems.map(({n}) => n) ?? [], route.n])].sort((a, b) => a - b);
        if (systems.length < 2) return null;
        const word = el("span", {class: "tab-label"}, t("system"));
        return el("nav", {"aria-label": t("systems")}, word, systems.map(system_tab));
    }

    function show_head() {
        const meter = gateway.overview?.meters.find(({uuid}) => uuid === route.uuid);
        const back = el("a", {href: "#/", id: "crumb"}, t("overview"));
        const facts = meter ? [badge(meter.level), meter_facts(meter)] : null;
        const tabs = el("nav", {"aria-label": t("views")}, WHATS.map(view_tab));
        fill(head, el("nav", {class: "crumbs", "aria-label": t("where")}, back),
             el("div", {class: "head"}, el("h1", {}, foreign(route.uuid)), facts),
             gateway.overview && !meter ? el("p", {class: "fault"}, t("no such meter")) : null,
             meter ? reason_list(meter.reasons) : null,
             el("div", {class: "tabs"}, tabs, system_tabs(meter)));
    }

    show_head();
    const inner = make(route, body);
    const mine = (data) => data.meter === route.uuid && data.system === route.n;
    return {
        element,
        title: route.uuid.slice(0, 60),
        overview: show_head,
        refresh: () => inner.refresh?.(),
        values: (data) => mine(data) && inner.values?.(data),
        records: (data) => mine(data) && inner.records?.(data),
        theme: () => inner.theme?.(),
        close: () => inner.close?.(),
    };
}
