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

    function show_head() {
        const meter = gateway.overview?.meters.find(({uuid}) => uuid === route.uuid);
        const systems = meter?.systems.map(({n}) => n) ?? [];
        if (!systems.includes(route.n)) systems.push(route.n);
        // A choice of names and times goes with the reader from view to view, but not to another system.
        const tab = (what) => el("a", {href: address({...route, what}), id: `tab-${what}`, "aria-current": what === route.what ? "page" : null}, t(what));
        fill(head,
            el("nav", {class: "crumbs", "aria-label": t("where")}, el("a", {href: "#/", id: "crumb"}, t("overview"))),
            el("div", {class: "head"}, el("h1", {}, foreign(route.uuid)), meter ? badge(meter.level) : null, meter ? meter_facts(meter) : null),
            gateway.overview && !meter ? el("p", {class: "fault"}, t("no such meter")) : null,
            meter ? reason_list(meter.reasons) : null,
            el("div", {class: "tabs"},
               el("nav", {"aria-label": t("views")}, WHATS.map(tab)),
               systems.length > 1
                   ? el("nav", {class: "system-tabs", "aria-label": t("systems")}, el("span", {class: "tab-label"}, t("system")), systems.sort((a, b) => a - b).map((n) =>
                       el("a", {href: address({what: route.what, uuid: route.uuid, n}), id: `system-${n}`, "aria-current": n === route.n ? "page" : null,
                                "aria-label": t("system n", {n})}, String(n))))
                   : null));
    }

    show_head();
    const inner = make(route, body, show_head);
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
