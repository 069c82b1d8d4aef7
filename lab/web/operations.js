// operations.js - the forms that change the lab around the agent.
import {button, make} from './dom.js';
import {Replies} from './replies.js';

// A button requests its group's `operation` with its own arguments and with the texts of the inputs that it lists. The lab
// validates them and replies.
const groups = [
    {title: 'How the cloud answers', operation: 'cloud',
        inputs: [{name: 'value', label: 'Times or ms', size: 6}],
        buttons: [['Up', {mood: 'up'}], ['Down', {mood: 'down'}], ...['refuse', 'stall', 'slow', 'error', 'empty', 'garbage', 'close']
            .map(mood => [mood[0].toUpperCase() + mood.slice(1), {mood}, ['value']])]},
    {title: 'Claim state in registration answers', operation: 'claim',
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
    {title: 'How the device service answers', operation: 'service',
        inputs: [{name: 'value', label: 'ms for slow', size: 6}],
        buttons: [['Ok', {mood: 'ok'}], ['Silent', {mood: 'silent'}], ['Wrong', {mood: 'wrong'}], ['Slow', {mood: 'slow'}, ['value']]]},
    {title: 'Finish a background speed test', operation: 'speedtest',
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

export const operationForms = () => make('div', {class: 'groups'}, ...groups.map(groupForm));
