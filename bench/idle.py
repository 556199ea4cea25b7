"""The cost of waiting, compared to other programs of the status bar: memory, wake-ups, processor
time.

    python3 -m bench.idle [--program PROGRAM] [--rest SECONDS] [--json FILE] [--smoke]

All run at once in one private session and show their icons in its panel, so a library that two of
them load counts half for each. nm-applet finds no NetworkManager and does less than usual.
"""

import re
import sys
import time

from bench.options import parse_bench_options
from bench.session import SETTLED_AFTER, desktop, fetch_one_icon, start_and_show
from tests.harness.figures import Figures
from tests.harness.processes import descendants, memory_megabytes, processor_seconds, wake_ups
from tests.harness.program import Program
from tests.harness.session import has
from tests.harness.status_item import registered_items
from tests.harness.waiting import wait_for

PEERS = ["nm-applet", "parcellite", "copyq", "keepassxc", "flameshot"]
KEEPASSXC_SETTINGS = """[General]
UpdateCheckMessageShown=true
[GUI]
CheckForUpdates=false
MinimizeOnStartup=true
MinimizeToTray=true
ShowTrayIcon=true
"""


def family(pid):
    return [pid, *descendants(pid)]


def start_peers(session):
    settings = session.config_home / "keepassxc" / "keepassxc.ini"
    settings.parent.mkdir()
    settings.write_text(KEEPASSXC_SETTINGS)
    present = [name for name in PEERS if has(name)]
    for name in present:
        session.spawn(name, [name])
    wait_for(lambda: icons_shown(session) >= len(present), "the icons of all")
    return {name: session.processes[name].pid for name in present}


def icons_shown(session):
    """The number of icons in the panel: status items, and windows of the older tray."""
    items = [item for item in registered_items(session) if item.endswith("StatusNotifierItem")]
    windows = session.run(["xwininfo", "-root", "-tree"])
    return len(items) + len(re.findall(r'\("(?:nm-applet|parcellite)".* 22x22', windows))


def start_own(session, executable):
    """Returns the process's id after a first fetch."""
    program = Program(session, executable)
    pid = start_and_show(session, program)
    fetch_one_icon(session, program)
    return pid


def measure(pids, seconds, figures):
    def of_all(ask):
        return {name: sum(map(ask, family(pid))) for name, pid in pids.items()}

    wakes, used = of_all(wake_ups), of_all(processor_seconds)
    time.sleep(seconds)
    more_wakes, more_used = of_all(wake_ups), of_all(processor_seconds)
    for name, pid in pids.items():
        proportional, private = map(sum, zip(*map(memory_megabytes, family(pid))))
        minutes = seconds / 60
        figures.add("PSS", proportional, "MB", of=name)
        figures.add("private memory", private, "MB", of=name)
        figures.add("wake-ups a minute", (more_wakes[name] - wakes[name]) / minutes, "", of=name)
        milliseconds = (more_used[name] - used[name]) / minutes * 1000
        figures.add("processor time a minute", milliseconds, "ms", of=name)


def main():
    arguments = parse_bench_options(__doc__, rest={"type": float, "default": 60.0})
    figures = Figures()
    with desktop() as session:
        pids = {"glintmark": start_own(session, arguments.program), **start_peers(session)}
        time.sleep(1 if arguments.smoke else SETTLED_AFTER)
        measure(pids, 1.0 if arguments.smoke else arguments.rest, figures)
    return figures.finish(arguments)


if __name__ == "__main__":
    sys.exit(main())
