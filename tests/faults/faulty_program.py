"""The built program without a desktop, with calls that fail and sites on loopback."""

import collections
import resource

from tests.faults.faults import Faults
from tests.harness.bare_program import BareProgram
from tests.harness.link_file import link_text
from tests.harness.log_lines import ICON_NOT_SET, ICON_SET, NO_ICON, NO_LINK
from tests.harness.steps import check
from tests.harness.waiting import wait_for


class FaultyProgram(BareProgram):
    """One run. `server`: its sites, which the program reaches as a proxy."""

    def __init__(self, options, server=None, wrapper=()):
        super().__init__(options.program, wrapper=wrapper)
        self.faults = Faults(self.root, options.faults)
        self.environment.update(self.faults.environment())
        self.environment.update(server.proxy_environment() if server else {})
        self.icons = self.home / ".local/share/glintmark/icons"
        self.thumbnails = self.home / ".cache/thumbnails"

    def write(self, path, address):
        """Writes a link file directly, without a rename."""
        path.write_text(link_text(address))

    def ends(self, link, address):
        """How many log lines say that the work on a link has ended."""
        lines = collections.Counter(self.lines())
        ends = [f"{ICON_SET}{link}", f"{ICON_NOT_SET}{link}", f"{NO_LINK}{link}"]
        return sum(lines[line] for line in [*ends, f"{NO_ICON}{address}"])

    def wait_for_end(self, link, address):
        wait_for(lambda: self.ends(link, address), f"the end of {link.name}")

    def limit(self, kind, value):
        """Sets a soft limit of the running process. Returns the previous limit."""
        before, hard = resource.prlimit(self.process.pid, kind)
        resource.prlimit(self.process.pid, kind, (value, hard))
        return before

    def check_sees(self, path):
        """A new file must be reported."""
        path.touch()
        self.wait_for_reports([path], f"the report of {path}")

    def check_lives(self, when):
        check(self.process.poll() is None, f"{when}: the program ended: {self.lines()[-3:]}")

    def check_ends(self):
        check(self.end() == 0, f"ended with an error: {self.lines()[-3:]}")

    def unfinished_files(self):
        return list(self.home.rglob("*.part"))
