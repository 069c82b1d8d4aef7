// feed.js - the connection to the lab: its description, its feed of events and values, and its operations. Every
// request contains the key from the page's address.
import {byId} from './dom.js';

const key = location.hash.slice(1);

function showConnection(text, state) {
    byId('connection').textContent = text;
    byId('connection').className = state;
}

// Returns the lab's description, or null when it cannot be loaded; the header then shows the reason.
export async function describe() {
    const response = await fetch('/lab.json', {headers: {'X-Lab-Key': key}}).catch(() => null);
    if (!response?.ok) {
        showConnection(response ? await response.text() : 'the lab cannot be reached', 'over');
        return null;
    }
    return response.json();
}

// Returns the lab's reply to an operation. Throws when the lab cannot be reached.
export async function perform(operation, args) {
    const response = await fetch(`/operations/${operation}`, {method: 'POST', body: JSON.stringify(args),
        headers: {'Content-Type': 'application/json', 'X-Lab-Key': key}});
    return response.ok ? response.json() : {ok: false, text: await response.text()};
}

// Calls `onItems` with each batch of events and values, and shows the connection's state in the header.
export function listen(onItems) {
    const source = new EventSource(`/events?key=${encodeURIComponent(key)}`);
    source.addEventListener('open', () => showConnection('live', 'live'));
    source.addEventListener('end', () => {
        source.close();
        showConnection('the lab has ended', 'over');
    });
    source.addEventListener('error', () => {
        const over = source.readyState === EventSource.CLOSED;
        showConnection(over ? 'no answer: the lab has ended, or too many of its pages are open' : 'connection lost, trying again', over ? 'over' : 'lost');
    });
    source.addEventListener('message', ({data}) => onItems(JSON.parse(data)));
}
