"""The real programs as child processes of a Python test. One thread."""
import contextlib
import ctypes
import os
import pathlib
import subprocess
import sys
import tempfile

children = []


def start(*command, **options):
    """Starts a child, which the end of work_folder() terminates. Its output is a pipe of text."""
    options = {"stdout": subprocess.PIPE, "text": True} | options
    children.append(subprocess.Popen([os.fspath(part) for part in command], **options))
    return children[-1]


def text_after(prefix, child):
    """Returns the rest of the first line of the child that begins with `prefix`."""
    for line in child.stdout:
        if line.startswith(prefix):
            return line[len(prefix):].strip()
    sys.exit(f"{child.args[0]} wrote no line \"{prefix}\"")


def trust(home, certificate):
    """Makes the browser engine trust `certificate` if HOME is `home`."""
    (home / ".pki/nssdb").mkdir(parents=True)
    for options in (["-N", "--empty-password"],
                    ["-A", "-t", "CP,,", "-n", "test", "-i", certificate]):
        subprocess.run(["certutil", "-d", f"sql:{home}/.pki/nssdb", *options], check=True)


def start_display(home):
    """Starts an X server without a window manager, which later children use, with `home`."""
    server = start("Xvfb", "-displayfd", "1", "-screen", "0", "1000x800x24")
    # X's keyboard library copies strings that have no terminator. The OpenGL driver leaks and is
    # unloaded before the leaks are reported.
    sanitizer = os.environ.get("ASAN_OPTIONS", "") + ":strict_string_checks=0:detect_leaks=0"
    os.environ.update(DISPLAY=":" + server.stdout.readline().strip(), QT_QPA_PLATFORM="xcb",
                      HOME=str(home), ASAN_OPTIONS=sanitizer)


@contextlib.contextmanager
def work_folder():
    """A temporary folder. At its end the children are terminated, the latest first."""
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
        try:
            yield pathlib.Path(folder)
        finally:
            for child in reversed(children):
                child.terminate()
                child.wait(20)


def close_window(window):
    """Sends what the close button of a window manager sends. `window` is the number of a window."""
    x = ctypes.CDLL("libX11.so.6")
    x.XOpenDisplay.restype = ctypes.c_void_p
    display = ctypes.c_void_p(x.XOpenDisplay(None))
    protocols, delete = (x.XInternAtom(display, name, 0)
                         for name in (b"WM_PROTOCOLS", b"WM_DELETE_WINDOW"))
    # An XClientMessageEvent: type, serial, send_event, display, window, message_type, format, data.
    event = (ctypes.c_long * 24)(33, 0, 0, 0, window, protocols, 32, delete)
    x.XSendEvent(display, ctypes.c_ulong(window), 0, 0, event)
    x.XCloseDisplay(display)


def windows(pid, name):
    """Returns the visible windows of a process whose title matches the expression `name`."""
    found = subprocess.run(["xdotool", "search", "--all", "--onlyvisible", "--pid", str(pid),
                            "--name", name], capture_output=True, text=True, check=False)
    return [int(number) for number in found.stdout.split()]
