#!/usr/bin/python3
"""Tests of the real window on a real volume. Usage: test_window.py --build FOLDER [TEST ...]

Exit status: 0 passed, 1 failed, 77 the means to drive a window are missing.
"""

import contextlib
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path
from urllib.parse import unquote, urlsplit

try:
    import driver
    import pyatspi
    from driver import COMMANDS, snapshot, wait_until
    from kinds import KINDS
except ImportError as error:
    print(error, file=sys.stderr)
    sys.exit(77)

BUILD = Path()
SAMPLE = Path()  # a volume to copy, never used itself

NAMES = [
    "almanac", "Birdsong", "Café Größe", "clockwork", "Desk Clock", "Garden Planner",
    "Household Budget", "Kitchen Timer", "Letter Box", "Map Folder",
    "Night Sky Observatory and Weather Station for the Whole Family at Home", "Paper Crane",
    "Pocket Piano", "Quiet Radio", "Recipe Drawer", "Tide Table", "Torchlight",
]


LIBRARY = "Users/anna/Library"
RECIPE_PREFERENCES = f"{LIBRARY}/Preferences/vnd.sample.recipe-drawer.plist"
RECIPE_DATA = f"{LIBRARY}/Application Support/Recipe Drawer"


class WindowTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        # A name that is mangled by whoever does not quote it.
        temporary = tempfile.TemporaryDirectory(prefix="Anna's disk, 100 %20 größer ")
        self.addCleanup(temporary.cleanup)
        self.folder = Path(temporary.name)
        self.volume = self.folder / "volume"
        shutil.copytree(SAMPLE, self.volume, symlinks=True)
        self.programs = self.folder / "bin"  # all that Tarnwell finds in its PATH
        self.programs.mkdir()
        (self.programs / "sleep").symlink_to(shutil.which("sleep"))

    @contextlib.contextmanager
    def window(self, *selected, arguments=(), volume=None, closed_by="alt+F4", **environment):
        """A window that at the end closes with status 0, having written nothing."""
        with driver.Tarnwell(BUILD / "bin/tarnwell", volume or self.volume, arguments,
                             PATH=str(self.programs), **environment) as window:
            if volume is None:
                window.wait_for_list()
                window.select(*selected)
            yield window
            self.assertEqual(window.close(closed_by), 0)
            self.assertEqual(window.output(), ("", ""))

    def untouched(self):
        return snapshot(self.volume, identity=True)

    @contextlib.contextmanager
    def file_manager(self, *options):
        """A file manager on the bus; gives the file in which it notes what it is to show."""
        log = self.folder / "shown"
        log.touch()
        with subprocess.Popen([Path(__file__).parent / "file-manager", log, *options],
                              stdout=subprocess.PIPE) as service:
            try:
                self.assertEqual(service.stdout.readline(), b"ready\n")
                yield log
            finally:
                service.kill()

    def install_opener(self):
        """Puts an xdg-open in the PATH; returns the file in which it notes its arguments."""
        log = self.folder / "opened"
        log.write_text("")
        opener = self.programs / "xdg-open"
        opener.write_text(f"#!/bin/sh\nprintf '%s\\n' \"$#\" \"$@\" >>\"{log}\"\n")
        opener.chmod(0o755)
        return log

    def lines(self, log, count):
        """Waits for lines in a file; returns all that there are."""
        wait_until(lambda: len(log.read_text().splitlines()) >= count, f"{count} lines in {log}")
        return log.read_text().splitlines()


