#!/usr/bin/python3
"""The laboratory's part inside the virtual machine.

Usage: laboratory.py first|second try BUILD [FILE-SYSTEM ...]    one half of the file systems
       laboratory.py NAME cut BUILD                              copies, and cuts the power
       laboratory.py NAME look                                   what the power cut left

Leaves what it found in /run/results. The disks are /dev/vda, for the sources, and /dev/vdb, for one
file system after another, or those of the power cuts.
"""

import json
import os
import pickle
import shutil
import stat
import string
import subprocess
import sys
import time
from pathlib import Path

import trees

HERE = Path(__file__).parent
RESULTS = Path("/run/results")
PROGRAMS = Path("/run/programs")  # those under test
SOURCE, DISK = "/mnt/source", "/mnt/disk"
USER = 1000
MAKE_HFSPLUS = "/usr/bin/python3", "-B", HERE / "make_hfsplus.py"

# How each file system is made, and its mount's type and options.
MKFS_EXT4 = "mkfs.ext4", "-q", "-F"
FILE_SYSTEMS = {
    "HFS+": (MAKE_HFSPLUS, "hfsplus", ""),
    "HFSX": ((*MAKE_HFSPLUS, "--case"), "hfsplus", ""),
    "exFAT, uid=": (("mkfs.exfat",), "exfat", f"uid={USER},gid={USER}"),
    "exFAT, umask=000": (("mkfs.exfat",), "exfat", "umask=000"),
    "vfat, uid=": (("mkfs.vfat", "-F", "32"), "vfat", f"uid={USER},gid={USER}"),
    "vfat, umask=000": (("mkfs.vfat", "-F", "32"), "vfat", "umask=000"),
    "NTFS, uid=": (("mkfs.ntfs", "-Q", "-F", "-q"), "ntfs-3g", f"uid={USER},gid={USER}"),
    "NTFS, permissions": (("mkfs.ntfs", "-Q", "-F", "-q"), "ntfs-3g", "permissions,acl"),
    "f2fs": (("mkfs.f2fs", "-q", "-f"), "f2fs", ""),
    "ext4": (MKFS_EXT4, "ext4", ""),
    "ext4, casefold": ((*MKFS_EXT4, "-O", "casefold"), "ext4", ""),
    "xfs": (("mkfs.xfs", "-q", "-f"), "xfs", ""),
    "btrfs": (("mkfs.btrfs", "-q", "-f"), "btrfs", ""),
    "bindfs": (MKFS_EXT4, "bindfs", ""),
}
READ_ONLY = "HFS+, journal"
CUT = "vfat, uid=", "exFAT, uid=", "HFS+", "ext4", "bindfs"
CONTROLS = "vfat, uid=", "ext4"  # where a copy by cp alone must not outlive the cut


INFORMATION = """<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>CFBundleName</key><string>Laboratory</string>
<key>CFBundleIdentifier</key><string>lab.laboratory</string></dict></plist>"""


def short(name):
    """A file system's name as an argument."""
    return name.lower().replace(", ", ",")


def call(*command, **options):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, **options)


def quietly(*command):
    return subprocess.run(command, capture_output=True).returncode == 0


def remove(path):
    """By no program under test."""
    if os.path.isdir(path) and not os.path.islink(path):
        shutil.rmtree(path)
    elif os.path.lexists(path):
        os.unlink(path)


def mount(kind, device, options, place=DISK):
    os.makedirs(place, exist_ok=True)
    if kind == "bindfs":
        mount("ext4", device, options, f"{place}.below")
        call("bindfs", f"{place}.below", place)
        return
    call("mount", "-t", kind, *(("-o", options) if options else ()), device, place)


def unmount(place=DISK):
    for _ in range(50):  # a FUSE process lets go a little later
        if quietly("umount", place):
            break
        time.sleep(0.1)
    if os.path.ismount(f"{place}.below"):
        unmount(f"{place}.below")


