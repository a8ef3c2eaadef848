"""Drives tarnwell-open, on disks that are really mounted, in a mount namespace of its own."""

import os
import subprocess
from pathlib import Path

import driver
import pyatspi
from driver import has

# Hides the disks of the machine that look like a Mac's. Mounts disks in memory: at a path, filled
# from a folder, with more users, with a mount option. Then runs the rest.
MOUNT = r"""
set -e
cut -d ' ' -f 2 /proc/self/mounts >"$1"; exec <"$1"; shift
while read -r point; do
    point=$(printf %b "$point")
    [ ! -d "$point/Users" -a ! -d "$point/users" -a ! -d "$point/Applications" ] ||
        mount -t tmpfs hidden "$point" || [ ! -d "$point" ] # it has just gone
done
exec </dev/null
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


def refusal():
    """Why nothing can be mounted here; empty where it can."""
    return subprocess.run([*NAMESPACE, "mount", "-t", "tmpfs", "probe", "/mnt"], text=True,
                          stderr=subprocess.PIPE, check=False).stderr.strip()


def mounting(disks, scratch):
    """What runs a command where these disks are mounted, and no others that look like a Mac's.
    Each is a path, a folder to fill it from, the names of more users, and a mount option. In the
    scratch folder a file is written."""
    parts = [str(part) for disk in disks for part in disk]
    return [*NAMESPACE, "sh", "-c", MOUNT, "sh", f"{scratch}/mounts", *parts, "--"]


class Opener(driver.Tarnwell):
    """A running tarnwell-open: the chooser, or what it has become."""

    def __init__(self, command):
        self._start(command, {})

    def wait_for_chooser(self):
        self.application = self.wait_until(self._find_application, "the application")
        self.wait_until(lambda: [window for window in self.application
                                 if has(window, pyatspi.STATE_ACTIVE)], "the chooser")
        self.buttons = {button.name: button
                        for button in self.find_all(pyatspi.ROLE_PUSH_BUTTON)}
        return self

    def rows(self):
        """The texts of every row of the chooser, without the folder; none when it shows none.

        A row that goes while it is read has the texts None."""
        tables = [table for table in self.find_all(pyatspi.ROLE_TABLE, "Disks")
                  if has(table, pyatspi.STATE_SHOWING)]
        if not tables:
            return []
        table = tables[0].queryTable()
        return [tuple(getattr(table.getAccessibleAt(row, column), "name", None)
                      for column in range(4))
                for row in range(table.nRows)]

    def message(self):
        return "\n".join(self.texts())

    def opened(self):
        """Waits for the window proper; returns the disk and the user that it was told of."""
        def variables():
            if Path(f"/proc/{self.process.pid}/comm").read_text() != "tarnwell\n":
                return None
            texts = Path(f"/proc/{self.process.pid}/environ").read_bytes().split(b"\0")
            values = dict(text.split(b"=", 1) for text in texts if b"=" in text)
            if b"TARNWELL_VOLUME" not in values:
                return None  # it has only just begun, and its environment is not in place yet
            return values[b"TARNWELL_VOLUME"].decode(), values.get(b"TARNWELL_USER", b"").decode()

        found = self.wait_until(variables, "the program proper")
        self._find_window()
        assert "Recipe Drawer" in self.wait_for_list()
        return found
