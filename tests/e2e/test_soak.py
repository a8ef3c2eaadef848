#!/usr/bin/python3
"""Random selections and commands in the real window, against a model of what they do on disk.

Between the steps settings and backups are written and removed, as applications and other people
do. Everything follows from the seed, with which a failure can be repeated.

Usage: test_soak.py --build FOLDER [--seed NUMBER] [--seconds NUMBER] [--any-memory]
Exit status: 0 passed, 1 failed, 77 the means to drive a window are missing.
"""

import argparse
import os
import random
import re
import statistics
import sys
import tempfile
import time
from pathlib import Path

try:
    import driver
    from kinds import KINDS
    from soak_model import Application, Disk
except ImportError as error:
    print(error, file=sys.stderr)
    sys.exit(77)

APPLICATIONS = 200
STRETCH = 40  # steps before the next comparison
WARM_UP = 2  # stretches until all that is kept for good is there
LEAST = 6  # stretches after that, to tell a leak from chance

# The memory's growth in kB. It was seen to jump by 180 once in a run, but not to grow over the
# median stretch.
MEDIAN_GROWTH, WHOLE_GROWTH = 6, 1024
COLUMNS = "name", "identifier", "bundle"  # what the table's columns are ordered by


class Soak:
    """A window and what it must show: the applications in their order, and the selected ones."""

    def __init__(self, window, disk, applications):
        self.window, self.disk, self.chance = window, disk, disk.chance
        self.found = sorted(applications, key=lambda app: app.bundle.encode())
        self.column, self.is_descending, self.place = "name", False, 0.3
        self.listed, self.selected = self.in_order(), []  # the topmost one first

    def in_order(self):
        return sorted(self.found, key=lambda app: getattr(app, self.column).lower(),
                      reverse=self.is_descending)

    def rows(self):
        return [self.listed.index(app) for app in self.selected]

    def shows_list(self, step=1):
        """Whether the table has the expected rows; looks at one in so many."""
        table = self.window.table.queryTable()
        return table.nRows == len(self.listed) and all(
            table.getAccessibleAt(row, 0).name == self.listed[row].name
            for row in range(0, len(self.listed), step))

    def check_commands(self):
        expected = self.selected[0].commands() if self.selected else set()
        self.window.wait_until(lambda: self.window.enabled_buttons() == expected,
                               f"{expected} to be enabled")

    def select(self, *rows):
        self.window.select_rows(*rows)
        self.selected = [self.listed[row] for row in sorted(rows)]
        self.look()

    def look(self):
        if self.selected:
            self.selected[0].look(self.disk)
        self.check_commands()

    def sort(self):
        """Clicks on a header: on the one of the order so far, to turn that round."""
        before = self.rows(), self.selected
        column = self.chance.choice(COLUMNS)
        self.is_descending = column == self.column and not self.is_descending
        self.column, self.place = column, 1 - self.place  # no two clicks that are a double click
        header = self.window.table.queryTable().getColumnHeader(COLUMNS.index(column))
        self.window.click(header, self.place)
        self.listed = self.in_order()
        self.selected = sorted(self.selected, key=self.listed.index)
        self.window.wait_until(lambda: self.shows_list(step=20), f"the order by {column}")
        assert self.window.selected_rows() == self.rows(), "the selection is another one"
        if (self.rows(), self.selected) != before:
            self.look()

    def disturb(self):
        """Changes something behind the window's back, mostly of what is selected."""
        is_near = self.selected and self.chance.random() < 0.7
        app = self.selected[0] if is_near else self.chance.choice(self.listed)
        app.disturb(self.disk)

    def command(self):
        """Gives a command of the topmost application that is enabled, and confirms it or not."""
        chance, app = self.chance, self.selected[0]
        enabled = [(command, act, kind) for kind in KINDS for command, act in
                   ((kind.back_up, app.back_up), (kind.restore, app.restore))
                   if command in app.commands()]
        if not enabled:
            return
        command, act, kind = chance.choice(enabled)
        is_confirmed = chance.random() < 0.75
        expected = act(kind, self.disk, is_confirmed)
        by_shortcut = chance.random() < 0.8  # a button takes 100 ms to be pressed
        agree, refuse = ("Return", "Escape") if by_shortcut else ("Ok", "Cancel")
        to_question = agree if is_confirmed else refuse
        answers = [to_question if alert in (kind.question, kind.backed_up_already)
                   else chance.choice((agree, "Escape")) for alert in expected]
        seen = self.window.run(command, *answers, by_shortcut=by_shortcut)
        assert seen == expected, f"{command} said {seen} instead of {expected}"
        self.check_commands()

    def step(self):
        chance = self.chance
        if chance.random() < 0.5:
            self.disturb()
        act = chance.random()
        if act < 0.03:
            self.sort()
        elif act < 0.6 or not self.selected:
            count = chance.choice((1,) * 8 + (0, 2, 3))
            self.select(*chance.sample(range(len(self.listed)), count))
        if chance.random() < 0.3:
            self.disturb()  # which the window learns when it fails
        if self.selected:
            self.command()


def usage(process):
    """The process's own memory in kB, and how many descriptors it has open."""
    memory = Path(f"/proc/{process}/smaps_rollup").read_text()
    return (int(re.search(r"Private_Dirty: *(\d+)", memory)[1]),
            len(os.listdir(f"/proc/{process}/fd")))


def soak(program, folder, options):
    disk = Disk(Path(folder), random.Random(options.seed))
    applications = [Application(number, disk) for number in range(APPLICATIONS)]
    usages = []
    with driver.Tarnwell(program, folder) as window:
        window.wait_for_list()
        run = Soak(window, disk, applications)
        assert run.shows_list(), "the list is another one"
        for row in range(APPLICATIONS):
            run.select(row)
        end = time.monotonic() + options.seconds
        while len(usages) < WARM_UP + LEAST or time.monotonic() < end:
            for number in range(len(usages) * STRETCH, (len(usages) + 1) * STRETCH):
                try:
                    run.step()
                except AssertionError as error:
                    raise AssertionError(f"seed {options.seed}, step {number}: {error}") from error
            disk.check()
            usages.append(usage(window.process.pid))
            print(f"{number + 1} steps: %d kB, %d descriptors" % usages[-1], flush=True)
        assert run.shows_list(), "the list is another one"
        assert window.close() == 0
        output, errors = window.output()
    memory, descriptors = zip(*usages[WARM_UP - 1:])
    assert len(set(descriptors)) == 1, f"the open descriptors became {descriptors}"
    growth = [after - before for before, after in zip(memory, memory[1:])]
    assert options.any_memory or (statistics.median(growth) < MEDIAN_GROWTH and
                                  sum(growth) < WHOLE_GROWTH), f"the memory grew by {growth} kB"
    assert (output.count("\n"), errors) == (disk.failed_copies, ""), output + errors


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--seed", type=int, default=random.randrange(10**6))
    parser.add_argument("--seconds", type=int, default=0,
                        help=f"at least; {(WARM_UP + LEAST) * STRETCH} steps are always made")
    parser.add_argument("--any-memory", action="store_true", help="set no bound to the memory")
    options = parser.parse_args()
    print(f"seed {options.seed}", flush=True)
    with tempfile.TemporaryDirectory() as folder:
        soak(options.build / "bin/tarnwell", folder, options)


if __name__ == "__main__":
    main()
