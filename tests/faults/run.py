#!/usr/bin/env python3
"""Makes calls of the built program fail, each in turn, and takes away what a process needs: it must
live, keep what it has, and go on when all is well again. A short run by default; --full for the whole.

    run.py [--program PROGRAM] [--faults LIBRARY] [--full] [NAME ...]
"""

import argparse
import concurrent.futures
import pathlib
import sys
import time

from faulty_program import Failed, TimedOut  # isort: skip, since it makes the others importable
import endings
import icon_faults
import process_faults
import session
import settings_faults
import watch_faults

AT_ONCE = 10

STEPS = {  # the longest first
    "icons": icon_faults.each_call_fails,
    "lookup": process_faults.slow_lookup,
    "silent": process_faults.silent_sites,
    "memory": process_faults.little_memory,
    "few": process_faults.descriptors_at_the_start,
    "save": settings_faults.each_call_of_a_save_fails,
    "endings": endings.without_its_services,
    "suspend": process_faults.suspension,
    "watch": watch_faults.each_call_fails,
    "read": settings_faults.each_call_of_reading_fails,
    "clock": process_faults.wall_clock_jumps,
    "none": process_faults.descriptors_while_it_runs,
    "burst": endings.in_a_burst,
    "walk": endings.in_a_walk,
    "folders": icon_faults.each_folder_cannot_be_made,
    "threads": process_faults.no_more_threads,
    "setback": process_faults.clock_set_back_while_events_are_lost,
    "early": process_faults.clock_set_back_during_the_first_walk,
    "starting": endings.at_the_start,
    "waiting": endings.with_silent_sites,
    "looking": endings.in_a_lookup,
    "network": process_faults.network_down,
}


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", default="build/release/glintmark", type=pathlib.Path)
    parser.add_argument("--faults", default="build/release/faults.so", type=pathlib.Path)
    parser.add_argument("--full", action="store_true")
    parser.add_argument("names", nargs="*", metavar="NAME", help=", ".join(STEPS))
    return parser.parse_args()


def run(name, options):
    """Whether it held; says how it went."""
    begin = time.monotonic()
    try:
        held, said = True, STEPS[name](options)
    except (Failed, TimedOut, session.TimedOut) as failure:
        held, said = False, f"FAILED: {failure}"
    print(f"{name:9} {said} ({time.monotonic() - begin:.1f} s)", flush=True)
    return held


def main():
    options = parse_arguments()
    # At once, since they mostly wait.
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        held = list(pool.map(lambda name: run(name, options), options.names or STEPS))
    return 0 if all(held) else 1


if __name__ == "__main__":
    sys.exit(main())
