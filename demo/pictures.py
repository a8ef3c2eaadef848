"""Pictures of Tarnwell's real window, and of what it says while a command takes long."""

import contextlib
import subprocess

import driver
import pyatspi


def screenshot(path):
    """Takes the screen without its empty borders, when it has come to rest."""
    def is_at_rest():
        before = path.read_bytes() if path.exists() else b""
        subprocess.run(["import", "-silent", "-window", "root", "-trim", "+repage", "-strip",
                        "-define", "png:exclude-chunks=date,time", f"png:{path}"], check=True)
        return path.read_bytes() == before

    driver.wait_until(is_at_rest, "a window at rest")


@contextlib.contextmanager
def in_long_work(window, command, *answers):
    """Gives a command that takes long and stops the program after a third of it.

    The context's value is what the window said then.
    """
    foot, bar = window.foot(), window.find(pyatspi.ROLE_PROGRESS_BAR, "Progress").queryValue()
    with window.slowed():
        window.start(command)
        for answer in answers:
            window.answer(window.alert(), answer)
        said = window.wait_until(lambda: bar.currentValue > bar.maximumValue / 3 > 0 and
                                 foot.name.endswith(" left") and foot.name, "the time left")
    with window.paused():
        yield said
    window.wait_for_end(command)
