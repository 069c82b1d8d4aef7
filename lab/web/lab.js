// lab.js - the lab's page: shows the lab's events and runs its operations.
// Texts from the lab only ever become text nodes.

const key = location.hash.slice(1);
const byId = id => document.getElementById(id);

// ---- Small parts ----

// An element with attributes (`class`, `title`, ...; false or null omits one), `on` for listeners, and children.
function make(tag, attributes = {}, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        if (name === 'on') {
            for (const [event, listener] of Object.entries(value)) {
                element.addEventListener(event, listener);
            }
        } else if (value !== false && value !== null) {
            element.setAttribute(name, value === true ? '' : value);
        }
    }
    element.append(...children.filter(child => child !== null));
    return element;
}

const button = (label, press, attributes = {}) => make('button', {type: 'button', ...attributes, on: {click: press}}, label);

function clock(seconds) {
    const time = new Date(seconds * 1000);
    const two = number => String(number).padStart(2, '0');
    return `${two(time.getHours())}:${two(time.getMinutes())}:${two(time.getSeconds())}.` +
        String(time.getMilliseconds()).padStart(3, '0');
}

function duration(ms) {
    return ms < 0.05 ? '< 0.1 ms' : ms < 10 ? `${ms.toFixed(1)} ms` : ms < 1000 ? `${Math.round(ms)} ms` : `${(ms / 1000).toFixed(1)} s`;
}

function pretty(text) {
    try {
        return JSON.stringify(JSON.parse(text), null, 2);
    } catch {
        return text;
    }
}

function shorten(text, length) {
    return text.length > length ? text.slice(0, length - 1) + '…' : text;
}

// Whether an event reports a failure: a rejected request, a request that reports one, or an unsuccessful answer.
function failed(event) {
    if (event.tone === 'bad' || !event.exchange) {
        return event.tone === 'bad';
    }
    return event.to === 'cloud' ? /"transactionStatus":\s*"0"/.test(event.body ?? '')
        : !event.what.startsWith('200 ') || /"status":\s*0/.test(event.what);
}

function keepNewest(parent, count) {
    while (parent.childElementCount > count) {
        parent.firstElementChild.remove();
    }
}

// Prepends a child and removes the oldest ones.
function prependNewest(parent, child, count) {
    parent.prepend(child);
    while (parent.childElementCount > count) {
        parent.lastElementChild.remove();
    }
}

// ---- Timeline: a sequence diagram that grows ----

class Timeline {
    static kept = 1500;
    static actors = ['cloud', 'connector', 'agent', 'store', 'device service', 'Circle agent'];

    constructor() {
        this.list = byId('steps');
        this.following = true;
        this.unseen = 0;
        this.failures = 0;
        this.current = null;
        byId('actors').append(...Timeline.actors.map(name => make('span', {}, name)));
        byId('follow').addEventListener('click', () => this.follow(!this.following));
        byId('failures-only').addEventListener('change', event => {
            this.list.classList.toggle('failures-only', event.target.checked);
            this.settle();
        });
        // Scrolling up stops following the end of the list; scrolling back to the end resumes it.
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
            this.tellFollowing();
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
        this.tellFollowing();
        this.settle();
    }

