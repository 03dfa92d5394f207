// The namespaces: which one this page shows, and the way to the others.

import { base, callRoot, root } from './api.js';
import { ask, button, element, labelled } from './dom.js';

/** The page of a namespace. Its path counts, not its host: that may be another computer's name for
 * this service. */
function pageOf(namespace) {
    const path = new URL(namespace.baseUrl).pathname.replace(/\/*$/, '/');
    return new URL(`${path}admin/`, root).href;
}

/** Fills the chooser in the head of the page; stays empty if the service has no namespaces. */
export async function namespaceChooser(place, { report }) {
    const list = await callRoot('GET', 'namespaces').catch(failure => {
        if (failure.status === 404) return null;
        throw failure;
    });
    if (list === null) return;
    const own = new URL('admin/', base).href;
    const chooser = element('select', { 'aria-label': 'Namespace',
        change: event => location.assign(event.currentTarget.value) },
    list.namespaces.map(each => {
        const page = pageOf(each);
        return element('option', { value: page, selected: page === own }, each.name || 'default');
    }));

    async function make() {
        const answer = await ask({ title: 'A new namespace', accept: 'Make it',
            text: 'It has households, faults, a clock and a journal of its own.',
            fields: [labelled('Name', element('input', { name: 'name', required: true, autocomplete: 'off',
                maxlength: '64', pattern: '[A-Za-z0-9._\\-]+', autofocus: true }), 'letters, digits, dots, underscores and hyphens')] });
        if (!answer) return;
        try {
            location.assign(pageOf(await callRoot('POST', 'namespaces', { name: answer.name })));
        } catch (failure) {
            report(failure);
        }
    }

    async function remove() {
        const namespace = chooser.selectedOptions[0].textContent;
        if (!await ask({ title: `Delete the namespace “${namespace}”?`, accept: 'Delete', dangerous: true,
            text: 'Everything in it goes.' })) return;
        try {
            await callRoot('DELETE', `namespaces/${encodeURIComponent(namespace)}`);
            location.assign(new URL('admin/', root).href);
        } catch (failure) {
            report(failure);
        }
    }

    place.replaceChildren(chooser, button('New…', make, { class: 'quiet', 'aria-label': 'New namespace' }),
        ...(base.href === root.href ? [] : [button('Delete…', remove, { class: 'quiet', 'aria-label': 'Delete this namespace' })]));
    place.hidden = false;
}
