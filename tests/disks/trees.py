"""Trees of files that are hard to copy, and what of them lies on a disk. Paths in them are bytes."""

import os
import socket
import stat
import struct

NAMES = [
    b"plain", b" blanks ", b"-rf", b"new\nline", b"tab\t", b"it's \"quoted\"", b"back\\slash",
    "Größe".encode(), "Gro\u0308ße 2".encode(), "時計".encode(), "😀".encode(), b"\xff\xfe broken",
    b"*?[a]", b"dot at the end.", b"CASE", b"case", b".hidden", b"._plain", b"a:b", b"con", b"nul.txt",
    b"x" * 255, "ü".encode() * 127, b"a.bak", b"100%",
]
DATES = {  # nanoseconds since 1970
    b"1903": -2_100_000_000, b"1960": -300_000_000, b"1970": 0, b"1975": 160_000_000,
    b"2001": 1_000_000_000.123456789, b"2039": 2_190_000_000, b"2100": 4_102_444_800,
    b"2400": 13_569_465_600,
}
ISLAND = 4096


def acl(*entries):
    """An access control list as the kernel's attribute has it."""
    return struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries)


ACCESS = acl((1, 6, 0xFFFFFFFF), (2, 4, 4321), (4, 4, 0xFFFFFFFF), (16, 4, 0xFFFFFFFF),
             (32, 0, 0xFFFFFFFF))


