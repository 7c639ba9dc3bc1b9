// Informs the client of every new document of the main frame and of the links in it that the user
// clicks and that lead to another origin. Sends every title of the service's page with the values of
// the page's elements at the moment when the title was set.
//
// Runs in an isolated world, before any script of the page, in the main frame of every document. The
// page can access neither this script nor its channel. The client replaces "__SERVICE_ORIGIN__".
//
// A mutation observer receives the changes of one task together, after the task. The state after
// each change is restored by undoing the later changes on a copy of the document.
(() => {
    'use strict';

    // The message that QWebChannel's script sends to invoke a method. Its handshake is left out,
    // because a title that is set just before the page is replaced would then be sent too late.
    const kInvokeMethod = 6;
    let invocations = 0;
    const messageFor = (method, args) => ({
        type: kInvokeMethod,
        id: invocations++,
        object: 'watcher',
        method,
        args,
    });

    // The client responds to every message. The number of messages without a response is limited,
    // and so is the length of a value, so that a page cannot fill the memory of the client, which
    // ends a document that sets too many titles.
    const kMaxInFlight = 32;
    const kMaxChanges = 1000; // of the title in one task; each costs a copy of the page's state
    const kMaxLength = 65536; // characters; the client treats a longer value as absent
    const transport = qt.webChannelTransport;
    let inFlight = 0;
    let queued = [];
    let isOverloaded = false;
    const sendQueued = () => {
        for (; queued.length > 0 && inFlight < kMaxInFlight; ++inFlight)
            transport.send(JSON.stringify(queued.shift()));
    };
    transport.onmessage = () => {
        --inFlight;
        sendQueued();
    };
    // The client ends this document when it receives the report.
    const reportOverload = () => {
        isOverloaded = true;
        queued = [messageFor('receiveOverload', [])];
        sendQueued();
    };
    const invoke = (method, argument) => {
        if (isOverloaded)
            return;
        queued.push(messageFor(method, [argument]));
        sendQueued();
    };

    invoke('receiveDocument', window.origin);

    // No script can create an event that is trusted.
    window.addEventListener('click', event => {
        const link = event.composedPath().find(
            node => node instanceof HTMLAnchorElement || node instanceof HTMLAreaElement);
        if (event.isTrusted && link && link.origin !== window.origin)
            invoke('receiveLink', link.href);
    }, { capture: true });

    if (window.origin !== '__SERVICE_ORIGIN__')
        return;

    // Taken from the prototypes, because a form control with a suitable name hides a property of its
    // form or document.
    const getter = (prototype, name) => {
        const { get } = Object.getOwnPropertyDescriptor(prototype, name);
        return node => get.call(node);
    };
    const method = (prototype, name) => (node, ...args) => prototype[name].apply(node, args);
    const titleOf = getter(Document.prototype, 'title');
    const innerTextOf = getter(HTMLElement.prototype, 'innerText');
    const childrenOf = getter(Node.prototype, 'childNodes');
    const find = method(Document.prototype, 'getElementById');
    const importNode = method(Document.prototype, 'importNode');
    const insertBefore = method(Node.prototype, 'insertBefore');
    const removeChild = method(Node.prototype, 'removeChild');
    const getAttribute = method(Element.prototype, 'getAttribute');
    const query = method(Element.prototype, 'querySelector');
    const setAttribute = method(Element.prototype, 'setAttribute');
    const removeAttribute = method(Element.prototype, 'removeAttribute');

    const clipped = text => text && text.slice(0, kMaxLength + 1);
    const stateOf = root => {
        const attribute = id => {
            const element = find(root, id);
            return element && clipped(getAttribute(element, 'value'));
        };
        const text = id => {
            const element = find(root, id);
            return element instanceof HTMLElement ? clipped(innerTextOf(element)) : null;
        };
        return {
            title: clipped(titleOf(root)),
            session: attribute('session'),
            token: attribute('token'),
            mac_major: text('mac_major'),
            mac_minor: text('mac_minor'),
            mac_build: text('mac_build'),
            update_url: text('update_url'),
        };
    };

    // Returns the state after each of `records`, oldest first. The copy belongs to a document
    // without a window, so that it runs no script and loads nothing.
    const statesOf = records => {
        const states = [stateOf(document)];
        const root = document.implementation.createHTMLDocument('');
        while (root.firstChild)
            removeChild(root, root.firstChild);
        const copies = new Map([[document, root]]);
        const copyChildren = node => {
            for (const child of childrenOf(node))
                insertBefore(copies.get(node), copyOf(child), null);
        };
        const copyOf = node => {
            if (!copies.has(node)) {
                copies.set(node, importNode(root, node, false));
                copyChildren(node);
            }
            return copies.get(node);
        };
        const undo = record => {
            const target = copyOf(record.target);
            if (record.type === 'characterData') {
                target.nodeValue = record.oldValue;
            } else if (record.type === 'attributes') {
                if (record.oldValue === null)
                    removeAttribute(target, record.attributeName);
                else
                    setAttribute(target, record.attributeName, record.oldValue);
            } else {
                for (const node of record.addedNodes)
                    removeChild(target, copyOf(node));
                const next = record.nextSibling && copyOf(record.nextSibling);
                for (const node of record.removedNodes)
                    insertBefore(target, copyOf(node), next);
            }
        };
        copyChildren(document);
        for (const record of records.slice(1).reverse()) {
            undo(record);
            states.unshift(stateOf(root));
        }
        return states;
    };

    const send = state => invoke('receiveTitle', state);

    // An empty title is not reported, but the same title after it is reported again.
    let lastTitle = '';
    let isParsing = true;
    let waiting = []; // until DOMContentLoaded; an entry from the parsing has only a title
    const report = state => {
        if (state.title === lastTitle)
            return;
        lastTitle = state.title;
        if (state.title === '')
            return;
        if (waiting)
            waiting.push(isParsing ? { title: state.title } : state);
        else
            send(state);
    };

    const isTitle = node => node instanceof HTMLTitleElement;
    const changesTitle = ({ type, target, addedNodes, removedNodes }) =>
        isTitle(target) || isTitle(target.parentNode) ||
        [...addedNodes, ...removedNodes].some(
            node => isTitle(node) || (node instanceof Element && query(node, 'title')));

    const observe = records => {
        const changes = records.filter(changesTitle);
        if (changes.length > kMaxChanges)
            reportOverload();
        else if (changes.length > 0)
            statesOf(records).forEach(report);
    };
    const observer = new MutationObserver(observe);
    observer.observe(document, {
        subtree: true,
        childList: true,
        characterDataOldValue: true,
        attributeFilter: ['value', 'id'],
        attributeOldValue: true,
    });

    // The first event follows the parsing and precedes all deferred scripts.
    window.addEventListener('readystatechange', () => {
        observe(observer.takeRecords());
        isParsing = false;
    }, { capture: true, once: true });

    window.addEventListener('DOMContentLoaded', () => {
        observe(observer.takeRecords());
        const states = waiting;
        waiting = null;
        for (const state of states)
            send('session' in state ? state : { ...stateOf(document), title: state.title });
    }, { capture: true, once: true });
})();
