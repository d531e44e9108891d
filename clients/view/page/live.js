// The gateway's stream of events. It breaks: then it is opened again, after a wait that grows to 10 s.

import {get, parse} from "./api.js";
import {whole_address} from "./dom.js";
import {now, set_clock} from "./time.js";

const SILENCE = 40;  // seconds without a word, when hello comes every 25
const FIRST_WAIT = 0.5;
const LONGEST_WAIT = 10;
const HIDDEN = 60;  // seconds in the background before the stream is given back: a browser has few of them

/** Events: "up" at each beginning, "down" with the trouble, and "values", "records", "status" with their data. */
export class Live extends EventTarget {
    #source = null;
    #heard = null;
    #timer = 0;
    #hiding = 0;
    #wait = FIRST_WAIT;

    /** The gateway's time of its last word. */
    get heard() { return this.#heard; }

    start() {
        this.#open();
        document.addEventListener("visibilitychange", () => this.#visibility());
        addEventListener("online", () => this.#again(0));
        addEventListener("pagehide", () => this.#close());
        addEventListener("pageshow", (event) => event.persisted && this.#again(0));
    }

    #tell(name, detail) { this.dispatchEvent(new CustomEvent(name, {detail})); }

    #close() {
        clearTimeout(this.#timer);
        this.#source?.close();
        this.#source = null;
    }

    #open() {
        this.#close();
        const source = new EventSource(whole_address("/api/stream"));
        this.#source = source;
        this.#listen_for_silence();
        const on = (name, action) => source.addEventListener(name, (event) => {
            if (this.#source !== source) return;
            this.#listen_for_silence();
            let data;
            try {
                data = parse(event.data);
            } catch {
                return;
            }
            if (typeof data.time === "number") set_clock(data.time);
            this.#heard = now();
            action(data);
        });
        let begun = false;
        on("hello", (data) => {
            this.#wait = FIRST_WAIT;
            if (!begun) this.#tell("up", data);
            begun = true;
        });
        for (const name of ["values", "records", "status"]) on(name, (data) => this.#tell(name, data));
        source.onerror = () => this.#source === source && this.#broken();
    }

    #listen_for_silence() {
        clearTimeout(this.#timer);
        this.#timer = setTimeout(() => {
            this.#tell("down", null);
            this.#broken();
        }, SILENCE * 1000);
    }

    /** Why, a stream does not tell; a plain question does. */
    async #broken() {
        this.#close();
        const wait = this.#wait;
        this.#wait = Math.min(LONGEST_WAIT, wait * 2);
        this.#again(wait);
        let trouble = null;
        try {
            await get("/api/overview", AbortSignal.timeout(LONGEST_WAIT * 1000));
        } catch (error) {
            trouble = error;
            if (trouble.wait > 0) this.#again(trouble.wait);
        }
        const first = wait === FIRST_WAIT;  // a stream may end for once
        if (this.#source?.readyState !== EventSource.OPEN && (trouble || !first)) this.#tell("down", trouble);
    }

    #again(seconds) {
        clearTimeout(this.#timer);
        this.#timer = setTimeout(() => this.#open(), seconds * 1000);
    }

    #visibility() {
        clearTimeout(this.#hiding);
        if (document.hidden) {
            this.#hiding = setTimeout(() => this.#close(), HIDDEN * 1000);
        } else if (this.#source?.readyState !== EventSource.OPEN) {
            this.#again(0);
        }
    }
}
