// The upload page's side of the conversation with the client.
//
// The client reads the document's title as a signal, and with it the elements "session", "token",
// "mac_major", "mac_minor", "mac_build" and "update_url". Loaded without a query the page says
// "index" (it is there, and which client is the newest) and then "session". Loaded for a file it
// asks the user, and says "upload" and "token", or "cancel".
'use strict';

const kGreatestSize = 9223372036854775807n;

const element = id => document.getElementById(id);

function signal(word) {
    document.title = word;
}

// The client reads the attribute, not what a form field shows.
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

// The three parts of "?session=...&filename=...&size=...", as they stand. A name may hold "&" and
// "=", even "&size=" itself, so the keys are taken by their places. Null when they are not there.
function readQuery(query) {
    const parts = /^\?session=(.*?)&filename=(.*)&size=(\d{1,19})$/s.exec(query);
    if (!parts || BigInt(parts[3]) > kGreatestSize)
        return null;
    return { session: parts[1], filename: parts[2], size: parts[3] };
}

// The bytes of a name, for the eye: they need not be UTF-8.
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

// "1.2 GB (1,234,567,890 bytes)"
function displaySize(size) {
    const exact = BigInt(size).toLocaleString('en-US') + (size === '1' ? ' byte' : ' bytes');
    const units = ['kB', 'MB', 'GB', 'TB', 'PB', 'EB'];
    let value = Number(size);
    if (value < 1000)
        return exact;
    let unit = -1;
    // 999.95 would be written as 1000.0
    while (value >= 999.95 && unit + 1 < units.length) {
        value /= 1000;
        ++unit;
    }
    return unit < 0 ? exact : `${value.toFixed(1)} ${units[unit]} (${exact})`;
}

// The service's answer. Throws an error whose message is for the user.
async function ask(path, question) {
    const request = {
        method: 'POST',
        headers: { 'Content-Type': 'application/json' },
        body: JSON.stringify(question),
    };
    const answer = await fetch(path, request).catch(() => {
        throw new Error('The service cannot be reached.');
    });
    const body = await answer.json().catch(() => ({}));
    if (!answer.ok)
        throw new Error(body.error ?? `The service answered with error ${answer.status}.`);
    return body;
}

async function handOver(file) {
    element('upload').disabled = element('cancel').disabled = true;
    try {
        const { token } = await ask('token', {
            session: element('session').getAttribute('value'),
            filename: file.filename,
            size: file.size,
        });
        setValue('token', token);
        element('outcome').textContent = 'Handed over';
        element('outcome_detail').textContent = 'The client sends the file from here.';
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
        handOver(file);
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
    // To signal "session" here would make the client load the same query again, for ever.
    if (query && !file) {
        showFailure('The page was not told which file it is about.');
        return;
    }
    try {
        const service = await ask('session', { session: file ? file.session : null });
        publish(service);
        if (file && service.automatic) {
            await handOver(file);
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

start();
