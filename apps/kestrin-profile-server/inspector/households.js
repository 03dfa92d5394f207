// The households: their profiles, and all four lists of one of them.

import { call, has } from './api.js';
import { badge, button, copyButton, element, facts, foreign, form, labelled } from './dom.js';
import { dateOf } from './time.js';
import { attempts, coalesced } from './work.js';
import { counted, grouped, playerTime } from './text.js';

/** The lists in the order of their importance, each with its title and what an entry of it is. */
const lists = [['history', 'History', 'video'], ['favorites', 'Favourites', 'show'],
    ['watchlist', 'Watch list', 'video'], ['searches', 'Searches', 'search']];

/** How many entries of a list are shown at first, and more at a time. */
const portion = 50;

/** The address of a profile's lists. Two households may have profiles of the same id.
 * @param household  its name, if it is known
 */
export function profileAddress(profileID, household) {
    return `#/households/${encodeURIComponent(profileID)}${ofHousehold(household)}`;
}

function ofHousehold(name) {
    return name == null ? '' : `?${new URLSearchParams({ household: name })}`;
}

const initialOf = name => [...(name ?? '').trim()][0]?.toUpperCase() ?? '?';

function face(profile) {
    return element('span', { class: 'face', 'aria-hidden': 'true' }, initialOf(profile.username));
}

function badges(profile, parentID) {
    return [profile.profileId === parentID ? badge('parent') : null,
        profile.default ? badge('default', 'good') : null,
        profile.blocked ? badge('blocked', 'bad') : null];
}

function card(household, profile) {
    return element('li', {}, element('a', { class: 'card', href: profileAddress(profile.profileId, household.id),
        'data-profile': profile.profileId, 'data-household': household.id },
    face(profile),
    element('span', { class: 'card-name' }, foreign(profile.username), ' ', badges(profile, household.parentProfileId)),
    element('span', { class: 'card-id' }, foreign(profile.profileId)),
    element('span', { class: 'card-counts' }, lists.filter(([name]) => profile.counts?.[name] > 0)
        .map(([name, title]) => element('span', {}, `${title} ${grouped(profile.counts[name])}`)))));
}

function householdSection(household) {
    return element('section', { class: 'household' },
        element('h2', {}, foreign(household.id), ' ',
            element('small', {}, counted(household.profiles.length, 'profile'))),
        element('ul', { class: 'cards' }, household.profiles.map(profile => card(household, profile))));
}

/** How far a video was watched. Its length is not known, so no share of it is shown. */
function progress(item) {
    if (item.progress == null && item.isCompleted == null) return null;
    const at = item.progress != null
        ? element('span', { class: 'progress', title: `${item.progress} s` }, playerTime(item.progress)) : null;
    return element('span', { class: 'watched' }, at,
        item.isCompleted === true ? badge('finished', 'good') : item.isCompleted === false ? badge('not finished') : null);
}

function entry(item, hasBrands) {
    return element('li', { class: 'item' },
        element('span', { class: 'item-name' }, foreign(item.id ?? item.videoId ?? item.showId ?? item.term ?? '')),
        element('span', { class: 'item-facts' },
            progress(item),
            item.type != null ? element('span', { class: 'type' }, foreign(item.type)) : null,
            hasBrands && item.brand != null ? element('span', { class: 'type' }, 'brand ', foreign(item.brand)) : null,
            item.autoAddTimestamp ? dateOf(item.autoAddTimestamp) : null));
}

function listSection([name, title, kind], profile, shownCounts) {
    const items = profile[name] ?? [];
    const hasBrands = new Set(items.map(each => each.brand)).size > 1;
    const shown = Math.min(shownCounts.get(name) ?? portion, items.length);
    const rows = element('ol', { class: 'items', 'aria-label': title },
        items.slice(0, shown).map(each => entry(each, hasBrands)));
    const more = shown < items.length ? button('', showMore, { class: 'quiet more' }) : null;
    function label() {
        const left = items.length - rows.children.length;
        more.textContent = `Show ${grouped(Math.min(portion, left))} more of ${grouped(left)}`;
        more.hidden = left === 0;
    }
    function showMore() {
        const from = rows.children.length;
        rows.append(...items.slice(from, from + portion).map(each => entry(each, hasBrands)));
        shownCounts.set(name, rows.children.length);
        label();
    }
    if (more) label();
    return element('section', { class: 'list', 'data-list': name },
        element('h3', {}, title, ' ', element('small', {}, counted(items.length, kind, kind === 'search' ? 'searches' : undefined))),
        items.length > 0 ? [rows, more] : element('p', { class: 'empty' }, 'Empty'));
}

