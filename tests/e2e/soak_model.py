"""A volume of random applications, and a model of what lies on it and of what Tarnwell does there.

Paths are relative to the volume's root.
"""

import hashlib
import os
import plistlib
import shutil
import struct
import zlib
from pathlib import Path

import driver
from kinds import DATA, KINDS, PREFERENCES

LIBRARY = "Users/anna/Library"
SPELLINGS = ("Plain {}", "{} & Söhne", " blanks  {} ", "a.b..{}.c", ".hidden {}", "Größe – {}",
             "приложение {}", "&File {}", "100 %20 {}", "<b>{}", "#{}?'\"\\", "時計 {}")
IDENTIFIERS = "", "vnd.soak-{}.part-a", "Soak{}", ".Soak.a-b-{}", "example.ö {}"
LINK = oct(0o120777)


def icon(colour):
    """An icon file with one small picture."""
    picture = zlib.compress((b"\0" + colour * 32) * 32)
    png = b"\x89PNG\r\n\x1a\n" + b"".join(
        struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))
        for kind, body in ((b"IHDR", struct.pack(">IIBBBBB", 32, 32, 8, 2, 0, 0, 0)),
                           (b"IDAT", picture), (b"IEND", b"")))
    return struct.pack(">4sI4sI", b"icns", len(png) + 16, b"ic11", len(png) + 8) + png


class Disk:
    """A volume, and all that must lie on it: the items by path, as a snapshot describes them."""

    def __init__(self, root, chance):
        self.root, self.chance, self.items = root, chance, {}
        self.failed_copies = 0
        self.ways = set()  # the folders that lead to items; their times are nobody's business

    def write(self, path, content=None):
        """Writes a file of bytes, a link to another path, or makes a folder."""
        parents = {str(parent) for parent in Path(path).parents}
        self.ways |= parents - self.items.keys()
        item = self.root / path
        item.parent.mkdir(parents=True, exist_ok=True)
        mode, text = 0o40000 | self.chance.choice((0o700, 0o755)), ""
        if content is None:
            item.mkdir()
        elif isinstance(content, str):
            text = f"/{content}"
            item.symlink_to(text)
        else:
            mode = 0o100000 | self.chance.choice((0o400, 0o600, 0o644, 0o755))
            text = hashlib.sha256(content).hexdigest()
            item.write_bytes(content)
        if not item.is_symlink():
            item.chmod(mode & 0o777)
        time = self.chance.randrange(2 * 10**9) * 10**9
        self.items[path] = (LINK if item.is_symlink() else oct(mode), time, text)
        for changed in parents & self.items.keys() | {path}:
            os.utime(self.root / changed, ns=(time, self.items[changed][1]), follow_symlinks=False)

    def write_settings(self, path, kind):
        """Puts settings of a kind in the place of whatever lies there."""
        self.clear(path)
        form = self.chance.random()
        if form < 0.1:
            elsewhere = f"Users/anna/Elsewhere/{self.chance.getrandbits(40):x}"
            self.write(path, elsewhere)
            if form < 0.07:  # else the link leads nowhere
                self.write_settings(elsewhere, kind)
        elif kind is PREFERENCES or form < 0.15:
            self.write(path, self.chance.randbytes(self.chance.randrange(9000)))
        else:
            self.write(path)
            for number in range(self.chance.randrange(5)):
                folder = self.chance.choice((path, f"{path}/Saved State {number}"))
                if folder != path:
                    self.write(folder)
                self.write(f"{folder}/{self.chance.choice(SPELLINGS).format(number)}",
                           self.chance.choice((b"", b"short", self.chance.randbytes(70000))))

    def clear(self, path):
        """Removes whatever lies at a path."""
        if self.forget(path):
            item = self.root / path
            shutil.rmtree(item) if item.is_dir() and not item.is_symlink() else item.unlink()

    def tree(self, path):
        return [item for item in self.items if item == path or item.startswith(f"{path}/")]

    def forget(self, path):
        """Takes an item from the model only; returns whether there was one."""
        if path not in self.items:
            return False
        for item in self.tree(path):
            del self.items[item]
        return True

    def duplicate(self, path, copy):
        """Copies an item in the model only; returns whether that is possible."""
        if path not in self.items or copy in self.items:
            self.failed_copies += 1
            return False
        self.items |= {copy + item[len(path):]: self.items[item] for item in self.tree(path)}
        return True

    def holds(self, path, kind=PREFERENCES):
        """Whether a path leads to an item, of data to a folder that is not empty."""
        while path in self.items and self.items[path][0] == LINK:
            path = self.items[path][2][1:]
        return path in self.items and (kind is PREFERENCES or len(self.tree(path)) > 1)

    def check(self):
        """Compares the volume with the model."""
        there = driver.snapshot(self.root)
        assert self.ways <= there.keys(), f"folders are gone: {self.ways - there.keys()}"
        items = {(path, *item) for path, item in there.items() if path not in self.ways}
        different = items ^ {(path, *item) for path, item in self.items.items()}
        assert not different, f"{len(different)} differences: {sorted(different)[:10]}"


