// format.js - formats times, durations and long texts for the page.

export function clock(seconds) {
    const time = new Date(seconds * 1000);
    const two = number => String(number).padStart(2, '0');
    return `${two(time.getHours())}:${two(time.getMinutes())}:${two(time.getSeconds())}.` +
        String(time.getMilliseconds()).padStart(3, '0');
}

export function duration(ms) {
    return ms < 0.05 ? '< 0.1 ms' : ms < 10 ? `${ms.toFixed(1)} ms` : ms < 1000 ? `${Math.round(ms)} ms` : `${(ms / 1000).toFixed(1)} s`;
}

export function pretty(text) {
    try {
        return JSON.stringify(JSON.parse(text), null, 2);
    } catch {
        return text;
    }
}

export function shorten(text, length) {
    return text.length > length ? text.slice(0, length - 1) + '…' : text;
}
