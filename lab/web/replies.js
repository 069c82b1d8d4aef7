// replies.js - the replies to the user's actions.
import {make, prependNewest} from './dom.js';
import {perform} from './feed.js';

export class Replies {
    static kept = 20;
    static list = document.querySelector('#replies ol');

    // Requests an operation and shows the reply under `label`.
    static async ask(operation, args, label) {
        const text = make('span', {class: 'text'}, '…');
        const item = make('li', {class: 'pending'}, make('b', {}, label), text);
        prependNewest(Replies.list, item, Replies.kept);
        Replies.list.scrollTop = 0;
        let reply;
        try {
            reply = await perform(operation, args);
        } catch {
            reply = {ok: false, text: 'the lab cannot be reached'};
        }
        item.className = reply.ok ? 'good' : 'bad';
        text.textContent = reply.text;
        text.classList.toggle('lines', reply.text.includes('\n'));
    }
}
