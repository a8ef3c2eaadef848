#!/usr/bin/python3
"""Tests of the way from the desktop to a disk, on disks that are really mounted, each in a mount
namespace of its own. Usage: test_open.py --build FOLDER [TEST ...]

Exit status: 0 passed, 1 failed, 77 the means to drive a window or to mount are missing.
"""

import contextlib
import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

try:
    import driver
    import pyatspi
    from driver import PATIENCE, has, press
    from opener import Opener, mounting, refusal
except ImportError as error:
    print(error, file=sys.stderr)
    sys.exit(77)

BUILD = Path()
SAMPLE = Path()  # a folder that looks like a disk, of the user anna

class OpenTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="Anna's disk, 100 %20 größer ")
        self.addCleanup(temporary.cleanup)
        self.folder = Path(temporary.name)
        self.disks = [self.folder / "Macintosh HD", self.folder / "Old <b>Mac"]
        for disk in self.disks:
            disk.mkdir()

    def opener(self, arguments=(), disks=()):
        """A tarnwell-open that finds these disks mounted, and no others where those can be hidden,
        and that has no rights beyond those of a file's owner."""
        prefix = [] if refusal() else mounting(disks, self.folder)
        if os.geteuid() == 0:
            prefix += ["setpriv", "--bounding-set=-all", "--inh-caps=-all"]
        return Opener([*prefix, BUILD / "bin/tarnwell-open", *arguments])

    @contextlib.contextmanager
    def cancelled(self, *arguments, disks=(), key="Escape"):
        """A chooser that at the end is closed with status 0, having written nothing."""
        with self.opener(arguments, disks) as chooser:
            yield chooser.wait_for_chooser()
            chooser.key(key)
            self.assertEqual(chooser.process.wait(PATIENCE), 0)
            self.assertEqual(chooser.output(), ("", ""))


class MountedTest(OpenTest):
    def setUp(self):
        super().setUp()
        if reason := refusal():
            self.skipTest(f"nothing can be mounted here: {reason}")

    def test_a_disk_in_two_volumes_is_one_and_opens_at_once(self):
        data = "System/Volumes/Data"
        (self.folder / "system/Users").mkdir(parents=True)
        (self.folder / "system" / data).mkdir(parents=True)
        with self.opener(disks=[(self.disks[0], self.folder / "system", "", "rw"),
                                (self.disks[0] / data, SAMPLE, "", "rw")]) as program:
            self.assertEqual(program.opened(), (str(self.disks[0]), "anna"))

    def test_two_disks_with_three_users(self):
        disks = [(self.disks[0], SAMPLE, "Mira Shared .hidden Guest", "rw"),
                 (self.disks[1], SAMPLE, "", "ro")]
        rows = [("Macintosh HD", "Mira", "209.7 MB", "Read and write"),
                ("Macintosh HD", "anna", "209.7 MB", "Read and write"),
                ("Old <b>Mac", "anna", "209.7 MB", "Read only")]
        for keys, disk, user, place in (
                (["Return"], self.disks[0], "Mira", "library of Mira"),
                (["Down", "Down", "alt+o"], self.disks[1], "anna", "The disk is read-only: ")):
            with self.subTest(keys), self.opener(disks=disks) as chooser:
                chooser.wait_for_chooser()
                self.assertEqual(chooser.rows(), rows)
                for key in keys:
                    chooser.key(key)
                self.assertEqual(chooser.opened(), (str(disk), user))
                self.assertIn(place, chooser.foot().name)


class FolderTest(OpenTest):
    def copy(self, name, *users, parts=("Applications", "System")):
        """A copied disk."""
        disk = self.folder / name
        for part in (*parts, *(f"users/{user}/library" for user in users)):
            (disk / part).mkdir(parents=True)
        return disk

    def test_users_of_a_folder(self):
        disk = self.copy("copy", "zoë", "bob")
        for arguments in [SAMPLE], [SAMPLE, "ANNA"]:
            with self.subTest(arguments), self.opener(arguments) as program:
                self.assertEqual(program.opened(), (str(SAMPLE), "anna"))
        with self.cancelled(disk, "Tom", key="alt+F4") as chooser:
            self.assertIn("No user “Tom” has a library on “copy”. Users who have: “bob”, “zoë”.",
                          chooser.message())
            self.assertEqual([row[:2] for row in chooser.rows()],
                             [("copy", "bob"), ("copy", "zoë")])

    def test_refused(self):
        file = self.folder / "file"
        file.touch()
        closed = self.copy("closed", "anna")
        closed.chmod(0o000)
        self.addCleanup(closed.chmod, 0o700)
        for folder, reason in (
                (self.copy("a", parts=("Documents",)), "it has no “Users” folder."),
                (self.copy("b", parts=("USERS/anna/Documents",)), "nobody in its “Users” folder"),
                (closed, "cannot be opened: Permission denied."),
                (file, "is not a folder."), ("/", "it is the disk of this computer itself.")):
            with self.subTest(folder), self.cancelled(folder) as chooser:
                self.assertIn(f"“{folder}”", chooser.message())
                self.assertIn(reason, chooser.message())
                self.assertNotIn("Open", chooser.enabled_buttons())

    def test_none_found_then_other_folders(self):
        empty = self.copy("empty", parts=("Documents",))
        several = self.copy("several", "anna", "bob")
        with self.opener() as chooser:
            chooser.wait_for_chooser()
            self.assertIn("No Mac's disk is mounted on this computer.", chooser.message())
            self.assertEqual((chooser.rows(), chooser.enabled_buttons()),
                             ([], {"Cancel", "Other Folder…", "Search Again"}))
            for folder, outcome in (
                    (empty, lambda: "it has no “Users” folder" in chooser.message()),
                    (several, lambda: len(chooser.rows()) == 2)):
                self.choose_folder(chooser, folder)
                chooser.wait_until(outcome, f"what becomes of {folder}")
            press(chooser.buttons["Search Again"])
            chooser.wait_until(lambda: not chooser.rows(), "the mounted disks, none")
            self.choose_folder(chooser, SAMPLE)
            self.assertEqual(chooser.opened(), (str(SAMPLE), "anna"))

    def choose_folder(self, chooser, folder):
        chooser.key("alt+f")
        title = "Choose the Folder That Holds “Users” and “Applications”"
        chooser.wait_until(lambda: any(title in window.name and has(window, pyatspi.STATE_ACTIVE)
                                       for window in chooser.application), "the folder's dialog")
        field, = (item for item in chooser.find_all(pyatspi.ROLE_TEXT)
                  if has(item, pyatspi.STATE_FOCUSED))
        field.queryEditableText().setTextContents(str(folder))
        chooser.key("Return")

    def test_other_arguments(self):
        for arguments, status, answer in ((["--help"], 0, "usage: tarnwell-open [FOLDER [USER]]\n"),
                                          (["a", "b", "c"], 2, ""), (["--version"], 0, None)):
            done = subprocess.run([BUILD / "bin/tarnwell-open", *arguments], check=False,
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            self.assertEqual(done.returncode, status)
            self.assertIn(answer, (None, done.stdout))


def main():
    global BUILD, SAMPLE
    with driver.build_and_sample(__doc__) as (BUILD, SAMPLE):
        unittest.main(argv=[sys.argv[0], *sys.argv[3:]], warnings="ignore")


if __name__ == "__main__":
    main()
