#!/usr/bin/env python3
"""Watching many directories with the built program, beside the peers that are installed: memory,
set-up, rest, latency of a report, throughput of a burst, and the poll of a large folder.

    watching.py [--program PROGRAM] [--directories N] [--rest SECONDS] [--place FOLDER] [--json FILE]
                [NAME ...]

Names: tree (memory, set-up and rest), latency, burst, poll. Fails when a limit is passed. Processor
times and ratios count; the machine may be busy. fs.inotify.max_user_watches must allow N. What
other programs make in a directory above the place of the trees, or mount, wakes the program too.
"""

import argparse
import json
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests" / "stress"))
from bare_program import SYSTEM_LIMITS, BareProgram, wait_for, watches_of  # noqa: E402
from figures import Figures, memory_megabytes, processor_seconds, task_files, wake_ups  # noqa: E402

DIRECTORIES_IN_EACH = 8
FILES_IN_EACH = 3
LATENCIES = 30
FIXED_DELAYS = (1.0, 0.5)  # seconds: the stream's latency and the debounce
BURST_DIRECTORIES = 1000
BURST_FILES = 20_000
POLLED_ENTRIES = 100_000
POLL_INTERVAL = 5.0
SETTLED_SECONDS = 1.0  # without processor time: set up

MOST_MEGABYTES = 10.0
MOST_LATENCY = 0.005  # seconds beyond the fixed delays, median
MOST_WAKE_UPS = 26  # a minute
MOST_MAIN_THREAD = 0.002  # seconds of the main thread for a poll

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


def check_limit(directories):
    limit = int((SYSTEM_LIMITS / "max_user_watches").read_text())
    if limit < directories + 1000:
        sys.exit(f"fs.inotify.max_user_watches is {limit}: too low for {directories} directories")


def measure_tree(options, figures):
    with BareProgram(options.program, place=options.place) as program:
        make_tree(str(program.desktop), options.directories)
        begin = time.monotonic()
        program.start()
        pid = program.process.pid
        seconds = wait_until_settled(pid, begin)
        figures.add("glintmark: set-up, processor time", processor_seconds(pid), "s")
        figures.add("glintmark: set-up, time", seconds, "s")
        figures.add("glintmark: directories not watched",
                    max(0, options.directories - watches_of(pid)), "", 0)
        proportional, private = memory_megabytes(pid)
        figures.add("glintmark: PSS", proportional, "MB", MOST_MEGABYTES)
        figures.add("glintmark: private memory", private, "MB")
        if options.rest > 0:
            measure_rest(pid, options.rest, figures)
        program.end()
        for peer in PEERS:
            measure_peer(peer, program, figures)


def measure_rest(pid, seconds, figures):
    """Each time that a thread goes back to sleep is one wake-up."""
    before = wake_ups(pid), wake_ups(pid, STREAM_THREAD), processor_seconds(pid)
    time.sleep(seconds)
    minutes = seconds / 60
    figures.add("glintmark: wake-ups at rest", (wake_ups(pid) - before[0]) / minutes, "a minute",
                MOST_WAKE_UPS)
    figures.add("glintmark: wake-ups of the stream's thread", wake_ups(pid, STREAM_THREAD) - before[1],
                "", 0)
    figures.add("glintmark: processor time at rest",
                (processor_seconds(pid) - before[2]) / minutes * 1000, "ms a minute")


def fswatch(folder, _):
    return ["fswatch", "--monitor", "inotify_monitor", "--recursive", str(folder)]


def inotifywait(folder, _):
    return ["inotifywait", "--monitor", "--recursive", "--quiet", "--quiet", "-e",
            "create,moved_to,move_self", str(folder)]


def watchman(_, scratch):
    return ["watchman", "--foreground", "--no-save-state", "--sockname", f"{scratch}/socket",
            "--statefile", f"{scratch}/state", "--logfile", f"{scratch}/log",
            "--pidfile", f"{scratch}/pid"]


PEERS = (fswatch, inotifywait, watchman)


