// What is stored: snapshots, ready states, seeds, and the way back to the start.

import { call, has } from './api.js';
import { ask, button, download, element, foreign, form, labelled } from './dom.js';
import { applyScenario, showScenarios } from './scenarios.js';
import { dateOf } from './time.js';
import { attempts, coalesced } from './work.js';

export async function statePanel(context) {
    const { report } = context;
    if (!await has('snapshots')) return null;

    const attempt = attempts(context, () => reload());

    async function confirmed(question, work, words) {
        if (await ask({ dangerous: true, ...question })) await attempt(work, words);
    }

    const pathOf = name => `snapshots/${encodeURIComponent(name)}`;
    const snapshots = element('ul', { class: 'rows-plain', 'aria-label': 'Snapshots' });

    function snapshot({ name, takenAt }) {
        return element('li', { 'data-snapshot': name },
            element('span', {}, element('strong', {}, foreign(name)), ' ', takenAt ? dateOf(takenAt) : null),
            element('span', { class: 'actions' },
                button('Restore', () => confirmed({ title: `Restore “${name}”?`, accept: 'Restore',
                    text: 'What is stored now is replaced by the snapshot.' },
                () => call('POST', `${pathOf(name)}/restore`), 'The snapshot is restored.'), { 'aria-label': `Restore ${name}` }),
                button('Delete', () => confirmed({ title: `Delete “${name}”?`, accept: 'Delete' },
                    () => call('DELETE', pathOf(name)), 'The snapshot is deleted.'), { class: 'quiet', 'aria-label': `Delete ${name}` })));
    }

    const taker = form({ class: 'inline', 'aria-label': 'A new snapshot' },
        ({ name }, ofForm) => attempt(async () => {
            await call('PUT', pathOf(name.trim()));
            ofForm.reset();
        }, 'The snapshot is taken.'),
        labelled('Name', element('input', { name: 'name', required: true, autocomplete: 'off', maxlength: '64' })),
        element('button', { class: 'main' }, 'Take a snapshot'));

    const ready = element('ul', { class: 'cards' });
    const readySection = element('section', { class: 'block' }, element('h2', {}, 'Ready states'),
        element('p', {}, 'Each replaces what is stored.'), ready);

    function apply(name) {
        confirmed({ title: `Apply “${name}”?`, accept: 'Apply', text: 'What is stored now is replaced.' },
            () => applyScenario(name), `The state ${name} is there.`);
    }

    async function exportSeed() {
        download('seed.json', 'application/json', `${JSON.stringify(await call('GET', 'state'), null, 2)}\n`);
    }

    async function load(file, method) {
        if (!file) return report(new Error('Choose a seed file first.'));
        let seed;
        try {
            seed = JSON.parse(await file.text());
        } catch (failure) {
            return report(new Error(`${file.name} is no JSON: ${failure.message}`));
        }
        const isReplacing = method === 'PUT';
        const work = () => call(method, 'state', seed);
        const words = isReplacing ? 'The seed replaced everything.' : 'The seed was added.';
        if (!isReplacing) return attempt(work, words);
        return confirmed({ title: 'Replace everything by the seed?', accept: 'Replace' }, work, words);
    }

    const file = element('input', { type: 'file', accept: '.json,application/json' });
    const root = element('section', { class: 'page', 'aria-label': 'State' },
        element('section', { class: 'block' }, element('h2', {}, 'Snapshots'),
            element('p', {}, 'A snapshot keeps all households with their lists.'), snapshots, taker),
        readySection,
        element('section', { class: 'block' }, element('h2', {}, 'Seeds'),
            element('p', {}, 'A seed is a file with households, profiles and lists.'),
            element('div', { class: 'inline' }, labelled('Seed file', file),
                button('Add', () => load(file.files[0], 'POST')),
                button('Replace everything', () => load(file.files[0], 'PUT')),
                button('Save what is stored as a seed', () => attempt(exportSeed), { class: 'quiet' }))),
        element('section', { class: 'block' }, element('h2', {}, 'Back to the start'),
            element('p', {}, 'Households, blocks, faults, journal and clock become what they were when the service started.'),
            button('Reset everything', () => confirmed({ title: 'Reset everything?', accept: 'Reset',
                text: 'Households, blocks, faults, journal and clock become what they were at the start.' },
            () => call('POST', 'reset'), 'Everything is as it was at the start.'), { class: 'dangerous' })));

    const reload = coalesced(async () => {
        const found = (await call('GET', 'snapshots')).snapshots;
        snapshots.replaceChildren(...found.map(snapshot));
        if (found.length === 0) snapshots.append(element('li', { class: 'empty' }, 'None was taken yet.'));
        readySection.hidden = !await showScenarios(ready, 'state', 'Apply', apply);
    }, report);

    return { title: 'State', element: root, async show() {}, refresh: reload, on: { state: reload.later, reset: reload.later } };
}
