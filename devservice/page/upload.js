// Requests sessions and tokens from the service and passes them to the client.
//
// The client takes the document's title as a signal and reads with it the elements "session",
// "token", "mac_major", "mac_minor", "mac_build" and "update_url". Loaded without a query, the page
// signals "index", with the version of the newest client, and then "session". Loaded for a file, it
// asks the user and signals "upload" and "token", or "cancel".
'use strict';

const kMaxSize = 9223372036854775807n;
const kRequestLimit = 20000; // milliseconds; the client sets no limit for requests of its page

const element = id => document.getElementById(id);

function signal(title) {
    document.title = title;
}

// The client reads the attribute, not the current value of a form field.
function setValue(id, value) {
    element(id).setAttribute('value', value);
}

function showPanel(id) {
    for (const panel of document.querySelectorAll('.panel'))
        panel.hidden = panel.id !== id;
    element('card').setAttribute('aria-busy', String(id === 'waiting'));
}

function cancel() {
    element('outcome').textContent = 'Cancelled';
    element('outcome_detail').textContent = 'The file is not uploaded.';
    showPanel('done');
    signal('cancel');
}

function showFailure(reason) {
    element('failure_reason').textContent = reason;
    element('retry').onclick = start;
    element('give_up').onclick = cancel;
    element('give_up').hidden = !window.location.search;
    showPanel('failure');
    element('retry').focus();
}

// Returns the three values of "?session=...&filename=...&size=...", still percent-encoded, or null
// for any other query. A name may contain "&", "=" and even "&size=", so the first "&filename=" and
// the last "&size=" separate the values.
function readQuery(query) {
    const parts = /^\?session=(.*?)&filename=(.*)&size=(\d{1,19})$/s.exec(query);
    if (!parts || BigInt(parts[3]) > kMaxSize)
        return null;
    return { session: parts[1], filename: parts[2], size: parts[3] };
}

// Returns the name for display. Its bytes need not be UTF-8.
function displayName(encoded) {
    const bytes = [];
    for (let i = 0; i < encoded.length; ++i) {
        const pair = /^%([0-9A-Fa-f]{2})/.exec(encoded.slice(i, i + 3));
        bytes.push(pair ? parseInt(pair[1], 16) : encoded.charCodeAt(i));
        if (pair)
            i += 2;
    }
    return new TextDecoder('utf-8', { ignoreBOM: true }).decode(Uint8Array.from(bytes));
}

// Returns for example "1.2 GB (1,234,567,890 bytes)".
function displaySize(size) {
    const exact = BigInt(size).toLocaleString('en-US') + (size === '1' ? ' byte' : ' bytes');
    const units = ['kB', 'MB', 'GB', 'TB', 'PB', 'EB'];
    let value = Number(size);
    if (value < 1000)
        return exact;
    let unit = -1;
    // From 999.95 on, toFixed(1) would give 1000.0.
    while (value >= 999.95 && unit + 1 < units.length) {
        value /= 1000;
        ++unit;
    }
    return unit < 0 ? exact : `${value.toFixed(1)} ${units[unit]} (${exact})`;
}

// Sends a request to the service and returns its reply. Throws an error whose message is for the
// user, also if the reply is not complete within the time limit.
async function requestJson(path, content) {
    const limit = new AbortController();
    const timer = setTimeout(() => limit.abort(), kRequestLimit);
    const request = {
        signal: limit.signal,
        method: 'POST',
        headers: { 'Content-Type': 'application/json' },
        body: JSON.stringify(content),
    };
    let reply = null;
    let body = {};
    try {
        reply = await fetch(path, request);
        body = await reply.json();
    } catch {
        if (limit.signal.aborted)
            throw new Error('The service does not respond.');
        if (!reply)
            throw new Error('The service cannot be reached.');
        if (reply.ok)
            throw new Error('The service sent an invalid reply.');
    } finally {
        clearTimeout(timer);
    }
    if (!reply.ok)
        throw new Error(body.error ?? `The service replied with error ${reply.status}.`);
    return body;
}

async function requestToken(file) {
    element('upload').disabled = element('cancel').disabled = true;
    try {
        const { token } = await requestJson('token', {
            session: element('session').getAttribute('value'),
            filename: file.filename,
            size: file.size,
        });
        setValue('token', token);
        element('outcome').textContent = 'Accepted';
        element('outcome_detail').textContent = 'The client uploads the file.';
        showPanel('done');
        signal('upload');
        signal('token');
    } catch (error) {
        showFailure(error.message);
    } finally {
        element('upload').disabled = element('cancel').disabled = false;
    }
}

function askAbout(file) {
    element('filename').textContent = displayName(file.filename);
    element('filesize').textContent = displaySize(file.size);
    element('question').onsubmit = event => {
        event.preventDefault();
        requestToken(file);
    };
    element('cancel').onclick = cancel;
    showPanel('question');
    element('upload').focus();
}

function publish(service) {
    setValue('session', service.session);
    [element('mac_major').textContent, element('mac_minor').textContent,
        element('mac_build').textContent] = service.newestVersion;
    element('update_url').textContent = service.updateUrl;
    element('update_url').href = service.updateUrl;
}

async function start() {
    showPanel('waiting');
    const query = window.location.search;
    const file = readQuery(query);
    // The page must not signal "session" here: the client would load the same query again.
    if (query && !file) {
        showFailure('The query of the page does not name a file.');
        return;
    }
    try {
        const service = await requestJson('session', { session: file ? file.session : null });
        publish(service);
        if (file && service.automatic) {
            await requestToken(file);
        } else if (file) {
            askAbout(file);
        } else {
            showPanel('ready');
            signal('index');
            signal('session');
        }
    } catch (error) {
        showFailure(error.message);
    }
}

element('script_hint').remove();
start();
