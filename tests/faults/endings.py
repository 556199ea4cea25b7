"""SIGTERM ends the program within a second, whatever it does, and nothing that it started stays."""

import os
import pathlib
import random
import shutil
import signal
import tempfile
import threading
import time

from faults import ALWAYS, HANG
from faulty_program import FaultyProgram, check, wait_for
from lifecycle import processes_of
from program import Program
from process_faults import GOOD, good_sites
from session import DesktopSession
from settings_faults import ADD, Settings
from sites import Answer, SiteServer

SECOND = 1.0
STARTS = 20
LONGEST_START = 0.15  # seconds


def check_end(process, folder, state):
    """`folder`: that of the program's own copy, by which what it started is known."""
    begin = time.monotonic()
    process.send_signal(signal.SIGTERM)
    status = process.wait(30)
    taken = time.monotonic() - begin
    check(taken < SECOND, f"{state}: ended after {taken:.1f} s")
    check(status == 0, f"{state}: ended with {status}")
    wait_for(lambda: not processes_of(folder / "glintmark-image-decoder"), f"{state}: the decoder's end",
             SECOND)


def own_copy(executable, folder):
    """The program and its decoder in a folder of their own; the program."""
    folder.mkdir()
    for name in ("glintmark", "glintmark-image-decoder"):
        shutil.copy(pathlib.Path(executable).resolve().parent / name, folder)
    return folder / "glintmark"


class EndingProgram(FaultyProgram):
    def __init__(self, options, server=None):
        super().__init__(options, server)
        self.folder = self.root / "bin"
        self.use_executable(own_copy(options.program, self.folder))

    def check_ends_in_time(self, state):
        check_end(self.process, self.folder, state)


def at_the_start(options):
    """At any moment of it; before the program has looked after its signals they just kill it."""
    moments = random.Random(1)
    with EndingProgram(options) as program:
        for number in range(STARTS):
            process = program.spawn()
            until = time.monotonic() + moments.uniform(0, LONGEST_START)
            wait_for(lambda: time.monotonic() > until, "the moment")
            begin = time.monotonic()
            process.terminate()
            status = process.wait(30)
            process.stderr.close()
            check(time.monotonic() - begin < SECOND, f"start {number}: too late")
            check(status in (0, -signal.SIGTERM), f"start {number}: {status}")
    return f"SIGTERM in {STARTS} starts"


def in_a_burst(options):
    with SiteServer(good_sites()) as server, EndingProgram(options, server) as program:
        program.start()
        for number in range(1000):
            program.write(program.downloads / f"{number}.webloc", f"http://{GOOD}/#{number}")
        wait_for(lambda: "Glintmark: Icon applied" in program.log().decode(), "the first icon")
        program.check_ends_in_time("in a burst")
    return "SIGTERM amid 1,000 links"


def in_a_walk(options):
    count = 50_000 if options.full else 5_000
    with EndingProgram(options) as program:
        for number in range(count // 100):
            for below in range(100):
                os.makedirs(program.desktop / str(number) / str(below))
        walked = program.faults.count("inotify_add_watch")
        program.start()
        wait_for(lambda: program.faults.seen(walked) > 100, "the walk")
        program.check_ends_in_time(f"in a walk of {count} directories")
    return f"SIGTERM in a walk of {count} directories"


def in_a_lookup(options):
    with EndingProgram(options) as program:
        order = program.faults.fail("getaddrinfo", HANG, "slow.example", last=ALWAYS)
        program.start()
        program.drop("slow.webloc", "http://slow.example/")
        wait_for(lambda: program.faults.seen(order), "the look-up")
        program.check_ends_in_time("in a look-up")
    return "SIGTERM in a look-up that hangs"


def with_silent_sites(options):
    never = threading.Event()
    sites = {f"{number}.example": {"*": Answer(wait=never)} for number in range(50)}
    with SiteServer(sites) as server, EndingProgram(options, server) as program:
        program.start()
        for number in range(50):
            program.drop(f"{number}.webloc", f"http://{number}.example/")
        wait_for(lambda: len(server.urls()) > 50, "the requests")
        program.check_ends_in_time("with 50 silent sites")
        never.set()
    return "SIGTERM with 50 silent sites"


def without_its_services(options):
    """In a session: a save that hangs, a notification daemon that is stopped, a bus that is gone."""
    with tempfile.TemporaryDirectory(prefix="glintmark-faults-") as name:
        folder = pathlib.Path(name)
        with SiteServer(good_sites()) as server, \
                DesktopSession(root=folder / "session",
                               environment=server.proxy_environment()) as session:
            settings = Settings(session, options)
            settings.program = Program(session, own_copy(options.program, folder / "bin"))
            settings.start()
            order = settings.faults.fail("fsync", HANG, str(settings.folder))
            settings.click(ADD)
            wait_for(lambda: settings.faults.seen(order), "the save")
            check_end(settings.program.process, folder / "bin", "in a save")
            settings.faults.clear()

            session.start_notifyd()
            restart(settings.program, session)
            session.processes["xfce4-notifyd"].send_signal(signal.SIGSTOP)
            set_icon(settings.program, session, "stopped")
            check_end(settings.program.process, folder / "bin", "with a stopped notification daemon")
            session.processes["xfce4-notifyd"].send_signal(signal.SIGCONT)

            restart(settings.program, session)
            session.end("dbus-daemon", signal.SIGKILL)
            set_icon(settings.program, session, "gone")
            check_end(settings.program.process, folder / "bin", "without the bus")
    return "SIGTERM in a save that hangs, with a stopped notification daemon, without the bus"


def restart(program, session):
    (session.logs / "glintmark.log").unlink()
    program.start()
    program.wait_until_started()


def set_icon(program, session, name):
    link = session.home / "Downloads" / f"{name}.webloc"
    link.write_text(f'<plist><dict><key>URL</key><string>http://{GOOD}/</string></dict></plist>')
    program.wait_for_line(f"Glintmark: Icon applied → {link}")
