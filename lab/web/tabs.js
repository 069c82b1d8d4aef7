// tabs.js - the tabs of the side panel, one of which is open.
import {byId} from './dom.js';

const tabs = [...document.querySelectorAll('[role=tab]')];

export function openTab(name, focus = false) {
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