class ListTest(WindowTest):
    def test_start_with_any_arguments(self):
        for arguments in ([], ["-style", "x"], ["--help"], ["--version"], ["-platform", "none"],
                          ["-title", "x", "-geometry", "300x200"], ["--", "/etc/passwd"]):
            with self.subTest(arguments), self.window(arguments=arguments) as window:
                self.assertEqual((window.names(), window.selection()), (NAMES, []))
                window.find(pyatspi.ROLE_FRAME, "Tarnwell")
                self.assertTrue(driver.has(window.table, pyatspi.STATE_FOCUSED))
                window.type("kit")
                window.wait_until(lambda: window.selection() == ["Kitchen Timer"], "a selection")

    def test_a_volume_that_does_not_exist(self):
        with self.window(volume=self.folder / "none") as window:
            window.wait_until(lambda: any(f"no disk at {self.folder}/none" in text
                                          for text in window.texts()), "a word about the disk")
            self.assertEqual((window.names(), window.enabled_buttons()), ([], set()))
            self.assertFalse(any("Select" in text for text in window.texts()))

    def test_a_user_who_does_not_exist(self):
        (self.volume / "Users/mira/Library").mkdir(parents=True)
        with self.window(volume=self.volume, TARNWELL_USER="nobody") as window:
            window.wait_until(lambda: any("have one: anna, mira." in text for text in window.texts()),
                              "the users that there are")
            self.assertFalse(driver.has(window.table, pyatspi.STATE_SHOWING))

    def test_the_window_says_what_it_shows(self):
        with self.window("Café Größe") as window:
            window.find(pyatspi.ROLE_FRAME, "Café Größe – Tarnwell")
            status = window.find(pyatspi.ROLE_LABEL, "17 applications on volume, library of anna")
            window.key("ctrl+f")
            window.type("clock")
            window.wait_until(lambda: status.name.startswith("2 of 17 applications on"), "a count")
            window.find(pyatspi.ROLE_FRAME, "Tarnwell")

    def test_shortcuts_are_enabled_as_the_buttons_are(self):
        with self.window() as window:
            for selected in ("Letter Box",), ("Paper Crane",), ("Recipe Drawer",), ():
                window.select(*selected)
                self.assertEqual(window.enabled_shortcuts() & set(COMMANDS.values()),
                                 {COMMANDS[button] for button in window.enabled_buttons()})

    def test_closing_while_the_list_is_made(self):
        program = self.folder / "slow/bin/tarnwell"
        tool = self.folder / "slow/libexec/tarnwell/mdfind"
        for file in program, tool:
            file.parent.mkdir(parents=True)
        shutil.copy(BUILD / "bin/tarnwell", program)
        tool.write_text("#!/bin/sh\nexec sleep 600\n")
        tool.chmod(0o755)
        for way in signal.SIGTERM, "alt+F4":
            with self.subTest(way), driver.Tarnwell(program, self.volume) as window:
                window.find(pyatspi.ROLE_LABEL, "Looking for applications…")
                if way == "alt+F4":
                    self.assertEqual(window.close(way), 0)
                else:
                    window.process.send_signal(way)
                    self.assertEqual(window.process.wait(driver.PATIENCE), 0)


class BackupTest(WindowTest):
    """What random commands against a model of the disk leave open."""

    def test_questions_and_their_buttons(self):
        with self.window("Recipe Drawer") as window:
            before = self.untouched()
            for kind in KINDS:
                for command, question in ((kind.back_up, kind.backed_up_already),
                                          (kind.restore, kind.question)):
                    for answer in ("Cancel", "Escape"):
                        self.assertEqual(window.run(command, answer), [question])
            self.assertEqual(self.untouched(), before)
            for kind in KINDS:
                window.start(kind.restore)
                for buttons in (["Ok", "Cancel"], ["Ok"]):
                    alert = window.alert()
                    self.assertEqual(alert.item.name, "Recipe Drawer – Tarnwell")
                    self.assertEqual(list(alert.buttons), buttons)
                    self.assertTrue(driver.has(alert.buttons["Ok"], pyatspi.STATE_IS_DEFAULT))
                    window.answer(alert, "Ok")

    def test_the_date_of_a_first_backup_is_shown(self):
        (self.volume / f"{RECIPE_PREFERENCES}.bak").unlink()
        shutil.rmtree(self.volume / f"{RECIPE_DATA}.bak")
        with self.window("Recipe Drawer") as window:
            dates = [sum("2026" in text for text in window.texts())]
            for kind in KINDS:
                window.run(kind.back_up)
                dates.append(sum("2026" in text for text in window.texts()))
        self.assertTrue(0 == dates[0] < dates[1] < dates[2], dates)


