"""Drives Tarnwell's real window the way the user of a screen reader does.

Everything is found by role and accessible name. No step waits for a fixed time: each polls for the
state that it needs, and gives up with an AssertionError when that has not come after PATIENCE.
"""

import contextlib
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

import pyatspi
from gi.repository import Atspi, GLib

sys.path.append(str(Path(__file__).resolve().parents[1] / "disks"))
from trees import signature, snapshot  # noqa: E402,F401  for who drives the window

PATIENCE = int(os.environ.get("TARNWELL_PATIENCE", 30))  # seconds; only a fault takes as long

# Hides the disks of the machine that look like a Mac's. Mounts disks in memory: at a path, filled
# from a folder, with more users, with a mount option. Then runs the rest.
MOUNT = r"""
set -ef
for point in $(cut -d ' ' -f 2 /proc/self/mounts); do # a blank in a name is \040 there
    point=$(printf %b "$point")
    [ ! -d "$point/Users" -a ! -d "$point/users" -a ! -d "$point/Applications" ] ||
        mount -t tmpfs hidden "$point" || [ ! -d "$point" ] # it has just gone
done
while [ "$1" != -- ]; do
    mkdir -p "$1"
    mount -t tmpfs -o size=200m disk "$1"
    cp -a "$2/." "$1"
    for user in $3; do mkdir -p "$1/Users/$user/Library"; done
    mount -o "remount,$4" "$1"
    shift 4
done
shift
exec "$@"
"""
NAMESPACE = ["unshare", "--mount"] + ([] if os.geteuid() == 0 else
                                      ["--map-current-user", "--keep-caps"])

if not shutil.which("xdotool"):
    raise ImportError("xdotool is missing")
Atspi.set_timeout(PATIENCE * 1000, PATIENCE * 1000)
pyatspi.Registry.getDesktop(0).set_cache_mask(Atspi.Cache.NONE)


def make_volume(target):
    """Makes the sample volume of the user anna in a folder."""
    maker = Path(__file__).resolve().parents[2] / "demo/make-sample-volume"
    subprocess.run([maker, target], check=True, stdout=subprocess.DEVNULL)


def launched(volume):
    """The running programs of a volume's applications, without the children of such programs."""
    parents = {}
    for folder in Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):  # it has just ended
            if os.fsencode(f"{volume}/Applications/") in (folder / "cmdline").read_bytes():
                status = (folder / "stat").read_text().rpartition(")")[2].split()
                parents[int(folder.name)] = int(status[1])
    return [process for process, parent in parents.items() if parent not in parents]


def wait_until(condition, what):
    """Returns the condition's first true result."""
    deadline = time.monotonic() + PATIENCE
    while True:
        with contextlib.suppress(GLib.Error, FileNotFoundError):  # gone while it was looked at
            if result := condition():
                return result
        assert time.monotonic() < deadline, f"waited {PATIENCE} s in vain for {what}"
        time.sleep(0.005)


def has(item, *states):
    """Whether an item is in all these states; one that has gone is in none."""
    with contextlib.suppress(GLib.Error):
        return all(item.getState().contains(state) for state in states)
    return False


def descendants(item):
    """The items below an item; of a table only the table itself, for its cells are many."""
    for child in item:
        if child is not None:
            yield child
            if child.getRole() != pyatspi.ROLE_TABLE:
                yield from descendants(child)


def find_all(item, role, name=None):
    return [part for part in descendants(item)
            if part.getRole() == role and name in (None, part.name)]


def refusal():
    """Why nothing can be mounted here; empty where it can."""
    return subprocess.run([*NAMESPACE, "mount", "-t", "tmpfs", "probe", "/mnt"], text=True,
                          stderr=subprocess.PIPE, check=False).stderr.strip()


def mounting(disks):
    """What runs a command where these disks are mounted, and no others that look like a Mac's.
    Each is a path, a folder to fill it from, the names of more users, and a mount option."""
    parts = [str(part) for disk in disks for part in disk]
    return [*NAMESPACE, "sh", "-c", MOUNT, "sh", *parts, "--"]


