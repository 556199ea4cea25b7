"""The program's cost while it waits for links: memory before and after a first fetch, wake-ups,
processor time, and the time from its start to the item's registration with a panel.

    python3 -m bench.resident [--program PROGRAM] [--rest SECONDS] [--json FILE] [--smoke]

Runs in a private session with a panel, a notification daemon and sites on loopback. Fails if a
limit is exceeded. Proportional memory depends on the other programs: use a machine at rest.
"""

import re
import statistics
import sys
import time

from bench.options import parse_bench_options
from bench.session import SETTLED_AFTER, desktop, fetch_one_icon, start_and_show
from tests.harness.figures import Figures
from tests.harness.processes import memory_megabytes, processor_seconds, wake_ups
from tests.harness.program import Program
from tests.harness.waiting import wait_for

STARTS = 15

MAXIMUM_MEGABYTES = 11.0
MAXIMUM_PRIVATE_MEGABYTES = 8.0
MAXIMUM_WAKE_UPS = 26  # a minute
MAXIMUM_START = 0.040  # seconds, median


def time_of_start(session, executable, number):
    """Seconds until the program registers its item over the bus."""
    monitor = f"monitor-{number}"
    rule = "member='RegisterStatusNotifierItem'"
    session.spawn(monitor, ["dbus-monitor", "--session", "--profile", rule])
    wait_for(lambda: "NameAcquired" in session.log(monitor), "the monitor")
    program = Program(session, executable, name=f"glintmark-{number}")
    begin = time.time()
    program.start()

    def registered():
        call = r"^mc\t([\d.]+)\t.*RegisterStatusNotifierItem"
        found = re.search(call, session.log(monitor), re.M)
        return float(found[1]) if found else None

    end = wait_for(registered, "the item's registration")
    program.terminate()
    session.end(monitor)
    return end - begin


def measure_starts(session, executable, count, figures):
    starts = [time_of_start(session, executable, number) for number in range(count)]
    figures.add("start to registered item, median", statistics.median(starts), "s", MAXIMUM_START)
    figures.add("start to registered item, least", min(starts), "s")


def measure_memory(pid, when, figures, limits=(None, None)):
    proportional, private = memory_megabytes(pid)
    figures.add(f"PSS {when}", proportional, "MB", limits[0])
    figures.add(f"private memory {when}", private, "MB", limits[1])


def measure_rest(pid, seconds, figures):
    before, used = wake_ups(pid), processor_seconds(pid)
    time.sleep(seconds)
    figures.add("wake-ups a minute", (wake_ups(pid) - before) * 60 / seconds, "", MAXIMUM_WAKE_UPS)
    figures.add("processor time a minute", (processor_seconds(pid) - used) * 60 / seconds, "s")


def main():
    arguments = parse_bench_options(__doc__, rest={"type": float, "default": 60.0})
    if arguments.smoke:
        arguments.rest = 1.0
    figures = Figures()
    with desktop() as session:
        measure_starts(session, arguments.program, 1 if arguments.smoke else STARTS, figures)
        program = Program(session, arguments.program)
        pid = start_and_show(session, program)
        measure_memory(pid, "before a fetch", figures)
        fetch_one_icon(session, program)
        time.sleep(1 if arguments.smoke else SETTLED_AFTER)
        measure_memory(
            pid, "after a fetch", figures, (MAXIMUM_MEGABYTES, MAXIMUM_PRIVATE_MEGABYTES)
        )
        measure_rest(pid, arguments.rest, figures)
    return figures.finish(arguments)


if __name__ == "__main__":
    sys.exit(main())