class LongTest(WindowTest):
    """Commands that take a while."""

    def setUp(self):
        super().setUp()
        self.data = self.volume / RECIPE_DATA
        self.backup = Path(f"{self.data}.bak")
        driver.make_notes(self.data, range(3))

    def make_backup(self):
        shutil.rmtree(self.backup)
        shutil.copytree(self.data, self.backup, symlinks=True)

    @contextlib.contextmanager
    def stopped(self, window):
        """Stops the program in the midst of copying; what is done meanwhile waits for it."""
        window.wait_until(lambda: any(self.data.parent.glob(".*/*/notes *")), "a copy under way")
        with window.paused():
            yield

    def test_what_is_pressed_meanwhile_is_dropped(self):
        driver.make_notes(self.data, range(3, 15))
        shutil.rmtree(self.backup)
        with self.window("Recipe Drawer") as window:
            preferences = snapshot(self.volume / LIBRARY / "Preferences", identity=True)
            button = window.buttons["Back Up Data"]
            table = window.table.queryTable()
            press = window.buttons["Back Up Preferences"].queryAction()
            self.assertEqual(press.getName(0), "Press")
            field = window.find(pyatspi.ROLE_TEXT, "Filter Applications")
            filter_text = field.queryEditableText()
            places = [(str(at.x + at.width // 2), str(at.y + at.height // 2)) for at in
                      map(driver.extents, (window.buttons["Restore Preferences"], window.table))]
            window.click(button)
            with self.stopped(window):
                driver.xdotool("click", "1")
                for place in places:
                    driver.xdotool("mousemove", *place, "click", "1")
                driver.xdotool("click", "4", "click", "5", "click", "5")
                driver.xdotool("key", "Return", "space", "Down", "Tab", "ctrl+r", "ctrl+l",
                               "ctrl+shift+b", "ctrl+f", "alt+d", "Down", "x")
                # The first waits until the program goes on, so that all are asked for in time.
                subprocess.Popen(["sh", "-c", f"sleep 0.5; kill -CONT {window.process.pid}"])
                table.addRowSelection(0)
                press.doAction(0)
                filter_text.setTextContents("almanac")
                self.assertTrue(driver.has(button, pyatspi.STATE_PRESSED), "too quick a copy")
            window.wait_for_end("Back Up Data")
            made = self.backup.stat()
            # Nothing of it comes later: a question would take the keyboard, a command be first.
            window.key("ctrl+f")
            window.wait_until(lambda: driver.has(field, pyatspi.STATE_FOCUSED), "the field")
            self.assertEqual((window.names(), window.selection(), self.backup.stat().st_ino),
                             (NAMES, ["Recipe Drawer"], made.st_ino))
            self.assertEqual(snapshot(self.volume / LIBRARY / "Preferences", identity=True),
                             preferences)
            self.assertEqual(driver.launched(self.volume), [])
        self.assertEqual(snapshot(self.data), snapshot(self.backup))

    def test_two_quick_clicks_make_one_backup(self):
        shutil.rmtree(self.backup)
        (self.volume / f"{RECIPE_PREFERENCES}.bak").unlink()
        with self.window("Recipe Drawer") as window:
            for command in "Back Up Preferences", "Back Up Data":
                window.click(window.buttons[command])
                window.click(window.buttons[command])
                window.wait_until(lambda: any("Backed up" in text for text in window.texts()), "it")
                window.wait_for_end(command)
        self.assertEqual(snapshot(self.data), snapshot(self.backup))

    def test_it_says_how_far_it_is(self):
        driver.make_notes(self.data, range(3, 10))
        self.make_backup()
        with self.window("Recipe Drawer") as window:
            button = window.buttons["Back Up Data"]
            foot = window.foot()
            bar = window.find(pyatspi.ROLE_PROGRESS_BAR, "Progress")
            amount = bar.queryValue()
            window.start("Back Up Data")
            window.answer(window.alert(), "Ok")
            said, amounts = [], []
            with window.slowed():
                while driver.has(button, pyatspi.STATE_PRESSED):
                    said.append(foot.name)
                    amounts.append(amount.currentValue / (amount.maximumValue or 1))
            window.wait_until(lambda: foot.name.startswith("17 applications"), "the count")
            self.assertFalse(driver.has(bar, pyatspi.STATE_SHOWING))
        during = [text for text in dict.fromkeys(said) if "applications" not in text]
        self.assertEqual([text for text in during
                          if not text.startswith("Backing up the data of Recipe Drawer")], [])
        for words in ("removing what it replaces: [0-9,]+ items", ": [0-9,]+ items, [0-9.]+ kB",
                      ": [0-9,]+ of [0-9,]+ items, .*left"):
            self.assertTrue(any(re.search(words, text) for text in during), (words, during))
        self.assertEqual(amounts, sorted(amounts))
        self.assertTrue(0.3 < amounts[-1] < 1, amounts)

    def test_the_end_waits_for_the_command(self):
        self.make_backup()
        whole = snapshot(self.backup)
        for way in signal.SIGTERM, signal.SIGINT, signal.SIGHUP, "alt+F4", "windowkill":
            with self.subTest(way), driver.Tarnwell(BUILD / "bin/tarnwell", self.volume) as window:
                window.wait_for_list()
                window.select("Recipe Drawer")
                (self.data / "changed").touch()
                window.start("Restore Data")
                window.answer(window.alert(), "Ok")
                with self.stopped(window):
                    self.assertFalse(self.data.exists())
                    if way == "alt+F4":
                        driver.xdotool("key", way)
                    elif way == "windowkill":  # the X server lets go of the program
                        driver.xdotool(way, driver.xdotool("getactivewindow"))
                    else:
                        window.process.send_signal(way)
                        window.process.send_signal(way)
                status = window.process.wait(driver.PATIENCE)
                if way != "windowkill":
                    self.assertEqual((status, *window.output()), (0, "", ""))
                self.assertEqual((snapshot(self.data), snapshot(self.backup)), (whole, whole))

    def test_a_signal_takes_a_question_back(self):
        with driver.Tarnwell(BUILD / "bin/tarnwell", self.volume) as window:
            window.wait_for_list()
            window.select("Recipe Drawer")
            before = self.untouched()
            window.start("Restore Data")
            window.alert()
            window.process.send_signal(signal.SIGTERM)
            self.assertEqual(window.process.wait(driver.PATIENCE), 0)
        self.assertEqual(self.untouched(), before)


class RunningTest(WindowTest):
    def test_the_warning_and_the_launched_process(self):
        data = self.volume / LIBRARY / "Application Support/vnd.sample.kitchen-timer"
        with self.window("Kitchen Timer") as window:
            window.run("Back Up Preferences")
            window.run("Back Up Data")
            window.run("Launch Application", by_shortcut=True)
            started = wait_until(lambda: driver.launched(self.volume), "the launched process")
            self.assertEqual(len(started), 1)
            self.addCleanup(os.killpg, os.getpgid(started[0]), signal.SIGKILL)
            window.run("Launch Application")
            self.assertEqual(driver.launched(self.volume), started)
            for kind in KINDS:
                before = self.untouched()
                for answer in ("Cancel", "Escape"):
                    self.assertEqual(window.run(kind.restore, "Ok", answer),
                                     [kind.question, kind.running])
                self.assertEqual(self.untouched(), before)
                (data / "Origin.txt").write_text("changed")
                self.assertEqual(window.run(kind.restore, "Ok", "Ok", "Ok"),
                                 [kind.question, kind.running, kind.restored])
            self.assertEqual(snapshot(data), snapshot(Path(f"{data}.bak")))
        self.assertEqual(driver.launched(self.volume), started)

    def test_a_launched_program_leaves_no_zombie(self):
        with self.window("Recipe Drawer") as window:
            for _ in range(3):
                window.run("Launch Application")
            wait_until(lambda: not driver.launched(self.volume), "the end of what was launched")
            self.assertEqual([command for _, parent, state, command in driver.processes()
                              if parent == window.process.pid and state == "Z"], [])


class RevealTest(WindowTest):
    PREFERENCES = f"{LIBRARY}/Preferences/example.cafe-groesse.plist"
    APPLICATION = "Applications/Café Größe.app"
    DATA = f"{LIBRARY}/Application Support/Café Größe"

    def test_with_a_file_manager(self):
        with self.file_manager() as log, self.window("Café Größe") as window:
            opened = self.install_opener()
            window.run("Show Preferences File", by_shortcut=True)
            window.run("Show Application", by_shortcut=True)
            uris = [urlsplit(uri) for uri in self.lines(log, 2)]
            self.assertEqual([(uri.scheme, uri.netloc, unquote(uri.path)) for uri in uris],
                             [("file", "", f"{self.volume}/{self.PREFERENCES}"),
                              ("file", "", f"{self.volume}/{self.APPLICATION}")])
            window.run("Open Data Folder", by_shortcut=True)
            self.assertEqual(self.lines(opened, 2), ["1", f"{self.volume}/{self.DATA}"])

    def test_without_a_file_manager_the_enclosing_folder_is_opened(self):
        for refusing in (False, True):
            opened = self.install_opener()
            service = self.file_manager("--refuse") if refusing else contextlib.nullcontext()
            with self.subTest(refusing=refusing), service, self.window("Café Größe") as window:
                expected = []
                for command, item in (("Show Preferences File", self.PREFERENCES),
                                      ("Show Application", self.APPLICATION)):
                    window.run(command)
                    expected += ["1", str((self.volume / item).parent)]
                    self.assertEqual(self.lines(opened, len(expected)), expected)

    def test_without_any_means_nothing_happens(self):
        before = self.untouched()
        with self.window("Café Größe") as window:
            for command in ("Show Preferences File", "Show Application", "Open Data Folder",
                            "Launch Application"):  # a program for another processor
                window.run(command)
        self.assertEqual(self.untouched(), before)


class AccessibilityTest(WindowTest):
    NAMED = (pyatspi.ROLE_PUSH_BUTTON, pyatspi.ROLE_MENU_ITEM, pyatspi.ROLE_TABLE,
             pyatspi.ROLE_LABEL, pyatspi.ROLE_PROGRESS_BAR)

    def faults(self, window):
        """The controls that do not say what they are, and the values that do not say of what."""
        yield from ("a window without a name" for item in window.application if not item.name)
        yield from ("a column without a title" for title in window.headers() if not title)
        for item in driver.descendants(window.application):
            role, is_control = item.getRole(), driver.has(item, pyatspi.STATE_FOCUSABLE)
            if not item.name and (role in self.NAMED or is_control) \
                    and role != pyatspi.ROLE_POPUP_MENU:  # the menu bar's item names it
                yield f"a {item.getRoleName()} without a name in {item.parent.name!r}"
            if role == pyatspi.ROLE_LABEL and is_control and not item.description \
                    and item.parent.getRole() != pyatspi.ROLE_ALERT \
                    and not any(relation.getRelationType() == pyatspi.RELATION_LABELLED_BY
                                and relation.getTarget(0).name for relation in item.getRelationSet()):
                yield f"the value {item.name!r} without a caption"

    def test_every_control_says_what_it_is(self):
        with self.window() as window:
            for selected in ((), ("Paper Crane",), ("Pocket Piano", "almanac"), ("Recipe Drawer",)):
                window.select(*selected)
                self.assertEqual(list(self.faults(window)), [])
            for name in COMMANDS:
                window.find(pyatspi.ROLE_PUSH_BUTTON, name)  # exactly one
            window.start("Restore Data")
            alert = window.alert()
            self.assertEqual(list(self.faults(window)), [])
            window.answer(alert, "Cancel")

    def test_long_values_are_whole(self):
        identifier = "vnd.sample.night-sky.observatory.and.weather-station.family-edition"
        with self.window(NAMES[10]) as window:
            self.assertLessEqual(
                {NAMES[10], identifier, f"/Applications/{NAMES[10]}.app",
                 f"/users/anna/Library/Containers/{identifier}/Data/Library/Application Support/"
                 f"{NAMES[10]}"}, set(window.texts()))


class KeyboardTest(WindowTest):
    def test_context_menu(self):
        chosen = []  # the items that get the focus in turn

        def note(event):
            if event.detail1 and event.source.getRole() == pyatspi.ROLE_MENU_ITEM:
                chosen.append(event.source)

        def next_choice():
            driver.GLib.MainContext.default().iteration(False)
            return chosen

        listener = driver.Atspi.EventListener.new(note)
        listener.register("object:state-changed:focused")
        self.addCleanup(listener.deregister, "object:state-changed:focused")
        for chord in ("Menu", "shift+F10"):
            # The menu keeps the window manager's keys from it, until it is gone.
            with self.subTest(chord), self.window("Recipe Drawer", closed_by="ctrl+w") as window:
                window.key(chord)
                offered = {}
                for _ in COMMANDS:
                    chosen.clear()
                    window.key("Down")
                    item = window.wait_until(next_choice, "another item of the menu")[0]
                    offered[driver.shortcut(item)] = item.name
                self.assertEqual(set(offered), set(COMMANDS.values()))
                self.assertTrue(all(offered.values()), offered)
                window.key("Escape")


    def test_filter(self):
        with self.window("Recipe Drawer") as window:
            field = window.find(pyatspi.ROLE_TEXT, "Filter Applications")
            window.key("ctrl+f")
            window.wait_until(lambda: driver.has(field, pyatspi.STATE_FOCUSED), "the field")
            window.type("GROSSE")
            window.wait_until(lambda: window.names() == ["Café Größe"], "the filtered list")
            self.assertEqual((window.selection(), window.enabled_buttons() & set(COMMANDS)),
                             ([], set()))
            window.key("Return")
            window.wait_until(lambda: window.selection() == ["Café Größe"], "the selection")
            self.assertTrue(driver.has(window.table, pyatspi.STATE_FOCUSED))
            window.run("Back Up Preferences", by_shortcut=True)
            window.key("Escape")
            window.wait_until(lambda: window.names() == NAMES, "the whole list")
            self.assertEqual(window.selection(), ["Café Größe"])


def main():
    global BUILD, SAMPLE
    with driver.build_and_sample(__doc__) as (BUILD, SAMPLE):
        unittest.main(argv=[sys.argv[0], *sys.argv[3:]], warnings="ignore")


if __name__ == "__main__":
    main()
