// A list of many rows of which only those in sight exist.

import { element } from './dom.js';

const beyondSight = 8;

/** Shows entries, the newest on top. The arrow keys, Page Up and Down, Home and End choose one.
 *
 * Entries have an `id` that grows. The oldest go when there are more than `most`.
 */
export class RowList {
    /**
     * @param label  what the list is, for assistive technology
     * @param row  makes the content of an entry's row: `{label, content}`
     * @param choose  is told the entry that the user chooses, and whether it was opened with Enter
     */
    constructor({ label, row, choose, most }) {
        this.entries = [];
        this.chosen = null;
        this.row = row;
        this.choose = choose;
        this.most = most;
        this.shown = new Map();
        this.pushedDown = 0;
        this.ruler = element('div', { class: 'row ruler', 'aria-hidden': 'true' });
        this.space = element('div', { class: 'rows-space', role: 'presentation' }, this.ruler);
        this.element = element('div', {
            class: 'rows', role: 'listbox', tabindex: '0', 'aria-label': label,
            scroll: () => this.render(),
            keydown: event => this.onKey(event),
            click: event => this.onClick(event),
        }, this.space);
        new ResizeObserver(() => this.onResize()).observe(this.element);
    }

    /** Shows these entries, oldest first, and no others. */
    replace(entries) {
        this.entries = entries.slice(-this.most);
        this.pushedDown = 0;
        for (const id of [...this.shown.keys()]) this.drop(id);
        this.element.scrollTop = 0;
        this.renderSoon();
    }

    /** Adds newer entries, oldest first. What the user looks at stays where it is. */
    add(entries) {
        const before = this.entries.length;
        for (const each of entries) this.insert(each);
        const added = this.entries.length - before;
        if (this.entries.length > this.most) this.entries.splice(0, this.entries.length - this.most);
        this.pushedDown += added;
        this.renderSoon();
        return added;
    }

    insert(entry) {
        const place = this.firstFrom(entry.id);
        if (this.entries[place]?.id !== entry.id) this.entries.splice(place, 0, entry);
    }

    /** Marks the entry as the chosen one, if it is there, without telling anybody. */
    mark(id) {
        this.chosen = id;
        const place = this.placeOf(id);
        if (place >= 0) this.scrollTo(place);
        this.renderSoon();
    }

    renderSoon() {
        this.isRenderWanted ||= requestAnimationFrame(() => this.render());
    }

    onResize() {
        this.height = 0;
        this.renderSoon();
    }

    rowHeight() {
        this.height ||= this.ruler.getBoundingClientRect().height;
        return this.height;
    }

    /** The index of the first entry whose id is not smaller. */
    firstFrom(id) {
        let [low, high] = [0, this.entries.length];
        if (high === 0 || this.entries[high - 1].id < id) return high;
        while (low < high) {
            const middle = (low + high) >> 1;
            if (this.entries[middle].id < id) low = middle + 1;
            else high = middle;
        }
        return low;
    }

    /** An entry's place from the top; -1 if it is not there. */
    placeOf(id) {
        const index = id == null ? this.entries.length : this.firstFrom(id);
        return this.entries[index]?.id === id ? this.entries.length - 1 - index : -1;
    }

    at(place) {
        return this.entries[this.entries.length - 1 - place];
    }

    render() {
        cancelAnimationFrame(this.isRenderWanted);
        this.isRenderWanted = 0;
        const height = this.rowHeight();
        if (height === 0) return;
        this.space.style.height = `${this.entries.length * height}px`;
        if (this.pushedDown > 0 && this.element.scrollTop > 0)
            this.element.scrollTop += this.pushedDown * height;
        this.pushedDown = 0;
        const first = Math.max(0, Math.floor(this.element.scrollTop / height) - beyondSight);
        const last = Math.min(this.entries.length,
            Math.ceil((this.element.scrollTop + this.element.clientHeight) / height) + beyondSight);
        this.renderRange(first, last, height);
        if (this.shown.has(this.chosen))
            this.element.setAttribute('aria-activedescendant', `row-${this.chosen}`);
        else this.element.removeAttribute('aria-activedescendant');
    }

    renderRange(first, last, height) {
        const inSight = new Set();
        for (let place = first; place < last; ++place) inSight.add(this.at(place).id);
        for (const id of [...this.shown.keys()]) if (!inSight.has(id)) this.drop(id);
        for (let place = first; place < last; ++place) {
            const entry = this.at(place);
            const row = this.shown.get(entry.id) ?? this.make(entry);
            row.style.transform = `translateY(${place * height}px)`;
            row.setAttribute('aria-posinset', place + 1);
            row.setAttribute('aria-setsize', this.entries.length);
            row.setAttribute('aria-selected', entry.id === this.chosen);
        }
    }

    make(entry) {
        const { label, content } = this.row(entry);
        const row = element('div', {
            class: 'row', role: 'option', id: `row-${entry.id}`, 'aria-label': label }, content);
        row.entryID = entry.id;
        this.shown.set(entry.id, row);
        this.space.append(row);
        return row;
    }

    drop(id) {
        this.shown.get(id).remove();
        this.shown.delete(id);
    }

    scrollTo(place) {
        const height = this.rowHeight();
        const top = place * height;
        if (top < this.element.scrollTop) this.element.scrollTop = top;
        const below = top + height - this.element.clientHeight;
        if (below > this.element.scrollTop) this.element.scrollTop = below;
    }

    onClick(event) {
        const id = event.target.closest('[role=option]')?.entryID;
        if (id !== undefined) this.pick(this.placeOf(id), true);
    }

    pick(place, isOpened) {
        const entry = this.at(place);
        if (!entry) return;
        this.mark(entry.id);
        this.render();
        this.choose(entry, isOpened);
    }

    onKey(event) {
        const page = Math.max(1, Math.floor(this.element.clientHeight / (this.rowHeight() || 1)) - 1);
        const last = this.entries.length - 1;
        const now = this.placeOf(this.chosen);
        const places = {
            ArrowDown: now + 1, ArrowUp: now < 0 ? 0 : now - 1,
            PageDown: now + page, PageUp: now - page, Home: 0, End: last, Enter: now, ' ': now,
        };
        if (!(event.key in places) || event.altKey || event.ctrlKey || event.metaKey) return;
        event.preventDefault();
        if (last >= 0)
            this.pick(Math.min(Math.max(places[event.key], 0), last),
                event.key === 'Enter' || event.key === ' ');
    }
}
