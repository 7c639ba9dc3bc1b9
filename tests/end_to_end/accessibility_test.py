# Uses the window through its accessibility tree, as a screen reader does: accessibility_test.py
# QUENMOOR_UPLOAD DEVSERVICE. Needs a session bus; starts its own display, service and window.
import os
import pathlib
import subprocess
import sys
import tempfile
import time

import pyatspi

children = []


def start(*command):
    children.append(subprocess.Popen(command, stdout=subprocess.PIPE, text=True))
    return children[-1].stdout


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
    button = control(name, window=window)
    for node in shown(window):
        if node.getState().contains(pyatspi.STATE_FOCUSABLE) and not node.name:
            assert node.getRoleName() == "table cell", f"{node.getRoleName()} without a name"
    button.queryAction().doAction(0)


def key(name, focused=None):
    window = ["xdotool", "search", "--name", "Quenmoor Upload - v", "windowfocus", "--sync"]
    subprocess.run([*window, "key", name], check=True)
    wait_for(lambda: not focused or next(
        node for node in shown() if node.name == focused and
        node.getState().contains(pyatspi.STATE_FOCUSED)), f"focus on {focused}")


def use_window(work, upload, devservice):
    display = start("Xvfb", "-displayfd", "1", "-screen", "0", "1000x800x24").readline()
    service = start(devservice, "--root", work / "store", "--state", work / "state")
    certificate = next(line for line in service if line.startswith("Certificate: "))[13:].strip()
    (work / ".pki/nssdb").mkdir(parents=True)
    for options in (["-N", "--empty-password"],
                    ["-A", "-t", "CP,,", "-n", "test", "-i", certificate]):
        subprocess.run(["certutil", "-d", f"sql:{work}/.pki/nssdb", *options], check=True)
    os.environ.update(DISPLAY=f":{display.strip()}", HOME=str(work), QT_QPA_PLATFORM="xcb",
                      QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1",
                      # X's keyboard library copies strings that have no terminator.
                      ASAN_OPTIONS=os.environ.get("ASAN_OPTIONS", "").replace(
                          "strict_string_checks=1", "strict_string_checks=0"))
    for path in ("clip.mov", "held.mov", "store/held.mov"):
        (work / path).write_text(path)
    start(upload, work / "clip.mov", work / "held.mov", work, work / "gone")

    control("1 folder was skipped, 1 file was not found.", "notification")
    press("Browse")
    press("Cancel", "Choose Files")
    wait_for(lambda: not shown("Choose Files"), "end of the file chooser")
    key("F6", focused="Browse")
    key("F6", focused="Upload")  # in the page
    key("space")
    control("held.mov", "heading")
    key("Shift_L", focused="Upload")
    key("space")
    press("Cancel", "File Exists")
    control("Finished", "table cell")
    control("Canceled", "table cell")
    key("Shift_L", focused="Browse")  # no window manager activates the window after the alert


with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
    try:
        use_window(pathlib.Path(folder), *sys.argv[1:])
    finally:
        for child in reversed(children):
            child.terminate()
            child.wait(20)
