// The journal: every request, live, and one of them opened beside its reply.

import { call, has, operations, text } from './api.js';
import { ask, button, download, element, foreign, labelled, suggestingInput, valuesOf } from './dom.js';
import { exchange, statusBadge } from './exchange.js';
import { RowList } from './rows.js';
import { attempts, coalesced } from './work.js';
import { counted, grouped, milliseconds, shortOperation, timeOfDay } from './text.js';

/** What the page keeps; the service has the rest. */
const most = 10000;

/** The filters by name, as the service knows them, each with its label and what it suggests. */
const usual = [['operation', 'Operation'], ['profile', 'Profile'],
    ['status', 'Status', ['2xx', '4xx', '5xx', '200', '201', '204', '400', '401', '403', '404', '409', '422', '500', '503']]];
const further = [['household', 'Household'], ['item', 'Video, show or search'],
    ['method', 'Method', ['GET', 'POST', 'PUT', 'DELETE']], ['path', 'Path'], ['problem', 'Problem type'],
    ['bodyContains', 'Body contains']];

function rowOf(entry) {
    const what = entry.operation ? shortOperation(entry.operation) : entry.target;
    const marks = [entry.fault != null ? 'fault' : null,
        entry.findings?.length ? counted(entry.findings.length, 'finding') : null].filter(each => each);
    const label = [entry.method, what, entry.profile != null ? `by ${entry.profile}` : null,
        entry.item != null ? `of ${entry.item}` : null,
        entry.status == null ? 'no reply' : `status ${entry.status}`, milliseconds(entry.milliseconds), ...marks]
        .filter(each => each).join(', ');
    return {
        label,
        content: [
            element('span', { class: 'row-time' }, timeOfDay(new Date(entry.time))),
            statusBadge(entry.status),
            element('span', { class: 'row-method' }, foreign(entry.method)),
            element('span', { class: 'row-what' }, foreign(what)),
            element('span', { class: 'row-who' }, entry.profile != null ? foreign(entry.profile) : null),
            element('span', { class: 'row-item' }, entry.item != null ? foreign(entry.item) : null),
            element('span', { class: 'row-marks' }, marks.map(each => element('span', { class: 'mark' }, each))),
            element('span', { class: 'row-length' }, milliseconds(entry.milliseconds)),
        ],
    };
}

