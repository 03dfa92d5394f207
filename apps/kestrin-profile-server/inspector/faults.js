// The fault switches: what is set, what can be set with one press, and a form for the rest.

import { call, has, operations } from './api.js';
import { ask, badge, button, element, foreign, form, labelled, suggestingInput } from './dom.js';
import { applyScenario, showScenarios } from './scenarios.js';
import { dateOf } from './time.js';
import { attempts, coalesced } from './work.js';
import { counted, shortOperation } from './text.js';

/** A field of the form: how it is read, and what it is called. */
const number = (name, label, more = {}) => ({ name, label, read: Number, input: { type: 'number', step: '1', min: '0', ...more } });
const text = (name, label, more = {}) => ({ name, label, read: value => value, input: { type: 'text', ...more } });
const area = (name, label) => ({ name, label, read: value => value, isArea: true });

/** Every kind of action: what it is called, its fields, and what a set one says. */
const kinds = {
    status: { label: 'Answer with a status', fields: [
        number('status', 'Status', { min: '100', max: '599', required: true, value: '503' }),
        { ...text('retryAfter', 'Retry-After', { placeholder: 'seconds, or a date' }),
            read: value => /^[0-9]+$/.test(value) ? Number(value) : value },
        text('contentType', 'Content type'), area('body', 'Body')],
    says: action => ['answers ', badge(String(action.status), 'warning'),
        action.retryAfter != null ? [' with Retry-After ', foreign(action.retryAfter)] : null,
        action.body != null ? ' and a body of its own' : null] },
    delay: { label: 'Answer late', fields: [
        number('milliseconds', 'Delay in ms', { required: true, value: '1000' }), number('jitterMilliseconds', 'Up to so much more, in ms')],
    says: action => `answers ${action.milliseconds} ms late${action.jitterMilliseconds ? `, up to ${action.jitterMilliseconds} ms more` : ''}` },
    throttle: { label: 'Answer slowly', fields: [number('bytesPerSecond', 'Bytes per second', { min: '1', required: true, value: '1024' })],
        says: action => `sends ${action.bytesPerSecond} bytes a second` },
    refuse: { label: 'Close the connection at once', fields: [], says: () => 'closes the connection at once' },
    resetBefore: { label: 'Reset before anything is done', fields: [], says: () => 'resets the connection before anything is done' },
    resetAfter: { label: 'Do it, then reset without a reply', fields: [], says: () => 'does it, then resets the connection without a reply' },
    resetMiddle: { label: 'Reset in the middle of the reply', fields: [], says: () => 'resets the connection in the middle of the reply' },
    truncate: { label: 'Cut the reply', fields: [number('bytes', 'After so many bytes', { required: true, value: '10' })],
        says: action => `cuts the reply after ${counted(action.bytes, 'byte')}` },
    malformed: { label: 'Answer what is not JSON', fields: [], says: () => 'answers what is not JSON' },
    contentType: { label: 'Answer with another content type', fields: [text('contentType', 'Content type', { required: true, value: 'text/html' })],
        says: action => ['answers as ', foreign(action.contentType)] },
    expiredToken: { label: 'Take the token for expired', fields: [], says: () => 'takes the token for expired' },
    revokedToken: { label: 'Take the token for revoked', fields: [], says: () => 'takes the token for revoked' },
    clockSkew: { label: 'Show another time', fields: [number('seconds', 'Seconds ahead', { min: null, required: true, value: '3600' })],
        says: action => `shows a time ${action.seconds} s ahead` },
};

function whenOf(when) {
    const parts = [];
    if (when?.operation != null) parts.push(['operation ', foreign(shortOperation(when.operation))]);
    if (when?.method != null) parts.push(['method ', foreign(when.method)]);
    if (when?.profile != null) parts.push(['profile ', foreign(when.profile)]);
    if (when?.household != null) parts.push(['household ', foreign(when.household)]);
    if (parts.length === 0) return 'For every request';
    return ['For ', parts.flatMap((part, at) => at > 0 ? [', ', part] : [part])];
}

function limitsOf(fault) {
    const limits = [];
    if (fault.probability != null && fault.probability < 1)
        limits.push(`in ${Number((fault.probability * 100).toFixed(2))} % of the cases`);
    if (fault.count != null) limits.push(fault.used >= fault.count ? 'used up'
        : `${fault.count - fault.used} more of ${counted(fault.count, 'time')}`);
    if (fault.until != null) limits.push(['ends ', dateOf(fault.until)]);
    return limits.flatMap(limit => [', ', limit]);
}

function saysOf(action) {
    return kinds[action?.kind]?.says(action) ?? ['does ', foreign(action?.kind)];
}

/** What the form's fields say, as the service takes it. */
export function faultOf(values) {
    const action = { kind: values.kind };
    for (const field of kinds[values.kind].fields)
        if (values[`action.${field.name}`] !== undefined) action[field.name] = field.read(values[`action.${field.name}`]);
    const when = Object.fromEntries(['operation', 'profile', 'household', 'method']
        .filter(name => values[name] !== undefined).map(name => [name, values[name].trim()]));
    return {
        ...(values.name !== undefined ? { name: values.name } : {}),
        when, action,
        ...(values.percent !== undefined ? { probability: Number(values.percent) / 100 } : {}),
        ...(values.seed !== undefined ? { seed: Number(values.seed) } : {}),
        ...(values.count !== undefined ? { count: Number(values.count) } : {}),
        ...(values.until !== undefined ? { until: new Date(`${values.until}Z`).toISOString() } : {}),
    };
}

