// Tells the client every title of the service's page, with the values that the page's elements
// hold in the moment when the title is set.
//
// Runs in a world of its own, before any script of the page, in the main frame of every document;
// the page sees neither this script nor the channel it speaks through. "__SERVICE_ORIGIN__" is put
// in by the client.
//
// Two titles set in one task are told apart by mutation events, which come while the page's own
// statement still runs. An engine that no longer has them gets the same from a list of mutation
// records, undone from the last to the first.
(() => {
    'use strict';

    if (window.top !== window || window.origin !== '__SERVICE_ORIGIN__')
        return;

    // Taken from the prototypes: a form control with a fitting name hides the document's own.
    const getter = (prototype, name) => {
        const { get } = Object.getOwnPropertyDescriptor(prototype, name);
        return node => get.call(node);
    };
    const titleOf = getter(Document.prototype, 'title');
    const readyStateOf = getter(Document.prototype, 'readyState');
    const innerTextOf = getter(HTMLElement.prototype, 'innerText');
    const find = id => Document.prototype.getElementById.call(document, id);

    const attribute = id => {
        const element = find(id);
        return element ? Element.prototype.getAttribute.call(element, 'value') : null;
    };
    const text = id => {
        const element = find(id);
        return element instanceof HTMLElement ? innerTextOf(element) : null;
    };
    const snapshot = () => ({
        session: attribute('session'),
        token: attribute('token'),
        mac_major: text('mac_major'),
        mac_minor: text('mac_minor'),
        mac_build: text('mac_build'),
        update_url: text('update_url'),
    });

    // What QWebChannel's own script sends for an invocation, without its handshake: a title set
    // just before the page goes away would come too late for that.
    const kInvokeMethod = 6;
    let invocations = 0;
    const transport = qt.webChannelTransport;
    transport.onmessage = () => {};
    const send = (title, values) => transport.send(JSON.stringify({
        type: kInvokeMethod,
        id: invocations++,
        object: 'titles',
        method: 'receive',
        args: [{ title, ...values }],
    }));

    // Titles that came before the document was whole. Those from its parsing have no values yet.
    let waiting = [];
    const tell = (title, values) => {
        if (waiting)
            waiting.push([title, readyStateOf(document) === 'loading' ? null : values]);
        else
            send(title, values);
    };
    window.addEventListener('DOMContentLoaded', () => {
        observe(observer.takeRecords());
        const titles = waiting;
        waiting = null;
        for (const [title, values] of titles)
            send(title, values ?? snapshot());
    }, { capture: true, once: true });

    // An empty title says nothing, but the same word after it is said again.
    let last = '';
    const noteTitle = (title, values) => {
        if (title === last)
            return;
        last = title;
        if (title !== '')
            tell(title, values());
    };

    const isTitle = node => node instanceof HTMLTitleElement;
    const collapse = string => string.replace(/[\t\n\f\r ]+/g, ' ').replace(/^ | $/g, '');

    // The titles, oldest first, that `records` went through; each with the values beside it.
    const undo = records => {
        const titles = [];
        let title = titleOf(document);
        const values = snapshot();
        const texts = new Map(); // the title's text nodes that are gone, as they were
        const textOf = node => texts.get(node) ?? node.nodeValue ?? '';
        for (const { type, target, oldValue, removedNodes } of [...records].reverse()) {
            if (type === 'attributes') {
                if (target === find('session') || target === find('token'))
                    values[target.id] = oldValue;
            } else if (type === 'childList' && isTitle(target)) {
                titles.unshift([title, { ...values }]);
                removedNodes.forEach(node => texts.set(node, textOf(node)));
                title = collapse([...removedNodes].map(textOf).join(''));
            } else if (type === 'characterData' && (texts.has(target) || isTitle(target.parentNode))) {
                titles.unshift([title, { ...values }]);
                texts.set(target, oldValue);
                title = collapse(oldValue);
            }
        }
        return titles;
    };

    const hasMutationEvents = typeof MutationEvent === 'function';
    const observe = records => {
        if (!hasMutationEvents)
            undo(records).forEach(([title, values]) => noteTitle(title, () => values));
        noteTitle(titleOf(document), snapshot);
    };
    const observer = new MutationObserver(observe);
    observer.observe(document, {
        subtree: true,
        childList: true,
        characterDataOldValue: true,
        attributeFilter: ['value'],
        attributeOldValue: true,
    });

    if (hasMutationEvents) {
        const wasEmptied = record => record.type === 'childList' && isTitle(record.target) &&
            record.addedNodes.length === 0;
        window.addEventListener('DOMSubtreeModified', () => {
            if (observer.takeRecords().some(wasEmptied))
                last = '';
            noteTitle(titleOf(document), snapshot);
        }, true);
    }
})();