function tokenForm(profileID, household, report) {
    const result = element('div', { class: 'token', 'aria-live': 'polite' });
    return element('details', { class: 'tool' }, element('summary', {}, 'Get a token…'),
        form({ class: 'inline' }, async ({ seconds }) => {
            try {
                const made = await call('POST', 'tokens', { profileId: profileID,
                    ...(household === null ? {} : { household }), ...(seconds === undefined ? {} : { expiresInSeconds: Number(seconds) }) });
                result.replaceChildren(element('code', {}, foreign(made.token)), ' ',
                    copyButton('Copy', () => made.token),
                    element('small', {}, `Expires ${made.expiresAt}`));
            } catch (failure) {
                report(failure);
            }
        },
        labelled('Valid for', element('input', { name: 'seconds', type: 'number', step: '1', placeholder: 'as usual' }),
            'seconds; a negative number: it has expired already'),
        element('button', { class: 'main' }, 'Make it')), result);
}

export async function householdsPanel(context) {
    const { report } = context;
    const attempt = attempts(context, () => reload());
    if (!await has('households')) return null;

    const overview = element('div', { class: 'listing' });
    const opened = element('div', { class: 'opened-content' });
    const root = element('section', { class: 'split households', 'aria-label': 'Households' }, overview,
        element('article', { class: 'opened', 'aria-label': 'One profile' },
            element('a', { class: 'back', href: '#/households' }, '← All profiles'), opened));
    let households = [];
    let openedID = null;
    let openedHousehold = null;
    let shownCounts = new Map();
    // Kept, so that what is typed into it stays when the lists change.
    let tool = null;

    function markOpened() {
        const isOpened = ({ dataset }) => dataset.profile === openedID
            && (openedHousehold === null || dataset.household === openedHousehold);
        for (const link of overview.querySelectorAll('a.card')) {
            if (isOpened(link)) link.setAttribute('aria-current', 'true');
            else link.removeAttribute('aria-current');
        }
    }

    const pathOf = (profileID, rest = '') =>
        `profiles/${encodeURIComponent(profileID)}${rest}${ofHousehold(openedHousehold)}`;

    function setBlocked(profile, blocked) {
        attempt(() => call('PUT', pathOf(profile.profileId, '/blocked'), { blocked }), blocked
            ? 'The service now answers 403 for this profile.' : 'The profile is no longer blocked.');
    }

    function view(whole) {
        const household = households.find(each => each.id === whole.household);
        return element('div', {},
            element('header', { class: 'person' }, face(whole),
                element('h2', { tabindex: '-1' }, foreign(whole.username)),
                element('span', {}, badges(whole, household?.parentProfileId))),
            facts([['Profile', whole.profileId], ['Household', whole.household], ['Avatar', whole.avatar], ['Group', whole.group]]),
            element('div', { class: 'bar' },
                button(whole.blocked ? 'Unblock' : 'Block', () => setBlocked(whole, !whole.blocked)),
                element('a', { class: 'button', href: `#/journal?profile=${encodeURIComponent(whole.profileId)}` }, 'Its requests'),
                element('a', { class: 'button', href: `#/faults?profile=${encodeURIComponent(whole.profileId)}` }, 'Let its requests fail…')),
            tool,
            element('div', { class: 'lists' }, lists.map(list => listSection(list, whole, shownCounts))));
    }

    const reloadOpened = coalesced(async () => {
        const id = openedID;
        if (id === null) return;
        try {
            const profile = await call('GET', pathOf(id));
            if (openedID === id) opened.replaceChildren(view(profile));
        } catch (failure) {
            if (failure.status !== 404) throw failure;
            if (openedID === id) opened.replaceChildren(element('p', { class: 'empty' }, 'There is no such profile.'));
        }
    }, report);

    const reload = coalesced(async () => {
        ({ households } = await call('GET', 'households'));
        overview.replaceChildren(...households.map(householdSection));
        if (households.length === 0) overview.append(element('p', { class: 'empty' }, 'There is no household.'));
        markOpened();
        await reloadOpened();
    }, report);

    return {
        title: 'Households',
        element: root,
        async show([id = null], parameters) {
            const household = parameters.get('household');
            if (openedID !== id || openedHousehold !== household) {
                shownCounts = new Map();
                tool = id === null ? null : tokenForm(id, household, report);
            }
            openedID = id;
            openedHousehold = household;
            root.classList.toggle('is-open', openedID !== null);
            markOpened();
            if (openedID === null) opened.replaceChildren(element('p', { class: 'empty' }, 'Choose a profile to see its lists.'));
            else await reloadOpened();
        },
        refresh: reload,
        on: { state: reload.later, reset: reload.later },
    };
}
