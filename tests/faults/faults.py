"""Orders for the preloaded library: which calls of a program fail, and how. They may change while
the program runs. Each order counts the calls that it matches."""

import errno
import mmap
import pathlib
import struct

HEADER = struct.Struct("=Ii")  # the layout in Faults.cpp
ORDER = struct.Struct("=24s96siIII")
ERROR = struct.Struct("=i")
BEFORE_ERROR = 24 + 96
MAXIMUM_ORDERS = 128

ALWAYS = 2**32 - 1
HANG = -1
CUT_SHORT = -2  # half of what write(2) was to write
HOLD = -3  # until release()


class Faults:
    def __init__(self, folder, library):
        self._library = pathlib.Path(library).resolve()
        self._path = pathlib.Path(folder) / "faults"
        self._path.write_bytes(bytes(HEADER.size + MAXIMUM_ORDERS * ORDER.size))
        with open(self._path, "r+b") as file:
            self._memory = mmap.mmap(file.fileno(), 0)
        self._count = 0

    def environment(self):
        return {"LD_PRELOAD": str(self._library), "GLINTMARK_FAULTS": str(self._path)}

    def fail(self, function, error, subject="", first=1, last=None):
        """Lets the calls from number `first` to `last` fail; only the first without `last`. Returns
        the order's number. `subject` is a part of the path in the calls that match."""
        place = HEADER.size + self._count * ORDER.size
        ORDER.pack_into(
            self._memory,
            place,
            function.encode(),
            subject.encode(),
            error,
            first,
            first if last is None else last,
            0,
        )
        self._count += 1
        HEADER.pack_into(self._memory, 0, self._count, self._seconds())
        return self._count - 1

    def count(self, function, subject=""):
        """An order that counts the calls and lets all pass."""
        return self.fail(function, errno.EIO, subject, 0, 0)

    def seen(self, order):
        return ORDER.unpack_from(self._memory, HEADER.size + order * ORDER.size)[-1]

    def release(self, order):
        """Lets the held calls of an order pass."""
        ERROR.pack_into(self._memory, HEADER.size + order * ORDER.size + BEFORE_ERROR, 0)

    def clear(self):
        self._count = 0
        HEADER.pack_into(self._memory, 0, 0, self._seconds())

    def set_wall_clock_ahead(self, seconds):
        HEADER.pack_into(self._memory, 0, self._count, seconds)

    def _seconds(self):
        return HEADER.unpack_from(self._memory, 0)[1]