def make_notes(folder, numbers, size=6):
    """Makes folders of 1,000 files each, of so many bytes."""
    for number in numbers:
        (folder / f"notes {number}").mkdir()
        for note in range(1000):
            (folder / f"notes {number}/{note}").write_bytes(b"a note" * (size // 6))


def place(item):
    """The middle of an item on the screen, as xdotool takes it."""
    area = item.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
    return str(area.x + area.width // 2), str(area.y + area.height // 2)


def xdotool(*arguments):
    """Returns what it says; nothing when it fails."""
    return subprocess.run(["xdotool", *arguments], stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True).stdout.strip()


class Alert:
    """An alert that waits for its answer."""

    def __init__(self, item):
        self.item = item
        self.title = min(find_all(item, pyatspi.ROLE_LABEL),
                         key=lambda label: int(place(label)[1])).name
        self.buttons = {button.name: button
                        for button in find_all(item, pyatspi.ROLE_PUSH_BUTTON)}


class Tarnwell:
    """A running Tarnwell. As a context it ends the process, whatever has happened."""

    def __init__(self, program, volume, arguments=(), **environment):
        self._start([program, *arguments],
                    {"TARNWELL_VOLUME": str(volume), "TARNWELL_USER": "anna", **environment})
        try:
            self._find_window()
        except BaseException:
            self.__exit__()
            raise

    def _start(self, command, environment):
        self._output = tempfile.TemporaryFile()
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=self._output,
                                        stderr=subprocess.STDOUT, env={**os.environ, **environment})

    def _find_window(self):
        self._find(lambda: self.find_all(pyatspi.ROLE_TABLE, "Applications"), "the window")
        self.table = self.find(pyatspi.ROLE_TABLE, "Applications")
        self.x_window = self.wait_until(
            lambda: xdotool("search", "--onlyvisible", "--pid", str(self.process.pid)),
            "the window on the screen")

    def _find(self, condition, what):
        """Finds the application in which there is something, and its buttons."""
        def find_application():
            for self.application in pyatspi.Registry.getDesktop(0):
                with contextlib.suppress(GLib.Error, AttributeError):  # one that has just ended
                    if self.application.get_process_id() == self.process.pid:
                        return condition()
            return None

        self.wait_until(find_application, what)
        self.buttons = {button.name: button for button in self.find_all(pyatspi.ROLE_PUSH_BUTTON)}

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self._output.close()

    def wait_until(self, condition, what):
        def checked():
            assert self.process.poll() is None, f"Tarnwell ended while {what} was awaited"
            return condition()

        return wait_until(checked, what)

    # What there is.

    def find_all(self, role, name=None):
        return find_all(self.application, role, name)

    def find(self, role, name):
        """The one item with a role and a name."""
        found = self.find_all(role, name)
        assert len(found) == 1, f"{len(found)} items are named {name}"
        return found[0]

    def enabled_buttons(self):
        return {name for name, button in self.buttons.items()
                if has(button, pyatspi.STATE_SENSITIVE)}

    def texts(self):
        """Every name and description that the window shows."""
        shown = [item for item in descendants(self.application)
                 if has(item, pyatspi.STATE_SHOWING)]
        return [text for item in shown for text in (item.name, item.description) if text]

    def foot(self):
        """The label that says what is listed, or what is being done."""
        return self.wait_until(lambda: next((label for label in self.find_all(pyatspi.ROLE_LABEL)
                                             if " applications on " in label.name), None),
                               "what is listed")

    def names(self):
        """The first column, from the top."""
        table = self.table.queryTable()
        return [table.getAccessibleAt(row, 0).name for row in range(table.nRows)]

    def selection(self):
        names = self.names()
        return [names[row] for row in sorted(self.table.queryTable().getSelectedRows())]

    def wait_for_list(self):
        """Waits until the applications are listed; on an empty volume that never happens."""
        return self.wait_until(self.names, "the list of applications")

    # What can be done.

    def select(self, *names):
        table, listed = self.table.queryTable(), self.wait_for_list()
        for row in table.getSelectedRows():
            table.removeRowSelection(row)
        for name in names:
            table.addRowSelection(listed.index(name))
        self.wait_until(lambda: set(self.selection()) == set(names), f"the selection of {names}")

    def key(self, *chords, command="key"):
        """Presses keys in whichever window of the program has the keyboard."""
        self.wait_until(lambda: any(has(window, pyatspi.STATE_ACTIVE, pyatspi.STATE_SHOWING)
                                    for window in self.application), "an active window")
        xdotool(command, *chords)

    def type(self, text):
        self.key(text, command="type")

    def start(self, command):
        """Presses a button and returns at once; its command shows an alert, or ends by itself."""
        assert command in self.enabled_buttons(), f"the button {command} is disabled"
        self.buttons[command].queryAction().doAction(0)

    def _alert_item(self):
        return next((item for item in self.application
                     if item is not None and item.getRole() == pyatspi.ROLE_ALERT
                     and has(item, pyatspi.STATE_SHOWING, pyatspi.STATE_ACTIVE)), None)

    def alert(self):
        """Waits for an alert that takes the keyboard."""
        return Alert(self.wait_until(self._alert_item, "an alert"))

    def answer(self, alert, answer):
        """Answers by a button's name or a key's, and waits until the alert is gone."""
        if answer in alert.buttons:
            alert.buttons[answer].queryAction().doAction(0)
        else:
            self.key(answer)

        self.wait_until(lambda: not has(alert.item, pyatspi.STATE_SHOWING),
                        f'the end of the alert "{alert.title}"')

    def wait_for_end(self, command):
        """Waits until a command has ended: its button stays down for as long as it runs."""
        def has_ended():
            alert = self._alert_item()
            assert not alert, f'an unexpected alert: "{Alert(alert).title}"'
            return not has(self.buttons[command], pyatspi.STATE_PRESSED)

        self.wait_until(has_ended, f"the end of {command}")

    def run(self, command, *answers, by_shortcut=False):
        """Gives a command, answers its alerts in turn and waits for the command's end.

        Returns the title of each alert. One alert too many is an AssertionError. After a
        shortcut, which is the one that the button's tool tip names, it may still be under way.
        """
        if by_shortcut:
            self.key(re.search(r"\((.*)\)", self.buttons[command].description)[1].lower())
        else:
            self.start(command)
        seen = []
        for answer in answers:
            alert = self.alert()
            seen.append(alert.title)
            is_told = alert.title.endswith(("Restored!", "Error"))
            assert list(alert.buttons) == ["Ok", "Cancel"][:1 if is_told else 2], alert.title
            self.answer(alert, answer)
        self.wait_for_end(command)
        return seen

    @contextlib.contextmanager
    def paused(self):
        """Stops the program meanwhile. What is asked of it waits until it goes on."""
        self.process.send_signal(signal.SIGSTOP)
        try:
            yield
        finally:
            self.process.send_signal(signal.SIGCONT)

    @contextlib.contextmanager
    def slowed(self):
        """Lets the program run for a share of the time only, as if its disk were slow."""
        over = threading.Event()

        def pause_again_and_again():
            while not over.wait(0.0015):
                with self.paused():
                    over.wait(0.05)

        thread = threading.Thread(target=pause_again_and_again)
        thread.start()
        try:
            yield
        finally:
            over.set()
            thread.join()

    def close(self, chord="alt+F4"):
        """Closes the window and returns the exit status; alt+F4 is the window manager's way."""
        # The window manager learns a little later than the program that an alert is gone.
        self.wait_until(lambda: xdotool("getactivewindow") == self.x_window, "the active window")
        self.key(chord)
        return self.process.wait(PATIENCE)

    def output(self):
        """What has been written on standard output and standard error."""
        return os.pread(self._output.fileno(), 1 << 20, 0).decode()


class Opener(Tarnwell):
    """A running tarnwell-open: the chooser, or what it has become."""

    def __init__(self, command):
        self._start(command, {})

    def wait_for_chooser(self):
        self._find(lambda: [window for window in self.application
                            if has(window, pyatspi.STATE_ACTIVE)], "the chooser")
        return self

    def rows(self):
        """The texts of every row that the chooser shows, without the folder.

        A row that goes while it is read has the texts None."""
        tables = [item.queryTable() for item in self.find_all(pyatspi.ROLE_TABLE, "Disks")
                  if has(item, pyatspi.STATE_SHOWING)]
        return [tuple(getattr(table.getAccessibleAt(row, column), "name", None)
                      for column in range(4))
                for table in tables for row in range(table.nRows)]

    def message(self):
        return "\n".join(self.texts())

    def opened(self):
        """Waits for the window proper; returns what it says of the disk."""
        self._find_window()
        return self.foot().name
