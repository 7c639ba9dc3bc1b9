"""Ends the real programs at random moments: random_ends.py put|window PROGRAMS COUNT [SEED].

Each round starts a service with a fault and several clients, and ends each client by a signal, or by
closing its window. Then some of the uploads are resumed. Every program must exit in time with its
documented status and without a report of a sanitizer. The seed repeats the choices of a run; the
state that a program is in at the chosen moment may differ.
"""
import collections
import json
import os
import pathlib
import random
import re
import signal
import subprocess
import sys
import time

from programs import (close_window, start, start_display, text_after, trust, windows, work_folder)

SIGNALS = [signal.SIGTERM, signal.SIGINT, signal.SIGHUP]
# None is no service; the others last for one attempt each.
FAULTS = ["no-closing-document", "never-answer", "refuse-rendezvous", None, "stop-reading=1000000",
          "slow-reading=2000000", "answer-late=700", "drop-after=300000"]
LIMIT = 8  # seconds; below the 10 and 30 seconds after which a blocked link returns


def handles_signals(pid):
    """Returns whether the process has a handler for one of SIGNALS."""
    caught = re.search(r"SigCgt:\s+(\w+)", pathlib.Path(f"/proc/{pid}/status").read_text())[1]
    return any(int(caught, 16) >> (number - 1) & 1 for number in SIGNALS)


