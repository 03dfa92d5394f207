// Texts for people: times, durations, sizes, and JSON as it was sent.

/** Characters that are not shown, or that change how others are: controls, separators, marks of
 * direction, invisible letters. Line ends and tabs stay, and joiners where a script or an emoji needs
 * them. */
const hidden = /[\u0000-\u0008\u000b-\u001f\u007f-\u009f\u00ad\u034f\u061c\u115f\u1160\u17b4\u17b5\u180b-\u180f\u200b\u200e\u200f\u2028-\u202e\u2060-\u206f\u3164\ufeff\uffa0\ufff0-\ufffb]|(?<=[\u0000-\u007f]|^)[\u200c\u200d\ufe00-\ufe0e]|[\ud800-\udbff](?![\udc00-\udfff])|(?<![\ud800-\udbff])[\udc00-\udfff]/g;

/** A text in which every hidden character is written as its code. */
export function visible(text) {
    return text.replace(hidden, character =>
        `\\u${character.charCodeAt(0).toString(16).padStart(4, '0')}`);
}

/** Seconds as a player shows them: 20:34 or 1:02:03. */
export function playerTime(seconds) {
    if (!Number.isFinite(seconds) || seconds < 0) return `${seconds} s`;
    const [hours, minutes, rest] =
        [Math.floor(seconds / 3600), Math.floor(seconds / 60) % 60, Math.floor(seconds % 60)];
    const padded = number => String(number).padStart(2, '0');
    return hours > 0 ? `${hours}:${padded(minutes)}:${padded(rest)}` : `${minutes}:${padded(rest)}`;
}

/** A time limit in words: 90 → "1 min 30 s". */
export function duration(seconds) {
    const whole = Math.trunc(Math.abs(seconds));
    const parts = [[Math.floor(whole / 86400), 'd'], [Math.floor(whole / 3600) % 24, 'h'],
        [Math.floor(whole / 60) % 60, 'min'], [whole % 60, 's']].filter(([count]) => count > 0);
    const text = parts.map(([count, unit]) => `${count} ${unit}`).join(' ') || '0 s';
    return seconds < 0 && whole > 0 ? `−${text}` : text;
}

export function milliseconds(number) {
    if (number == null) return '';
    if (number >= 10000) return `${(number / 1000).toFixed(1)} s`;
    return `${number >= 100 ? number.toFixed(0) : number.toFixed(1)} ms`;
}

export function bytes(count) {
    if (count < 1024) return `${count} B`;
    if (count < 1024 * 1024) return `${(count / 1024).toFixed(1)} KiB`;
    return `${(count / 1024 / 1024).toFixed(1)} MiB`;
}

const thousands = new Intl.NumberFormat('en');

/** 12345 → 12,345. */
export function grouped(count) {
    return thousands.format(count);
}

/** 1 profile, 2 profiles. */
export function counted(count, singular, plural = `${singular}s`) {
    return `${grouped(count)} ${count === 1 ? singular : plural}`;
}

const relative = new Intl.RelativeTimeFormat('en', { numeric: 'auto' });
const steps = [[60, 'second'], [3600, 'minute', 60], [86400, 'hour', 3600], [7 * 86400, 'day', 86400]];
const day = new Intl.DateTimeFormat('en', { day: 'numeric', month: 'short', year: 'numeric' });

/** "3 minutes ago"; what is more than a week away is a date. */
export function relativeTime(time, now) {
    const seconds = Math.round((time - now) / 1000);
    if (Math.abs(seconds) < 5) return 'just now';
    for (const [limit, unit, length = 1] of steps)
        if (Math.abs(seconds) < limit) return relative.format(Math.trunc(seconds / length), unit);
    return day.format(time);
}

/** The time of day with milliseconds, where the user is. */
export function timeOfDay(time) {
    const padded = (number, digits = 2) => String(number).padStart(digits, '0');
    return `${padded(time.getHours())}:${padded(time.getMinutes())}:${padded(time.getSeconds())}` +
        `.${padded(time.getMilliseconds(), 3)}`;
}

/** Day and time in UTC, to the second: 2026-03-09 18:25:43. */
export function utc(time) {
    return new Date(time).toISOString().slice(0, 19).replace('T', ' ');
}

/** The operation without what all have in common. */
export function shortOperation(name) {
    return name.replace(/^personalization-/, '');
}

/** JSON with a line for each member. Keys that come twice, numbers and escapes stay as they were
 * sent. Null if the text is no JSON. */
export function indentedJSON(text) {
    try {
        JSON.parse(text);
    } catch {
        return null;
    }
    return indented(text.match(/"(?:[^"\\]|\\.)*"|[^\s"{}[\],:]+|[{}[\],:]/g));
}

function indented(tokens) {
    let result = '';
    let depth = 0;
    const newLine = () => `\n${'  '.repeat(depth)}`;
    tokens.forEach((token, at) => {
        if (token === '{' || token === '[') {
            depth += 1;
            const isEmpty = tokens[at + 1] === '}' || tokens[at + 1] === ']';
            result += isEmpty ? token : token + newLine();
        } else if (token === '}' || token === ']') {
            depth -= 1;
            const isEmpty = tokens[at - 1] === '{' || tokens[at - 1] === '[';
            result += isEmpty ? token : newLine() + token;
        } else if (token === ',') {
            result += token + newLine();
        } else {
            result += token === ':' ? ': ' : token;
        }
    });
    return result;
}

/** The parameters of a request's target, decoded where they can be. */
export function parametersOf(target) {
    const query = target.includes('?') ? target.slice(target.indexOf('?') + 1) : '';
    return query.split('&').filter(piece => piece !== '').map(piece => {
        const at = piece.indexOf('=');
        return at < 0 ? [piece, ''] : [piece.slice(0, at), decoded(piece.slice(at + 1))];
    });
}

function decoded(text) {
    try {
        return decodeURIComponent(text);
    } catch {
        return text;
    }
}
