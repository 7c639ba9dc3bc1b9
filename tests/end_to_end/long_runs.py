"""Long runs of the real programs: long_runs.py small-files|large-file|window|clients|stops PROGRAMS
SIZE. PROGRAMS is the folder of the programs, SIZE the number of files, clients or stops, or of GiB.

Prints figures for each tenth of the run. Fails if a stored byte differs, a file is missing or out of
order, or if memory, threads, descriptors or the time for a tenth grow.
"""
import contextlib
import json
import os
import pathlib
import random
import re
import socket
import struct
import subprocess
import sys
import threading
import time

import psutil

from programs import (close_window, start, start_display, text_after, trust, windows, work_folder)


def expect(holds, failure):
    if not holds:
        sys.exit(f"long_runs.py: {failure}")


def usage(pid):
    """Returns the MiB in memory, threads and descriptors of a process and its descendants."""
    try:
        parts = [psutil.Process(pid)]
        parts += parts[0].children(recursive=True)
        return (sum(part.memory_info().rss for part in parts) >> 20,
                sum(part.num_threads() for part in parts), sum(part.num_fds() for part in parts))
    except psutil.NoSuchProcess:  # it ended after its last file
        return 0, 0, 0


class Growth:
    """Compares the later tenths of a run with the first one. `programs` are names and children."""

    def __init__(self, **programs):
        self.programs = programs
        self.tenths = []
        self.last = time.monotonic()

    def reached(self, part):
        """Call it often, with the part of the work that is done, 0 to 1."""
        if part < (len(self.tenths) + 1) / 10 - 0.01:
            return
        now = time.monotonic()
        tenth = {name: usage(child.pid) for name, child in self.programs.items()}
        self.tenths.append((now - self.last, tenth))
        self.last = now
        print(f"{len(self.tenths)}0 %: {self.tenths[-1][0]:.1f} s; MiB, threads, descriptors:",
              tenth, flush=True)

    def check(self):
        expect(len(self.tenths) == 10, f"{len(self.tenths)} tenths instead of 10")
        first_seconds, first = self.tenths[0]
        # The fastest of three, because the machine may have other work.
        last_seconds = min(seconds for seconds, _ in self.tenths[-3:])
        expect(last_seconds < 1.5 * first_seconds + 1, "the time for a tenth has grown")
        for name, values in first.items():
            for i, value in enumerate(values):
                most = max(tenth[name][i] for _, tenth in self.tenths)
                expect(most <= 1.25 * value + 16, f"{name} has grown from {value} to {most}")


def check_store(store, paths):
    expect({path.name for path in store.glob("*.mov")} == {path.name for path in paths},
           "the store has other files")
    expect(not os.listdir(store / ".quenmoor/parts"), "the store has incomplete files")
    for path in paths:
        expect(subprocess.run(["cmp", path, store / path.name], check=False).returncode == 0,
               f"{path.name} differs")
    print(f"{len(paths)} files are identical")


def small_files_in(folder, count):
    folder.mkdir()
    sizes = random.Random(count)
    paths = [folder / f"{i:05}.mov" for i in range(count)]
    for path in paths:
        path.write_bytes(sizes.randbytes(sizes.randrange(100_000)))
    return paths


def start_service(work, programs, *options):
    """Returns the service, and the address that it listens on."""
    with (work / "service.log").open("a") as log:
        service = start(programs / "quenmoor-devservice", "--root", work / "store", *options,
                        stderr=log)
    return service, text_after("Listening on ", service).split(",")[0]


def start_put(programs, address, *arguments):
    return start(programs / "quenmoor-put", "--host", address, "--json", *arguments,
                 stderr=subprocess.DEVNULL)


def small_files(work, programs, count):
    paths = small_files_in(work / "files", count)
    (work / "list").write_text("".join(f"t\t{path}\n" for path in paths))
    service, address = start_service(work, programs, "--port", "0", "--token", "t")
    put = start_put(programs, address, "--files-from", work / "list")
    growth = Growth(put=put, service=service)
    rows = []
    for event in map(json.loads, put.stdout):
        if event["event"] == "finished":
            rows.append(event["row"])
            growth.reached(len(rows) / count)
    expect(put.wait() == 0, f"quenmoor-put ended with {put.returncode}")
    expect(rows == list(range(count)), "files are missing or out of order")
    return growth, paths


