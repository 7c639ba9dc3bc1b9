"""Ends the real programs at random moments: random_ends.py put|window PROGRAMS COUNT [SEED].

Each round starts a service with a fault and clients, ends each by a signal or by closing its window,
and resumes some of the uploads. Every program must exit in time with its documented status and
without a report of a sanitizer. The seed repeats the choices of a run. After a failure the standard
error of the programs and the reports remain in a folder that is printed."""
import collections
import contextlib
import json
import os
import pathlib
import random
import re
import signal
import subprocess
import sys
import tempfile
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
        self.logs = pathlib.Path(tempfile.mkdtemp(prefix="random_ends_"))
        self.counts = collections.Counter()
        self.label, self.longest = "start", (0, "")

    def start(self, program, *arguments, **options):
        with (self.logs / f"{program}.{len(list(self.logs.iterdir()))}").open("w") as log:
            return start(self.programs / program, *arguments, stderr=log, **options)

    def start_service(self, fault=None):
        # The ports of the window are built in. A port that was free before may have a new user.
        window = self.kind == "window"
        page = ["--page-port", "8443", "--auto"] if window else []
        self.service = self.start("quenmoor-devservice", "--root", self.work / "store",
                                  "--state", self.work / "state", "--port",
                                  "65000" if window else "0", "--token", "t", *page,
                                  *(["--fault", fault] if fault else []))
        self.port = text_after("Listening on ", self.service).split(",")[0].split(":")[1]
        if page:
            self.certificate = text_after("Certificate: ", self.service)

    def end_service(self, number):
        self.service.send_signal(number)
        self.wait_for(self.service)
        self.expect(self.service.returncode == 0, f"service: {self.service.returncode}")

    def wait_for(self, child):
        try:
            child.wait(LIMIT)
        except subprocess.TimeoutExpired:
            subprocess.run(f"for p in {child.pid} $(pgrep -P {child.pid}); do"
                           " gdb -p $p -batch -ex 'thread apply all backtrace'; done"
                           f" >{self.logs}/stacks 2>&1", shell=True, check=False)
            self.expect(False, f"{child.args[0]} did not exit within {LIMIT} s")

    def put(self, path, *options):
        return self.start("quenmoor-put", "--host", f"127.0.0.1:{self.port}", "--token", "t",
                          "--json", *options, path)

    def client(self, path):
        if self.kind == "put":
            return self.put(path, "--limit-rate", self.random.choice(["2M", "20M", "1G"]))
        return self.start("quenmoor-upload", path, stdout=subprocess.DEVNULL)

    def expect(self, holds, failure):
        reports = list(self.logs.glob("report*"))
        if holds and not reports:
            return
        for _ in range(150):  # a report grows for seconds while its stacks are resolved
            if all("SUMMARY:" in report.read_text() for report in reports):
                break
            time.sleep(0.2)
        print(*(report.read_text() for report in reports))
        sys.exit(f"random_ends.py: {failure}; {self.label}; logs are in {self.logs}")

    def end(self, client):
        """Ends the client and returns the statuses that this may have."""
        how = self.random.choice([*SIGNALS, *(["close"] if self.kind == "window" else [])])
        shown = windows(client.pid, "Quenmoor Upload - v") if how == "close" else []
        if shown:
            close_window(shown[0])
            for answers in (False, True):  # it may ask whether to quit
                if answers and not self.answer_yes(client):
                    break
                with contextlib.suppress(subprocess.TimeoutExpired):
                    client.wait(2)  # on a busy machine the question may not have the focus
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
        statuses = self.end(client) if client.poll() is None else []
        began = time.monotonic()
        self.wait_for(client)
        took = time.monotonic() - began
        self.longest = max(self.longest, (took, f"{self.label}, status {client.returncode}"))
        self.counts[client.returncode] += 1
        # The last file may finish at the moment of the signal.
        self.expect(client.returncode in [0, *statuses], f"status {client.returncode}")
        if self.kind == "put" and client.returncode > 0 and took < 0.8:
            last = json.loads(client.stdout.readlines()[-1])
            self.expect(last["event"] == "summary" and last["interrupted"], f"{last}")

    def round(self, number, count):
        self.label = f"seed {self.seed}, round {number}"
        self.random = random.Random(self.label)
        paths = [self.work / os.fsdecode(b"-\xE9\n<b>&amp;%%25#?a=%d-%d" % (number, i))
                 for i in range(count)]
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
            status = self.put(path, "--existing", "skip").wait(120)
            self.expect(status == 0, f"{path.name} was not resumed: {status}")
            stored = (self.work / "store" / path.name).read_bytes()
            self.expect(stored == path.read_bytes(), f"{path.name} differs")
        self.end_service(signal.SIGTERM)
        for path in paths:
            path.unlink()
            (self.work / "store" / path.name).unlink(missing_ok=True)
        for log in self.logs.iterdir():
            log.unlink()


def run(work, kind, programs, count, seed=1):
    # A caller such as nohup may ignore them, and the children would inherit that.
    for number in SIGNALS:
        signal.signal(number, lambda *_: sys.exit("random_ends.py: interrupted"))
    ends = Ends(work, kind, programs, seed)
    for name in ("ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"):
        os.environ[name] = os.environ.get(name, "") + f":log_path={ends.logs}/report:exitcode=99"
    # A program whose thread is blocked in the link exits without it. The sleep is for such threads;
    # the signal of a time limit that arrives during it has blocked an exit for seconds.
    os.environ["TSAN_OPTIONS"] += ":report_thread_leaks=0:atexit_sleep_ms=0"
    (work / "store").mkdir()
    if kind == "window":
        ends.start_service()
        trust(work, ends.certificate)
        ends.end_service(signal.SIGTERM)
        start_display(work)
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = "disabled:"
    clients = 8 if kind == "put" else 3
    for number in range((count + clients - 1) // clients):
        ends.round(number, clients)
    by_status = ", ".join(f"{key}: {value}" for key, value in ends.counts.items())
    ends.logs.rmdir()
    print(f"seed {seed}: ended by status {by_status}; the longest exit took",
          f"{ends.longest[0]:.1f} s ({ends.longest[1]})")


with work_folder() as folder:
    run(folder, sys.argv[1], pathlib.Path(sys.argv[2]), *map(int, sys.argv[3:]))