class Refused(Exception):
    """The programs under test answered otherwise than they had to, and said so in `faults`."""


class Row:
    """One file system as one user, and what was found there."""

    def __init__(self, name, by_root):
        self.name, self.by_root = name, by_root
        self.faults, self.kept, self.refusals = [], {}, []
        self.step = ""

    alive = None  # touched now and then, so that a machine that has stopped is noticed

    def fault(self, text):
        self.faults.append(f"{self.step}: {text}")
        print(f"FAULT {self.name} ({self.user()}): {self.faults[-1]}"[:600], flush=True)

    def user(self):
        return "root" if self.by_root else "user"

    def run(self, *command, **environment):
        owner = {} if self.by_root else {"user": USER, "group": USER, "extra_groups": []}
        return subprocess.run(command, capture_output=True, timeout=120, umask=0o022, **owner,
                              env={"LC_ALL": "C.UTF-8", "PATH": os.environ["PATH"], **environment})

    def as_user(self, function, *arguments):
        """Calls a function in a process of the row's user."""
        child = os.fork()
        if child == 0:
            status = 1
            try:
                os.umask(0o022)
                if not self.by_root:
                    os.setgroups([])
                    os.setresgid(USER, USER, USER)
                    os.setresuid(USER, USER, USER)
                function(*arguments)
                status = 0
            except Exception as error:
                print(f"{function.__name__}: {error!r}", flush=True)
            finally:
                os._exit(status)
        return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0

    def answer(self, wanted, *command, **environment):
        """Runs a program under test, which must say yes or no, with one line of reason for no."""
        self.alive.touch()
        start = time.monotonic()
        try:
            result = self.run(*command, **environment)
            print(f"{self.step}: {time.monotonic() - start:.1f} s", flush=True)
        except subprocess.TimeoutExpired:
            self.fault("no answer within two minutes")
            raise Refused from None
        said = result.stdout.decode(errors="replace")
        if result.returncode not in (0, 1) or result.stderr:
            self.fault(f"exit {result.returncode}, on standard error {result.stderr[:200]!r}")
        if (said.count("\n") == 1 and len(said) > 10) != (result.returncode == 1) or (
                result.returncode == 0 and said):
            self.fault(f"exit {result.returncode} with the words {said!r}")
        if (result.returncode == 0) != wanted:
            self.fault(f"said {'yes' if result.returncode == 0 else 'no: ' + said.strip()}")
            raise Refused
        return said.strip()

    def fileops(self, *arguments, wanted=True):
        return self.answer(wanted, PROGRAMS / "fileops", *arguments)

    def record(self, operation, location):
        """What the window's command does, on the row's folder as the volume."""
        runtime = f"/tmp/laboratory-runtime-{self.user()}"
        if not os.path.isdir(runtime):
            self.as_user(os.mkdir, runtime, 0o700)
        return self.answer(True, PROGRAMS / "records", operation, location,
                           "/Applications/Laboratory.app", TARNWELL_VOLUME=f"{DISK}/{self.user()}",
                           TARNWELL_USER="lab", QT_QPA_PLATFORM="offscreen", XDG_RUNTIME_DIR=runtime)


class Folder:
    """Watches that only the named entries come and go in a folder."""

    def __init__(self, row, path):
        self.row, self.path, self.names = row, path, set(os.listdir(path))

    def expect(self, *names, without=()):
        self.names = (self.names | set(names)) - set(without)
        found = set(os.listdir(self.path))
        for name in found - self.names:
            self.row.fault(f"{name!r} was left there")
        for name in self.names - found:
            self.row.fault(f"{name!r} is gone")
        self.names = found


