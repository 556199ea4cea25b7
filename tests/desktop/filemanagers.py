"""Pictures of a link's icon in every file manager and on every desktop of Debian."""

import collections
import time

from tests.harness.link_file import move_link_in
from tests.harness.pictures import Picture, find_colour
from tests.harness.program import Program
from tests.harness.session import DesktopSession
from tests.harness.sites import MAGENTA, demo_sites
from tests.harness.waiting import TimedOut, wait_for
from tests.harness.web_server import SiteServer

# `command` shows the folder "Desktop"; `desktop` is the environment that its users have.
View = collections.namedtuple("View", "name package command desktop")

WINDOWS = [
    View("nautilus", "nautilus", ["nautilus", "--new-window", "{folder}"], "GNOME"),
    View("nemo", "nemo", ["nemo", "{folder}"], "X-Cinnamon"),
    View("caja", "caja", ["caja", "--no-desktop", "--browser", "{folder}"], "MATE"),
    View("thunar", "thunar", ["thunar", "{folder}"], "XFCE"),
    View("pcmanfm", "pcmanfm", ["pcmanfm", "{folder}"], "LXDE"),
    View("pcmanfm-qt", "pcmanfm-qt", ["pcmanfm-qt", "{folder}"], "LXQt"),
    View("dolphin", "dolphin", ["dolphin", "{folder}"], "KDE"),
]
DESKTOPS = [
    View("xfdesktop", "xfdesktop4", ["xfdesktop"], "XFCE"),
    View("caja-desktop", "caja", ["caja", "--no-default-window", "--force-desktop"], "MATE"),
    View("pcmanfm-desktop", "pcmanfm", ["pcmanfm", "--desktop"], "LXDE"),
    View("pcmanfm-qt-desktop", "pcmanfm-qt", ["pcmanfm-qt", "--desktop"], "LXQt"),
]

OPEN_PATIENCE = 20.0  # seconds; the slowest view that shows the icon at all takes a few
DISC = 300  # pixels of the icon's colour that must show


def show_in_open_view(view, executable, output):
    """Drops a link into a folder that the view already shows. Returns what was seen, in words; the
    picture is in `output`."""
    server = SiteServer(demo_sites())
    environment = {"XDG_CURRENT_DESKTOP": view.desktop}
    with server, DesktopSession(server, environment=environment) as session:
        folder = session.desktop
        (folder / "Notes.txt").write_text("A file beside the link.\n")
        program = Program(session, executable).start().wait_until_started()
        session.start_window_manager()
        open_view(session, view, folder)
        link = move_link_in(folder / "Glint.webloc", "http://glint.example/")
        program.wait_until_applied(link)
        started = time.monotonic()
        picture = output / f"{view.name}.png"
        if icon_shows(session, picture):
            seen = f"in the open view, {time.monotonic() - started:.1f} s after the icon was set"
        else:
            seen = show_after_reload(session, view, folder, picture)
        session.wait_until_still(picture)
        return seen


def open_view(session, view, folder):
    """Waits until the view has drawn everything."""
    path = session.root / "view.png"
    before = Picture(session.screenshot(path)).data
    session.spawn(view.name, [word.format(folder=folder) for word in view.command])
    wait_for(lambda: Picture(session.screenshot(path)).data != before, f"{view.name} on the screen")
    session.wait_until_still(path, period=3.0)


def icon_shows(session, picture):
    """False if the icon does not show in time."""
    try:
        session.wait_for_colour(MAGENTA, minimum=DISC, timeout=OPEN_PATIENCE, picture=picture)
        return True
    except TimedOut:
        return False


def show_after_reload(session, view, folder, picture):
    session.run(["xdotool", "key", "F5"])
    if icon_shows(session, picture):
        return "after a reload (F5)"
    session.end(view.name)
    open_view(session, view, folder)
    if icon_shows(session, picture):
        return "after the view was opened again"
    found = find_colour(picture, MAGENTA)
    return f"not seen ({found.pixels if found else 0} pixels)"
