// devices.js - the devices on the network, and the form that adds one.
import {button, make} from './dom.js';
import {Replies} from './replies.js';

// The devices in the store, each with its most frequent actions.
export class Devices {
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