class Trial:
    """All that is tried with one item, a folder or a file, in a row."""

    def __init__(self, row, kind, library):
        self.row, self.kind = row, kind
        self.is_folder = kind == "folder"
        self.make = trees.make_tree if self.is_folder else trees.make_file
        place = "Application Support/Laboratory" if self.is_folder else "Preferences/lab.laboratory.plist"
        self.live = os.path.join(library, place)
        self.parent, self.name = os.path.split(self.live)
        self.backup = self.live + ".bak"

    def run(self):
        row = self.row
        row.step = f"{self.kind}: set-up"
        if not row.as_user(self.make, self.live, row.by_root):
            row.fault("the laboratory cannot make the item")
            return
        for step in (self.copy_from_richer_disk, self.back_up, self.back_up_again, self.restore,
                     self.remove):
            row.step = f"{self.kind}: {step.__name__.replace('_', ' ')}"
            try:
                step()
            except Refused:
                pass
            except OSError as error:  # after a fault, which took what this step needs
                row.fault(repr(error))

    def copy_from_richer_disk(self):
        row = self.row
        held = set(trees.walk(self.live))
        home = f"{SOURCE}/{row.user()}"
        shutil.rmtree(home, ignore_errors=True)
        os.makedirs(home)
        if not row.by_root:
            os.chown(home, USER, USER)
        source = f"{home}/{self.name}"
        row.as_user(self.make, source, row.by_root, held)
        copy = self.live + " ours"
        before, ours = self.replace(source, copy)
        if self.is_folder:
            row.kept = {**trees.kept(before, ours),
                        "links": "yes" if b"links/relative" in ours else "no"}
        folder = Folder(row, self.parent)
        row.fileops("remove", copy)
        folder.expect(without=[os.path.basename(copy)])

    def replace(self, first, second, operation=None):
        """Puts a copy of first in the place of second, by the record's own operation where one is
        named. Returns what the original and the copy are; the copy must be as whole as that of cp."""
        row = self.row
        row.run("cp", "-a", first, f"{second} theirs")
        before, theirs = trees.snapshot(first), trees.snapshot(f"{second} theirs")
        remove(f"{second} theirs")
        folder, unchanged = Folder(row, self.parent), trees.signature(first)
        try:
            if operation:
                row.record(operation, "data" if self.is_folder else "prefs")
            else:
                if os.path.lexists(second):
                    row.fileops("remove", second)
                    folder.expect(without=[os.path.basename(second)])
                row.fileops("copy", first, second)
        finally:
            folder.expect(*{os.path.basename(second)} & set(os.listdir(self.parent)))
            if trees.signature(first) != unchanged:
                row.fault("the source changed")
        ours = trees.snapshot(second)
        faults = trees.compare(before, ours, theirs)
        for text in [*faults[:6], *[f"and {len(faults) - 6} more"] * (len(faults) > 6)]:
            row.fault(text)
        return before, ours

    def change(self, path):
        """As an application would: some other content, another file."""
        target = os.path.join(path, "names/plain") if self.is_folder else path
        Path(target).write_bytes(os.urandom(70001))
        if self.is_folder:
            Path(path, "names/new").write_bytes(b"new")
            Path(path, "names/100%").unlink(missing_ok=True)

    def back_up(self):
        self.replace(self.live, self.backup)

    def back_up_again(self):
        self.row.as_user(self.change, self.live)
        self.replace(self.live, self.backup, None if self.is_folder else "backup")

    def restore(self):
        self.row.as_user(self.change, self.live)
        self.replace(self.backup, self.live, "restore" if self.is_folder else None)

    def remove(self):
        folder = Folder(self.row, self.parent)
        self.row.fileops("remove", self.live)
        folder.expect(without=[self.name])


def untouched(row, item, *arguments):
    """A program under test must refuse, and nothing may change."""
    folder, before = Folder(row, os.path.dirname(item)), trees.signature(item)
    try:
        row.refusals.append(row.fileops(*arguments, wanted=False))
    except Refused:
        pass
    folder.expect()
    if os.path.lexists(item) and trees.signature(item) != before:
        row.fault("the item changed")


