"""SIGTERM ends the program within a second, whatever it does, and no process of it is left."""

import contextlib
import os
import pathlib
import random
import signal
import subprocess
import time

from tests.faults.faults import ALWAYS, HANG
from tests.faults.faulty_program import FaultyProgram
from tests.faults.process_faults import GOOD_SITE, GOOD_SITES, SLOW_SITE
from tests.faults.settings_faults import Settings
from tests.harness.bare_program import BareProgram
from tests.harness.ending import SECOND, check_end, copy_program
from tests.harness.link_file import write_link
from tests.harness.log_lines import APPLIED
from tests.harness.program import Program
from tests.harness.session import DesktopSession
from tests.harness.status_item import ADD_FOLDER
from tests.harness.steps import check
from tests.harness.waiting import wait_for
from tests.harness.web_server import ANY_PATH, NEVER, Answer, SiteServer

STARTS = 20
MAXIMUM_START = 0.15  # seconds
BUS_CONFIGURATION = """<busconfig>
  <type>session</type>
  <listen>unix:dir={folder}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
"""


class EndingProgram(FaultyProgram):
    def __init__(self, options, server=None):
        super().__init__(options, server)
        self.folder = self.root / "bin"
        self.use_executable(copy_program(options.program, self.folder))

    def check_ends_in_time(self, state):
        check_end(self.process, self.folder, state)


def at_the_start(options):
    """At any moment of the start. Before the program handles its signals, they kill it."""
    moments = random.Random(1)
    with EndingProgram(options) as program:
        for number in range(STARTS):
            process = program.spawn()
            until = time.monotonic() + moments.uniform(0, MAXIMUM_START)
            wait_for(lambda: time.monotonic() > until, "the moment")
            begin = time.monotonic()
            process.terminate()
            status = process.wait(30)
            process.stderr.close()
            check(time.monotonic() - begin < SECOND, f"start {number}: too late")
            check(status in (0, -signal.SIGTERM), f"start {number}: {status}")
    return f"SIGTERM in {STARTS} starts"


def in_a_burst(options):
    with SiteServer(GOOD_SITES) as server, EndingProgram(options, server) as program:
        program.start()
        for number in range(1000):
            program.write(program.downloads / f"{number}.webloc", f"{GOOD_SITE}#{number}")
        wait_for(lambda: APPLIED in program.log().decode(), "the first icon")
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
        program.drop("slow.webloc", SLOW_SITE)
        wait_for(lambda: program.faults.seen(order), "the look-up")
        program.check_ends_in_time("in a look-up")
    return "SIGTERM in a look-up that hangs"


def with_silent_sites(options):
    sites = {f"{number}.example": {ANY_PATH: Answer(delay=NEVER)} for number in range(50)}
    with SiteServer(sites) as server, EndingProgram(options, server) as program:
        program.start()
        for number in range(50):
            program.drop(f"{number}.webloc", f"http://{number}.example/")
        wait_for(lambda: len(server.urls()) > 50, "the requests")
        program.check_ends_in_time("with 50 silent sites")
    return "SIGTERM with 50 silent sites"


def without_its_services(options):
    """In a session: a save hangs, the notification daemon is stopped, the bus is killed."""
    with SiteServer(GOOD_SITES) as server, DesktopSession(server) as session:
        settings = Settings(session, options)
        program = Program(session, copy_program(options.program, session.programs))
        settings.program = program
        settings.start()
        order = settings.faults.fail("fsync", HANG, str(settings.folder))
        settings.click(ADD_FOLDER)
        wait_for(lambda: settings.faults.seen(order), "the save")
        check_end(program.process, session.programs, "in a save")
        settings.faults.clear()

        session.start_notifyd()
        restart(program)
        session.processes["xfce4-notifyd"].send_signal(signal.SIGSTOP)
        set_icon(program, session, "stopped")
        check_end(program.process, session.programs, "with a stopped notification daemon")
        session.processes["xfce4-notifyd"].send_signal(signal.SIGCONT)

        restart(program)
        session.end("dbus-daemon", signal.SIGKILL)
        set_icon(program, session, "gone")
        check_end(program.process, session.programs, "without the bus")
    return "SIGTERM in a save that hangs, with a stopped notification daemon, without the bus"


def restart(program):
    program.clear_log()
    program.start().wait_until_started()


def set_icon(program, session, name):
    link = write_link(session.downloads / f"{name}.webloc", GOOD_SITE)
    program.wait_until_applied(link)


@contextlib.contextmanager
def private_bus(folder):
    """Runs a session bus that starts no services, and yields its address."""
    configuration = folder / "bus.conf"
    configuration.write_text(BUS_CONFIGURATION.format(folder=folder))
    command = ["dbus-daemon", f"--config-file={configuration}", "--nofork", "--print-address=1"]
    pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.DEVNULL}
    with subprocess.Popen(command, text=True, **pipes) as daemon:
        try:
            yield daemon.stdout.readline().strip()
        finally:
            daemon.terminate()


def of_one_of_two_sessions(options):
    """Two graphical sessions of one user have a runtime folder in common."""
    with contextlib.ExitStack() as stack:
        programs = [stack.enter_context(BareProgram(options.program)) for _ in range(2)]
        runtime = programs[0].environment["XDG_RUNTIME_DIR"]
        for program in programs:
            bus = stack.enter_context(private_bus(program.root))
            program.environment["DBUS_SESSION_BUS_ADDRESS"] = bus
            program.environment["XDG_RUNTIME_DIR"] = runtime
            program.start()
        folder = pathlib.Path(runtime) / "glintmark"
        # Themed, and flat for panels that do not look into themes.
        icons = sorted(folder.rglob("glintmark-symbolic.svg"))
        check(len(icons) == 2, f"icons while both run: {icons}")
        check(programs[0].end() == 0, "the first session: status")
        left = sorted(folder.rglob("glintmark-symbolic.svg"))
        check(left == icons, f"the first session took icons of the other: {left} are left")
        check(programs[1].end() == 0, "the second session: status")
        check(not folder.exists(), "the icon is left behind")
    return "two sessions, one icon"
