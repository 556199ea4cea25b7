"""Watching many directories with the built program and with its installed peers: memory, set-up,
rest, latency of a report, throughput of a burst, busy folders, the poll of a large folder.

    python3 -m bench.watching [--program PROGRAM] [--directories N[,N...]] [--rest SECONDS]
                              [--place FOLDER] [--json FILE] [--smoke] [NAME ...]

Names: tree (memory, set-up and rest, at each number of directories), latency, burst, busy, poll (at
the last). Fails if a limit is exceeded. Processor times and ratios count, so the machine may be
busy. Raises fs.inotify.max_user_watches while it runs, if permitted. Changes that other programs
make in directories above the trees, and their mounts, wake the program too.
"""

import contextlib
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time

from bench.options import parse_bench_options
from tests.harness.bare_program import BareProgram
from tests.harness.figures import Figures
from tests.harness.inotify import LIMITS, SystemLimit, watches_of
from tests.harness.processes import memory_megabytes, processor_seconds, wake_ups
from tests.harness.waiting import wait_for

DIRECTORIES_IN_EACH = 8
FILES_IN_EACH = 3
LATENCIES = 30
FIXED_DELAYS = (1.0, 0.5)  # seconds: the stream's latency and the debounce
BURST_DIRECTORIES = 1000
BURST_FILES = 20_000
BUSY_DIRECTORIES = 100
OBJECTS_PER_SECOND = 200  # that the compilers write: a parallel build on a fast machine
BUSY_SECONDS = 20.0
DOWNLOAD_BYTES = 1 << 30
DOWNLOAD_PIECE = 1 << 18
DOWNLOAD_SECONDS = 10.0
POLLED_ENTRIES = 100_000
POLL_INTERVAL = 5.0
SETTLED_SECONDS = 1.0  # the set-up ends when no processor time is used for this long

SPARE_WATCHES = 1000  # for other programs

MAXIMUM_MEGABYTES = 10.0
MAXIMUM_LATENCY = 0.005  # seconds beyond the fixed delays, median
MAXIMUM_WAKE_UPS = 26  # a minute
MAXIMUM_BUSY_SHARE = 0.01  # of a core
MAXIMUM_MAIN_THREAD = 0.002  # seconds of the main thread for a poll

STREAM_THREAD = "event-stream"
QUEUE_THREAD = "com.quorvel.Gli"


def main_thread_seconds(pid):
    return int(pathlib.Path(f"/proc/{pid}/task/{pid}/schedstat").read_text().split()[0]) / 1e9


def wait_until_settled(pid, begin):
    """Seconds from `begin` until the process began to rest."""
    used, since = -1.0, time.monotonic()
    while time.monotonic() - since < SETTLED_SECONDS:
        now = processor_seconds(pid)
        if now - used > 0.001:
            used, since = now, time.monotonic()
        time.sleep(0.01)
    return since - begin


def make_tree(folder, count):
    parents = [folder]
    made = 0
    while made < count:
        parent = parents.pop(0)
        for number in range(FILES_IN_EACH):
            os.close(os.open(f"{parent}/file-{number}", os.O_CREAT | os.O_WRONLY))
        for number in range(min(DIRECTORIES_IN_EACH, count - made)):
            path = f"{parent}/folder-{number}"
            os.mkdir(path)
            parents.append(path)
            made += 1
    return parents[-1]


@contextlib.contextmanager
def enough_watches(directories):
    needed = directories + SPARE_WATCHES
    before = int((LIMITS / "max_user_watches").read_text())
    with contextlib.ExitStack() as stack:
        if (
            before < needed
            and not stack.enter_context(SystemLimit("max_user_watches", needed)).changed
        ):
            sys.exit(
                f"fs.inotify.max_user_watches is {before}, too low for {directories} directories: "
                f"run `sysctl fs.inotify.max_user_watches={needed}` as root"
            )
        yield


def measure_trees(options, figures):
    for directories in options.sizes:
        with BareProgram(options.program, place=options.place) as program:
            make_tree(str(program.desktop), directories)
            measure_tree(program, directories, options.rest, figures)


def measure_tree(program, directories, rest, figures):
    at = f"{directories:,} directories"
    begin = time.monotonic()
    program.start()
    pid = program.process.pid
    measure_set_up(pid, begin, "glintmark", at, figures, MAXIMUM_MEGABYTES)
    figures.add("directories not watched", max(0, directories - watches_of(pid)), "", 0, at=at)
    measure_rest(pid, rest, at, figures)
    program.end()
    for peer in PEERS:
        measure_peer(peer, program, at, figures)


def measure_set_up(pid, begin, name, at, figures, maximum_megabytes=None):
    seconds = wait_until_settled(pid, begin)
    figures.add("set-up, processor time", processor_seconds(pid), "s", of=name, at=at)
    figures.add("set-up, time", seconds, "s", of=name, at=at)
    proportional, private = memory_megabytes(pid)
    figures.add("PSS", proportional, "MB", maximum_megabytes, of=name, at=at)
    figures.add("private memory", private, "MB", of=name, at=at)


