// The service's clock: shown, frozen, set and moved.

import { call, has } from './api.js';
import { button, element, form, labelled } from './dom.js';
import { serviceTime, setServiceTime } from './time.js';
import { attempts, coalesced } from './work.js';
import { duration, utc } from './text.js';

const steps = [['−1 day', -86400], ['−1 hour', -3600], ['+1 min', 60], ['+1 hour', 3600], ['+1 day', 86400]];

/** Shows the service's time as long as the page lives. */
function ticking(target) {
    const tick = () => { target.textContent = utc(serviceTime()); };
    setInterval(tick, 1000);
    return tick;
}

export async function clockPanel(context) {
    if (!await has('clock')) return null;

    const attempt = attempts(context, () => reload());
    const shown = element('span', { class: 'clock' });
    const tick = ticking(shown);
    const standing = element('p', {});
    let clock = { frozen: false, offsetSeconds: 0 };
    const frozen = button('Freeze', () => attempt(() => call('PUT', 'clock', { frozen: !clock.frozen })),
        { 'aria-pressed': 'false' });
    const back = button('Back to the system’s time', () => attempt(async () => {
        const { offsetSeconds } = await call('PUT', 'clock', { frozen: false });
        await call('POST', 'clock/advance', { seconds: -offsetSeconds });
    }, 'The clock follows the system’s again.'), { class: 'quiet' });

    const advance = seconds => attempt(() => call('POST', 'clock/advance', { seconds }));
    const root = element('section', { class: 'page', 'aria-label': 'Clock' },
        element('section', { class: 'block' }, element('h2', {}, 'The service’s clock'),
            element('p', { class: 'clock-line' }, shown, ' UTC'), standing,
            element('p', {}, 'The expiry of tokens and all time stamps follow it.'),
            element('div', { class: 'bar' }, frozen, back)),
        element('section', { class: 'block' }, element('h2', {}, 'Move it'),
            element('div', { class: 'bar' }, steps.map(([label, seconds]) => button(label, () => advance(seconds)))),
            form({ class: 'inline' }, ({ seconds }) => advance(Number(seconds)),
                labelled('By', element('input', { name: 'seconds', type: 'number', step: 'any', required: true }), 'seconds'),
                element('button', {}, 'Move'))),
        element('section', { class: 'block' }, element('h2', {}, 'Set it'),
            form({ class: 'inline' }, ({ now }) => attempt(
                () => call('PUT', 'clock', { now: new Date(`${now}Z`).toISOString() }), 'The clock is set.'),
            labelled('Time', element('input', { name: 'now', type: 'datetime-local', step: '1', required: true }), 'UTC'),
            element('button', {}, 'Set'))));

    const reload = coalesced(async () => {
        clock = await call('GET', 'clock');
        setServiceTime(clock);
        tick();
        const ahead = Math.round(clock.offsetSeconds ?? 0);
        standing.textContent = clock.frozen ? 'It stands still.'
            : ahead === 0 ? 'It runs with the system’s.'
                : `It runs, ${duration(Math.abs(ahead))} ${ahead > 0 ? 'ahead of' : 'behind'} the system’s.`;
        frozen.textContent = clock.frozen ? 'Let it run' : 'Freeze';
        frozen.setAttribute('aria-pressed', Boolean(clock.frozen));
        back.hidden = !clock.frozen && ahead === 0;
    }, context.report);

    return { title: 'Clock', element: root, async show() {}, refresh: reload, on: { clock: reload, reset: reload.later } };
}