export async function faultsPanel(context) {
    if (!await has('faults')) return null;

    const { report } = context;
    const attempt = attempts(context, () => reload());
    const list = element('ul', { class: 'faults-set', 'aria-label': 'Faults that are set' });
    const removeAll = button('Remove all', async () => {
        if (await ask({ title: 'Remove all faults?', accept: 'Remove all', dangerous: true }))
            attempt(() => call('DELETE', 'faults'), 'All faults are removed.');
    }, { class: 'quiet' });
    const ready = element('ul', { class: 'cards' });
    const readySection = element('section', { class: 'block' }, element('h2', {}, 'Ready scenarios'), ready);

    function item(fault) {
        return element('li', { class: 'fault', 'data-fault': fault.id },
            element('div', {},
                element('strong', {}, fault.name ? foreign(fault.name) : `Fault ${fault.id}`), ' ',
                badge(`used ${fault.used ?? 0}×`),
                element('p', {}, whenOf(fault.when), ' the service ', saysOf(fault.action), limitsOf(fault), '.')),
            button('Remove', () => attempt(() => call('DELETE', `faults/${fault.id}`), 'The fault is removed.'),
                { 'aria-label': `Remove fault ${fault.name ?? fault.id}` }));
    }

    const fieldsOfKind = element('div', { class: 'fields' });
    function showKind(kind) {
        fieldsOfKind.replaceChildren(...kinds[kind].fields.map(field => labelled(field.label, field.isArea
            ? element('textarea', { name: `action.${field.name}`, rows: '3', spellcheck: 'false' })
            : element('input', { name: `action.${field.name}`, autocomplete: 'off', ...field.input }))));
    }
    const kind = element('select', { name: 'kind', change: event => showKind(event.currentTarget.value) },
        Object.entries(kinds).map(([name, { label }]) => element('option', { value: name }, label)));
    showKind('status');
    const when = ['operation', 'profile', 'household', 'method'].map(name => [name, suggestingInput(name, { placeholder: 'any' })]);
    const whenFields = new Map(when);
    whenFields.get('method').suggest(['GET', 'POST', 'PUT', 'DELETE']);
    const whenLabels = { operation: 'Operation', profile: 'Profile', household: 'Household', method: 'Method' };
    const maker = form({ class: 'maker', 'aria-label': 'A new fault' },
        (values, ofForm) => attempt(async () => {
            await call('POST', 'faults', faultOf(values));
            ofForm.reset();
            showKind('status');
        }, 'The fault is set.'),
        element('fieldset', {}, element('legend', {}, 'What happens'), labelled('Kind', kind), fieldsOfKind),
        element('fieldset', {}, element('legend', {}, 'To which requests'), element('div', { class: 'fields' },
            when.map(([name, { input, list: suggestions }]) => [labelled(whenLabels[name], input), suggestions]))),
        element('fieldset', {}, element('legend', {}, 'How often'), element('div', { class: 'fields' },
            labelled('The next', element('input', { name: 'count', type: 'number', min: '1', step: '1', placeholder: 'all' }), 'requests'),
            labelled('Probability', element('input', { name: 'percent', type: 'number', min: '0', max: '100', step: 'any', placeholder: '100' }), 'per cent'),
            labelled('Seed of the chance', element('input', { name: 'seed', type: 'number', min: '0', step: '1' })),
            labelled('Until', element('input', { name: 'until', type: 'datetime-local', step: '1' }), 'UTC, by the service’s clock'),
            labelled('Name', element('input', { name: 'name', autocomplete: 'off' })))),
        element('button', { class: 'main' }, 'Set the fault'));
    const makerSection = element('section', { class: 'block' },
        element('h2', { tabindex: '-1' }, 'A new fault'), maker);

    const root = element('section', { class: 'page', 'aria-label': 'Faults' },
        element('section', { class: 'block' }, element('div', { class: 'bar' }, element('h2', {}, 'Set now'), removeAll), list),
        readySection, makerSection);

    const reload = coalesced(async () => {
        const { faults } = await call('GET', 'faults');
        list.replaceChildren(...faults.map(item));
        removeAll.hidden = faults.length === 0;
        if (faults.length === 0) list.append(element('li', { class: 'empty' }, 'None. The service answers as it should.'));
    }, report);

    const learn = coalesced(async () => {
        const names = await operations();
        whenFields.get('operation').suggest(names.sort());
        readySection.hidden = !await showScenarios(ready, 'faults', 'Switch on',
            name => attempt(() => applyScenario(name), `The scenario ${name} is on.`));
    }, report);
    learn();

    return {
        title: 'Faults',
        element: root,
        async show(_, parameters) {
            if (parameters.size === 0) return;
            for (const [name, value] of parameters)
                if (whenFields.has(name)) whenFields.get(name).input.value = value;
            history.replaceState(null, '', '#/faults');
            makerSection.querySelector('h2').focus();
        },
        refresh: reload,
        on: { faults: reload.later, reset: reload.later, request: entry => { if (entry.fault != null) reload.later(); } },
    };
}
