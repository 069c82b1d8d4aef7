// store.js - the store's tables, their fields, and the last changes.
import {button, byId, make, prependNewest} from './dom.js';
import {clock} from './format.js';
import {openTab} from './tabs.js';

export class StoreView {
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

    // Shows values in the order in which they were written. A value without a time is older than this page.
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

    // Removes the marks of cells that changed more than `freshSeconds` before `now`.
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
            this.markUnused(table, change.row);
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
    markUnused(table, row) {
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