def measure_rest(pid, seconds, at, figures):
    before = wake_ups(pid), wake_ups(pid, STREAM_THREAD), processor_seconds(pid)
    time.sleep(seconds)
    woken = (wake_ups(pid) - before[0]) * 60 / seconds
    stream_woken = wake_ups(pid, STREAM_THREAD) - before[1]
    used = (processor_seconds(pid) - before[2]) * 60 / seconds * 1000
    figures.add("wake-ups at rest", woken, "a minute", MAXIMUM_WAKE_UPS, at=at)
    figures.add("wake-ups of the stream's thread", stream_woken, "", 0, at=at)
    figures.add("processor time at rest", used, "ms a minute", at=at)


def fswatch(folder, _):
    return ["fswatch", "--monitor", "inotify_monitor", "--recursive", str(folder)]


def inotifywait(folder, _):
    events = ["-e", "create,move,delete,close_write,attrib,move_self"]
    return ["inotifywait", "--monitor", "--recursive", "--quiet", "--quiet", *events, str(folder)]


def watchman(_, scratch):
    command = ["watchman", "--foreground", "--no-save-state"]
    places = ("sockname", "statefile", "logfile", "pidfile")
    return command + [f"--{place}={scratch}/{place}" for place in places]


PEERS = (fswatch, inotifywait, watchman)


def measure_peer(peer, program, at, figures):
    name = peer.__name__
    if shutil.which(name) is None:
        print(f"{name}: not installed")
        return
    # The path of a socket must be short, and watchman wants to own its folder.
    with tempfile.TemporaryDirectory(prefix="glintmark-bench-") as scratch:
        begin = time.monotonic()
        quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
        command = peer(program.desktop, scratch)
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, **quiet)
        try:
            if peer is watchman:
                socket = pathlib.Path(scratch, "sockname")
                wait_for(socket.exists, "watchman's socket")
                client = ["watchman", "--no-spawn", f"--sockname={socket}"]
                subprocess.run([*client, "watch", program.desktop], check=True, **quiet)
            measure_set_up(process.pid, begin, name, at, figures)
        finally:
            process.terminate()
            process.wait()


def sleep_in_turn(late):
    """Measures what the machine adds to the fixed delays without the program."""
    begin = time.monotonic()
    for delay in FIXED_DELAYS:
        time.sleep(delay)
    late.append(time.monotonic() - begin - sum(FIXED_DELAYS))


def measure_latency(options, figures):
    """From a file's creation, deep in the tree where the poll does not look, to its report. Bare
    sleeps of the same length at the same time show how late the machine itself is."""
    with BareProgram(options.program, place=options.place) as program:
        deepest = make_tree(str(program.desktop), options.sizes[-1])
        begin = time.monotonic()
        program.start()
        wait_until_settled(program.process.pid, begin)
        late, sleeps = [], []
        for number in range(3 if options.smoke else LATENCIES):
            path = f"{deepest}/{number}.webloc"
            sleeper = threading.Thread(target=sleep_in_turn, args=(sleeps,))
            sleeper.start()
            made = time.monotonic()
            os.close(os.open(path, os.O_CREAT | os.O_WRONLY))
            wait_for(lambda: len(program.reports()) > number, "the report")
            late.append(program.reports()[-1][0] - made - sum(FIXED_DELAYS))
            sleeper.join()
        bare = statistics.median(sleeps)
        median, maximum = statistics.median(late) * 1000, (MAXIMUM_LATENCY + bare) * 1000
        figures.add("latency beyond the fixed delays, median", median, "ms", maximum)
        figures.add("lateness of bare sleeps, median", bare * 1000, "ms")
        figures.add("latency beyond the fixed delays, worst", max(late) * 1000, "ms")


