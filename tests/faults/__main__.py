"""Makes calls of the built program fail, one after the other, and takes away what a process needs.
The program must keep running, lose no data, and recover afterwards. A short run by default;
--full for all.

    python3 -m tests.faults [--program PROGRAM] [--faults LIBRARY] [--full] [NAME ...]
"""

import concurrent.futures
import sys

from tests.faults import (
    endings,
    icon_faults,
    mount_faults,
    process_faults,
    settings_faults,
    watch_faults,
)
from tests.harness.options import absolute_path, parse_options
from tests.harness.steps import run_step

AT_ONCE = 10

STEPS = {  # the longest first
    "icons": icon_faults.each_call_fails,
    "lookup": process_faults.slow_lookup,
    "silent": process_faults.silent_sites,
    "memory": process_faults.little_memory,
    "few": process_faults.descriptors_at_the_start,
    "save": settings_faults.each_call_of_a_save_fails,
    "endings": endings.without_its_services,
    "lone": process_faults.one_link_behind_silent_sites,
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
    "sessions": endings.of_one_of_two_sessions,
    "closed": process_faults.closed_standard_descriptors,
    "share": mount_faults.folder,
    "links": mount_faults.links,
    "reading": mount_faults.reading,
}


def main():
    options = parse_options(
        __doc__,
        faults={"type": absolute_path, "default": "build/release/faults.so"},
        full={"action": "store_true"},
        names={"nargs": "*", "metavar": "NAME", "help": ", ".join(STEPS)},
    )
    # At once, since they mostly wait.
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        held = list(
            pool.map(lambda name: run_step(name, STEPS[name], options), options.names or STEPS)
        )
    return 0 if all(held) else 1


if __name__ == "__main__":
    sys.exit(main())
