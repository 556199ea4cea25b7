#!/usr/bin/env python3
"""What waiting costs beside other programs of the status bar: memory, wake-ups, processor time.

    idle.py [--program PROGRAM] [--rest SECONDS] [--json FILE] [--smoke]

All run at once in one private session with a panel and show their icons there, so libraries that
two of them load count half for each. nm-applet has no NetworkManager to talk to and does less than
usual.
"""

import pathlib
import re
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests" / "desktop"))
from figures import (Figures, memory_megabytes, parse_arguments, processor_seconds,  # noqa: E402
                     wake_ups)
from program import Program, StatusItem, write_link  # noqa: E402
from session import DesktopSession, has, wait_for  # noqa: E402
from sites import SiteServer, demo_sites  # noqa: E402

PEERS = ["nm-applet", "parcellite", "copyq", "keepassxc", "flameshot"]
SETTLED_AFTER = 32  # seconds: the image decoder and the HTTP client's thread have ended, too
KEEPASSXC_SETTINGS = """[General]
UpdateCheckMessageShown=true
[GUI]
CheckForUpdates=false
MinimizeOnStartup=true
MinimizeToTray=true
ShowTrayIcon=true
"""


def family(pid):
    """A process and those that it started."""
    found = [pid]
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        for child in (task / "children").read_text().split():
            found += family(int(child))
    return found


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
    """In the panel: status items, and windows of the older tray."""
    items = session.run(["gdbus", "call", "--session", "--dest", "org.kde.StatusNotifierWatcher",
                         "--object-path", "/StatusNotifierWatcher", "--method",
                         "org.freedesktop.DBus.Properties.Get", "org.kde.StatusNotifierWatcher",
                         "RegisteredStatusNotifierItems"])
    windows = session.run(["xwininfo", "-root", "-tree"])
    return (len(re.findall(r"StatusNotifierItem'", items)) +
            len(re.findall(r'\("(?:nm-applet|parcellite)".* 22x22', windows)))


def start_own(session, executable):
    """With one fetch behind it."""
    program = Program(session, executable).start()
    program.wait_until_started()
    StatusItem(session)
    write_link(session.home / "Downloads" / "a.webloc", "http://glint.example/")
    program.wait_for_line("Glintmark: Icon applied")
    return program.process.pid


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
        figures.add("processor time a minute", (more_used[name] - used[name]) / minutes * 1000, "ms",
                    of=name)


def main():
    arguments = parse_arguments(__doc__, rest={"type": float, "default": 60.0})
    figures = Figures()
    with SiteServer(demo_sites()) as server, \
            DesktopSession(environment=server.proxy_environment()) as session:
        session.start_window_manager()
        session.start_notifyd()
        session.start_panel()
        pids = {"glintmark": start_own(session, arguments.program), **start_peers(session)}
        time.sleep(1 if arguments.smoke else SETTLED_AFTER)
        measure(pids, 1.0 if arguments.smoke else arguments.rest, figures)
    return figures.finish(arguments)


sys.exit(main())
