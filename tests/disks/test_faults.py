#!/usr/bin/python3 -B
"""Makes every system call of small backups, second backups and restores fail in turn, and kills the
program at every one, each time on fresh files. There must never be a false yes, nor a moment without
a whole copy, nor a change of anything else; and the next run must succeed and tidy up.

Usage: test_faults.py --build DIR [--records] [--errors LIST]

Works with bench/fileops, or with --records with the records' own operations. Exits 77 where the
machine does not let a process be traced.
"""

import argparse
import collections
import concurrent.futures
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
from pathlib import Path

import trees
from laboratory import INFORMATION

ERRORS = "EIO", "ENOSPC", "ENOSYS", "EPERM", "SIGKILL"
REFUSALS = "EPERM", "ENOSYS"  # of what a disk cannot keep; that is no failure
CLEAN_UP = "unlinkat", "renameat2"  # what a copy does only when it is made, or has failed
CLEANING = re.compile(r"\b(unlinkat|renameat2)\(.*\n(.*\n)*.*\(INJECTED\)|unlinkat\(.*\(INJECTED\)")
CHANGING = "mkdirat", "renameat2", "linkat", "unlinkat"
NEVER_FAIL = ("exit", "exit_group", "execve", "rt_sigreturn", "restart_syscall", "brk",
              "munmap", "futex")  # the libraries end the process themselves
LIBRARY = "Users/lab/Library"
FOLDER = f"{LIBRARY}/Application Support/Laboratory"
FILE = f"{LIBRARY}/Preferences/lab.laboratory.plist"
CONTENT = "type", "content"  # what no refusal excuses

Operation = collections.namedtuple("Operation", "name item source target commands again")


def operations(build, records):
    """What is tried: how it is called, what it copies where, on a volume in which all four exist."""
    fileops = str(build / "bench/fileops")
    for kind, item, location in (("folder", FOLDER, "data"), ("file", FILE, "prefs")):
        for name, source, target in (("backup", item, f"{item}.bak"),
                                     ("second backup", item, f"{item}.bak"),
                                     ("restore", f"{item}.bak", item)):
            if records:
                command = [str(build / "bench/records"), name.split()[-1], location,
                           "/Applications/Laboratory.app"]
                yield Operation(f"{name} of a {kind}", item, source, target, [command], [command])
                continue
            commands = [[fileops, "remove", target], [fileops, "copy", source, target]]
            yield Operation(f"{name} of a {kind}", item, source, target,
                            commands[name == "backup":], commands)


def populate(root, operation):
    """A volume with the item, its backup where there is one, and others' things beside them."""
    (root / "Applications/Laboratory.app/Contents").mkdir(parents=True)
    (root / "Applications/Laboratory.app/Contents/Info.plist").write_text(INFORMATION)
    for path, text in ((FOLDER, "live"), (f"{FOLDER}.bak", "older"), (FILE, "live"),
                       (f"{FILE}.bak", "older")):
        if path == operation.target and operation.name.startswith("backup"):
            continue
        make = trees.Maker(root / path)
        (root / path).parent.mkdir(parents=True, exist_ok=True)
        if path.startswith(FILE):
            make.file(b"", text.encode() * 3000, 0o640)
        else:
            make.folder(b"")
            make.folder(b"sub", 0o750)
            make.file(b"sub/file", text.encode() * 3000, 0o600)
            make.file(b"first", text.encode(), 0o644)
            make.link(b"second", b"first")
            make.tried(b"link", lambda full: os.symlink("first", full))
            make.attribute(b"first", "user.text", b"value")
            make.date(b"sub", 1_000_000_001)
        make.date(b"", 1_000_000_000)
    for parent in Path(FOLDER).parent, Path(FILE).parent:
        foreign = root / parent / ".tarnwell-0123456789abcdef.partial"
        foreign.mkdir()
        (foreign / "somebody's").write_text("only copy")
        (root / parent / "bystander").write_text("somebody's")


