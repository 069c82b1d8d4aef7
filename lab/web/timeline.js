// timeline.js - the events as a sequence diagram that grows downwards.
import {byId, keepNewest, make} from './dom.js';
import {failed} from './event.js';
import {clock, duration, pretty, shorten} from './format.js';

export class Timeline {
    static kept = 1500;
    static actors = ['cloud', 'connector', 'agent', 'store', 'device service', 'Circle agent'];

    constructor() {
        this.list = byId('steps');
        this.following = true;
        this.unseen = 0;
        this.failures = 0;
        byId('actors').append(...Timeline.actors.map(name => make('span', {}, name)));
        byId('follow').addEventListener('click', () => this.follow(!this.following));
        byId('failures-only').addEventListener('change', event => {
            this.list.classList.toggle('failures-only', event.target.checked);
            this.settle();
        });
        // Scrolling up pauses; scrolling down to the end follows again.
        this.list.addEventListener('scroll', () => {
            const rest = this.list.scrollHeight - this.list.scrollTop - this.list.clientHeight;
            if ((rest < 4) !== this.following) {
                this.follow(rest < 4);
            }
        });
        this.list.addEventListener('keydown', event => this.move(event));
        new ResizeObserver(() => this.settle()).observe(this.list);
    }

    add(events) {
        const rows = events.map(event => this.row(event));
        this.list.append(...rows);
        keepNewest(this.list, Timeline.kept);
        this.failures += events.filter(failed).length;
        byId('failures').textContent = this.failures || '';
        if (!this.following) {
            this.unseen += rows.length;
            this.showFollowing();
        }
        this.settle();
    }

    settle() {
        if (this.following) {
            this.list.scrollTop = this.list.scrollHeight;
        }
    }

    follow(following) {
        this.following = following;
        this.unseen = 0;
        this.showFollowing();
        this.settle();
    }

    showFollowing() {
        byId('follow').textContent = this.following ? 'Pause' : this.unseen ? `Follow (${this.unseen} new)` : 'Follow';
        byId('follow').setAttribute('aria-pressed', String(this.following));
    }

    row(event) {
        const tone = failed(event) ? 'bad' : event.tone ?? 'plain';
        const took = event.ms === undefined ? null : make('span', {class: 'took'}, duration(event.ms));
        const route = event.from === event.to ? event.from : `${event.from} to ${event.to}`;
        const label = make('button', {type: 'button', class: 'what', tabindex: '-1', 'aria-expanded': 'false',
            title: `${route}: ${shorten(event.what, 400)}`}, make('span', {class: 'text'}, shorten(event.what, 300)), took);
        const lanes = make('div', {class: 'lanes'}, label);
        const row = make('li', {class: `step ${tone}`}, make('time', {}, clock(event.time)), lanes);
        Timeline.draw(event, lanes, label);
        label.addEventListener('click', () => this.toggle(row, label, event, route));
        return row;
    }

    // Places the text and the arrow, or the mark for an event of one actor, on the lifelines.
    static draw(event, lanes, label) {
        const count = Timeline.actors.length;
        const middle = name => {
            const lane = Timeline.actors.indexOf(name);
            return lane < 0 ? 0 : (lane + 0.5) / count * 100;
        };
        const from = middle(event.from);
        const to = middle(event.to);
        const left = Math.min(from, to);
        const right = Math.max(from, to);
        if (event.from === event.to) {
            lanes.classList.add(from === 0 ? 'lab' : 'alone');
            if (from > 0) {
                const mark = make('span', {class: 'mark', 'aria-hidden': 'true'});
                mark.style.left = `${from}%`;
                lanes.append(mark);
            }
        } else {
            const arrow = make('span', {class: `arrow ${to > from ? 'rightwards' : 'leftwards'}`, 'aria-hidden': 'true'});
            arrow.style.left = `${left}%`;
            arrow.style.width = `${right - left}%`;
            lanes.append(arrow);
        }
        if (from === 0 && to === 0) {
            return;
        }
        const gap = from === to ? '8px' : '0px';
        if ((left + right) / 2 <= 50) {
            label.style.marginLeft = `calc(${left}% + ${gap})`;
            label.style.maxWidth = `calc(${100 - left}% - ${gap})`;
        } else {
            label.style.marginRight = `calc(${100 - right}% + ${gap})`;
            label.style.maxWidth = `calc(${right}% - ${gap})`;
            label.classList.add('from-right');
        }
    }

    toggle(row, label, event, route) {
        const open = row.querySelector('.whole');
        label.setAttribute('aria-expanded', String(!open));
        if (open) {
            open.remove();
            return;
        }
        if (this.following) {
            this.follow(false);
        }
        row.append(make('div', {class: 'whole'}, make('p', {}, make('b', {}, route), ' ', event.what),
            event.body ? make('pre', {}, pretty(event.body)) : null));
    }

    move(event) {
        const step = {ArrowDown: 'nextElementSibling', ArrowUp: 'previousElementSibling'}[event.key];
        if (!step || event.target.closest('.whole')) {
            return;
        }
        const here = document.activeElement.closest('.step');
        let row = here ? here[step] : this.list.lastElementChild;
        while (row && row.offsetParent === null) {
            row = row[step];
        }
        if (row) {
            event.preventDefault();
            this.follow(false);
            row.querySelector('.what').focus();
            row.scrollIntoView({block: 'nearest'});
        }
    }
}
