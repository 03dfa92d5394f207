// One request beside its reply.

import { badge, button, copyButton, element, facts, foreign } from './dom.js';
import { profileAddress } from './households.js';
import { bytes, counted, indentedJSON, milliseconds, parametersOf, shortOperation, visible } from './text.js';

export function statusBadge(status) {
    if (status == null) return badge('no reply', 'bad');
    const kind = status >= 500 ? 'bad' : status >= 400 ? 'warning' : 'good';
    return badge(String(status), kind);
}

/** The fault that acted, as a link to the switches. */
function faultLink(entry, nameOf) {
    if (entry.fault == null) return null;
    const name = nameOf(entry.fault);
    return element('a', { href: '#/faults' }, foreign(name ? `${name} (${entry.fault})` : `number ${entry.fault}`));
}

function findings(list) {
    if (!list?.length) return null;
    return element('section', { class: 'findings' },
        element('h3', {}, counted(list.length, 'finding')),
        element('ul', {}, list.map(each => element('li', {},
            element('strong', {}, foreign(each.code)), ' ', foreign(each.detail ?? '')))));
}

function parameters(target) {
    const all = parametersOf(target);
    if (all.length === 0) return null;
    return [element('h4', {}, 'Parameters'), pairs(all)];
}

function pairs(all) {
    return element('table', { class: 'pairs' }, element('tbody', {}, all.map(([name, value]) =>
        element('tr', {}, element('th', { scope: 'row' }, foreign(name)), element('td', {}, foreign(value))))));
}

function headers(list) {
    return [element('h4', {}, 'Headers'),
        list?.length ? pairs(list.map(each => [each.name, each.value]))
            : element('p', { class: 'empty' }, 'None')];
}

function contentOf(message) {
    if (message.body != null) return message.body;
    return message.bodyBase64 ?? '';
}

function bodyNotes(message) {
    const notes = [bytes(message.bodyBytes ?? 0)];
    if (message.bodyBase64 != null) notes.push('not UTF-8, shown as Base64');
    if (message.truncated) notes.push('only its beginning was kept');
    return notes.join(' · ');
}

function body(message, label) {
    const sent = contentOf(message);
    if (sent === '') return [element('h4', {}, 'Body'), element('p', { class: 'empty' },
        message.bodyBytes ? `${bytes(message.bodyBytes)}, not kept` : 'None')];
    const formatted = message.body != null ? indentedJSON(sent) : null;
    const text = element('pre', { class: 'body', tabindex: '0', 'aria-label': `${label} body`, dir: 'ltr' },
        visible(formatted ?? sent));
    const asSent = formatted === null ? null : button('As sent', event => {
        const isAsSent = event.currentTarget.getAttribute('aria-pressed') !== 'true';
        event.currentTarget.setAttribute('aria-pressed', isAsSent);
        text.textContent = visible(isAsSent ? sent : formatted);
    }, { class: 'quiet', 'aria-pressed': 'false' });
    return [element('div', { class: 'body-title' }, element('h4', {}, 'Body'),
        element('small', {}, bodyNotes(message)), asSent, copyButton('Copy', () => sent)), text];
}

function side(title, message, more) {
    return element('section', { class: 'side', 'aria-label': title }, element('h3', {}, title),
        message ? [more, headers(message.headers), body(message, title)]
            : element('p', { class: 'empty' }, 'None was sent.'));
}

/** Everything about an entry of the journal.
 * @param nameOf  the name of a fault by its id, if it has one and is still there
 */
export function exchange(entry, nameOf) {
    const rule = new URLSearchParams();
    for (const name of ['operation', 'profile', 'household']) if (entry[name] != null) rule.set(name, entry[name]);
    return [
        element('h2', { class: 'target', tabindex: '-1' }, badge(entry.method), ' ', foreign(entry.target)),
        facts([
            ['Status', statusBadge(entry.status)],
            ['Problem', entry.problem],
            ['Operation', entry.operation && shortOperation(entry.operation)],
            ['Profile', entry.profile != null
                ? element('a', { href: profileAddress(entry.profile, entry.household) }, foreign(entry.profile)) : null],
            ['Household', entry.household],
            ['Item', entry.item],
            ['Time', element('time', { datetime: entry.time }, entry.time)],
            ['Took', milliseconds(entry.milliseconds)],
            ['Fault that acted', faultLink(entry, nameOf)],
            ['Connection', entry.connection],
            ['Request ID', entry.requestId],
            ['Entry', entry.id],
        ]),
        findings(entry.findings),
        element('div', { class: 'sides' },
            side('Request', entry.request, parameters(entry.target)),
            side('Reply', entry.status == null ? null : entry.reply, null)),
        entry.operation ? element('p', {},
            element('a', { href: `#/faults?${rule}` }, 'Let the next request like this fail…')) : null,
    ];
}