def try_locked(row, place):
    """A folder with a locked file or folder deep inside is not touched by a removal."""
    item = f"{place}/locked"
    for locked in "folder 3/Some file 5", "folder 2":
        for flag in "+i", "+a":
            row.as_user(trees.make_plain_tree, item)
            if quietly("chattr", flag, f"{item}/{locked}"):
                row.step = f"remove with {locked} locked ({flag})"
                untouched(row, item, "remove", item)
                quietly("chattr", "-R", "-f", "-ia", place)  # wherever it is now
            for name in os.listdir(place):
                remove(f"{place}/{name}")


def try_unreadable(row, place):
    """A file that cannot be read makes the copy fail, and leaves nothing."""
    item = f"{place}/unreadable"
    row.as_user(trees.make_plain_tree, item)
    os.chmod(f"{item}/folder 3/Some file 5", 0)
    if not row.by_root and stat.S_IMODE(os.lstat(f"{item}/folder 3/Some file 5").st_mode) == 0:
        row.step = "copy with an unreadable file"
        untouched(row, item, "copy", item, f"{item}.bak")
    remove(item)


def try_row(name, by_root):
    row = Row(name, by_root)
    library = f"{DISK}/{row.user()}/Users/lab/Library"
    tests = f"{library}/Tests"
    os.mkdir(f"{DISK}/{row.user()}")
    if "casefold" in name:
        call("chattr", "+F", f"{DISK}/{row.user()}")
    for path in f"{library}/Application Support", f"{library}/Preferences", tests:
        os.makedirs(path)
        Path(path, "bystander").write_text("nobody's business")
        if not by_root:
            try:
                os.chown(path, USER, USER)
            except OSError:
                pass
    os.unlink(f"{tests}/bystander")
    bundle = Path(DISK, row.user(), "Applications/Laboratory.app/Contents")
    bundle.mkdir(parents=True)
    (bundle / "Info.plist").write_text(INFORMATION)
    for kind in "folder", "file":
        Trial(row, kind, library).run()
    try_locked(row, tests)
    try_unreadable(row, tests)
    remove(f"{DISK}/{row.user()}")
    return row


def try_read_only():
    call(*MAKE_HFSPLUS, "/dev/vdb")
    mount("hfsplus", "/dev/vdb", "")
    trees.make_plain_tree(f"{DISK}/folder")
    trees.make_file(f"{DISK}/file", True)
    unmount()
    call(*MAKE_HFSPLUS, "--journal", "/dev/vdb")
    mount("hfsplus", "/dev/vdb", "")
    for by_root in True, False:
        row = Row(READ_ONLY, by_root)
        for kind in "folder", "file":
            item = f"{DISK}/{kind}"
            row.step = f"{kind}: copy on a read-only disk"
            untouched(row, item, "copy", item, f"{item}.bak")
            row.step = f"{kind}: remove on a read-only disk"
            untouched(row, item, "remove", item)
        yield row
    unmount()


def cut_disks():
    """The disks of the power cuts: device, file system, item."""
    letters = iter(string.ascii_lowercase)
    for name in CUT:
        for kind in "folder", "file", "again":
            yield f"/dev/vd{next(letters)}", name, kind
    for name in CONTROLS:
        yield f"/dev/vd{next(letters)}", name, "control"


