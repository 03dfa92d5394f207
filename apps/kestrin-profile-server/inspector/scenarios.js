// What the service has ready by name, faults and states.

import { call } from './api.js';
import { button, element, foreign } from './dom.js';

/** Fills a list with the scenarios of a kind, each with a button.
 * @param press  is told the name
 * @return whether there are any
 */
export async function showScenarios(list, kind, label, press) {
    const all = await call('GET', 'scenarios').catch(failure => {
        if (failure.status === 404) return { scenarios: [] };
        throw failure;
    });
    const scenarios = all.scenarios.filter(each => each.kind === kind);
    list.replaceChildren(...scenarios.map(({ name, description }) => element('li', { class: 'card' },
        element('strong', {}, foreign(name)), element('p', {}, foreign(description ?? '')),
        button(label, () => press(name), { 'aria-label': `${label} ${name}` }))));
    return scenarios.length > 0;
}

export function applyScenario(name) {
    return call('POST', `scenarios/${encodeURIComponent(name)}`);
}
