"""The whole road of many links at once: dropped into a watched folder, each from a separate site
that answers every request after 50 ms.

    python3 -m bench.road [--program PROGRAM] [--links N[,N...]] [--silent] [--json FILE] [--smoke]

With --silent no site ever answers, only the favicon service, which has no icon, and each link must
end in its failure.

For single links: the time that the program adds to its own delays and the site's answers. For each
number of links at once: the time until the last has its icon, the memory of the process tree, how
long the main thread was away from its events, and how long it let a call to the status item wait.
Fails if a limit is exceeded, or if a link does not end exactly once.
"""

import collections
import contextlib
import functools
import os
import pathlib
import re
import socket
import statistics
import struct
import sys
import threading
import time
import urllib.parse
import zlib

from bench.options import parse_bench_options
from tests.harness.answers import picture
from tests.harness.figures import Figures
from tests.harness.image_files import flat_png
from tests.harness.link_file import write_link
from tests.harness.log_lines import ICON_SET, NO_ICON
from tests.harness.processes import descendants, memory_megabytes
from tests.harness.program import Program
from tests.harness.session import DesktopSession
from tests.harness.web_server import NEVER, Answer, WebServer

SERVICE = "http://service.example"
NOTHING = b"nothing here"
ANSWER_AFTER = 0.050  # seconds
MAXIMUM_CHAIN = 3  # answers that wait for each other: the manifests that are tried
FIXED_DELAYS = 2.0  # seconds from the file to its fetch
POLL_INTERVAL = 5.0
AFTER_POLL = 0.6
LINKS_ALONE = 9
MAXIMUM_ADDED = 0.015
CALL_INTERVAL = 0.010
SAMPLE_INTERVAL = 0.5
MAXIMUM_SECONDS = 300
MAXIMUM_SECONDS_SILENT = 1800
MAXIMUM_HELD = 0.050
MAXIMUM_MEGABYTES = 300

ITEM = "/StatusNotifierItem"
DONE = re.compile(rf"^(?:{ICON_SET}|{NO_ICON})(.*)$", re.M)


# ---- the sites -------------------------------------------------------------------------------


class ManySites(WebServer):
    """Every host has a page with one icon, a flat picture whose colour follows from its name."""

    def __init__(self, silent):
        """`silent`: no site ever answers, only the favicon service."""
        super().__init__(separate_process=True)
        self._silent = silent

    async def answer(self, request):
        answer = answer_to(request.url)
        never = self._silent and not request.url.startswith(SERVICE)
        answer.delay = NEVER if never else ANSWER_AFTER
        return answer


def answer_to(url):
    address = urllib.parse.urlsplit(url)
    if address.path == "/":
        return Answer(b'<html><link rel="icon" href="/icon.png" sizes="64x64"></html>')
    if address.path == "/icon.png":
        colour = struct.pack(">I", zlib.crc32(address.netloc.encode()))[:3] + b"\xff"
        return picture(flat_png(64, 64, colour))
    return Answer(NOTHING, 404)


# ---- calls over the bus, without a process each ----------------------------------------------


class Caller(threading.Thread):
    """Reads a property of the status item again and again; `waits`: the seconds until each
    answer."""

    def __init__(self, address, uid):
        super().__init__(daemon=True)
        self.waits = []
        self.going = True
        self._serial = 0
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(address.removeprefix("unix:path="))
        self._socket.sendall(b"\0AUTH EXTERNAL " + str(uid).encode().hex().encode() + b"\r\n")
        self._socket.recv(1024)
        self._socket.sendall(b"BEGIN\r\n")
        self._call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "Hello")

    def run(self):
        while self.going:
            begin = time.monotonic()
            self._call(
                "com.quorvel.Glintmark",
                ITEM,
                "org.freedesktop.DBus.Properties",
                "Get",
                ("org.kde.StatusNotifierItem", "Status"),
            )
            self.waits.append(time.monotonic() - begin)
            time.sleep(CALL_INTERVAL)

    def _call(self, destination, path, interface, member, texts=()):
        """A call with string arguments (D-Bus specification, "Message Protocol")."""
        self._serial += 1
        body = b""
        for text in texts:
            body += b"\0" * (-len(body) % 4) + struct.pack("<I", len(text)) + text.encode() + b"\0"
        fields = b""
        for code, kind, text in (
            (1, b"o", path),
            (2, b"s", interface),
            (3, b"s", member),
            (6, b"s", destination),
        ):
            fields += b"\0" * (-len(fields) % 8)
            fields += struct.pack("<B", code) + b"\1" + kind + b"\0"
            fields += struct.pack("<I", len(text)) + text.encode() + b"\0"
        if texts:
            fields += b"\0" * (-len(fields) % 8) + b"\x08\1g\0" + bytes([len(texts)])
            fields += b"s" * len(texts) + b"\0"
        head = struct.pack("<cBBBIII", b"l", 1, 0, 1, len(body), self._serial, len(fields)) + fields
        self._socket.sendall(head + b"\0" * (-len(head) % 8) + body)
        while self._receive() not in (2, 3):  # an answer or an error
            pass

    def _receive(self):
        head = self._exactly(16)
        kind = head[1]
        body, _, fields = struct.unpack("<III", head[4:])
        self._exactly(fields + -(16 + fields) % 8 + body)
        return kind

    def _exactly(self, count):
        data = b""
        while len(data) < count:
            data += self._socket.recv(count - len(data))
        return data


# ---- how long the main thread is held: HeldTime.cpp ------------------------------------------