def cut_power():
    """Copies on every disk, and resets the machine right after the last answer."""
    work = []
    for number, (device, name, kind) in enumerate(cut_disks()):
        maker, system, options = FILE_SYSTEMS[name]
        place = f"/mnt/cut{number}"
        item = f"{place}/item"
        call(*maker, device)
        if maker == MKFS_EXT4:
            options = "commit=300"
        mount(system, device, options, place)
        if kind == "file":
            Path(item).write_bytes(os.urandom(300_000))
        else:
            trees.make_plain_tree(item)
        os.utime(item, (1_000_000_000, 1_000_000_000))
        if kind == "again":
            trees.make_plain_tree(f"{item}.bak")
            Path(f"{item}.bak/old").write_text("old")
        os.sync()
        unmount(place)
        mount(system, device, options, place)
        work.append((name, kind, item, trees.snapshot(item)))
    for setting, value in (("dirty_writeback_centisecs", 0), ("dirty_background_ratio", 90),
                           ("dirty_ratio", 95)):
        Path("/proc/sys/vm", setting).write_text(str(value))
    rows = []
    for name, kind, item, before in work:
        row = Row(name, True)
        row.step = f"power cut, {kind}"
        try:
            if kind == "control":
                call("cp", "-a", item, f"{item}.bak")
            else:
                if kind == "again":
                    row.fileops("remove", f"{item}.bak")
                row.fileops("copy", item, f"{item}.bak")
            answer = True
        except (Refused, subprocess.CalledProcessError):
            answer = False
        rows.append((name, kind, before, answer))
    with open(RESULTS / "cut.pickle", "wb") as file:
        pickle.dump(rows, file)
    # The last disk's answer again, so that nothing lies between it and the reset.
    Path("/proc/sysrq-trigger").write_text("b")


def look():
    found = []
    with open(RESULTS / "cut.pickle", "rb") as file:
        rows = pickle.load(file)
    for (device, _, _), (name, kind, before, answer) in zip(cut_disks(), rows):
        _, system, options = FILE_SYSTEMS[name]
        faults = []
        try:
            mount(system, device, options)
            copy = f"{DISK}/item.bak"
            if not os.path.lexists(copy):
                faults.append("the copy is gone")
            else:
                after = trees.snapshot(copy)
                faults = trees.compare(before, after, before)
            leftovers = [name for name in os.listdir(DISK) if name.startswith(".tarnwell")]
            faults += [f"{name!r} was left there" for name in leftovers]
        except (OSError, subprocess.CalledProcessError) as error:
            faults.append(f"cannot be read: {error}")
        finally:
            if os.path.ismount(DISK):
                unmount()
        found.append({"name": name, "kind": kind, "answer": answer, "faults": faults})
        print(name, kind, "yes" if answer else "no", faults[:3], flush=True)
    (RESULTS / "cut.json").write_text(json.dumps(found))


def report(machine, rows):
    (RESULTS / f"matrix.{machine}.json").write_text(json.dumps([
        {"name": row.name, "user": row.user(), "faults": row.faults, "kept": row.kept,
         "refusals": row.refusals}
        for row in rows]))


def try_half(machine, chosen):
    rows = []
    call(*MKFS_EXT4, "/dev/vda")
    mount("ext4", "/dev/vda", "", SOURCE)
    names = [name for name in (*FILE_SYSTEMS, READ_ONLY) if not chosen or short(name) in chosen]
    for name in names[machine == "second"::2]:
        if name == READ_ONLY:
            rows += try_read_only()
            continue
        maker, system, options = FILE_SYSTEMS[name]
        call(*maker, "/dev/vdb", stderr=subprocess.DEVNULL)
        mount(system, "/dev/vdb", options)
        for by_root in True, False:
            start = time.monotonic()
            rows.append(try_row(name, by_root))
            print(f"{name} ({rows[-1].user()}): {len(rows[-1].faults)} faults,"
                  f" {time.monotonic() - start:.1f} s", flush=True)
            report(machine, rows)
        unmount()
    report(machine, rows)
    (RESULTS / f"finished.{machine}").touch()


def main():
    machine, what, *arguments = sys.argv[1:]
    Row.alive = RESULTS / f"alive.{machine}"
    Row.alive.touch()
    if what == "look":
        return look()
    PROGRAMS.mkdir()
    for program in "fileops", "records":  # where an ordinary user may not go they cannot be run
        shutil.copy(Path(arguments[0], "bench", program), PROGRAMS)
    return cut_power() if what == "cut" else try_half(machine, arguments[1:])


if __name__ == "__main__":
    main()
