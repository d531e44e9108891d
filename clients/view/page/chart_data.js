// An answer of the archive, made into rows for the chart: null where a name has no value of its own at a time, so that
// its line goes on, NaN in a hole, so that it does not.

/** Times in ms. `answer` is of /archive with points=. */
export function chart_rows(answer) {
    const rows = answer.rows.map(([time, ...values]) => [time * 1000, ...values]);
    const breaks = answer.names.flatMap((name, index) => breaks_of(rows, index + 1, answer.holes?.[name] ?? []));
    if (breaks.length === 0) return rows;
    const width = answer.names.length + 1;
    for (const {time, column} of breaks) {
        const row = new Array(width).fill(null);
        row[0] = time;
        row[column] = NaN;
        rows.push(row);
    }
    return rows.sort((a, b) => a[0] - b[0]);
}

/** Between each two values of a column that have a hole, or a part of one, between them. */
function breaks_of(rows, column, holes) {
    const breaks = [];
    let at = 0;
    for (const [after, before] of holes) {
        let last = after * 1000;
        for (at = first_from(rows, last); at < rows.length && rows[at][0] <= before * 1000; at += 1) {
            if (rows[at][column] === null || rows[at][0] === last) continue;
            breaks.push({time: (last + rows[at][0]) / 2, column});
            last = rows[at][0];
        }
        if (last < before * 1000) breaks.push({time: (last + before * 1000) / 2, column});
    }
    return breaks;
}

function first_from(rows, time) {
    let low = 0;
    let high = rows.length;
    while (low < high) {
        const middle = (low + high) >> 1;
        if (rows[middle][0] < time)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

/** Spans of all names in one list, in order, those that touch joined: [[from, to], ...] in ms. */
export function joined(spans_by_name) {
    const spans = Object.values(spans_by_name ?? {}).flat().sort((a, b) => a[0] - b[0]);
    const result = [];
    for (const [from, to] of spans) {
        const last = result.at(-1);
        if (last && from * 1000 <= last[1])
            last[1] = Math.max(last[1], to * 1000);
        else
            result.push([from * 1000, to * 1000]);
    }
    return result;
}

export const within = (spans, time) => (spans ?? []).some(([from, to]) => time >= from && time <= to);
