"""The kernel's watches: how many a process has, and the limits."""

import contextlib
import fcntl
import pathlib

from tests.harness.processes import PROC

LIMITS = pathlib.Path("/proc/sys/fs/inotify")


def watches_of(pid):
    count = 0
    for descriptor in (PROC / f"{pid}/fdinfo").iterdir():
        try:
            count += descriptor.read_bytes().count(b"inotify wd:")
        except OSError:
            pass  # closed meanwhile
    return count


@contextlib.contextmanager
def usual_limit(name):
    """Waits until no other driver has set the limit, and lets none set it meanwhile."""
    with open(LIMITS / name, "rb") as file:
        fcntl.flock(file, fcntl.LOCK_SH)
        yield


class SystemLimit:
    """Sets one of the kernel's limits of inotify and restores it at the end. Waits while another
    driver has set it: the second one would restore the first one's value. `changed` is False if
    that is not permitted."""

    def __init__(self, name, value):
        self._file = LIMITS / name
        self._value = value
        self._before = None
        self._lock = None

    def __enter__(self):
        self._lock = open(self._file, "rb")
        fcntl.flock(self._lock, fcntl.LOCK_EX)
        before = self._file.read_text()
        try:
            self._file.write_text(str(self._value))
            self._before = before
        except OSError:
            pass
        return self

    def __exit__(self, *exception):
        if self.changed:
            self._file.write_text(self._before)
        self._lock.close()

    @property
    def changed(self):
        return self._before is not None
