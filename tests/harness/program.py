"""The built program in a desktop session: starting it, reading its log, ending it."""

import pathlib
import signal

from tests.harness.log_lines import APPLIED, STARTED
from tests.harness.waiting import DEADLINE, wait_for


class Program:
    """One run of the program; its log is read from standard error."""

    def __init__(self, session, executable, environment=None, name="glintmark"):
        self._session = session
        self.executable = pathlib.Path(executable).resolve()
        self._environment = environment or {}
        self._name = name
        self.process = None

    def start(self):
        self.process = self._session.spawn(self._name, [str(self.executable)], self._environment)
        return self

    def wait_until_started(self):
        self.wait_for_line(STARTED)
        return self

    def wait_until_applied(self, link):
        self.wait_for_line(f"{APPLIED}{link}")

    def output(self):
        """The lines of standard output and standard error."""
        return self._session.log(self._name).splitlines()

    def clear_log(self):
        """Before another start. The lines of the earlier run are lost."""
        (self._session.logs / f"{self._name}.log").unlink()

    def lines(self):
        """The lines of the program's own log, without other output."""
        return self.lines_that_begin("Glintmark: ")

    def lines_that_begin(self, beginning):
        return [line for line in self.output() if line.startswith(beginning)]

    def lines_about(self, text):
        return [line for line in self.lines() if text in line]

    def wait_for_line(self, beginning, timeout=DEADLINE):
        """The first line with this beginning."""
        lines = wait_for(
            lambda: self.lines_that_begin(beginning), f"log line {beginning!r}", timeout
        )
        return lines[0]

    def terminate(self, how=signal.SIGTERM, timeout=5.0):
        """Ends the program by a signal and returns its exit status."""
        return self._session.end(self._name, how, timeout)
