"""Uses the window through its accessibility tree, as a screen reader does: window_test.py
QUENMOOR_UPLOAD DEVSERVICE QUENMOOR_PUT. Needs a session bus; starts its own display and service.
"""
import os
import subprocess
import sys
import time

import pyatspi

from programs import (close_window, start, start_display, text_after, trust, windows, work_folder)


def below(node):
    for child in node:
        if child.getState().contains(pyatspi.STATE_SHOWING):
            yield child
            yield from below(child)


def shown(window="Quenmoor"):
    return [node for app in pyatspi.Registry.getDesktop(0) if app.name == "quenmoor-upload"
            for top in app if top.name.startswith(window) for node in below(top)]


def wait_for(find, what):
    end = time.monotonic() + 40
    while time.monotonic() < end:
        try:
            if found := find():
                return found
        except Exception:  # an object disappeared while it was read
            pass
        time.sleep(0.1)
    sys.exit(f"no {what} in {[(node.getRoleName(), node.name) for node in shown('')]}")


def control(name, role="push button", window="Quenmoor"):
    return wait_for(lambda: next(node for node in shown(window)
                                 if (node.name, node.getRoleName()) == (name, role)), name)


def press(name, window="Quenmoor"):
    def act():
        button = next(node for node in shown(window)
                      if (node.name, node.getRoleName()) == (name, "push button"))
        unnamed = [node.getRoleName() for node in shown(window) if not node.name and
                   node.getState().contains(pyatspi.STATE_FOCUSABLE)]
        return button.queryAction().doAction(0), unnamed

    _, unnamed = wait_for(act, name)
    assert set(unnamed) <= {"table cell"}, f"{unnamed} without a name"


def wait_for_focus(name):
    wait_for(lambda: next(node for node in shown() if node.name == name and
                          node.getState().contains(pyatspi.STATE_FOCUSED)), f"focus on {name}")


def key(name):
    window = ["xdotool", "search", "--name", "Quenmoor Upload - v", "windowfocus", "--sync"]
    subprocess.run([*window, "key", name], check=True)


def answer_page(file, button):
    control(file, "heading")
    time.sleep(0.5)  # a second press within the time of a double click is not for this page
    press(button)  # moves the focus, which is the only action of a page's button
    wait_for_focus(button)
    key("space")


def choose(path):
    press("Browse")
    control("File name:", "text", "Choose Files").queryEditableText().setTextContents(str(path))
    press("Open", "Choose Files")


def use_window(work, upload, put, start_service):
    """Answers each of the service's and the client's questions."""
    store, chosen = work / "store", work / "100%25 [chosen] &.mov"
    odd = work / os.fsdecode(b"two\nlines%41\xFF.mov")
    for path in (work / "clip.mov", work / "held.mov", store / "held.mov", work / "no.mov", chosen):
        path.write_text(str(path))
    odd.write_bytes(bytes(1_234_567))
    # The service ends the first attempt, so that it holds a part. The file changes then, which shows
    # whether the part was kept.
    service = start_service("--token", "t", "--page-port", "8443", "--fault", "drop-after=500000",
                            "--fault-count", "1")
    text_after("Page: ", service)
    half = work / "half.mov"
    half.write_bytes(b"1" * 2_000_000)
    subprocess.run([put, "--host", "127.0.0.1", "--token", "t", "--retries", "0", half], check=False)
    half.write_bytes(b"2" * 2_000_000)

    window = start(upload, work / "clip.mov", work / "held.mov", work, work / "gone", half,
                   work / "no.mov", odd, work / "clip.mov")
    control("1 folder was skipped, 1 file was not found.", "notification")
    control("Upload")
    for name in ("Browse", "Upload"):  # out of the page and back to it
        key("F6")
        wait_for_focus(name)
    key("space")
    answer_page("held.mov", "Upload")
    press("Cancel", "File Exists")
    control("1 of 2 finished, 1 canceled", "label")

    control("half.mov", "heading")
    service.kill()
    service.wait()
    answer_page("half.mov", "Upload")
    control("The request failed", "heading")
    text_after("Page: ", start_service("--token", "t", "--page-port", "8443"))
    answer_page("The request failed", "Try Again")
    answer_page("half.mov", "Upload")
    press("Resume", "File Exists")
    answer_page("no.mov", "Cancel")
    control("1.2 MB (1,234,567 bytes)", "label")
    close_window(windows(window.pid, "Quenmoor Upload - v")[0])
    press("No", "Not all")
    wait_for(lambda: not shown("Not all"), "end of the question")
    choose(chosen)
    answer_page("two lines%41\uFFFD.mov", "Upload")
    answer_page("clip.mov", "Upload")
    press("Overwrite", "File Exists")
    answer_page(chosen.name, "Upload")
    control("5 of 6 finished, 1 canceled", "label")
    control("Finished", "table cell")
    key("Shift_L")  # no window manager activates the window after the alert
    wait_for_focus("Browse")
    close_window(windows(window.pid, "Quenmoor Upload - v")[0])
    assert window.wait(20) == 0
    for path in (work / "clip.mov", odd, chosen):
        assert (store / path.name).read_bytes() == path.read_bytes(), path
    assert (store / "held.mov").read_text() == str(store / "held.mov")
    assert set((store / "half.mov").read_bytes()) == set(b"12")
    assert not (store / "no.mov").exists()


def update(work, upload, start_service):
    """A client that is too old opens the address of the newest one and exits."""
    url = "https://downloads.example/newest?a=1&b=2"
    service = start_service("--newest-version", "99.0.1", "--update-url", url)
    trust(work, text_after("Certificate: ", service))
    browser = work / "bin/xdg-open"
    browser.parent.mkdir()
    browser.write_text(f"#!/bin/sh\necho \"$1\" >'{work}/opened'\n")
    browser.chmod(0o755)
    os.environ["PATH"] = f"{work}/bin:{os.environ['PATH']}"
    window = start(upload)
    press("OK", "")
    assert window.wait(20) == 0
    wait_for(lambda: (work / "opened").read_text() == url + "\n", "browser")
    service.terminate()
    service.wait(20)


def run(work, upload, devservice, put):
    def start_service(*options):
        return start(devservice, "--root", work / "store", "--state", work / "state", *options)

    start_display(work)
    os.environ["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1"
    update(work, upload, start_service)
    use_window(work, upload, put, start_service)


with work_folder() as folder:
    run(folder, *sys.argv[1:])
