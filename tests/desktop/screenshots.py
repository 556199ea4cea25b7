#!/usr/bin/env python3
"""Pictures of the running program on real desktops, and what was seen on each.

Every picture comes from a session of its own. Names of pictures on the command line make only those.
"""

import argparse
import functools
import pathlib
import subprocess
import sys
import traceback

from dialogs import choose_folder
from filemanagers import DESKTOPS, WINDOWS, show_in_open_view
from folderpicture import show_folder
from notifications import DAEMONS, show_notification
from statusitems import PANELS, SCALED, show_item_and_menu, show_scaled

OPTIONS = argparse.Namespace(program=None, output=None)


def version_of(package):
    return subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], check=False,
                          stdout=subprocess.PIPE, text=True).stdout


def shots():
    """Name of the picture -> (package, function that makes it and says what was seen)."""
    made = {}
    for view in WINDOWS + DESKTOPS:
        made[view.name] = (view.package, functools.partial(show_in_open_view, view))
    for panel in PANELS:
        for dark in (False, True):
            made[f"{panel.name}-{'dark' if dark else 'light'}"] = (
                panel.package, functools.partial(show_item_and_menu, panel, dark))
    for panel, scale, variables in SCALED:
        made[f"{panel.name}-{scale}x"] = (
            panel.package, functools.partial(show_scaled, panel, scale, variables))
    for daemon in DAEMONS:
        made[f"notification-{daemon}"] = (daemon, functools.partial(show_notification, daemon))
    for service, package in (("portal", "xdg-desktop-portal-gtk"), ("zenity", "zenity"),
                             ("kdialog", "kdialog")):
        made[f"dialog-{service}"] = (package, functools.partial(choose_folder, service))
    made["folder"] = ("thunar", show_folder)
    return made


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, type=pathlib.Path)
    parser.add_argument("--output", required=True, type=pathlib.Path)
    parser.add_argument("names", nargs="*", choices=[[], *shots()])
    arguments = parser.parse_args()
    output = arguments.output.resolve()
    output.mkdir(parents=True, exist_ok=True)
    failed = False
    for name in arguments.names or shots():
        package, make = shots()[name]
        try:
            seen = make(arguments.program.resolve(), output)
        except Exception:  # the others are still wanted
            failed = True
            seen = "failed:\n" + traceback.format_exc()
        print(f"{name} ({package} {version_of(package)}): {seen}", flush=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