class Ends:
    """One run. `kind` is "put" or "window"; the members of a round are replaced by the next one."""

    def __init__(self, work, kind, programs, seed):
        self.work, self.kind, self.programs, self.seed = work, kind, programs, seed
        self.counts = collections.Counter()
        self.longest = 0
        self.port = "65000" if kind == "window" else "0"  # the window's port is built in

    def start_service(self, fault=None):
        page = ["--page-port", "8443", "--auto"] if self.kind == "window" else []
        self.service = start(self.programs / "quenmoor-devservice", "--root", self.work / "store",
                             "--state", self.work / "state", "--port", self.port, "--token", "t",
                             *page, *(["--fault", fault] if fault else []),
                             stderr=subprocess.DEVNULL)
        self.port = text_after("Listening on ", self.service).split(",")[0].split(":")[1]
        if page:
            self.certificate = text_after("Certificate: ", self.service)

    def end_service(self, number, status=0):
        self.service.send_signal(number)
        self.expect(self.service.wait(LIMIT) == status, f"service: {self.service.returncode}")

    def put(self, path, *options):
        return start(self.programs / "quenmoor-put", "--host", f"127.0.0.1:{self.port}",
                     "--token", "t", "--json", *options, path, stderr=subprocess.DEVNULL)

    def client(self, path):
        if self.kind == "put":
            return self.put(path, "--limit-rate", self.random.choice(["2M", "20M", "1G"]))
        return start(self.programs / "quenmoor-upload", path, stdout=subprocess.DEVNULL,
                     stderr=subprocess.DEVNULL)

    def expect(self, holds, failure):
        for report in self.work.glob("report*"):
            print(report.read_text())
            holds = False
        if not holds:
            sys.exit(f"random_ends.py: {failure}; {self.label}")

    def end(self, client):
        """Ends the client and returns the statuses that this may have."""
        how = self.random.choice([*SIGNALS, *(["close"] if self.kind == "window" else [])])
        shown = windows(client.pid, "Quenmoor Upload - v") if how == "close" else []
        if shown:
            close_window(shown[0])
            try:
                client.wait(2)
                return [0]
            except subprocess.TimeoutExpired:  # it asks whether to quit
                if self.answer_yes(client):
                    return [0]
        number = how if how != "close" else signal.SIGTERM
        handled = handles_signals(client.pid)
        client.send_signal(number)
        twice = self.random.random() < 0.1
        if twice:
            client.send_signal(number)
        # A program that starts handles no signal yet, and later only the first one.
        return [128 + number, *([-number] if twice or not handled else [])]

    def answer_yes(self, client):
        questions = windows(client.pid, "^Quenmoor Upload$")
        if not questions or self.random.random() < 0.5:
            return False
        self.counts["answered Yes"] += 1
        subprocess.run(["xdotool", "windowfocus", "--sync", str(questions[0]), "sleep", "1.5",
                        "key", "Tab", "key", "space"], check=True)
        return True

    def end_after(self, age, client, started):
        time.sleep(max(0, started + age - time.monotonic()))
        finished = client.poll()
        statuses = [0] if finished is not None else self.end(client)
        began = time.monotonic()
        try:
            client.wait(LIMIT)
        except subprocess.TimeoutExpired:
            self.expect(False, f"no exit within {LIMIT} s")
        took = time.monotonic() - began
        self.longest = max(self.longest, took)
        self.counts[client.returncode] += 1
        # The last file may finish at the moment of the signal.
        self.expect(client.returncode in [0, *statuses], f"status {client.returncode}")
        if self.kind == "put" and client.returncode > 0 and took < 0.8:
            last = json.loads(client.stdout.readlines()[-1])
            self.expect(last["event"] == "summary" and last["interrupted"], f"{last}")

    def expect_stored(self, path, put):
        self.expect(put.wait(120) == 0, f"{path.name} was not resumed: {put.returncode}")
        stored = self.work / "store" / path.name
        self.expect(stored.read_bytes() == path.read_bytes(), f"{path.name} differs")

    def round(self, number, count):
        self.label = f"seed {self.seed}, round {number}"
        self.random = random.Random(self.label)
        paths = [self.work / f"{number}-{i}.mov" for i in range(count)]
        for path in paths:
            path.write_bytes(self.random.randbytes(self.random.randrange(20_000_000)))
        if self.kind == "window":  # it asks what to do with this copy
            (self.work / "store" / paths[0].name).write_text("another file")
        fault = FAULTS[number % len(FAULTS)]
        if fault:
            self.start_service(fault)
        clients = [self.client(path) for path in paths]
        started = time.monotonic()
        ages = [self.random.uniform(0, 4 if self.kind == "put" else 12) for _ in paths]
        for age, client in sorted(zip(ages, clients), key=lambda end: end[0]):
            self.end_after(age, client, started)
        if fault:
            self.end_service(self.random.choice(SIGNALS[:2]))
        self.start_service()
        for path in paths[1:3]:
            put = self.put(path, "--existing", "skip")
            self.expect_stored(path, put)
        if number % 10 == 0 and self.kind == "put":
            self.restart_service()
        self.end_service(signal.SIGTERM)
        for path in paths:
            path.unlink()
            (self.work / "store" / path.name).unlink(missing_ok=True)

    def restart_service(self):
        """Kills the service during an upload, which must finish with the next one."""
        path = self.work / "restart.mov"
        path.write_bytes(self.random.randbytes(30_000_000))
        put = self.put(path, "--limit-rate", "10M", "--existing", "overwrite")
        time.sleep(self.random.uniform(1, 2.5))
        self.end_service(signal.SIGKILL, -signal.SIGKILL)
        self.start_service()
        self.expect_stored(path, put)


def run(work, kind, programs, count, seed=1):
    # A caller such as nohup may ignore them, and the children would inherit that.
    for number in SIGNALS:
        signal.signal(number, lambda *_: sys.exit("random_ends.py: interrupted"))
    for name in ("ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"):
        os.environ[name] = os.environ.get(name, "") + f":log_path={work}/report:exitcode=99"
    # A program whose thread is blocked in the link exits without it.
    os.environ["TSAN_OPTIONS"] += ":report_thread_leaks=0"
    ends = Ends(work, kind, programs, seed)
    (work / "store").mkdir()
    if kind == "window":
        ends.label = "start"
        ends.start_service()
        trust(work, ends.certificate)
        ends.end_service(signal.SIGTERM)
        start_display(work)
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = "disabled:"
    clients = 8 if kind == "put" else 3
    for number in range((count + clients - 1) // clients):
        ends.round(number, clients)
    by_status = ", ".join(f"{key}: {value}" for key, value in ends.counts.items())
    print(f"seed {seed}: ended by status {by_status}; the longest exit took {ends.longest:.1f} s")


with work_folder() as folder:
    run(folder, sys.argv[1], pathlib.Path(sys.argv[2]), *map(int, sys.argv[3:]))