def measure_peer(peer, program, figures):
    name = peer.__name__
    if shutil.which(name) is None:
        print(f"{name}: not installed")
        return
    # A socket's path is short, and its folder must be one's own.
    with tempfile.TemporaryDirectory(prefix="glintmark-bench-") as scratch:
        begin = time.monotonic()
        process = subprocess.Popen(peer(program.desktop, scratch), stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            if peer is watchman:
                wait_for(pathlib.Path(scratch, "socket").exists, "watchman's socket")
                subprocess.run(["watchman", "--no-spawn", "--sockname", f"{scratch}/socket", "watch",
                                str(program.desktop)], check=True, stdout=subprocess.DEVNULL)
            seconds = wait_until_settled(process.pid, begin)
            figures.add(f"{name}: set-up, processor time", processor_seconds(process.pid), "s")
            figures.add(f"{name}: set-up, time", seconds, "s")
            figures.add(f"{name}: watches", watches_of(process.pid), "")
            proportional, private = memory_megabytes(process.pid)
            figures.add(f"{name}: PSS", proportional, "MB")
            figures.add(f"{name}: private memory", private, "MB")
            figures.add(f"{name}: PSS, times glintmark's",
                        proportional / figures.values["glintmark: PSS"], "")
        finally:
            process.terminate()
            process.wait()


def sleep_in_turn(late):
    """What the machine adds to the fixed delays by itself, beside the program."""
    begin = time.monotonic()
    for delay in FIXED_DELAYS:
        time.sleep(delay)
    late.append(time.monotonic() - begin - sum(FIXED_DELAYS))


def measure_latency(options, figures):
    """From a file's creation, deep in the tree where the poll does not look, to its report; beside
    bare sleeps of the same length at the same time, which a busy machine makes late as well."""
    with BareProgram(options.program, place=options.place) as program:
        deepest = make_tree(str(program.desktop), options.directories)
        begin = time.monotonic()
        program.start()
        wait_until_settled(program.process.pid, begin)
        late, sleeps = [], []
        for number in range(LATENCIES):
            path = f"{deepest}/{number}.webloc"
            sleeper = threading.Thread(target=sleep_in_turn, args=(sleeps,))
            sleeper.start()
            made = time.monotonic()
            os.close(os.open(path, os.O_CREAT | os.O_WRONLY))
            wait_for(lambda: len(program.reports()) > number, "the report")
            late.append(program.reports()[-1][0] - made - sum(FIXED_DELAYS))
            sleeper.join()
        bare = statistics.median(sleeps)
        figures.add("latency beyond the fixed delays, median", statistics.median(late) * 1000, "ms",
                    (MOST_LATENCY + bare) * 1000)
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
        watching = (processor_seconds(program.process.pid, STREAM_THREAD) +
                    processor_seconds(program.process.pid, QUEUE_THREAD))
        figures.add("burst: files per second of watching", BURST_FILES / watching, "")


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
        figures.add("poll of a large folder, watcher's queue",
                    (processor_seconds(pid, QUEUE_THREAD) - before[0]) / polls * 1000, "ms")
        figures.add("poll of a large folder, main thread",
                    (main_thread_seconds(pid) - before[1]) / polls * 1000, "ms",
                    MOST_MAIN_THREAD * 1000)


MEASUREMENTS = {
    "tree": measure_tree,
    "latency": measure_latency,
    "burst": measure_burst,
    "poll": measure_poll,
}


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--program", default="build/bench/glintmark", type=pathlib.Path)
    parser.add_argument("--directories", default=100_000, type=int)
    parser.add_argument("--rest", default=60.0, type=float, help="seconds of rest to look at")
    parser.add_argument("--place", default="/var/tmp", type=pathlib.Path,
                        help="where to make the trees (/var/tmp)")
    parser.add_argument("--json", type=pathlib.Path, help="also write the figures there")
    parser.add_argument("names", nargs="*", metavar="NAME", help=", ".join(MEASUREMENTS))
    return parser.parse_args()


def main():
    options = parse_arguments()
    check_limit(options.directories)
    figures = Figures()
    for name in options.names or MEASUREMENTS:
        MEASUREMENTS[name](options, figures)
    if options.json:
        options.json.write_text(json.dumps(
            {"benchmark": "watching", "directories": options.directories,
             "figures": figures.values, "failures": figures.failures}, indent=2) + "\n")
    return 1 if figures.failures else 0


if __name__ == "__main__":
    sys.exit(main())