    tellFollowing() {
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

    // Places the text and the arrow (or the mark, for an actor's own action) on the lifelines.
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

// ---- Store: tables, fields, and what changed last ----

class StoreView {
    static changesShown = 8;
    static freshSeconds = 3;
    static openAtFirst = ['DALHConfig', 'Dilsignature'];

    constructor(tables, onChange) {
        this.onChange = onChange;
        this.cells = new Map();  // keyed by table.row.field
        this.tables = new Map();
        this.fresh = new Map();  // recently changed cells, with the time
        this.changed = 0;
        for (const table of tables) {
            this.addTable(table);
        }
        byId('store-filter').addEventListener('input', () => this.filter());
        byId('store-set').addEventListener('change', () => this.filter());
    }

    addTable(table) {
        const many = table.rows > 1;
        const body = make('tbody');
        const head = many ? make('thead', {}, make('tr', {}, make('th', {scope: 'col'}, 'Device'),
            ...table.fields.map(field => make('th', {scope: 'col', title: field.about}, field.name)))) : null;
        const when = make('time');
        const details = make('details', {open: StoreView.openAtFirst.includes(table.name)},
            make('summary', {}, make('b', {}, table.name), make('span', {class: 'about'}, table.about), when),
            make('div', {class: 'scroll', tabindex: many ? '0' : null}, make('table', {class: many ? 'many' : 'single'}, head, body)));
        const entry = {...table, many, body, details, when, rows: new Map()};
        this.tables.set(table.name, entry);
        byId('tables').append(details);
        if (!many) {
            this.addRow(entry, 0);
        }
    }

    // The cells of a row. In a table with one row, each field has its own line.
    addRow(table, row) {
        const cells = table.fields.map(field => {
            const cell = make('td', {class: 'value initial', 'data-table': table.name, 'data-row': row, 'data-field': field.name}, field.initial);
            this.cells.set(`${table.name}.${row}.${field.name}`, {cell, field, value: field.initial, time: null, when: null});
            return cell;
        });
        if (!table.many) {
            table.fields.forEach((field, i) => {
                const when = make('td', {class: 'when'});
                this.cells.get(`${table.name}.0.${field.name}`).when = when;
                table.body.append(make('tr', {}, make('th', {scope: 'row', title: field.about}, field.name), cells[i], when));
            });
            return;
        }
        const line = make('tr', {'data-row': row}, make('th', {scope: 'row'}), ...cells);
        const later = [...table.rows.keys()].filter(other => other > row).sort((a, b) => a - b)[0];
        table.body.insertBefore(line, later === undefined ? null : table.rows.get(later));
        table.rows.set(row, line);
        this.nameRow(table, row);
    }

    find({table, row, field}) {
        const entry = this.tables.get(table);
        if (entry.many && !entry.rows.has(row)) {
            this.addRow(entry, row);
        }
        return this.cells.get(`${table}.${row}.${field}`);
    }

    value(table, row, field) {
        return this.cells.get(`${table}.${row}.${field}`)?.value ?? '';
    }

    // Applies values in write order. Values without a time are initial ones.
    update(values) {
        const timed = values.filter(value => value.time !== undefined);
        const befores = values.map(value => this.write(value));
        values.slice(-StoreView.changesShown).forEach((value, i, shown) => this.list(value, befores[values.length - shown.length + i]));
        this.changed += timed.length;
        if (timed.length) {
            const last = timed.at(-1);
            this.fade(last.time);
            byId('latest-change').lastElementChild.textContent = `${clock(last.time)}  ${this.nameOf(last)} = ${last.value}`;
            byId('latest-change').onclick = () => this.show(last);
            byId('tab-store').querySelector('.count').textContent = this.changed;
        }
        if (this.filtered) {
            this.filter();
        }
        this.onChange(values);
    }

    // Only cells that changed with the last change or shortly before it stay highlighted.
    fade(now) {
        for (const [cell, time] of this.fresh) {
            if (now - time > StoreView.freshSeconds) {
                cell.classList.remove('fresh');
                this.fresh.delete(cell);
            }
        }
    }

    // Returns the previous value.
    write(change) {
        const known = this.find(change);
        const before = known.value;
        known.value = change.value;
        known.cell.textContent = change.value;
        known.cell.classList.toggle('initial', change.value === known.field.initial);
        const table = this.tables.get(change.table);
        if (table.many) {
            this.tellRow(table, change.row);
        }
        if (change.field === 'DeviceDisplayName') {
            this.tables.forEach(one => this.nameRow(one, change.row));
        }
        if (change.time === undefined) {
            return before;
        }
        known.cell.classList.add('fresh');
        known.cell.title = `changed at ${clock(change.time)}`;
        this.fresh.set(known.cell, change.time);
        table.when.textContent = clock(change.time);
        if (known.when) {
            known.when.textContent = clock(change.time);
        }
        return before;
    }

    // A row is unused when all its values are defaults.
    tellRow(table, row) {
        table.rows.get(row).classList.toggle('unused', table.fields.every(field => this.value(table.name, row, field.name) === field.initial));
    }

    nameRow(table, row) {
        table.rows.get(row)?.firstElementChild.replaceChildren(`${row} ${this.value('DeviceIdList', row, 'DeviceDisplayName')}`);
    }

    nameOf({table, row, field}) {
        return this.tables.get(table).many ? `${table}[${row}].${field}` : `${table}.${field}`;
    }

    list(change, before) {
        if (change.time === undefined) {
            return;
        }
        const item = make('li', {}, make('time', {}, clock(change.time)),
            button(this.nameOf(change), () => this.show(change), {class: 'link', title: 'Show it in its table'}),
            make('span', {class: 'turn'}, make('span', {class: 'before'}, before === change.value ? 'again' : before || 'empty'), ' → ',
                make('span', {class: 'value'}, change.value || 'empty')));
        prependNewest(byId('changes'), item, StoreView.changesShown);
    }

    show(change) {
        const {cell} = this.find(change);
        openTab('store');
        this.tables.get(change.table).details.open = true;
        cell.scrollIntoView({block: 'center', inline: 'center'});
        cell.classList.remove('shown');
        requestAnimationFrame(() => cell.classList.add('shown'));
    }

    filter() {
        const wanted = byId('store-filter').value.trim().toLowerCase();
        const setOnly = byId('store-set').checked;
        this.filtered = wanted !== '' || setOnly;
        const holds = (table, name, value) => `${table}.${name} ${value}`.toLowerCase().includes(wanted);
        for (const table of this.tables.values()) {
            let any = false;
            for (const line of table.body.rows) {
                const values = [...line.querySelectorAll('.value')];
                const name = table.many ? '' : line.firstElementChild.textContent;
                const shown = (!wanted || values.some(cell => holds(table.name, name || cell.dataset.field, cell.textContent))) &&
                    (!setOnly || values.some(cell => !cell.classList.contains('initial')));
                line.hidden = !shown;
                any ||= shown && !line.classList.contains('unused');
            }
            table.details.hidden = !any && this.filtered;
            if (any && wanted) {
                table.details.open = true;
            }
        }
    }
}

// ---- Cloud: the requests that reached it, their validity and their answers ----

class CloudView {
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

// ---- Act: operations on the lab ----

class Replies {
    static kept = 20;
    static list = document.querySelector('#replies ol');

    // Runs an operation and shows the reply. `label` describes the request.
    static async ask(operation, args, label) {
        const text = make('span', {class: 'text'}, '…');
        const item = make('li', {class: 'pending'}, make('b', {}, label), text);
        prependNewest(Replies.list, item, Replies.kept);
        Replies.list.scrollTop = 0;
        let reply;
        try {
            const response = await fetch(`/operations/${operation}`, {method: 'POST', body: JSON.stringify(args),
                headers: {'Content-Type': 'application/json', 'X-Lab-Key': key}});
            reply = response.ok ? await response.json() : {ok: false, text: await response.text()};
        } catch {
            reply = {ok: false, text: 'the lab cannot be reached'};
        }
        item.className = reply.ok ? 'good' : 'bad';
        text.textContent = reply.text;
        text.classList.toggle('lines', reply.text.includes('\n'));
    }
}

// Each button runs `operation` with its own arguments and the listed inputs. The lab validates them.
const groups = [
    {title: 'How the cloud answers', operation: 'cloud',
        inputs: [{name: 'value', label: 'Times or ms', size: 6}],
        buttons: [['Up', {mood: 'up'}], ['Down', {mood: 'down'}], ...['refuse', 'stall', 'slow', 'error', 'empty', 'garbage', 'close']
            .map(mood => [mood[0].toUpperCase() + mood.slice(1), {mood}, ['value']])]},
    {title: 'What registration is answered', operation: 'claim',
        buttons: [['Claimed', {value: 'true'}], ['Not claimed', {value: 'false'}]]},
    {title: 'Daily sync time (UTC)', operation: 'sync-time',
        inputs: [{name: 'value', label: 'HH:MM:SS', size: 9, initial: '02:30:00'}],
        buttons: [['Set', {}, ['value']], ['None', {value: 'null'}]]},
    {title: 'How the Circle agent answers', operation: 'circle',
        inputs: [{name: 'value', label: 'Error text or ms', size: 14}],
        buttons: [['Success', {action: 'success'}], ['Fail', {action: 'fail'}, ['value']], ['Silent', {action: 'silent'}], ['Delay', {action: 'delay'}, ['value']]]},
    {title: 'What the Circle agent reports', operation: 'circle',
        buttons: [['Runs', {action: 'health', value: 'running', state: 'true'}], ['Does not run', {action: 'health', value: 'running', state: 'false'}],
            ['Provisioned', {action: 'health', value: 'provisioned', state: 'true'}], ['Not provisioned', {action: 'health', value: 'provisioned', state: 'false'}],
            ['Client connected', {action: 'health', value: 'client', state: 'connected'}],
            ['Client gone', {action: 'health', value: 'client', state: 'disconnected'}]]},
    {title: 'How the device service acts', operation: 'service',
        inputs: [{name: 'value', label: 'ms for slow', size: 6}],
        buttons: [['Ok', {mood: 'ok'}], ['Silent', {mood: 'silent'}], ['Wrong', {mood: 'wrong'}], ['Slow', {mood: 'slow'}, ['value']]]},
    {title: 'A background speed test ends', operation: 'speedtest',
        inputs: [{name: 'down', label: 'Down', size: 5}, {name: 'up', label: 'Up', size: 5}],
        buttons: [['Scheduled', {kind: 'scheduled'}, ['down', 'up']], ['Manual', {kind: 'manual'}, ['down', 'up']]]},
    {title: 'Devices on the network', operation: 'devices',
        inputs: [{name: 'count', label: '0 to 256', size: 5, initial: '12'}], buttons: [['Set', {}, ['count']]]},
];

function groupForm({title, operation, inputs = [], buttons}) {
    const fields = new Map(inputs.map(({name, size, initial}) => [name, make('input', {size, value: initial ?? null})]));
    const press = (label, args, uses = []) => {
        const texts = Object.fromEntries(uses.map(name => [name, fields.get(name).value.trim()]));
        Replies.ask(operation, {...texts, ...args}, `${operation} ${label.toLowerCase()} ${Object.values(texts).join(' ')}`.trim());
    };
    return make('fieldset', {'data-operation': operation}, make('legend', {}, title),
        ...inputs.map(({name, label}) => make('label', {}, label, fields.get(name))),
        ...buttons.map(([label, args, uses]) => button(label, () => press(label, args, uses))));
}

// The devices in the store, each with its most common operations.
class Devices {
    constructor(store) {
        this.store = store;
        this.lines = new Map();
        this.list = make('ul', {class: 'devices', tabindex: '0', 'aria-label': 'Devices'});
        this.choice = make('select', {'aria-label': 'Device'}, make('option', {value: ''}, 'as in the data'));
        const name = make('input', {size: 16, placeholder: 'Guest phone', 'aria-label': 'Name of the new device'});
        this.join = make('form', {class: 'inline', on: {submit: event => {
            event.preventDefault();
            this.act('join', name.value.trim() || name.placeholder, name.value.trim() || name.placeholder);
        }}}, make('label', {}, 'New device', name), make('button', {type: 'submit'}, 'Join'));
    }

    act(action, who, name) {
        Replies.ask('device', {action, name: who}, `${name}: ${action}`);
    }

    send(command, mac, name) {
        Replies.ask('send', {command, device: mac}, `${command} ${name}`);
    }

    update(values) {
        const rows = new Set(values.filter(value => ['DeviceIdList', 'Dilsignature'].includes(value.table)).map(value => value.row));
        for (const row of [...rows].sort((a, b) => a - b)) {
            this.show(row);
        }
    }

    show(row) {
        const mac = this.store.value('DeviceIdList', row, 'DeviceMac');
        let line = this.lines.get(row);
        if (!mac || mac === '00:00:00:00:00:00') {
            line?.item.remove();
            line?.option.remove();
            this.lines.delete(row);
            return;
        }
        if (!line) {
            line = this.makeLine(row);
            const later = [...this.lines.keys()].filter(other => other > row).sort((a, b) => a - b)[0];
            this.list.insertBefore(line.item, this.lines.get(later)?.item ?? null);
            this.choice.insertBefore(line.option, this.lines.get(later)?.option ?? null);
            this.lines.set(row, line);
        }
        const name = this.store.value('DeviceIdList', row, 'DeviceDisplayName') || mac;
        const online = this.store.value('Dilsignature', row, 'Devicestate') === 'UP';
        const blocked = this.store.value('Dilsignature', row, 'AllowOrBlock') === 'block';
        const tag = this.store.value('Dilsignature', row, 'IsTagged');
        Object.assign(line, {mac, deviceName: name, online, blocked});
        line.name.textContent = name;
        line.option.textContent = `${name} (${mac})`;
        line.option.value = mac;
        line.item.dataset.mac = mac;
        line.item.className = `${online ? 'online' : 'offline'} ${blocked ? 'blocked' : ''}`;
        line.state.textContent = [online ? 'online' : 'offline', blocked ? 'blocked' : null,
            tag && tag !== 'untag' ? `tagged ${tag}` : null].filter(Boolean).join(', ');
        line.block.textContent = blocked ? 'Unblock' : 'Block';
        line.turn.textContent = online ? 'Go offline' : 'Go online';
    }

    makeLine(row) {
        const line = {name: make('b'), state: make('span', {class: 'state'}), option: make('option')};
        line.block = button('Block', () => this.send(line.blocked ? 'UNBLOCK_CD' : 'BLOCK_CD', line.mac, line.deviceName), {class: 'block'});
        line.turn = button('Go offline', () => this.act(line.online ? 'offline' : 'online', line.mac, line.deviceName));
        line.item = make('li', {'data-row': row}, line.name, line.state, line.block, line.turn,
            button('Update', () => this.act('update', line.mac, line.deviceName)));
        return line;
    }
}

function commandForm(commands, devices) {
    const command = make('select', {'aria-label': 'Command'}, ...commands.map(({name}) => make('option', {}, name)));
    const data = make('textarea', {rows: 2, spellcheck: 'false', 'aria-label': 'Data, as JSON'});
    const example = () => {
        data.value = commands.find(({name}) => name === command.value).example;
    };
    command.addEventListener('change', example);
    example();
    const submit = event => {
        event.preventDefault();
        Replies.ask('send', {command: command.value, data: data.value.trim(), device: devices.choice.value}, command.value);
    };
    return make('form', {class: 'command', on: {submit}}, make('label', {}, 'Command', command),
        make('label', {}, 'Device', devices.choice), make('label', {class: 'wide'}, 'Data', data),
        make('button', {type: 'submit', class: 'primary'}, 'Send'));
}

function buildForms(commands, devices) {
    byId('forms').append(
        make('h3', {}, 'Cloud command'), commandForm(commands, devices),
        make('h3', {}, 'Devices'), devices.list, devices.join,
        make('h3', {}, 'Around the agent'), make('div', {class: 'groups'}, ...groups.map(groupForm)),
        button('Status of the lab', () => Replies.ask('status', {}, 'status')));
}

// ---- Facts in the header ----

function tellFacts(store, devices) {
    const facts = [
        [store.value('DROStatus', 0, 'addJorvdeviceIdDone') === 'true', 'registered', 'not registered'],
        [store.value('DroCfg', 0, 'claimState') === 'true', 'claimed', 'not claimed'],
        [store.value('JorvagentCfg', 0, 'jorv_agent_connected') === '1', 'connected', 'not connected']];
    const version = store.value('DalModuleVersion', 0, 'DroagentVersion');
    const texts = [[version !== '', version ? `agent ${version}` : 'no agent yet'],
        ...facts.map(([holds, yes, no]) => [holds, holds ? yes : no]), [true, `${devices.lines.size} devices`]];
    byId('facts').replaceChildren(...texts.map(([holds, text]) => make('li', {class: holds ? 'holds' : ''}, text)));
}

// ---- Tabs ----

const tabs = [...document.querySelectorAll('[role=tab]')];

function openTab(name, focus = false) {
    for (const tab of tabs) {
        const open = tab.getAttribute('aria-controls') === name;
        tab.setAttribute('aria-selected', String(open));
        tab.tabIndex = open ? 0 : -1;
        byId(tab.getAttribute('aria-controls')).hidden = !open;
        if (open && focus) {
            tab.focus();
        }
    }
}

for (const [i, tab] of tabs.entries()) {
    const name = at => tabs.at(at % tabs.length).getAttribute('aria-controls');
    tab.addEventListener('click', () => openTab(name(i)));
    tab.addEventListener('keydown', event => {
        const step = {ArrowRight: 1, ArrowLeft: -1}[event.key];
        if (step) {
            openTab(name(i + step), true);
        }
    });
}

// ---- Events from the lab ----

function tellConnection(text, state) {
    byId('connection').textContent = text;
    byId('connection').className = state;
}

function listen(timeline, store, cloud) {
    const source = new EventSource(`/events?key=${encodeURIComponent(key)}`);
    source.addEventListener('open', () => tellConnection('live', 'live'));
    source.addEventListener('end', () => {
        source.close();
        tellConnection('the lab has ended', 'over');
    });
    source.addEventListener('error', () => {
        const over = source.readyState === EventSource.CLOSED;
        tellConnection(over ? 'no answer: the lab has ended, or too many of its pages are open' : 'connection lost, trying again', over ? 'over' : 'lost');
    });
    source.addEventListener('message', ({data}) => {
        const items = JSON.parse(data);
        const events = items.filter(item => item.event).map(item => item.event);
        const values = items.filter(item => item.value).map(item => item.value);
        if (values.length) {
            store.update(values);
        }
        if (events.length) {
            timeline.add(events);
            events.forEach(event => cloud.add(event));
        }
    });
}

async function begin() {
    const response = await fetch('/lab.json', {headers: {'X-Lab-Key': key}}).catch(() => null);
    if (!response?.ok) {
        tellConnection(response ? await response.text() : 'the lab cannot be reached', 'over');
        return;
    }
    const lab = await response.json();
    const timeline = new Timeline();
    const store = new StoreView(lab.tables, values => {
        devices.update(values);
        tellFacts(store, devices);
    });
    const devices = new Devices(store);
    buildForms(lab.commands, devices);
    listen(timeline, store, new CloudView());
}

// A different key belongs to a different run of the lab.
addEventListener('hashchange', () => location.reload());
begin();
