// How the page makes elements. Whatever is put into one becomes text, never markup.

import { visible } from './text.js';

/** An element with its attributes and children.
 *
 * An attribute that is false, null or undefined is left out, one that is true has no value, and one
 * that is a function listens to the event of that name. Children are elements, texts, or lists of
 * them; null and undefined are left out.
 */
export function element(name, attributes = {}, ...children) {
    const made = document.createElement(name);
    for (const [attribute, value] of Object.entries(attributes)) {
        if (typeof value === 'function') made.addEventListener(attribute, value);
        else if (value === true) made.setAttribute(attribute, '');
        else if (value !== false && value != null) made.setAttribute(attribute, value);
    }
    made.append(...children.flat(Infinity).filter(child => child != null));
    return made;
}

/** What somebody else wrote: its direction and its hidden characters stay its own. */
export function foreign(text, attributes = {}) {
    return element('bdi', attributes, visible(String(text)));
}

export function button(label, click, attributes = {}) {
    return element('button', { type: 'button', click, ...attributes }, label);
}

/** A field with its label above it. */
export function labelled(label, field, hint) {
    return element('label', { class: 'field' }, element('span', {}, label), field,
        hint ? element('small', {}, hint) : null);
}

/** A text field that suggests some values; `suggest(values)` changes them. */
export function suggestingInput(name, attributes = {}) {
    const list = element('datalist', { id: `suggestions-${name}-${++suggestions}` });
    const input = element('input', { name, list: list.id, autocomplete: 'off', spellcheck: 'false', ...attributes });
    const suggest = values => list.replaceChildren(
        ...values.map(value => element('option', { value })));
    return { input, list, suggest };
}
let suggestions = 0;

/** A form that never sends anything itself: `submit` gets a map of its filled-in fields. */
export function form(attributes, submit, ...children) {
    return element('form', {
        ...attributes,
        submit(event) {
            event.preventDefault();
            submit(valuesOf(event.currentTarget), event.currentTarget);
        },
    }, ...children);
}

/** The fields of a form that have a value. */
export function valuesOf(ofForm) {
    return Object.fromEntries([...new FormData(ofForm)].filter(([, value]) => value !== ''));
}

/** A row of facts; those without a value are left out. */
export function facts(pairs) {
    return element('dl', { class: 'facts' }, pairs
        .filter(([, value]) => value != null && value !== '')
        .map(([name, value]) => element('div', {}, element('dt', {}, name),
            element('dd', {}, value instanceof Node ? value : foreign(value)))));
}

export function badge(text, kind = '') {
    return element('span', { class: `badge ${kind}` }, text);
}

/** Copies a text, and says so. */
export function copyButton(label, text) {
    return button(label, async event => {
        const target = event.currentTarget;
        target.textContent = await copy(text()) ? 'Copied' : 'Not copied';
        target.addEventListener('blur', () => { target.textContent = label; }, { once: true });
    }, { class: 'quiet' });
}

async function copy(text) {
    // Browsers have the clipboard on this computer's addresses and over https only.
    if (navigator.clipboard) return navigator.clipboard.writeText(text).then(() => true, () => false);
    const area = element('textarea', { class: 'unseen' }, text);
    document.body.append(area);
    area.select();
    const isCopied = document.execCommand('copy');
    area.remove();
    return isCopied;
}

/** Gives the user a file. */
export function download(name, type, text) {
    const url = URL.createObjectURL(new Blob([text], { type }));
    element('a', { href: url, download: name }).click();
    URL.revokeObjectURL(url);
}

/** Asks in a dialog. Resolves to the filled-in fields, or to null if the user declined. */
export function ask({ title, text, fields = [], accept, dangerous = false }) {
    return new Promise(resolve => {
        let answer = null;
        const dialog = element('dialog', { 'aria-label': title, close() { dialog.remove(); resolve(answer); } },
            form({}, values => { answer = values; dialog.close(); },
                element('h2', {}, title),
                text ? element('p', {}, text) : null,
                fields,
                element('div', { class: 'actions' },
                    button('Cancel', () => dialog.close(), { class: 'quiet' }),
                    element('button', { class: dangerous ? 'dangerous' : 'main' }, accept))));
        document.body.append(dialog);
        dialog.showModal();
    });
}