export async function journalPanel(context) {
    const { report, announce } = context;
    if (!await has('journal?limit=1')) return null;

    const known = { operation: new Set(), profile: new Set(), household: new Set() };
    const fields = new Map();
    const field = ([name, label, values]) => {
        const { input, list, suggest } = suggestingInput(name);
        suggest(values ?? []);
        fields.set(name, { input, suggest });
        return [labelled(label, input), list];
    };
    const filterCount = element('span', { class: 'count' });
    const filters = element('form', {
        class: 'filters', role: 'search', 'aria-label': 'Filters',
        submit: event => event.preventDefault(), input: () => reloadSoon(),
    },
    usual.map(field),
    element('details', {}, element('summary', {}, 'More filters'), element('div', { class: 'further' }, further.map(field))),
    button('Clear filters', () => { filters.reset(); reload(); }, { class: 'quiet', hidden: true }));
    const clearFilters = filters.lastElementChild;

    const count = element('p', { class: 'count' });
    const pause = button('Pause', () => setPaused(!isPaused), { 'aria-pressed': 'false' });
    const list = new RowList({ label: 'Requests, newest first', row: rowOf, most,
        choose(entry, isOpened) {
            // Where there is room for one of the two only, the arrow keys stay in the list.
            if (!isOpened && getComputedStyle(opened.parentElement).display === 'none') return;
            if (isOpened && entry.id === openedID) return opened.querySelector('h2')?.focus();
            wantsFocus = isOpened;
            const address = `#/journal/${entry.id}`;
            if (openedID === null) location.hash = address;
            else location.replace(address);
        } });
    const opened = element('div', { class: 'opened-content' });
    const empty = element('p', { class: 'empty' });
    const root = element('section', { class: 'split journal', 'aria-label': 'Journal' },
        element('div', { class: 'listing' },
            filters,
            element('div', { class: 'bar' }, count, filterCount, pause,
                button('Export HAR', exportHAR, { class: 'quiet' }),
                button('Clear', clear, { class: 'quiet' })),
            list.element, empty),
        element('article', { class: 'opened', 'aria-label': 'One request' },
            element('a', { class: 'back', href: '#/journal' }, '← All requests'), opened));

    let total = 0;
    let isPaused = false;
    let wantsFocus = false;
    let waiting = [];
    let openedID = null;
    const faultNames = new Map();

    const filter = () => Object.fromEntries(Object.entries(valuesOf(filters)).map(([name, value]) => [name, value.trim()])
        .filter(([, value]) => value !== ''));
    const query = more => new URLSearchParams({ ...filter(), ...more });

    function remember(entries) {
        for (const [name, values] of Object.entries(known)) {
            const before = values.size;
            for (const entry of entries)
                if (entry[name] != null && values.size < 200) values.add(entry[name]);
            if (values.size > before) fields.get(name).suggest([...values].sort());
        }
    }

    function showCount() {
        const kept = list.entries.length;
        const isFiltered = Object.keys(filter()).length > 0;
        count.textContent = total > kept ? `The newest ${grouped(kept)} of ${counted(total, 'request')}`
            : counted(kept, 'request');
        filterCount.textContent = isPaused && waiting.length > 0 ? `${grouped(waiting.length)} new` : '';
        clearFilters.hidden = !isFiltered;
        empty.hidden = kept > 0;
        empty.textContent = isFiltered ? 'No request matches the filters.'
            : 'No request has come yet. Send one, and it appears here.';
        list.element.hidden = kept === 0;
    }

    const reload = coalesced(async () => {
        const found = await call('GET', `journal?${query({ limit: most, order: 'newest' })}`);
        total = found.total;
        waiting = [];
        remember(found.entries);
        list.replace(found.entries.reverse());
        showCount();
    }, report);
    const reloadSoon = reload.later;

    /** What has come since the last look, as the filter has it. */
    const follow = coalesced(async () => {
        const since = list.entries.at(-1)?.id ?? 0;
        const found = await call('GET', `journal?${query({ limit: most, order: 'newest', since })}`);
        take(found.entries.reverse());
    }, report);

    function take(entries) {
        remember(entries);
        const added = list.add(entries);
        total += added;
        showCount();
        announce(added);
    }

    let arrived = [];
    const takeArrived = coalesced(async () => {
        const entries = arrived;
        arrived = [];
        take(entries.sort((left, right) => left.id - right.id));
    }, report);

    function setPaused(value) {
        isPaused = value;
        pause.setAttribute('aria-pressed', value);
        pause.textContent = value ? 'Resume' : 'Pause';
        if (!value) {
            waiting = [];
            follow();
        }
        showCount();
    }

    function onRequest(entry) {
        if (isPaused) {
            if (waiting.length < most) waiting.push(entry.id);
            showCount();
        } else if (Object.keys(filter()).length > 0) {
            follow.later();
        } else {
            arrived.push(entry);
            if (arrived.length > most) arrived = arrived.slice(-most);
            takeArrived.later();
        }
    }

    const attempt = attempts(context, () => reload());

    function exportHAR() {
        text('journal.har').then(archive => download('journal.har', 'application/json', archive), report);
    }

    async function clear() {
        const answer = await ask({ title: 'Clear the journal?', dangerous: true, accept: 'Clear',
            text: 'All its entries go, for everybody who looks at this namespace.' });
        if (!answer) return;
        location.hash = '#/journal';
        await attempt(() => call('DELETE', 'journal'), 'The journal is empty.');
    }

    async function open(id) {
        openedID = id;
        root.classList.toggle('is-open', id !== null);
        if (id === null) {
            list.mark(null);
            opened.replaceChildren(element('p', { class: 'empty' },
                'Choose a request to see it beside its reply. The arrow keys go through the list.'));
            return;
        }
        list.mark(id);
        try {
            const entry = await call('GET', `journal/${id}`);
            if (openedID !== id) return;
            opened.replaceChildren(element('div', {}, exchange(entry, fault => faultNames.get(fault))));
            opened.parentElement.scrollTop = 0;
            if (wantsFocus) opened.querySelector('h2').focus();
        } catch (failure) {
            if (openedID !== id) return;
            opened.replaceChildren(element('p', { class: 'empty' }, failure.status === 404
                ? 'This entry is no longer in the journal.' : failure.message));
        }
        wantsFocus = false;
    }

    opened.parentElement.addEventListener('keydown', event => {
        if (event.key !== 'Escape') return;
        if (list.element.offsetParent) list.element.focus();
        else location.hash = '#/journal';
    });

    async function learnFaults() {
        try {
            const { faults } = await call('GET', 'faults');
            for (const each of faults) faultNames.set(each.id, each.name);
        } catch {
            // A service without faults has none that acted.
        }
    }

    learnFaults();
    operations().then(names => {
        names.forEach(name => known.operation.add(name));
        fields.get('operation').suggest([...known.operation].sort());
    }).catch(report);

    return {
        title: 'Journal',
        element: root,
        async show([id], parameters) {
            if (parameters.size > 0) {
                filters.reset();
                for (const [name, value] of parameters)
                    if (fields.has(name)) fields.get(name).input.value = value;
                history.replaceState(null, '', id ? `#/journal/${id}` : '#/journal');
                await reload();
            }
            await open(/^[0-9]+$/.test(id ?? '') ? Number(id) : null);
        },
        refresh: reload,
        on: { request: onRequest, faults: learnFaults, reset: reload },
    };
}
