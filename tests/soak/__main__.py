"""A long life of the built program: a tree that changes all the time, sites that are good, bad and
silent, and services that stop and start again. Memory, descriptors, threads and unfinished links
are sampled. In the end each link must have had exactly one end, and the program must not be larger
than before.

    python3 -m tests.soak [--program PROGRAM] [--output FOLDER] [--minutes N] [--seed N] [--smoke]

Writes samples.csv and samples.svg. With --smoke: half a minute, too short to measure growth and
without a plot.
"""

import collections
import csv
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import time

from tests.harness.figures import Figures
from tests.harness.link_file import write_link
from tests.harness.log_lines import ICON_NOT_SET, ICON_SET, NO_ICON, NO_LINK, REPORTED
from tests.harness.options import parse_options
from tests.harness.processes import descendants, memory_megabytes
from tests.harness.program import Program
from tests.harness.session import DesktopSession
from tests.harness.sites import demo_sites, hostile_sites
from tests.harness.status_item import StatusItem
from tests.harness.waiting import wait_for
from tests.harness.web_server import SiteServer

STEP = 0.25  # seconds between two changes
SAMPLE = 5.0
SMOKE = 30.0
SERVICE_CHANGE = 60.0
WARM_UP = 60.0  # memory of the first minutes and of each service's first restart is not growth
OVERDUE = 150.0  # every fetch takes less, even from silent sites, unless the machine is busy
LAST_ANSWERS = 900.0  # a link without an end by then is lost
REST = 40.0  # the decoder and the HTTP client's thread have ended by then

MAXIMUM_GROWTH = 10.0  # MB
MAXIMUM_NEW_DESCRIPTORS = 0
MAXIMUM_NEW_THREADS = 0

SERVICES = {"panel": "xfce4-panel", "notifications": "xfce4-notifyd", "bus": "dbus-daemon"}
COLUMNS = ("seconds", "PSS", "private memory", "descriptors", "threads", "unfinished", "overdue")


def lines_with(*beginnings):
    return re.compile(f"^(?:{'|'.join(map(re.escape, beginnings))})(.*)$", re.M)


REPORT = lines_with(REPORTED)
END = lines_with(ICON_SET, ICON_NOT_SET, NO_LINK)
FAILURE = lines_with(NO_ICON)
# Few silent ones: each keeps six requests waiting for ten seconds; more would only fill the queue.
HOSTS = 5 * [*demo_sites(), *(host for host in hostile_sites() if host != "silent.example")]
HOSTS += ["silent.example"]


class Life:
    """Changes a watched folder at random; remembers the links that must be reported."""

    def __init__(self, folder, seed):
        self._random = random.Random(seed)
        self._folders = [folder]
        self._number = 0
        self.links = {}  # path -> (address, time)

    def step(self):
        change = self._random.random()
        if change < 0.25 and len(self._folders) < 2000:
            self._make_folder()
        elif change < 0.30 and len(self._folders) > 20:
            self._remove_folder()
        elif change < 0.60:
            self._write_other_file()
        else:
            self._write_link()

    def _name(self):
        self._number += 1
        return str(self._number)

    def _make_folder(self):
        folder = self._random.choice(self._folders) / f"folder-{self._name()}"
        folder.mkdir()
        self._folders.append(folder)

    def _remove_folder(self):
        gone = self._random.choice(self._folders[1:])
        if any(path.startswith(f"{gone}/") for path in list(self.links)[-50:]):
            return  # a link in it may not have been scanned yet
        shutil.rmtree(gone)
        self._folders = [folder for folder in self._folders if not folder.is_relative_to(gone)]

    def _write_other_file(self):
        (self._random.choice(self._folders) / f"note-{self._name()}.txt").write_text("x")

    def _write_link(self):
        path = self._random.choice(self._folders) / f"{self._name()}.webloc"
        # Sites do not see the fragment. It makes each address in the log unique.
        address = f"http://{self._random.choice(HOSTS)}/#{self._number}"
        write_link(path, address)
        self.links[str(path)] = (address, time.monotonic())


class Services:
    """Ends one service of the session, and starts it again at the next step."""

    def __init__(self, session, seed):
        self._session = session
        self._random = random.Random(seed)
        self._away = None

    def step(self):
        if self._away:
            self.all_back()
        else:
            self._end(self._random.choice(list(SERVICES)))

    def restart_each(self):
        for service in SERVICES:
            self._end(service)
            self.all_back()

    def all_back(self):
        if self._away == "panel":
            self._session.restart_panel()
        elif self._away == "notifications":
            self._session.start_notifyd()
        elif self._away == "bus":
            self._session.start_bus()
            self._session.restart_panel()
            self._session.end("xfce4-notifyd")
            self._session.start_notifyd()
        self._away = None

    def _end(self, service):
        self._away = service
        self._session.end(SERVICES[service])


class Ends:
    """How often each link was reported and finished, by the log so far."""

    def __init__(self, path, life):
        self._log = open(path, "rb")
        self._rest = b""
        self._life = life
        self._reported = collections.Counter()
        self._ended = collections.Counter()
        self._failed = collections.Counter()

    def read(self):
        text = self._rest + self._log.read()
        whole, _, self._rest = text.rpartition(b"\n")
        lines = whole.decode(errors="replace")
        self._reported.update(REPORT.findall(lines))
        self._ended.update(END.findall(lines))
        self._failed.update(FAILURE.findall(lines))
        return self

    def missing(self, since=0.0):
        """Links older than `since` seconds that have not had exactly one end."""
        now = time.monotonic()
        return [
            path
            for path, (address, begin) in self._life.links.items()
            if now - begin >= since
            and (self._reported[path] != 1 or self._ended[path] + self._failed[address] != 1)
        ]


