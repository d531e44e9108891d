// Which view of which meter the part of the address behind # means, and back.

const WHATS = ["values", "charts", "table", "events"];
const KINDS = ["hourly", "daily"];
export const RANGES = ["day", "week", "month", "year", "all"];

function plain(text) {
    try {
        return decodeURIComponent(text);
    } catch {
        return text;
    }
}

const moment = (text) => (/^\d{1,12}$/.test(text ?? "") ? Number(text) : null);

/** "#/meter/UUID/N/charts?kind=daily&names=A1,A2&range=week" (or from= and to= in its place). */
export function parse_route(hash) {
    const [path, query] = hash.replace(/^#/, "").split(/\?(.*)/s);
    const parts = path.split("/").map(plain);
    if (parts[1] !== "meter" || !parts[2]) return {what: "overview"};
    const words = new URLSearchParams(query ?? "");
    const from = moment(words.get("from"));
    const to = moment(words.get("to"));
    return {
        what: WHATS.includes(parts[4]) ? parts[4] : "values",
        uuid: parts[2],
        n: /^[1-9]\d{0,2}$/.test(parts[3] ?? "") ? Number(parts[3]) : 1,
        kind: KINDS.includes(words.get("kind")) ? words.get("kind") : null,
        names: words.get("names")?.split(",").filter(Boolean) ?? null,
        range: from !== null && to !== null && from < to ? null :
            RANGES.includes(words.get("range"))          ? words.get("range") :
                                                           null,
        from: from !== null && to !== null && from < to ? from : null,
        to: from !== null && to !== null && from < to ? to : null,
    };
}

export function address(route) {
    if (route.what === "overview") return "#/";
    const path =
        `#/meter/${encodeURIComponent(route.uuid)}/${route.n}` + (route.what === "values" ? "" : `/${route.what}`);
    const words = new URLSearchParams();
    if (route.kind) words.set("kind", route.kind);
    if (route.names) words.set("names", route.names.join(","));
    if (route.range) words.set("range", route.range);
    if (route.from !== null && route.from !== undefined) {
        words.set("from", Math.floor(route.from));
        words.set("to", Math.ceil(route.to));
    }
    return words.size > 0 ? `${path}?${words}` : path;
}

/** The address tells what is seen, without a step back for each turn of a wheel. */
export function rewrite(route) { history.replaceState(null, "", address(route)); }