class Laboratory:
    def __init__(self, arguments, folder):
        self.build, self.folder, self.records = arguments.build, folder, arguments.records
        self.violations, self.trials, self.lock = [], 0, threading.Lock()

    def run(self, root, command, *tracing):
        command = [str(root / part) if part.startswith("Users/") else part for part in command]
        return subprocess.run(
            [*tracing, *command], capture_output=True, timeout=60,
            env={"TARNWELL_VOLUME": str(root) if self.records else "/", "TARNWELL_USER": "lab",
                 "QT_QPA_PLATFORM": "offscreen", "XDG_RUNTIME_DIR": str(self.folder / "runtime"),
                 "LC_ALL": "C.UTF-8", "PATH": os.environ["PATH"], "HOME": str(self.folder)})

    def volume(self, operation):
        root = Path(tempfile.mkdtemp(dir=self.folder))
        populate(root, operation)
        return root

    def calls(self, operation, index):
        """The calls of one command, each as its name and its number among those of that name."""
        root = self.volume(operation)
        for command in operation.commands[:index]:
            self.run(root, command)
        log = root / "calls"
        self.run(root, operation.commands[index], "strace", "-f", "-s", "300", "-o", log)
        found, counts, foreign, changing = [], collections.Counter(), [], []
        text = log.read_text(errors="replace")
        shutil.rmtree(root)
        main_thread = text.split(maxsplit=1)[0]
        ours = str(root), "/proc", "/Applications", "/users", "/Users"
        for line in text.splitlines():
            match = re.match(rf"{main_thread}\s+(\w+)\((.*)", line)
            if not match:
                continue
            name, rest = match.groups()
            counts[name] += 1
            path = re.search(r'"(/[^"]*)"', rest)
            if path and not path[1].startswith(ours):
                foreign.append(len(found))
            elif name in CHANGING or "O_CREAT" in rest:
                changing.append(len(found))
            found.append((name, counts[name]))
        if not changing:
            sys.exit(f"{operation.name}: nothing was changed")
        # Before and after the operation come the loader's and the libraries' own files.
        first = max((place + 1 for place in foreign if place < changing[0]), default=0)
        last = min((place for place in foreign if place > changing[-1]), default=len(found))
        return [call for call in found[first:last] if call[0] not in NEVER_FAIL]

    def watch(self, root, operation):
        """Everything but the target, the log and the folders on the way, whose times may change."""
        skipped = (operation.target, str(Path(operation.target).parent), str(Path(operation.target)) + "/")
        return {path: value for path, value in trees.signature(root).items()
                if os.fsdecode(path) not in skipped[:2]
                and not os.fsdecode(path).startswith((skipped[2], "calls"))
                and not os.fsdecode(path).startswith(str(Path(operation.target).parent) + "/.tarnwell-")
                or b"0123456789abcdef" in path}

    def hidden(self, root, operation):
        return [name for name in os.listdir((root / operation.target).parent)
                if name.startswith(".tarnwell-") and "0123456789abcdef" not in name]

    def attempt(self, operation, index, call, number, error):
        root = self.volume(operation)
        where = f"{operation.name}: {operation.commands[index][1]}, {error} at {call} {number}"
        log = f"{root}.log"

        def violate(text):
            with self.lock:
                self.violations.append(f"{where}: {text}")

        for command in operation.commands[:index]:
            self.run(root, command)
        source = trees.snapshot(root / operation.source)
        older = trees.snapshot(root / operation.target)
        before = self.watch(root, operation)
        how = "signal=KILL" if error == "SIGKILL" else f"error={error}"
        try:
            result = self.run(root, operation.commands[index], "strace", "-f", "--seccomp-bpf", "-o",
                              log, "-e", f"trace={call},{','.join(CLEAN_UP)}", "-e",
                              f"inject={call}:{how}:when={number}")
        except subprocess.TimeoutExpired:
            violate("no end within a minute")
            return
        removes = operation.commands[index][1] == "remove"
        after = trees.snapshot(root / operation.target)
        facets = trees.FACETS
        if error in REFUSALS:
            # A second name of a file need not be possible; but an item that cannot be looked at is a
            # failure. Without statx the C library asks fstat, which knows no time of birth: when only
            # one of the looks is such, two names of a file do not seem to be one.
            excused = call == "linkat" or (call, error) == ("statx", "ENOSYS")
            facets = CONTENT if excused else (*CONTENT, "hard links")
        flaws = trees.differences(source, after, facets)
        if result.returncode == 0:
            if removes and after:
                violate("yes, but the item is still there")
            if not removes and flaws:
                violate(f"yes, but the copy differs: {', '.join(flaws)}")
        elif error != "SIGKILL":
            if result.returncode != 1:
                violate(f"exit {result.returncode}")
            if not removes and after not in ({}, older) and flaws and not set(after) < set(older):
                violate("no, but part of a copy is there")
        elif after not in ({}, older) and (removes or trees.differences(source, after, CONTENT)):
            violate("killed, and part of an item stands under its name")
        if self.watch(root, operation) != before:
            violate("something else changed")
        tidies = not removes and CLEANING.search(Path(log).read_text(errors="replace"))
        os.unlink(log)
        if error != "SIGKILL" and self.hidden(root, operation) and not tidies:
            violate(f"hidden items were left after {'yes' if result.returncode == 0 else 'no'}")
        if not self.hidden(root, operation) and (
                after == older or not trees.differences(source, after)):
            shutil.rmtree(root, ignore_errors=True)
            return
        # What was cut off is done again, as a person would, by hand first where nothing live is left.
        item = root / operation.item
        if self.records and (not os.path.lexists(item) or item.is_dir() and not os.listdir(item)):
            if item.is_dir():  # neither is found
                item.rmdir()
            subprocess.run(["cp", "-a", root / operation.source, item], check=True)
        results = [self.run(root, command) for command in operation.again
                   if command[1] != "remove" or os.path.lexists(root / operation.target)]
        if any(each.returncode != 0 for each in results):
            violate(f"the next run fails: {results[-1].stdout.decode(errors='replace').strip()}")
        elif trees.differences(source, trees.snapshot(root / operation.target)):
            violate("the next run's copy is not whole")
        if self.hidden(root, operation):
            violate("the next run leaves hidden items")
        if self.watch(root, operation) != before:
            violate("the next run changed something else")
        shutil.rmtree(root, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--records", action="store_true")
    parser.add_argument("--errors", default=",".join(ERRORS))
    arguments = parser.parse_args()
    arguments.build = arguments.build.resolve()

    probe = ["strace", "-f", "--seccomp-bpf", "-o", "/dev/null", "-e", "inject=getppid:error=EIO", "true"]
    if not shutil.which("strace") or subprocess.run(probe, stderr=subprocess.DEVNULL).returncode != 0:
        print("skipped: strace cannot trace a process here")
        return 77
    quickest = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(dir=quickest, prefix="tarnwell-faults-") as folder:
        os.mkdir(f"{folder}/runtime", 0o700)
        laboratory = Laboratory(arguments, Path(folder))
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            futures = []
            for operation in operations(arguments.build, arguments.records):
                for index in range(len(operation.commands)):
                    if operation.name.startswith("second") and index == 1:
                        continue  # the same as that of the first one
                    calls = laboratory.calls(operation, index)
                    futures += [pool.submit(laboratory.attempt, operation, index, *call, error)
                                for call in calls for error in arguments.errors.split(",")]
            for future in concurrent.futures.as_completed(futures):
                future.result()
    for text in sorted(laboratory.violations):
        print("FAULT", text)
    print(f"{len(laboratory.violations)} violations in {len(futures)} trials")
    return 1 if laboratory.violations or not futures else 0


if __name__ == "__main__":
    sys.exit(main())
