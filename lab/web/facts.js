// facts.js - the router's state in the header.
import {byId, make} from './dom.js';

export function showFacts(store, devices) {
    const facts = [
        [store.value('DROStatus', 0, 'addJorvdeviceIdDone') === 'true', 'registered', 'not registered'],
        [store.value('DroCfg', 0, 'claimState') === 'true', 'claimed', 'not claimed'],
        [store.value('JorvagentCfg', 0, 'jorv_agent_connected') === '1', 'connected', 'not connected']];
    const version = store.value('DalModuleVersion', 0, 'DroagentVersion');
    const texts = [[version !== '', version ? `agent ${version}` : 'no agent yet'],
        ...facts.map(([holds, yes, no]) => [holds, holds ? yes : no]), [true, `${devices.lines.size} devices`]];
    byId('facts').replaceChildren(...texts.map(([holds, text]) => make('li', {class: holds ? 'holds' : ''}, text)));
}
