"""A volume of random applications, and a model of what lies on it and of what Tarnwell does there.

Paths are relative to the volume's root.
"""

import os
import plistlib
import shutil
from pathlib import Path

import driver
from kinds import DATA, KINDS, PREFERENCES

LIBRARY = "Users/anna/Library"
SPELLINGS = ("Plain {}", "{} & Söhne", " blanks  {} ", "a.b..{}.c", ".hidden {}", "Größe – {}",
             "приложение {}", "&File {}", "100 %20 {}", "<b>{}", "#{}?'\"\\", "時計 {}")
IDENTIFIERS = "", "vnd.soak-{}.part-a", "Soak{}", ".Soak.a-b-{}", "example.ö {}"
LINK = oct(0o120777)
ICON = bytes.fromhex(  # one red pixel
    "89504e470d0a1a0a0000000d4948445200000001000000010802000000907753de0000000c4944415478da63"
    "f8cfc0000003010100f70341430000000049454e44ae426082")


class Disk:
    """A volume, and all that must lie on it: the items by path, as a snapshot describes them."""

    def __init__(self, root, chance):
        self.root, self.chance, self.items = root, chance, {}
        self.failed_copies = 0
        self.ways = set()  # the folders that lead to items; their times are nobody's business

    def write(self, path, make):
        """Puts what a function makes in the place of whatever lies at a path."""
        self.clear(path)
        top = self.root / path
        self.ways |= {str(parent) for parent in Path(path).parents}
        top.parent.mkdir(parents=True, exist_ok=True)
        make(top)
        for item in driver.snapshot(top):
            if not (top / item).is_symlink():
                (top / item).chmod(self.chance.choice((0o700, 0o744, 0o755)))
            time = self.chance.randrange(2 * 10**9) * 10**9
            os.utime(top / item, ns=(time, time), follow_symlinks=False)
        self.items |= {os.path.normpath(f"{path}/{item}"): description
                       for item, description in driver.snapshot(top).items()}

    def write_settings(self, path, kind):
        chance = self.chance

        def make_folder(top):
            top.mkdir()
            for number in range(chance.randrange(5)):
                folder = chance.choice((top, top / f"Saved State {number}"))
                folder.mkdir(exist_ok=True)
                (folder / chance.choice(SPELLINGS).format(number)).write_bytes(
                    chance.choice((b"", b"short", chance.randbytes(70000))))

        form = chance.random()
        if form < 0.1:
            elsewhere = f"Users/anna/Elsewhere/{chance.getrandbits(40):x}"
            self.write(path, lambda top: top.symlink_to(f"/{elsewhere}"))
            if form < 0.07:  # else the link leads nowhere
                self.write_settings(elsewhere, kind)
        elif kind is PREFERENCES or form < 0.15:
            self.write(path, lambda top: top.write_bytes(chance.randbytes(chance.randrange(9000))))
        else:
            self.write(path, make_folder)

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
        self.identifier = identifier = chance.choice(IDENTIFIERS).format(number)
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
        self._install(disk)

    def _install(self, disk):
        chance = disk.chance
        information = {"CFBundleName": self.name, "CFBundleIdentifier": self.identifier,
                       "CFBundleShortVersionString": chance.choice(("", "1.0")),
                       "CFBundleIconFile": chance.choice(("", "Icon.png"))}
        present = {key: value for key, value in information.items() if value}
        form = chance.choice((plistlib.FMT_XML, plistlib.FMT_BINARY))

        def make_bundle(top):
            (top / "Contents/Resources").mkdir(parents=True)
            (top / "Contents/Info.plist").write_bytes(plistlib.dumps(present, fmt=form))
            (top / "Contents/Resources/Icon.png").write_bytes(ICON)

        disk.write(self.bundle, make_bundle)
        for kind, place in ((kind, place) for kind in KINDS for place in self.places[kind]):
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