def large_file(work, programs, gib):
    """Kills the client in the middle and the service after three quarters."""
    size = gib << 30
    path = work / "large.mov"
    content = random.Random(gib)
    with path.open("wb") as file:
        file.truncate(size)
        # No other block equals one of these, so that a shifted part is noticed.
        for position in [*range(0, size, 256 << 20), min(size, 4 << 30) - 40_000, size - 65_536]:
            file.seek(position)
            file.write(content.randbytes(65_536))
    service, address = start_service(work, programs, "--port", "0", "--token", "t")
    growth = Growth(service=service)

    def follow(put, until):
        """Returns when `until` bytes are sent or the file is finished, then with the event."""
        growth.programs["put"] = put
        for event in map(json.loads, put.stdout):
            if event["event"] == "finished":
                return event
            if event["event"] == "rate":
                growth.reached(event["bytes"] / size)
                if event["bytes"] >= until:
                    return None
        sys.exit(f"quenmoor-put ended with {put.wait()}")

    first = start_put(programs, address, "--token", "t", path)
    follow(first, size // 2)
    first.kill()
    second = start_put(programs, address, "--token", "t", "--existing", "resume", path)
    follow(second, size * 3 // 4)
    service.kill()
    service.wait()
    growth.programs["service"], _ = start_service(work, programs, "--token", "t", "--port",
                                                  address.split(":")[1])
    finished = follow(second, size + 1)
    expect(second.wait() == 0, f"quenmoor-put ended with {second.returncode}")
    growth.reached(1)
    resumed, sent = finished["resumed_bytes"], finished["sent_bytes"]
    print(f"resumed at {resumed} of {size} bytes, sent {sent}")
    unconfirmed = 64 << 20  # more than the buffers of both ends
    expect(resumed > size // 2 - unconfirmed, "the copy was not resumed")
    expect(resumed + sent < size + unconfirmed, "parts were sent twice")
    return growth, [path]


def window(work, programs, count):
    paths = small_files_in(work / "files", count)
    service, _ = start_service(work, programs, "--state", work / "state", "--auto")
    trust(work, text_after("Certificate: ", service))
    start_display(work)
    os.environ["DBUS_SESSION_BUS_ADDRESS"] = "disabled:"
    with (work / "window.log").open("w") as log:
        client = start(programs / "quenmoor-upload", *paths, stderr=log)
    growth = Growth(window=client, service=service)
    log = (work / "window.log").open(errors="replace")
    stored, changed, pauses = 0, time.monotonic(), []
    while stored < count:
        time.sleep(0.1)
        before, stored = stored, len(list((work / "store").glob("*.mov")))
        growth.reached(stored / count)
        pause = time.monotonic() - changed
        for line in filter(re.compile("Attempt .* failed").search, log):
            print(f"{pause:.1f} s after file {stored}: {line}", end="", flush=True)
        running = pause < 120 and client.poll() is None
        if pauses and pause > 10 and stored > before or not running:
            for path in work.glob("*.log"):
                print(f"-- {path.name} after {pause:.1f} s without a file",
                      path.read_text(errors="replace")[-5000:], sep="\n", flush=True)
        expect(running, f"the window stopped after {stored} files")
        if stored > before:
            pauses.append(pause)
            changed = time.monotonic()
    print(f"the longest time without a finished file: {max(pauses[1:]):.1f} s")
    times = [(work / "store" / path.name).stat().st_mtime_ns for path in paths]
    expect(times == sorted(times), "files are out of order")
    time.sleep(2)  # the last status arrives after the last file
    close_window(windows(client.pid, "Quenmoor Upload - v")[0])
    expect(client.wait(20) == 0, f"the window ended with {client.returncode}")
    return growth, paths


def abandoned_client(port, steps):
    """Returns the socket of a client without a valid token that has taken 1 to 4 steps."""
    client = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    client.settimeout(3)
    client.connect(("127.0.0.1", port))

    def handshake(kind, cookie):
        # UDT 4: a header of four words, then version, stream type, first number, packet size,
        # window, kind, socket, cookie and address.
        client.send(struct.pack("!9Ii6I", 1 << 31, 0, 0, 0, 4, 1, 1000, 1500, 25600, kind, 77,
                                cookie, 0, 0, 0, 0))
        reply = b""
        while len(reply) != 64 or reply[:4] != b"\x80\0\0\0":
            reply = client.recv(2048)
        return struct.unpack("!16I", reply)

    cookie = handshake(1, 0)[11]
    if steps > 1:
        peer = handshake(-1, cookie)[10]
    if steps > 2:
        request = (b"<RequestContainer><size>10</size><token>unknown</token>"
                   b"<originFilename>a.mov</originFilename></RequestContainer>")
        client.send(struct.pack("!4I", 1000, 0xE0000001, 0, peer) +
                    request[:40 if steps == 3 else None])
    return client


def clients(work, programs, count):
    """300 clients at a time, with pauses, of which none completes its attempt. Then an upload."""
    service, address = start_service(work, programs, "--port", "0", "--token", "t")
    parts = psutil.Process(service.pid).children()
    first = usage(service.pid)
    growth = Growth(service=service)
    for done in range(0, count, 300):
        group = [abandoned_client(int(address.split(":")[1]), i % 4 + 1) for i in range(300)]
        time.sleep(31)
        growth.reached((done + len(group)) / count)
    del group
    time.sleep(31)
    last = usage(service.pid)
    print(f"MiB, threads, descriptors: {first} before, {last} after")
    expect(last[1:] == first[1:], "sessions remain")
    expect(psutil.Process(service.pid).children() == parts, "the transfer server was restarted")
    paths = small_files_in(work / "files", 1)
    put = start_put(programs, address, "--token", "t", *paths)
    expect(put.wait() == 0, f"quenmoor-put ended with {put.returncode}")
    return growth, paths


def connect_until_end(service, port):
    while service.returncode is None:
        with contextlib.suppress(OSError):
            abandoned_client(port, 2)


def stops(work, programs, count):
    """Stops a service while clients connect to it."""
    growth = Growth()
    for number in range(count):
        service, address = start_service(work, programs, "--port", "0", "--token", "t")
        for _ in range(3):
            threading.Thread(target=connect_until_end, daemon=True,
                             args=(service, int(address.split(":")[1]))).start()
        time.sleep(random.uniform(0.1, 0.6))
        service.terminate()
        expect(service.wait(20) == 0, f"stop {number} ended with {service.returncode}")
        growth.reached((number + 1) / count)
    return growth, []


with work_folder() as folder:
    run = {"small-files": small_files, "large-file": large_file, "window": window,
           "clients": clients, "stops": stops}[sys.argv[1]]
    result, sent = run(folder, pathlib.Path(sys.argv[2]), int(sys.argv[3]))
    check_store(folder / "store", sent)
    result.check()
