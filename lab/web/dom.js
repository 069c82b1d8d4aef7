// dom.js - finds, creates and limits elements. Every text becomes a text node, never markup.

export const byId = id => document.getElementById(id);

// An element with attributes (`class`, `title`, ...; false or null omits one), `on` for listeners, and children.
export function make(tag, attributes = {}, ...children) {
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

export const button = (label, press, attributes = {}) => make('button', {type: 'button', ...attributes, on: {click: press}}, label);

// Removes the oldest children, which are first.
export function keepNewest(parent, count) {
    while (parent.childElementCount > count) {
        parent.firstElementChild.remove();
    }
}

// Inserts a child before the others and removes the oldest, which are last.
export function prependNewest(parent, child, count) {
    parent.prepend(child);
    while (parent.childElementCount > count) {
        parent.lastElementChild.remove();
    }
}
