"""A link file in every file manager of Debian: opened by a double click, and given its icon from
the context menu. The package's own files are installed for the session."""

import configparser
import time

from tests.desktop.case import note_addresses
from tests.desktop.filemanagers import icon_shows, open_view
from tests.desktop.panels import KDE, KDE_VERSION
from tests.desktop.pointer import LOWEST_MENU, click_at, place_of, visible_windows
from tests.harness.installed import install_for
from tests.harness.link_file import icon_name, write_link
from tests.harness.pictures import crop, find_text
from tests.harness.session import DesktopSession
from tests.harness.sites import demo_sites
from tests.harness.waiting import TimedOut, wait_for
from tests.harness.web_server import SiteServer

ADDRESS = "http://glint.example/"
NAME = "Glint.webloc"
ABOVE = 30  # pixels from a file's name up to its picture
BESIDE = 200  # pixels from the file to an empty place of the view
ENTRY = "Get Icon"
IN_MENU = "in the context menu"
SUBMENUS = ("Open With", "Actions")  # where file managers put a program that is not the default
DIALOG_PATIENCE = 5.0  # seconds until a click in a dialog is confirmed with Return


def link_in_view(view, session):
    """Shows a folder with one link file, which has no icon. Returns the file, and where its
    picture is."""
    link = write_link(session.desktop / NAME, ADDRESS)
    session.start_window_manager()
    open_view(session, view, session.desktop)
    name = text_on_screen(session, NAME)
    return link, ((name.left + name.right) // 2, name.top - ABOVE)


def text_on_screen(session, text):
    picture = session.root / "text.png"
    return wait_for(lambda: find_text(session.screenshot(picture), text), f'"{text}" on the screen')


def environment_of(view):
    """On Plasma 6, KDE's programs find other programs only through the menu that is named here."""
    variables = {"XDG_CURRENT_DESKTOP": view.desktop}
    if view.desktop == KDE["XDG_CURRENT_DESKTOP"] and KDE_VERSION == "6":
        variables["XDG_MENU_PREFIX"] = "plasma-"
    return variables


def open_by_double_click(view, executable, output):
    """Returns what was seen, in words; the picture of the view is in `output`."""
    server = SiteServer(demo_sites())
    with server, DesktopSession(server, environment=environment_of(view)) as session:
        install_for(session, executable.parent)
        notes = note_addresses(session)
        _, (x, y) = link_in_view(view, session)
        session.screenshot(output / f"double-click-{view.name}.png")
        started = time.monotonic()
        session.run(["xdotool", "mousemove", str(x), str(y)])
        session.run(["xdotool", "click", "--repeat", "2", "--delay", "100", "1"])
        wait_for(notes.exists, "the browser", timeout=20)
        seconds = time.monotonic() - started
        session.wait_until_still(session.root / "after.png")
        addresses = notes.read_text().splitlines()
        if set(addresses) != {ADDRESS}:
            raise AssertionError(f"the browser was given {addresses}")
        return (
            f"the browser got the address {len(addresses)} time(s), the first after {seconds:.1f} s"
        )


def get_icon_from_menu(view, executable, output):
    """Returns what was seen, in words; the picture of the open menu is in `output`."""
    server = SiteServer(demo_sites())
    with server, DesktopSession(server, environment=environment_of(view)) as session:
        install_for(session, executable.parent)
        link, (x, y) = link_in_view(view, session)
        picture = output / f"context-menu-{view.name}.png"
        before = set(visible_windows(session, LOWEST_MENU))
        click_at(session, x, y, button=3)
        session.wait_until_still(picture)
        (menu,) = set(visible_windows(session, LOWEST_MENU)) - before
        place = place_of(session, menu)
        way = click_entry(session, picture)
        if way == IN_MENU:  # the picture shows nothing but the menu, and the file that it is about
            left, top = min(x, place[0]) - ABOVE, min(y, place[1]) - ABOVE
            size = place[0] + place[2] - left, place[1] + place[3] - top
            crop(picture, (left, top, *size), margin=ABOVE // 2)
        try:
            wait_for(lambda: icon_name(link), "the icon", DIALOG_PATIENCE)
        except TimedOut:
            session.run(["xdotool", "key", "Return"])
            wait_for(lambda: icon_name(link), "the icon")
            way += ", confirmed with Return"
        chosen = configparser.RawConfigParser(strict=False)
        chosen.read(session.config_home / "mimeapps.list")
        if chosen.has_option("Default Applications", "application/x-webloc"):
            raise AssertionError("the next double click would not open the link")
        click_at(session, x + BESIDE, y + BESIDE)  # a selected file's picture has another colour
        after = output / f"context-menu-{view.name}-after.png"
        shown = "the view shows it" if icon_shows(session, after) else "the view does not show it"
        return f"{way}; the icon was set, {shown}"


def click_entry(session, picture):
    """Clicks the entry in the open menu or in a submenu of it. Returns the way there."""
    found = find_text(picture, ENTRY)
    way = IN_MENU
    for submenu in SUBMENUS:
        place = None if found else find_text(picture, submenu)
        if place:
            click_at(session, (place.left + place.right) // 2, (place.top + place.bottom) // 2)
            session.wait_until_still(picture)
            found = find_text(picture, ENTRY)
            way = f"{IN_MENU}, {submenu}"
    if not found:
        raise AssertionError(f'no "{ENTRY}" in the menu: {picture}')
    click_at(session, (found.left + found.right) // 2, (found.top + found.bottom) // 2)
    return way
