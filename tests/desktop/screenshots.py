"""Pictures of the running program on real desktops, and what was seen on each.

Every picture comes from a separate session. Names of pictures on the command line make only those.
"""

import functools
import subprocess
import sys
import traceback

from tests.desktop.dialogs import choose_folder
from tests.desktop.filemanagers import DESKTOPS, WINDOWS, show_in_open_view
from tests.desktop.folderpicture import show_folder
from tests.desktop.linkmenus import get_icon_from_menu, open_by_double_click
from tests.desktop.notifications import DAEMONS, show_notification
from tests.desktop.statusitems import PANELS, SCALED, show_item_and_menu, show_scaled
from tests.harness.options import parse_options


def version_of(package):
    return subprocess.run(
        ["dpkg-query", "-W", "-f", "${Version}", package],
        check=False,
        stdout=subprocess.PIPE,
        text=True,
    ).stdout


def shots():
    """Name of the picture -> (package, function that makes it and says what was seen)."""
    made = {}
    for view in WINDOWS + DESKTOPS:
        made[view.name] = (view.package, functools.partial(show_in_open_view, view))
    for view in WINDOWS:
        for name, make in (
            ("double-click", open_by_double_click),
            ("context-menu", get_icon_from_menu),
        ):
            made[f"{name}-{view.name}"] = (view.package, functools.partial(make, view))
    for panel in PANELS:
        for dark in (False, True):
            made[f"{panel.name}-{'dark' if dark else 'light'}"] = (
                panel.package,
                functools.partial(show_item_and_menu, panel, dark),
            )
    for panel, scale, variables in SCALED:
        made[f"{panel.name}-{scale}x"] = (
            panel.package,
            functools.partial(show_scaled, panel, scale, variables),
        )
    for daemon in DAEMONS:
        made[f"notification-{daemon}"] = (daemon, functools.partial(show_notification, daemon))
    for service, package in (
        ("portal", "xdg-desktop-portal-gtk"),
        ("zenity", "zenity"),
        ("kdialog", "kdialog"),
    ):
        made[f"dialog-{service}"] = (package, functools.partial(choose_folder, service))
    made["folder"] = ("thunar", show_folder)
    return made


def main():
    names = {"nargs": "*", "choices": [[], *shots()]}
    options = parse_options(__doc__, output="build/screenshots", names=names)
    options.output.mkdir(parents=True, exist_ok=True)
    failed = False
    for name in options.names or shots():
        package, make = shots()[name]
        try:
            seen = make(options.program, options.output)
        except Exception:  # the others are still wanted
            failed = True
            seen = "failed:\n" + traceback.format_exc()
        print(f"{name} ({package} {version_of(package)}): {seen}", flush=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
