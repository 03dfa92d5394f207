// The service's time, and dates beside it.

import { element } from './dom.js';
import { relativeTime, utc } from './text.js';

let frozenAt = null;
let ahead = 0;

/** Sets the service's clock beside this computer's. */
export function setServiceTime({ now, frozen }) {
    const time = Date.parse(now);
    frozenAt = frozen ? time : null;
    ahead = time - Date.now();
    refreshDates();
}

export function serviceTime() {
    return frozenAt ?? Date.now() + ahead;
}

/** A date as its distance from now, which the page keeps up to date. */
export function dateOf(text) {
    const time = Date.parse(text);
    if (Number.isNaN(time)) return element('span', {}, text);
    return element('time', { class: 'relative', datetime: text, title: `${utc(time)} UTC` },
        relativeTime(time, serviceTime()));
}

export function refreshDates() {
    for (const each of document.querySelectorAll('time.relative')) {
        const shown = relativeTime(Date.parse(each.getAttribute('datetime')), serviceTime());
        if (each.textContent !== shown) each.textContent = shown;
    }
}
