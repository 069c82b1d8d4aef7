// cloud.js - the requests that reached the cloud, whether it verified them, and its answers.
import {byId, make, prependNewest} from './dom.js';
import {failed} from './event.js';
import {clock, duration, pretty, shorten} from './format.js';
import {openTab} from './tabs.js';

export class CloudView {
    static kept = 300;

    constructor() {
        this.open = new Map();  // requests, keyed by exchange
        this.count = 0;
        byId('refused-only').addEventListener('change', event => byId('requests').classList.toggle('refused-only', event.target.checked));
    }

    add(event) {
        if (!event.exchange) {
            return;
        }
        if (event.to === 'cloud') {
            this.request(event);
        } else {
            this.answer(event);
        }
    }

    request(event) {
        const refused = event.tone === 'bad';
        const [first, ...headers] = (event.head ?? '').split('\n');
        const path = first.split(' ')[1] ?? '';
        const summary = event.what.replace(path.slice(1), '').trim();
        const answer = make('span', {class: 'answer pending'}, 'no answer yet');
        const answerBody = make('pre', {}, 'none yet');
        const item = make('details', {class: 'request', 'data-path': path, 'data-verdict': refused ? 'refused' : 'verified'},
            make('summary', {}, make('time', {}, clock(event.time)),
                make('span', {class: `verdict ${refused ? 'refused' : 'verified'}`}, refused ? 'refused' : 'verified'),
                make('b', {}, path), answer, make('span', {class: `summary ${failed(event) ? 'bad' : ''}`, title: shorten(summary, 400)}, shorten(summary, 300))));
        item.addEventListener('toggle', () => item.append(
            make('h4', {}, first), make('pre', {}, headers.join('\n')),
            make('h4', {}, 'Body'), make('pre', {class: 'body', tabindex: '0'}, pretty(event.body ?? '')),
            make('h4', {}, 'Answer'), answerBody), {once: true});
        prependNewest(byId('requests'), item, CloudView.kept);
        this.open.set(event.exchange, {answer, answerBody});
        this.count += 1;
        byId('no-requests').hidden = true;
        byId('tab-cloud').querySelector('.count').textContent = this.count;
        byId('latest-request').lastElementChild.textContent = `${clock(event.time)}  ${refused ? 'refused' : 'verified'}  ${event.what}`;
        byId('latest-request').onclick = () => {
            openTab('cloud');
            item.open = true;
            item.scrollIntoView({block: 'nearest'});
        };
    }

    answer(event) {
        const request = this.open.get(event.exchange);
        if (!request) {
            return;
        }
        this.open.delete(event.exchange);
        const [status, ...body] = event.what.split(' ');
        request.answer.textContent = `${status} after ${duration(event.ms)}`;
        request.answer.className = `answer ${failed(event) ? 'bad' : ''}`;
        request.answerBody.textContent = `${status}\n${pretty(body.join(' ')) || '(no body)'}`;
    }
}