class Application:
    """An application, where its settings may lie, and what the window last saw of them."""

    def __init__(self, number, disk):
        chance = disk.chance
        self.name = chance.choice(SPELLINGS).format(number)
        self.bundle = f"Applications/{chance.randrange(1000)} {self.name}.app"
        identifier = chance.choice(IDENTIFIERS).format(number)
        self.identifier = identifier
        self.places = {PREFERENCES: [], DATA: [f"{LIBRARY}/Application Support/{self.name}"]}
        if identifier:
            container = f"{LIBRARY}/Containers/{identifier}/Data/Library"
            first, dot, rest = identifier.lstrip(".").partition(".")
            spellings = self.name, identifier, f"{first}{dot}{rest.replace('-', '_')}"
            self.places[PREFERENCES] = [f"{folder}/Preferences/{identifier}.plist"
                                        for folder in (container, LIBRARY)]
            self.places[DATA] = [*(f"{container}/Application Support/{name}" for name in spellings),
                                 f"{LIBRARY}/Application Support/{identifier}", *self.places[DATA]]
        self.path, self.is_backed_up = dict.fromkeys(KINDS), dict.fromkeys(KINDS, False)
        self._install(identifier, disk)

    def _install(self, identifier, disk):
        chance = disk.chance
        information = {"CFBundleName": self.name, "CFBundleIdentifier": identifier,
                       "CFBundleShortVersionString": chance.choice((None, "1.0")),
                       "CFBundleIconFile": chance.choice((None, "Icon"))}
        present = {key: value for key, value in information.items() if value}
        form = chance.choice((plistlib.FMT_XML, plistlib.FMT_BINARY))
        disk.write(f"{self.bundle}/Contents/Info.plist", plistlib.dumps(present, fmt=form))
        if "CFBundleIconFile" in present:
            disk.write(f"{self.bundle}/Contents/Resources/Icon.icns", icon(chance.randbytes(3)))
        for kind in KINDS:
            for place in self.places[kind]:
                for path in (place, f"{place}.bak"):
                    if chance.random() < 0.4:
                        disk.write_settings(path, kind)

    def disturb(self, disk):
        """Writes or removes settings or a backup."""
        kind = disk.chance.choice(KINDS)
        places = [self.path[kind]] if self.path[kind] else self.places[kind]
        if not places:
            return
        path = disk.chance.choice(places) + disk.chance.choice(("", "", ".bak"))
        if disk.chance.random() < 0.3:
            disk.clear(path)
        else:
            disk.write_settings(path, kind)

    def look(self, disk):
        """What the window does when the application becomes the topmost of the selection."""
        for kind in KINDS:
            path = next((path for path in self.places[kind] if disk.holds(path, kind)), None)
            self.path[kind] = path
            self.is_backed_up[kind] = path is not None and disk.holds(f"{path}.bak")

    def commands(self):
        """The commands that are enabled while the application is the topmost of the selection."""
        offered = {"Launch Application", "Show Application"}
        for kind, show in ((PREFERENCES, "Show Preferences File"), (DATA, "Open Data Folder")):
            offered |= {kind.back_up, show} if self.path[kind] else set()
            offered |= {kind.restore} if self.is_backed_up[kind] else set()
        return offered

    def back_up(self, kind, disk, is_confirmed):
        """Backs up, if need be when confirmed, in the model; returns the alerts that come."""
        path, alerts = self.path[kind], []
        error, backup = kind.backup_error(f"/u{path[1:]}"), f"{path}.bak"
        if self.is_backed_up[kind]:
            alerts.append(kind.backed_up_already)
            if not is_confirmed:
                return alerts
            if not disk.forget(backup):
                return [*alerts, error]
        self.is_backed_up[kind] = disk.duplicate(path, backup)
        return alerts if self.is_backed_up[kind] else [*alerts, error]

    def restore(self, kind, disk, is_confirmed):
        """Restores when confirmed, in the model; returns the alerts that come."""
        path = self.path[kind]
        if not is_confirmed:
            return [kind.question]
        is_restored = disk.forget(path) and disk.duplicate(f"{path}.bak", path)
        return [kind.question,
                kind.restored if is_restored else kind.restore_error(f"/u{path[1:]}")]
