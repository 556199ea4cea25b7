"""The built program without a desktop, with calls that fail and sites on loopback."""

import collections
import pathlib
import sys

TESTS = pathlib.Path(__file__).resolve().parent.parent
sys.path += [str(TESTS / "stress"), str(TESTS / "desktop")]
from bare_program import BareProgram, TimedOut, wait_for  # noqa: E402, F401: for the others
from program import LINK, extended_attribute, write_link  # noqa: E402, F401

from faults import Faults  # noqa: E402

ICON_SET = "Glintmark: アイコン適用成功 → "
ICON_NOT_SET = "Glintmark: アイコン適用失敗 → "
NO_LINK = "Glintmark: URL extraction failed → "
NO_ICON = "Glintmark: Favicon fetch failed → "
REPORTED = "Glintmark: 新規webloc検知 → "


class Failed(Exception):
    """The program did not do what it must."""


def check(condition, what):
    if not condition:
        raise Failed(what)


class FaultyProgram(BareProgram):
    """One run; `server` are its sites, which it reaches as a proxy."""

    def __init__(self, options, server=None, wrapper=()):
        super().__init__(options.program, wrapper=wrapper)
        self.faults = Faults(self.root, options.faults)
        self.environment.update(self.faults.environment())
        self.environment.update(server.proxy_environment() if server else {})
        self.icons = self.home / ".local/share/glintmark/icons"
        self.thumbnails = self.home / ".cache/thumbnails"
        self.settings = self.home / ".config/glintmark/defaults.json"

    def lines(self):
        return self.log().decode(errors="replace").splitlines()

    def count(self, line):
        return self.lines().count(line)

    def drop(self, name, address):
        return write_link(self.downloads / name, address)

    def write(self, path, address):
        """At any place, at once."""
        path.write_text(LINK.format(url=address))

    def ends(self, link, address):
        """How often the way of a link ended, by the log."""
        lines = collections.Counter(self.lines())
        return (lines[f"{ICON_SET}{link}"] + lines[f"{ICON_NOT_SET}{link}"] + lines[f"{NO_LINK}{link}"]
                + lines[f"{NO_ICON}{address}"])

    def check_lives(self, when):
        check(self.process.poll() is None, f"{when}: the program ended: {self.lines()[-3:]}")

    def check_ends(self):
        check(self.end() == 0, f"ended wrongly: {self.lines()[-3:]}")

    def unfinished_files(self):
        return [path for path in self.home.rglob("*.part")]
