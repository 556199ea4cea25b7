"""The built program without a desktop: a private home folder, no bus, no request beyond loopback.

Its log is read from a pipe, each piece with the time at which it arrived.
"""

import fcntl
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time

from tests.harness.link_file import link_text, write_link
from tests.harness.log_lines import REPORTED, STARTED
from tests.harness.settings import SettingsFile
from tests.harness.waiting import DEADLINE, wait_for

# A path may contain line breaks, so a report extends to the first line that ends in ".webloc".
REPORT = REPORTED.encode()
REPORTED_PATH = re.compile(re.escape(REPORT) + rb"(.*?\.webloc)\n", re.S)
PIPE_BYTES = 1 << 20
KEPT_VARIABLES = ("PATH", "LD_LIBRARY_PATH", "TSAN_OPTIONS", "ASAN_OPTIONS", "UBSAN_OPTIONS")


class BareProgram:
    """One run of the program in a temporary folder."""

    def __init__(self, executable, place=None, wrapper=()):
        """`place`: where to make the folder. `wrapper`: a command that starts the program."""
        self._command = [*wrapper, str(pathlib.Path(executable).resolve())]
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="glintmark-bare-", dir=place))
        self.home = self.root / "home"
        self.desktop = self.home / "Desktop"
        self.downloads = self.home / "Downloads"
        self.settings = SettingsFile(self.home / ".config")
        self._runtime = self.root / "runtime"
        for folder in (self.desktop, self.downloads, self._runtime):
            folder.mkdir(parents=True)
        self.environment = {  # of the next start
            **{name: os.environ[name] for name in KEPT_VARIABLES if name in os.environ},
            "HOME": str(self.home),
            "XDG_RUNTIME_DIR": str(self._runtime),
            "GLINTMARK_FAVICON_SERVICE": "",
            "LANG": "C.UTF-8",
        }
        # Bound without listening: every connection is refused at once.
        self._dead = socket.socket()
        self._dead.bind(("127.0.0.1", 0))
        self.dead_link = link_text(f"http://127.0.0.1:{self._dead.getsockname()[1]}/")
        self.process = None
        self._reader = None
        self._clear_log()

    def _clear_log(self):
        self._pieces = []  # (time, bytes), in order
        self._scanned = 0  # the number of pieces in which reports have been looked for
        self._rest = b""
        self._reports = []  # (time, path), in order

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.end()
        self._dead.close()
        shutil.rmtree(self.root, ignore_errors=True)

    def use_executable(self, executable):
        self._command[-1] = str(executable)

    def spawn(self):
        """Starts the process without waiting; its standard error is a pipe."""
        return subprocess.Popen(
            self._command,
            env=self.environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE,
        )

    def start(self):
        """Returns when the program logs that it watches."""
        self._clear_log()
        self.process = self.spawn()
        # Room for a burst of lines, so that the program does not wait for the reader.
        fcntl.fcntl(self.process.stderr, fcntl.F_SETPIPE_SZ, PIPE_BYTES)
        self._reader = threading.Thread(target=self._read, args=(self.process.stderr.fileno(),))
        self._reader.start()
        started = STARTED.encode()
        wait_for(lambda: started in self.log() or self.process.poll() is not None, "the start")
        if self.process.poll() is not None:
            raise RuntimeError(f"the program ended: {self.log().decode(errors='replace')}")
        return self

    def end(self):
        """Ends the program and returns its exit status; None if it does not run."""
        if self.process is None:
            return None
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGCONT)
            self.process.terminate()
        try:
            self.process.wait(DEADLINE)
        except subprocess.TimeoutExpired:
            self.process.kill()
        status = self.process.wait()
        self._reader.join()
        self.process.stderr.close()
        self.process = None
        return status

    def drop(self, name, address):
        return write_link(self.downloads / name, address)

    def _read(self, descriptor):
        while piece := os.read(descriptor, PIPE_BYTES):
            self._pieces.append((time.monotonic(), piece))

    def log(self):
        return b"".join(piece for _, piece in list(self._pieces))

    def lines(self):
        return self.log().decode(errors="replace").splitlines()

    def count(self, line):
        return self.lines().count(line)

    def reports(self):
        """(time, path) of each report so far, in order; the paths are bytes."""
        while self._scanned < len(self._pieces):
            moment, piece = self._pieces[self._scanned]
            self._scanned += 1
            self._rest += piece
            end = 0
            for match in REPORTED_PATH.finditer(self._rest):
                self._reports.append((moment, match.group(1)))
                end = match.end()
            begun = self._rest.rfind(REPORT, end)
            lines = self._rest.rfind(b"\n") + 1
            self._rest = self._rest[begun if begun >= 0 else max(end, lines) :]
        return self._reports

    def reported_paths(self):
        return [path for _, path in self.reports()]

    def wait_for_reports(self, paths, what="the reports", timeout=DEADLINE):
        wanted = {os.fsencode(path) for path in paths}
        wait_for(lambda: wanted <= set(self.reported_paths()), what, timeout)
