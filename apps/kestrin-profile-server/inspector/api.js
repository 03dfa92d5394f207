// The service's admin interface, and the events that it sends.

import { ask, element, labelled } from './dom.js';

const secretKey = 'kestrin-inspector-secret';

/** Where the admin interface of this page's namespace begins. */
const admin = new URL('.', document.baseURI);

/** The address of the service without its namespace. */
export const root = new URL(admin.pathname.replace(/(?:n\/[^/]+\/)?admin\/$/, ''), admin);

/** The namespace's base URL, with a slash at its end. */
export const base = new URL('..', admin);

/** What the service refused, with its words. */
export class Refusal extends Error {
    constructor(status, problem) {
        super(problem?.detail ?? problem?.title ?? `the service answered ${status}`);
        this.status = status;
        this.problem = problem;
    }
}

let question = null;
let isDeclined = false;

/** Asks for the secret; once, however many requests need it, and not again after a no. */
function askForSecret(wasWrong) {
    if (isDeclined) return Promise.resolve(false);
    question ??= ask({
        title: 'This service asks for its admin secret',
        text: (wasWrong ? 'That was not the secret. ' : '') +
            'It is the first line of the file that --admin-secret-file named. ' +
            'It is kept until this tab is closed.',
        fields: [labelled('Admin secret', element('input', {
            name: 'secret', type: 'password', autocomplete: 'off', required: true, autofocus: true }))],
        accept: 'Continue',
    }).then(answer => {
        if (answer) sessionStorage.setItem(secretKey, answer.secret);
        isDeclined = answer === null;
        return !isDeclined;
    }).finally(() => { question = null; });
    return question;
}

/** A reply of the service, whatever its status is, except that 401 asks for the secret first. */
async function send(method, url, body, more = {}) {
    for (;;) {
        const secret = sessionStorage.getItem(secretKey);
        const headers = { ...more.headers };
        if (secret !== null) headers.Authorization = `Bearer ${secret}`;
        if (body !== undefined) headers['Content-Type'] = 'application/json';
        const reply = await fetch(url, {
            method, headers, signal: more.signal, cache: 'no-store', credentials: 'omit', redirect: 'error',
            body: body === undefined ? undefined : JSON.stringify(body),
        });
        if (reply.status !== 401) return reply;
        // Another request may have been given the right one in the meantime.
        const isNew = sessionStorage.getItem(secretKey) !== secret;
        if (!isNew && !await askForSecret(secret !== null)) return reply;
    }
}

async function checked(reply) {
    if (reply.ok) return reply;
    throw new Refusal(reply.status, await reply.json().catch(() => null));
}

function callerOf(address) {
    return async (method, path, body) => {
        const reply = await checked(await send(method, new URL(path, address), body));
        return reply.status === 204 ? null : reply.json();
    };
}

/** Sends a request to the admin interface of this namespace: method, path below `admin/v1/` and,
 * perhaps, a body. Resolves to the reply's JSON. */
export const call = callerOf(new URL('v1/', admin));

/** The same for the default namespace, which alone knows the others. */
export const callRoot = callerOf(new URL('admin/v1/', root));

/** The text of something below the admin interface. */
export async function text(path) {
    return (await checked(await send('GET', new URL(`v1/${path}`, admin)))).text();
}

/** Whether the service has this at all. */
export async function has(path) {
    const reply = await send('GET', new URL(`v1/${path}`, admin));
    await reply.body?.cancel();
    return reply.status !== 404;
}

/** The names of the protocol's operations, as far as the service describes itself. */
export async function operations() {
    const reply = await send('GET', new URL('openapi.json', base));
    if (!reply.ok) return [];
    const description = await reply.json();
    return Object.entries(description.paths ?? {})
        .filter(([path]) => path.startsWith('/v1/'))
        .flatMap(([, methods]) => Object.values(methods).map(each => each?.operationId))
        .filter(name => typeof name === 'string');
}

/** Events out of a stream of text: give it what has come, it calls `receive({type, data})`. */
export function eventReader(receive) {
    let rest = '';
    let event = { type: 'message', data: [] };
    const take = line => {
        const [, field, value] = /^([^:]*)(?::(?: )?(.*))?$/s.exec(line);
        if (line === '') {
            if (event.data.length > 0) receive({ type: event.type, data: event.data.join('\n') });
            event = { type: 'message', data: [] };
        } else if (field === 'event') event.type = value ?? '';
        else if (field === 'data') event.data.push(value ?? '');
    };
    return piece => {
        const lines = (rest + piece).split(/\r\n|\n|\r(?!$)/);
        rest = lines.pop();
        lines.forEach(take);
    };
}

async function readEvents(receive, isOpen, signal) {
    const reply = await checked(await send('GET', new URL('v1/events', admin), undefined,
        { headers: { Accept: 'text/event-stream' }, signal }));
    isOpen();
    const read = eventReader(receive);
    const pieces = reply.body.pipeThrough(new TextDecoderStream()).getReader();
    for (let piece = await pieces.read(); !piece.done; piece = await pieces.read()) read(piece.value);
}

const longestPause = 5000;

/** Receives events as long as the page lives, over as many connections as that takes.
 * @param receive  gets each event
 * @param state  gets 'live' whenever a connection begins, 'connecting' when it ended, and 'absent' if
 *     the service has no events, 'refused' without the secret
 */
export async function listen(receive, state) {
    for (let pause = 250; ; pause = Math.min(pause * 2, longestPause)) {
        try {
            await readEvents(receive, () => { pause = 250; state('live'); });
        } catch (failure) {
            if (failure.status === 404) return state('absent');
            if (failure.status === 401) return state('refused');
        }
        state('connecting');
        await new Promise(resolve => { setTimeout(resolve, pause); });
    }
}
