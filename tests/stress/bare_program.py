"""The built program without a desktop: a home folder of its own, no bus, no way out of the machine.

Its log is read from standard error, each piece with the time at which it came.
"""

import fcntl
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "support"))
from waiting import DEADLINE, TimedOut, wait_for  # noqa: E402, F401: for the others

REPORT = "Glintmark: 新規webloc検知 → ".encode()
STARTED = b"Glintmark: Started. Watching: "
ENDING = b".webloc"
# A path may hold line ends: a report goes on until a line that ends as a link file does.
REPORTED_PATH = re.compile(re.escape(REPORT) + rb"(.*?\.webloc)\n", re.S)

LINK = """<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>URL</key><string>{url}</string></dict></plist>
"""

PIPE_BYTES = 1 << 20
F_SETPIPE_SZ = 1031  # fcntl(2); the module names it from Python 3.10 on
SYSTEM_LIMITS = pathlib.Path("/proc/sys/fs/inotify")


def watches_of(pid):
    count = 0
    for descriptor in pathlib.Path(f"/proc/{pid}/fdinfo").iterdir():
        try:
            with open(descriptor, "rb") as file:
                count += sum(line.startswith(b"inotify wd:") for line in file)
        except OSError:
            pass
    return count


class SystemLimit:
    """One of the kernel's limits of inotify, set for a while; `changed` says whether that was
    permitted."""

    def __init__(self, name, value):
        self._file = SYSTEM_LIMITS / name
        self._value = value
        self._before = None

    def __enter__(self):
        before = self._file.read_text()
        try:
            self._file.write_text(str(self._value))
            self._before = before
        except OSError:
            pass
        return self

    def __exit__(self, *exception):
        if self._before is not None:
            self._file.write_text(self._before)

    @property
    def changed(self):
        return self._before is not None


class BareProgram:
    """One run of the program, below one temporary folder that goes with it."""

    def __init__(self, executable, place=None, wrapper=()):
        """`place`: where to make the folder. `wrapper`: a command that starts the program."""
        self._command = [*wrapper, str(pathlib.Path(executable).resolve())]
        self.environment = {}  # additional variables
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="glintmark-stress-", dir=place))
        self.home = self.root / "home"
        self.desktop = self.home / "Desktop"
        self.downloads = self.home / "Downloads"
        self._runtime = self.root / "runtime"
        for folder in (self.desktop, self.downloads, self._runtime):
            folder.mkdir(parents=True)
        # Bound and never listened to: whoever connects is refused at once.
        self._dead = socket.socket()
        self._dead.bind(("127.0.0.1", 0))
        self.dead_link = LINK.format(url=f"http://127.0.0.1:{self._dead.getsockname()[1]}/")
        self.process = None
        self._reader = None
        self._pieces = []  # (time, bytes), in order
        self._scanned = 0  # pieces in which reports have been looked for
        self._rest = b""
        self._reports = []  # (time, path), in order

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.end()
        self._dead.close()
        shutil.rmtree(self.root, ignore_errors=True)

    def add_folders(self, folders):
        """Watched besides the two defaults. Before the start."""
        settings = self.home / ".config" / "glintmark" / "defaults.json"
        settings.parent.mkdir(parents=True)
        settings.write_text(json.dumps({"extraFolders": [str(folder) for folder in folders]}))

    def use_executable(self, executable):
        self._command[-1] = str(executable)

    def spawn(self):
        """The process, just begun; its standard error is a pipe."""
        environment = {key: os.environ[key] for key in ("PATH", "TSAN_OPTIONS", "ASAN_OPTIONS",
                                                        "UBSAN_OPTIONS") if key in os.environ}
        environment.update({
            "HOME": str(self.home),
            "XDG_CONFIG_HOME": str(self.home / ".config"),
            "XDG_DATA_HOME": str(self.home / ".local" / "share"),
            "XDG_CACHE_HOME": str(self.home / ".cache"),
            "XDG_RUNTIME_DIR": str(self._runtime),
            "GLINTMARK_FAVICON_SERVICE": "",
            "LANG": "C.UTF-8",
        }, **self.environment)
        return subprocess.Popen(self._command, env=environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)

    def start(self):
        """Returns when the program says that it watches."""
        self._pieces, self._reports, self._scanned, self._rest = [], [], 0, b""
        self.process = self.spawn()
        # Room for a burst of lines, so that the program does not wait for this one.
        fcntl.fcntl(self.process.stderr, F_SETPIPE_SZ, PIPE_BYTES)
        self._reader = threading.Thread(target=self._read, args=(self.process.stderr.fileno(),))
        self._reader.start()
        wait_for(lambda: STARTED in self.log() or self.process.poll() is not None, "the start")
        if self.process.poll() is not None:
            raise RuntimeError(f"the program ended: {self.log().decode(errors='replace')}")
        return self

    def end(self):
        """Its exit status; absent when it does not run."""
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

    def _read(self, descriptor):
        while piece := os.read(descriptor, PIPE_BYTES):
            self._pieces.append((time.monotonic(), piece))

    def log(self):
        return b"".join(piece for _, piece in list(self._pieces))

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
            self._rest = self._rest[begun if begun >= 0 else max(end, lines):]
        return self._reports

    def reported_paths(self):
        return [path for _, path in self.reports()]
