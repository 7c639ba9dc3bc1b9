# Uses the window through its accessibility tree, as a screen reader does: accessibility_test.py
# QUENMOOR_UPLOAD DEVSERVICE. Needs a session bus; starts its own display, service and window.
import os
import pathlib
import subprocess
import sys
import tempfile
import time

import pyatspi

work = pathlib.Path(tempfile.mkdtemp(prefix="quenmoor-"))
children = []


def start(*command, **options):
    children.append(subprocess.Popen(command, stdout=subprocess.PIPE, text=True, **options))
    return children[-1]


def wait_for(find, what):
    end = time.monotonic() + 40
    while time.monotonic() < end:
        try:
            found = find()
        except Exception:  # an object disappeared while it was read
            found = None
        if found:
            return found
        time.sleep(0.1)
    seen = "\n".join(f"{node.getRoleName()}: {node.name}" for node in shown())
    sys.exit(f"{what} did not appear. The windows show:\n{seen}")


def below(node):
    for child in node:
        if child.getState().contains(pyatspi.STATE_SHOWING):
            yield child
            yield from below(child)


def shown(window=""):
    return [node for app in pyatspi.Registry.getDesktop(0) if app.name == "quenmoor-upload"
            for top in app if top.name.startswith(window) for node in below(top)]


def control(name, role="push button", window="Quenmoor"):
    return wait_for(lambda: next((node for node in shown(window)
                                  if (node.name, node.getRoleName()) == (name, role)), None), name)


def press(name, window="Quenmoor"):
    button = control(name, window=window)
    for node in shown(window):
        role = node.getRoleName()
        if node.getState().contains(pyatspi.STATE_FOCUSABLE) and role != "table cell":
            assert node.name, f"a {role} in {node.parent.name} has no name"
    button.queryAction().doAction(0)


def focused(name):
    wait_for(lambda: any(node.name == name and node.getState().contains(pyatspi.STATE_FOCUSED)
                         for node in shown()), f"the focus on {name}")


def key(name):
    window = ["xdotool", "search", "--name", "Quenmoor Upload - v", "windowfocus", "--sync"]
    subprocess.run([*window, "key", "--clearmodifiers", name], check=True)


def use_window(upload, devservice):
    display = start("Xvfb", "-displayfd", "1", "-screen", "0", "1000x800x24").stdout.readline()
    service = start(devservice, "--root", work / "store", "--state", work / "state",
                    stderr=subprocess.DEVNULL).stdout
    certificate = next(line for line in service if line.startswith("Certificate: "))[13:].strip()
    trusted = ["certutil", "-d", f"sql:{work}/.pki/nssdb"]
    (work / ".pki/nssdb").mkdir(parents=True)
    subprocess.run([*trusted, "-N", "--empty-password"], check=True)
    subprocess.run([*trusted, "-A", "-t", "CP,,", "-n", "test", "-i", certificate], check=True)
    os.environ.update(DISPLAY=f":{display.strip()}", HOME=str(work), QT_QPA_PLATFORM="xcb",
                      QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
    for path in ("clip.mov", "held.mov", "store/held.mov"):
        (work / path).write_text(path)
    start(upload, work / "clip.mov", work / "held.mov", work, work / "gone")

    control("1 folder was skipped, 1 file was not found.", "notification")
    control("Upload")  # in the page
    press("Browse")
    press("Cancel", "Choose Files")
    wait_for(lambda: not shown("Choose Files"), "the end of the file chooser")
    for name in ("Browse", "Upload"):
        key("F6")
        focused(name)
    key("space")
    control("held.mov", "heading")  # the page for the second file
    focused("Upload")
    key("space")
    press("Cancel", "File Exists")
    control("Finished", "table cell")
    control("Canceled", "table cell")
    key("Shift_L")  # no window manager activates the window after the alert
    focused("Browse")


try:
    use_window(*sys.argv[1:])
finally:
    for child in reversed(children):
        child.terminate()
        child.wait(20)
    subprocess.run(["rm", "-rf", work], check=True)