class Samples:
    """Memory, descriptors and threads of a process over time, and the unfinished links."""

    def __init__(self, pid, ends, path):
        self._pid = pid
        self._ends = ends
        self._file = open(path, "w", newline="")
        self._table = csv.writer(self._file)
        self._table.writerow(COLUMNS)
        self._begin = time.monotonic()

    def take(self):
        proportional, private = memory_megabytes(self._pid)
        ends = self._ends.read()
        row = (
            time.monotonic() - self._begin,
            proportional,
            private,
            len(os.listdir(f"/proc/{self._pid}/fd")),
            len(os.listdir(f"/proc/{self._pid}/task")),
            len(ends.missing()),
            len(ends.missing(OVERDUE)),
        )
        self._table.writerow([f"{value:.2f}" for value in row])
        self._file.flush()
        return row


def open_files(pid):
    """The files of the open descriptors, without the numbers of sockets and pipes."""
    found = collections.Counter()
    for descriptor in pathlib.Path(f"/proc/{pid}/fd").iterdir():
        try:
            found[os.readlink(descriptor).partition("[")[0]] += 1
        except OSError:
            pass  # closed meanwhile
    return found


def await_ends(ends):
    until = time.monotonic() + LAST_ANSWERS
    while ends.read().missing() and time.monotonic() < until:
        time.sleep(1)


def rested(samples, ends, program):
    """A sample after all links have had their end, and the files that are open then."""
    await_ends(ends)
    wait_for(
        lambda: not descendants(program.process.pid), "the end of the decoder", timeout=2 * REST
    )
    time.sleep(REST)
    return samples.take(), open_files(program.process.pid)


def live(life, services, samples, seconds):
    begin = time.monotonic()
    next_sample, next_service = begin, begin + SERVICE_CHANGE
    while time.monotonic() - begin < seconds:
        life.step()
        now = time.monotonic()
        if now >= next_sample:
            samples.take()
            next_sample = now + SAMPLE
        if now >= next_service:
            services.step()
            next_service = now + SERVICE_CHANGE
        time.sleep(STEP)
    services.all_back()


def plot(folder):
    subprocess.run(
        [
            "gnuplot",
            "-e",
            f"""
        set terminal svg size 900,900 background 'white'; set output '{folder}/samples.svg';
        set datafile separator ','; set key autotitle columnhead outside; set grid;
        set yrange [0:*]; set lmargin 8; set rmargin 22; set multiplot layout 3,1;
        samples='{folder}/samples.csv';
        set ylabel 'MB';
        plot for [column=2:3] samples using ($1/60):column with lines;
        set ylabel 'number';
        plot for [column=4:5] samples using ($1/60):column with lines;
        set ylabel 'links'; set xlabel 'minutes';
        plot for [column=6:7] samples using ($1/60):column with lines""",
        ],
        check=True,
    )


def grow(life, services, samples, ends, program, minutes, figures):
    """Lives for some minutes and adds the growth to the figures."""
    warm_up = min(WARM_UP, minutes * 15)
    live(life, services, samples, warm_up)
    services.restart_each()
    live(life, services, samples, warm_up)
    first, open_at_first = rested(samples, ends, program)
    live(life, services, samples, minutes * 60)
    last, open_at_last = rested(samples, ends, program)
    for name, count in (open_at_last - open_at_first).items():
        print(f"opened {count} more: {name}")
    figures.add("growth of PSS", last[1] - first[1], "MB", MAXIMUM_GROWTH)
    figures.add("growth of private memory", last[2] - first[2], "MB", MAXIMUM_GROWTH)
    figures.add("new descriptors", last[3] - first[3], "", MAXIMUM_NEW_DESCRIPTORS)
    figures.add("new threads", last[4] - first[4], "", MAXIMUM_NEW_THREADS)


def main():
    arguments = parse_options(
        __doc__,
        output="build/soak",
        minutes={"type": float, "default": 60.0},
        seed={"type": int, "default": 1},
        smoke={"action": "store_true"},
    )
    arguments.output.mkdir(parents=True, exist_ok=True)
    figures = Figures()
    server = SiteServer({**demo_sites(), **hostile_sites()})
    with server, DesktopSession(server) as session:
        session.start_desktop()
        program = Program(session, arguments.program).start().wait_until_started()
        StatusItem(session)
        life = Life(session.downloads, arguments.seed)
        ends = Ends(session.logs / "glintmark.log", life)
        samples = Samples(program.process.pid, ends, arguments.output / "samples.csv")
        services = Services(session, arguments.seed)
        if arguments.smoke:
            live(life, services, samples, SMOKE)
            await_ends(ends)
        else:
            grow(life, services, samples, ends, program, arguments.minutes, figures)
        shutil.copy(session.logs / "glintmark.log", arguments.output)
        lost = ends.read().missing()
        print("".join(f"not exactly once: {path}\n" for path in lost), end="")
        figures.add("links", len(life.links), "")
        figures.add("links without exactly one end", len(lost), "", 0)
        figures.add("status at the end", program.terminate(), "", 0)
    if not arguments.smoke:
        plot(arguments.output)
    return 1 if figures.failures else 0


if __name__ == "__main__":
    sys.exit(main())
