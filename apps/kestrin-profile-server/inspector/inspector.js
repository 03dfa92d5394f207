// The page as a whole: its panels, which of them is shown, and what keeps them up to date.

import { call, listen } from './api.js';
import { clockPanel } from './clock.js';
import { element } from './dom.js';
import { faultsPanel } from './faults.js';
import { householdsPanel } from './households.js';
import { journalPanel } from './journal.js';
import { namespaceChooser } from './namespaces.js';
import { statePanel } from './state.js';
import { counted, utc, visible } from './text.js';
import { refreshDates, serviceTime, setServiceTime } from './time.js';

const place = name => document.getElementById(name);

/** Tells of a failure, until the next thing succeeds. */
function report(failure) {
    place('problem').textContent = visible(failure.status === 401
        ? 'Without the admin secret there is nothing to show. Reload the page to be asked again.'
        : failure instanceof TypeError ? `The service does not answer. ${failure.message}` : failure.message);
    place('problem').hidden = false;
}

function done(words) {
    place('problem').hidden = true;
    place('notice').textContent = visible(words);
}

/** How often new requests are announced to those who listen to the page. */
const announcementPause = 10000;
let unannounced = 0;

function announce(count) {
    unannounced += count;
}

function announceNow() {
    if (unannounced === 0) return;
    place('announcement').textContent = counted(unannounced, 'new request');
    unannounced = 0;
}

const makers = { journal: journalPanel, households: householdsPanel, faults: faultsPanel, state: statePanel, clock: clockPanel };
const panels = new Map();
/** Panels that missed something while they were hidden, or were never filled. */
const stale = new Set();
let current = null;
/** Counts the addresses that were gone to, so that a slow one gives way to the next. */
let addresses = 0;

/** The panel, its further path and parameters that an address like #/journal/12?profile=p1 names. */
function route() {
    const [path, query = ''] = location.hash.replace(/^#\/?/, '').split('?', 2);
    const [name, ...rest] = path.split('/').filter(part => part !== '').map(part => {
        try {
            return decodeURIComponent(part);
        } catch {
            return part;
        }
    });
    return { name: panels.has(name) ? name : panels.keys().next().value, rest, parameters: new URLSearchParams(query) };
}

async function showRoute() {
    const { name, rest, parameters } = route();
    const panel = panels.get(name);
    if (!panel) return;
    current = name;
    addresses += 1;
    const address = addresses;
    for (const [each, { element: shown, link }] of panels) {
        shown.hidden = each !== name;
        if (each === name) link.setAttribute('aria-current', 'page');
        else link.removeAttribute('aria-current');
    }
    document.title = `${panel.title} – Inspector`;
    try {
        if (stale.delete(name)) await panel.refresh();
        if (address === addresses) await panel.show(rest, parameters);
    } catch (failure) {
        report(failure);
    }
}

/** The journal takes every event; the others wait until somebody looks. */
function receive({ type, data }) {
    let value = null;
    try {
        value = JSON.parse(data);
    } catch {
        // Only the name of such an event counts.
    }
    for (const [name, panel] of panels) {
        if (!panel.on[type]) continue;
        if (name === 'journal' || name === current) panel.on[type](value);
        else stale.add(name);
    }
    if (type === 'clock' || type === 'reset') learnStatus();
}

async function learnStatus() {
    try {
        const [status, clock] = await Promise.all([call('GET', 'status'),
            call('GET', 'clock').catch(() => null)]);
        setServiceTime(clock ?? { now: status.now, frozen: false });
        place('connection').title = `Version ${status.version}${status.strict ? ', strict' : ''}`;
        place('time').hidden = false;
        showTime();
    } catch (failure) {
        report(failure);
    }
}

function showTime() {
    place('time').textContent = `${utc(serviceTime())} UTC`;
}

const connectionWords = { live: 'Live', connecting: 'Connecting…', absent: 'Not live', refused: 'No secret' };
let connection = null;

async function onConnection(state) {
    connection = state;
    if (state === 'live') {
        place('problem').hidden = true;
        // What happened before was missed.
        for (const name of panels.keys()) stale.add(name);
        await Promise.all([learnStatus(), showRoute()]);
    }
    if (connection !== state) return;
    place('connection').dataset.state = state;
    place('connection').textContent = connectionWords[state];
}

async function start() {
    place('panels').append(element('p', { class: 'empty' }, 'Loading…'));
    const context = { report, done, announce };
    const made = await Promise.all(Object.entries(makers).map(async ([name, make]) => [name, await make(context)]));
    place('panels').replaceChildren(element('p', { id: 'announcement', class: 'unseen', role: 'status' }));
    for (const [name, panel] of made) {
        if (panel === null) continue;
        panel.link = element('a', { href: `#/${name}` }, panel.title);
        panel.element.hidden = true;
        panels.set(name, panel);
        stale.add(name);
        place('navigation').append(panel.link);
        place('panels').append(panel.element);
    }
    addEventListener('hashchange', showRoute);
    // Its address would be taken for a panel's.
    document.querySelector('.skip').addEventListener('click', event => {
        event.preventDefault();
        place('panels').focus();
    });
    setInterval(showTime, 1000);
    setInterval(refreshDates, 15000);
    setInterval(announceNow, announcementPause);
    listen(receive, onConnection);
    await Promise.all([learnStatus(), showRoute(), namespaceChooser(place('namespaces'), context)]);
}

start().catch(report);