class HeldTime:
    FIGURES = struct.Struct("ddQQ")

    def __init__(self, library, file):
        self._file = file
        self._file.write_bytes(bytes(self.FIGURES.size))
        self.environment = {"LD_PRELOAD": str(library.resolve()), "HELD_TIME": str(file)}

    def reset(self):
        with self._file.open("r+b") as figures:  # in place, since the program has it mapped
            figures.write(bytes(self.FIGURES.size))

    def figures(self):
        """The longest time in seconds; the longest without the waits for a busy processor; the
        number of times; the number of times over the limit without those waits."""
        return self.FIGURES.unpack(self._file.read_bytes())


# ---- the measurement -------------------------------------------------------------------------


def tree_megabytes(pid):
    return sum(memory_megabytes(member)[0] for member in [pid, *descendants(pid)])


@contextlib.contextmanager
def desktop_session(server):
    environment = {"GLINTMARK_FAVICON_SERVICE": SERVICE}
    with DesktopSession(server, environment=environment) as session:
        session.start_window_manager()
        session.start_panel()
        yield session


def seconds_of_answers(server):
    """How long the longest chain of answers takes without the program: the server sends an answer
    up to a millisecond late."""
    request = b"GET http://site.example/manifest.json HTTP/1.1\r\nHost: site.example\r\n\r\n"
    with socket.create_connection(("127.0.0.1", server.port)) as site:
        begin = time.monotonic()
        for _ in range(MAXIMUM_CHAIN):
            site.sendall(request)
            answer = b""
            while not answer.endswith(NOTHING):
                answer += site.recv(1024)
        return time.monotonic() - begin


def measure_alone(executable, links, server, figures):
    """One link after the other: the time beyond the program's delays and the site's answers."""
    taken, answers = [], []
    with contextlib.ExitStack() as stack:
        session = stack.enter_context(desktop_session(server))
        Program(session, executable).start().wait_until_started()
        # Only what is new is read each time: the program needs both processors.
        log = stack.enter_context(open(session.logs / "glintmark.log", encoding="utf-8"))
        started = time.monotonic()
        for number in range(links):
            # A poll that came first would find the file before the fixed delays are over. Polls
            # begin up to a second later than counted here.
            since_poll = (time.monotonic() - started) % POLL_INTERVAL
            time.sleep(POLL_INTERVAL - since_poll + 2 * AFTER_POLL + number % 4 * AFTER_POLL)
            log.read()
            begin = time.monotonic()
            write_link(session.downloads / f"{number}.webloc", f"http://site-{number}.example/")
            while not DONE.search(log.read()):
                time.sleep(0.0005)
            taken.append(time.monotonic() - begin)
            answers.append(seconds_of_answers(server))
    least = FIXED_DELAYS + statistics.median(answers)

    def add(*figure):
        figures.add(*figure, at="a link alone")

    add("the longest chain of answers, median", statistics.median(answers), "s")
    add("added by the program, median", statistics.median(taken) - least, "s", MAXIMUM_ADDED)
    add("added by the program, least", min(taken) - least, "s")


def measure(executable, held_time_library, count, server, silent, figures):
    with desktop_session(server) as session:
        held = HeldTime(held_time_library, session.home / "held")
        program = Program(session, executable, held.environment).start().wait_until_started()
        caller = Caller(session.environment["DBUS_SESSION_BUS_ADDRESS"], os.getuid())
        beside = session.home / "beside"
        beside.mkdir()
        for number in range(count):
            write_link(beside / f"{number}.webloc", f"http://site-{number}.example/")
        caller.start()
        held.reset()
        begin = time.monotonic()
        for number in range(count):
            (beside / f"{number}.webloc").rename(session.downloads / f"{number}.webloc")
        ended, memory = [], 0
        maximum_seconds = MAXIMUM_SECONDS_SILENT if silent else MAXIMUM_SECONDS
        while len(ended) < count and time.monotonic() - begin < 2 * maximum_seconds:
            time.sleep(SAMPLE_INTERVAL)
            memory = max(memory, tree_megabytes(program.process.pid))
            ended = DONE.findall(session.log("glintmark"))
        seconds = time.monotonic() - begin
        caller.going = False
        caller.join()
        applied = collections.Counter(ended)
        waits = sorted(caller.waits)
        longest, by_itself, _, too_long = held.figures()
        add = functools.partial(figures.add, at=f"{count:,} links" if count > 1 else "1 link")
        failed = sum(path.startswith("http") for path in applied)
        once = sum(times == 1 for times in applied.values())
        add("all done after", seconds, "s", maximum_seconds)
        add("without exactly one end", count - once, "", 0)
        add("failed", failed, "", count if silent else 0)
        add("process tree, most", memory, "MB", MAXIMUM_MEGABYTES)
        add("main thread held, longest", by_itself, "s", MAXIMUM_HELD)
        add("main thread held too long", too_long, "times")
        add("with waits for a processor", longest, "s")
        add("a call's wait, median", statistics.median(waits), "s")
        add("a call's wait, 99 of 100", waits[len(waits) * 99 // 100], "s")
        add("a call's wait, longest", waits[-1], "s")


def main():
    arguments = parse_bench_options(
        __doc__,
        links={"default": "1,100,1000,5000"},
        silent={"action": "store_true"},
        held_time={"type": pathlib.Path, "default": "build/bench/bench/libheld_time.so"},
    )
    if arguments.smoke:
        arguments.links = "1"
    figures = Figures()
    with ManySites(arguments.silent) as server:
        if not arguments.silent:
            links = 1 if arguments.smoke else LINKS_ALONE
            measure_alone(arguments.program, links, server, figures)
        for count in map(int, arguments.links.split(",")):
            measure(
                arguments.program, arguments.held_time, count, server, arguments.silent, figures
            )
    return figures.finish(arguments)


if __name__ == "__main__":
    sys.exit(main())
