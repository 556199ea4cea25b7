"""Menus of a real panel, used with the pointer: opening them, finding their lines, clicking."""

import re

from tests.harness.pictures import Picture, text_rows
from tests.harness.waiting import TimedOut, wait_for

SETTLED = 3  # equal pictures in a row
LOWEST_MENU = 100  # pixels; a tool tip is lower
LOWEST_SUBMENU = 40
PATIENCE = 5.0  # seconds until the click is repeated: a panel may not have the menu yet


class OpenMenu:
    """A menu or submenu on the screen. `rows`: the y positions of its lines without separators."""

    def __init__(self, session, window):
        self._session = session
        self.window = window
        self.left, self.top, self.width, self.height = place_of(session, window)
        self.rows = []

    def read(self):
        """Waits until the menu has stopped moving, then finds the lines."""
        pictures = []

        def settled():
            path = self._session.screenshot(self._session.root / "menu.png")
            inset = 4  # the border
            picture = Picture(
                path,
                (
                    self.left + inset,
                    self.top + inset,
                    self.width - 2 * inset,
                    self.height - 2 * inset,
                ),
            )
            pictures.append(picture.data)
            self.rows = [self.top + inset + y for y in text_rows(picture)]
            return self.rows and pictures[-SETTLED:] == [picture.data] * SETTLED

        wait_for(settled, "a menu that stands still")
        return self

    def point(self, row):
        self._session.run(
            ["xdotool", "mousemove", str(self.left + self.width // 2), str(self.rows[row])]
        )

    def click(self, row):
        self.point(row)
        self._session.run(["xdotool", "click", "1"])

    def open_submenu(self, row):
        """Clicks a line and reads the submenu that opens beside it."""
        return opened_menu(self._session, lambda: self.click(row), LOWEST_SUBMENU).read()


def place_of(session, window):
    """Left, top, width and height of a window's content on the screen."""
    text = session.run(["xwininfo", "-id", str(window)])
    return [
        int(re.search(rf"{name}: +(-?\d+)", text)[1])
        for name in ("Absolute upper-left X", "Absolute upper-left Y", "Width", "Height")
    ]


def visible_windows(session, lowest):
    """Ids of the visible top-level windows, including menus, with at least this size."""
    tree = session.run(["xwininfo", "-root", "-children"])
    found = []
    for line in re.findall(r"^ +(0x[0-9a-f]+) .*? (\d+)x(\d+)\+-?\d+\+-?\d+ ", tree, re.M):
        window, width, height = int(line[0], 16), int(line[1]), int(line[2])
        if (
            height >= lowest
            and width >= lowest
            and "IsViewable" in session.run(["xwininfo", "-id", str(window)], check=False)
        ):
            found.append(window)
    return found


def opened_menu(session, action, lowest=LOWEST_MENU):
    """Repeats `action` until it opens a menu."""
    before = set(visible_windows(session, lowest))

    def look():
        return next((w for w in visible_windows(session, lowest) if w not in before), None)

    def act():
        action()
        try:
            return wait_for(look, "a menu", PATIENCE)
        except TimedOut:
            return None

    return OpenMenu(session, wait_for(act, "a menu"))


def click_at(session, x, y, button=1):
    session.run(["xdotool", "mousemove", str(x), str(y), "click", str(button)])
