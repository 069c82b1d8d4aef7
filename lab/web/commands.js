// commands.js - the form that sends a cloud command.
import {make} from './dom.js';
import {Replies} from './replies.js';

export function commandForm(commands, devices) {
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
