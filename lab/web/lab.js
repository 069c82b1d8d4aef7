// lab.js - the lab's page: creates its parts and passes the lab's data to them.
import {CloudView} from './cloud.js';
import {commandForm} from './commands.js';
import {Devices} from './devices.js';
import {button, byId, make} from './dom.js';
import {showFacts} from './facts.js';
import {describe, listen} from './feed.js';
import {operationForms} from './operations.js';
import {Replies} from './replies.js';
import {StoreView} from './store.js';
import {Timeline} from './timeline.js';

function buildForms(commands, devices) {
    byId('forms').append(
        make('h3', {}, 'Cloud command'), commandForm(commands, devices),
        make('h3', {}, 'Devices'), devices.list, devices.join,
        make('h3', {}, 'Around the agent'), operationForms(),
        button('Status of the lab', () => Replies.ask('status', {}, 'status')));
}

async function begin() {
    const lab = await describe();
    if (!lab) {
        return;
    }
    const timeline = new Timeline();
    const cloud = new CloudView();
    const store = new StoreView(lab.tables, values => {
        devices.update(values);
        showFacts(store, devices);
    });
    const devices = new Devices(store);
    buildForms(lab.commands, devices);
    listen(items => {
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

// A different key belongs to a different run of the lab.
addEventListener('hashchange', () => location.reload());
begin();