def measure_burst(options, figures):
    with BareProgram(options.program, place=options.place) as program:
        program.start()
        folders = [f"{program.desktop}/{number}" for number in range(BURST_DIRECTORIES)]
        begin = time.monotonic()
        for folder in folders:
            os.mkdir(folder)
        for number in range(BURST_FILES // BURST_DIRECTORIES):
            for folder in folders:
                os.close(os.open(f"{folder}/{number}.webloc", os.O_CREAT | os.O_WRONLY))
        made = time.monotonic()
        wait_for(lambda: len(program.reports()) >= BURST_FILES, "the reports")
        last = program.reports()[-1][0]
        paths = program.reported_paths()
        figures.add("burst: files missed", BURST_FILES - len(set(paths)), "", 0)
        figures.add("burst: files reported twice", len(paths) - len(set(paths)), "", 0)
        figures.add("burst: making the files", made - begin, "s")
        figures.add("burst: last report after the last file", last - made, "s")
        threads = (STREAM_THREAD, QUEUE_THREAD)
        watching = sum(processor_seconds(program.process.pid, thread) for thread in threads)
        figures.add("burst: files per second of watching", BURST_FILES / watching, "")


def write_file(path, data):
    with open(path, "wb") as file:
        file.write(data)


def compile_like(folder, number):
    """What a build writes for one source: dependencies, a temporary object that gets its name and
    its permissions, and the removal of an older one."""
    place = f"{folder}/{number % BUSY_DIRECTORIES}"
    path = f"{place}/{number}.o"
    write_file(f"{path}.d", b"dependencies")
    write_file(f"{path}.tmp", b"o" * 10_000)
    os.chmod(f"{path}.tmp", 0o755)
    os.rename(f"{path}.tmp", path)
    older = number - 10 * BUSY_DIRECTORIES
    if older >= 0:
        os.unlink(f"{place}/{older}.o")
        os.unlink(f"{place}/{older}.o.d")


def paced(count, seconds, act):
    """Calls `act` with the numbers below `count`, evenly over at least so many seconds."""
    begin = time.monotonic()
    for number in range(count):
        act(number)
        time.sleep(max(0.0, begin + (number + 1) * seconds / count - time.monotonic()))


def build(folder, seconds):
    for number in range(BUSY_DIRECTORIES):
        os.mkdir(f"{folder}/{number}")
    paced(int(seconds * OBJECTS_PER_SECOND), seconds, lambda number: compile_like(folder, number))


def download(folder, seconds):
    """As a browser does it: under another name until it is complete."""
    data = os.urandom(DOWNLOAD_PIECE)
    size = DOWNLOAD_BYTES * min(1.0, seconds / DOWNLOAD_SECONDS)
    with open(f"{folder}/large.iso.part", "wb", buffering=0) as file:
        paced(int(size / DOWNLOAD_PIECE), seconds, lambda _: file.write(data))
    os.rename(f"{folder}/large.iso.part", f"{folder}/large.iso")


def measure_busy(options, figures):
    """The processor time of the program while others work in a watched folder, polls included."""
    for what, work, seconds in (
        ("compiler", build, BUSY_SECONDS),
        ("download of 1 GB", download, DOWNLOAD_SECONDS),
    ):
        with BareProgram(options.program, place=options.place) as program:
            begin = time.monotonic()
            program.start()
            pid = program.process.pid
            wait_until_settled(pid, begin)
            used, begin = processor_seconds(pid), time.monotonic()
            work(str(program.desktop), 1.0 if options.smoke else seconds)
            time.sleep(sum(FIXED_DELAYS))  # the last scan
            share = (processor_seconds(pid) - used) / (time.monotonic() - begin)
            name = f"busy folder, {what}: processor time"
            figures.add(name, share * 100, "% of a core", MAXIMUM_BUSY_SHARE * 100)


def measure_poll(options, figures):
    """Polls of a large folder in the built program: on which threads, and for how long."""
    with BareProgram(options.program, place=options.place) as program:
        for number in range(POLLED_ENTRIES):
            os.close(os.open(f"{program.desktop}/a file {number}.txt", os.O_CREAT | os.O_WRONLY))
        begin = time.monotonic()
        program.start()
        pid = program.process.pid
        wait_until_settled(pid, begin)
        before = processor_seconds(pid, QUEUE_THREAD), main_thread_seconds(pid)
        polls = 3
        time.sleep(polls * POLL_INTERVAL)
        queue = (processor_seconds(pid, QUEUE_THREAD) - before[0]) / polls * 1000
        main = (main_thread_seconds(pid) - before[1]) / polls * 1000
        figures.add("poll of a large folder, watcher's queue", queue, "ms")
        figures.add("poll of a large folder, main thread", main, "ms", MAXIMUM_MAIN_THREAD * 1000)


MEASUREMENTS = {
    "tree": measure_trees,
    "latency": measure_latency,
    "burst": measure_burst,
    "busy": measure_busy,
    "poll": measure_poll,
}


def main():
    options = parse_bench_options(
        __doc__,
        directories={"default": "1000,10000,100000"},
        rest={"type": float, "default": 60.0, "help": "seconds of rest to look at"},
        place={"type": pathlib.Path, "default": "/var/tmp", "help": "where to make the trees"},
        names={"nargs": "*", "metavar": "NAME", "help": ", ".join(MEASUREMENTS)},
    )
    options.sizes = [int(number) for number in options.directories.split(",")]
    if options.smoke:
        options.sizes, options.rest, options.names = [100], 1.0, ["tree", "latency", "busy"]
    figures = Figures()
    with enough_watches(max(options.sizes)):
        for name in options.names or MEASUREMENTS:
            MEASUREMENTS[name](options, figures)
    return figures.finish(options)


if __name__ == "__main__":
    sys.exit(main())