class Maker:
    """Makes items under a root, and leaves out what the disk refuses or is not in `only`."""

    def __init__(self, root, only=None):
        self.root, self.only = os.fsencode(root), only

    def tried(self, path, function):
        if self.only is not None and path not in self.only:
            return False
        try:
            function(os.path.join(self.root, path) if path else self.root)
            return True
        except OSError:
            return False

    def folder(self, path, mode=0o755):
        self.tried(path, lambda full: (os.mkdir(full), os.chmod(full, mode)))

    def file(self, path, content=None, mode=None):
        def make(full):
            descriptor = os.open(full, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o644)
            with open(descriptor, "wb") as file:
                file.write(b"content of " + path if content is None else content)
        if self.tried(path, make) and mode is not None:
            self.tried(path, lambda full: os.chmod(full, mode))

    def attribute(self, path, name, value):
        self.tried(path, lambda full: os.setxattr(full, name, value, follow_symlinks=False))

    def date(self, path, seconds):
        nanoseconds = int(seconds) * 10**9 + int(seconds % 1 * 10**9)
        self.tried(path, lambda full: os.utime(full, ns=(nanoseconds, nanoseconds),
                                               follow_symlinks=False))

    def islands(self, path, count):
        def make(full):
            with open(full, "wb") as file:
                for island in range(count):
                    file.seek(2 * ISLAND * island)
                    file.write(b"%08d" % island * (ISLAND // 8))
                file.truncate(2 * ISLAND * count + 5)
        self.tried(path, make)

    def link(self, path, other):
        if not self.tried(path, lambda full: os.link(os.path.join(self.root, other), full,
                                                      follow_symlinks=False)):
            self.file(path)


def make_tree(root, by_root, only=None):
    make = Maker(root, only)
    make.folder(b"")
    for parent in b"names", b"folders":
        make.folder(parent)
    for number, name in enumerate(NAMES):
        make.file(b"names/" + name)
        if number % 3 == 0:
            make.folder(b"folders/" + name)
            make.file(b"folders/" + name + b"/file")
    for path in b"empty", b"empty/empty":
        make.folder(path)
    deep = b"deep"
    for _ in range(12):
        make.folder(deep)
        deep += b"/level"
    make.file(deep[:-5] + b"bottom")

    make.folder(b"links")
    for path, target in ((b"relative", b"../names/plain"), (b"absolute", b"/names/plain"),
                         (b"dangling", b"nowhere"), (b"loop", b"loop"), (b"folder", b"../names"),
                         (b"long", b"y/" * 500)):
        make.tried(b"links/" + path, lambda full, target=target: os.symlink(target, full))
    make.date(b"links/dangling", 1_000_000_000)
    make.file(b"links/hard 1", b"one file, three names")
    make.link(b"links/hard 2", b"links/hard 1")
    make.link(b"empty/hard 3", b"links/hard 1")
    make.link(b"links/dangling 2", b"links/dangling")

    make.folder(b"special")
    make.tried(b"special/fifo", os.mkfifo)
    make.tried(b"special/socket", lambda full: socket.socket(socket.AF_UNIX).bind(full)
               if len(full) < 108 else None)
    if by_root:
        make.tried(b"special/device", lambda full: os.mknod(full, stat.S_IFCHR | 0o600, 0x103))

    make.folder(b"holes")
    make.islands(b"holes/islands", 150)
    for name, size in ((b"all", 1 << 20), (b"none", 0)):
        make.file(b"holes/" + name, b"")
        make.tried(b"holes/" + name, lambda full, size=size: os.truncate(full, size))
    make.file(b"holes/full", bytes(range(256)) * 1500)

    make.folder(b"attributes")
    for path in b"attributes", b"attributes/file":
        make.file(b"attributes/file") if path.endswith(b"file") else None
        make.attribute(path, "user.text", b"value")
        make.attribute(path, "user.empty", b"")
        make.attribute(path, "user.com.apple.metadata:tags", bytes(range(200)))
    for number in range(8):
        make.attribute(b"attributes/file", f"user.many {number}", b"%d" % number)
    for path in b"attributes/list", b"attributes/read-only":
        make.file(path)
        make.attribute(path, "system.posix_acl_access", ACCESS)
        make.attribute(path, "user.text", b"value")
    make.tried(b"attributes/read-only", lambda full: os.chmod(full, 0o440))
    make.folder(b"attributes/default")
    make.attribute(b"attributes/default", "system.posix_acl_default", ACCESS)
    make.attribute(b"links/relative", "trusted.text", b"of a link")
    if by_root:
        make.attribute(b"attributes/list", "trusted.text", b"root's")
        make.attribute(b"attributes/file", "security.capability",
                       struct.pack("<IIIII", 0x02000001, 1 << 10, 0, 0, 0))

    make.folder(b"modes")
    for mode in (0o400, 0o444, 0o600, 0o755, 0o777, 0o2755, 0o4711) + ((0,) if by_root else ()):
        make.file(b"modes/%04o" % mode, None, mode)
    for mode in (0o1777, 0o700, 0o555, 0o500):
        path = b"modes/folder %04o" % mode
        make.folder(path)
        make.file(path + b"/file")
        make.tried(path, lambda full, mode=mode: os.chmod(full, mode))
    if by_root:
        make.tried(b"modes/0600", lambda full: os.chown(full, 12345, 54321))
        make.tried(b"modes/folder 0700", lambda full: os.chown(full, 1000, 1000))
        make.tried(b"links/loop", lambda full: os.lchown(full, 1000, 1000))

    make.folder(b"dates")
    for name, seconds in DATES.items():
        make.file(b"dates/" + name)
        make.date(b"dates/" + name, seconds)
    make.date(b"empty/empty", 1_000_000_000)
    make.date(b"dates", 160_000_000)
    make.date(b"", 1_111_111_111)


def make_file(root, by_root, only=None):
    make = Maker(root, only)
    make.file(b"", b"preferences" * 9999)
    make.tried(b"", lambda full: os.chmod(full, 0o640))
    make.attribute(b"", "user.text", b"value")
    make.attribute(b"", "system.posix_acl_access", ACCESS)
    if by_root:
        make.tried(b"", lambda full: os.chown(full, 12345, 54321))
    make.date(b"", 1_000_000_000.5)


def make_plain_tree(root):
    """What every disk holds."""
    make = Maker(root)
    make.folder(b"")
    for folder in range(4):
        make.folder(b"folder %d" % folder)
        for number in range(8):
            make.file(b"folder %d/Some file %d" % (folder, number), b"%d" % folder * 7000 * number)
    make.folder(b"empty")


def walk(root):
    """All paths below the root, and the root itself as the empty one."""
    root = os.fsencode(root)
    yield b""
    if not stat.S_ISDIR(os.lstat(root).st_mode):
        return
    pending = [b""]
    while pending:
        folder = pending.pop()
        with os.scandir(os.path.join(root, folder)) as entries:
            for entry in entries:
                path = os.path.join(folder, entry.name)
                yield path
                if entry.is_dir(follow_symlinks=False):
                    pending.append(path)


def attributes(path):
    try:
        return {name: os.getxattr(path, name, follow_symlinks=False)
                for name in os.listxattr(path, follow_symlinks=False)
                if name.startswith(("user.", "trusted.", "security.", "system.posix_acl"))}
    except OSError:
        return {}


def snapshot(root):
    """What an item is made of, each path's facets by name; empty where there is nothing."""
    root, items, names = os.fsencode(root), {}, {}
    for path in walk(root) if os.path.lexists(root) else ():
        full = os.path.join(root, path) if path else root
        status = os.lstat(full)
        kind = stat.S_IFMT(status.st_mode)
        content = None
        if kind == stat.S_IFREG:
            with open(full, "rb") as file:
                content = file.read()
        elif kind == stat.S_IFLNK:
            content = os.readlink(full)
        elif kind in (stat.S_IFCHR, stat.S_IFBLK):
            content = status.st_rdev
        items[path] = {
            "type": kind, "content": content, "mode": stat.S_IMODE(status.st_mode),
            "owner": (status.st_uid, status.st_gid), "date": status.st_mtime_ns,
            "holes": kind == stat.S_IFREG and status.st_blocks * 512 + ISLAND <= status.st_size,
        }
        found = attributes(full)
        items[path]["lists"] = {name: value for name, value in found.items() if "acl" in name}
        items[path]["attributes"] = {name: value for name, value in found.items() if "acl" not in name}
        if kind != stat.S_IFDIR:
            names.setdefault((status.st_dev, status.st_ino), []).append(path)
    for group in names.values():
        for path in group:
            items[path]["hard links"] = tuple(sorted(group))
    return items


def signature(root):
    """What changes when anything is changed, and reads no content."""
    root = os.fsencode(root)
    return {path: (status.st_ino, status.st_mode, status.st_size, status.st_mtime_ns, status.st_ctime_ns)
            for path in walk(root)
            for status in (os.lstat(os.path.join(root, path) if path else root),)}


FACETS = "type", "content", "mode", "owner", "date", "holes", "lists", "attributes", "hard links"


def keeps(facet, source, copy):
    """How much of a facet a copy kept; more is better."""
    if facet == "date":  # within the coarsest grain of a disk, only the exact one is better
        return 2 if source == copy else 1 if abs(source - copy) <= 2 * 10**9 else -abs(source - copy)
    if facet in ("lists", "attributes"):
        return sum(copy.get(name) == value for name, value in source.items())
    if facet == "holes":
        return copy or not source
    return source == copy


def differences(source, copy, facets=FACETS):
    """Where a copy is not the same as its source, as texts."""
    return sorted([f"{show(path)}: {facet}" for path, item in source.items() for facet in facets
                   if item.get(facet) != copy.get(path, {}).get(facet)]
                  + [f"{show(path)} should not be there" for path in copy.keys() - source.keys()])


def compare(source, ours, theirs):
    """Where our copy is less whole than theirs, as texts."""
    faults = [f"{show(path)} should not be there" for path in ours.keys() - source.keys()]
    for path, item in source.items():
        if path not in ours:
            if path in theirs or not path:
                faults.append(f"{show(path)} is missing")
            continue
        for facet, original in item.items():
            mine = ours[path].get(facet)
            their = theirs.get(path, {}).get(facet)
            here = keeps(facet, original, mine)
            if facet in ("type", "content") and not here or (
                    path in theirs and here < keeps(facet, original, their)):
                faults.append(f"{show(path)}: {facet} is {mine!r:.100}, of the source"
                              f" {original!r:.100}, by cp {their!r:.100}")
    return faults


def kept(source, copy):
    """Which facets a copy kept, each as yes, some or no; absent where the source has none."""
    result = {}
    plain = {"attributes": {}, "lists": {}, "holes": False}
    for facet in FACETS[2:]:
        items = [(item[facet], copy[path].get(facet)) for path, item in source.items()
                 if path in copy and facet in item and item[facet] != plain.get(facet)
                 and not (facet == "hard links" and len(item[facet]) < 2)]
        same = sum(first == second for first, second in items)
        if items:
            result[facet] = "yes" if same == len(items) else "some" if same else "no"
    return result


def show(path):
    return repr(os.fsdecode(path)) if path else "the item itself"
