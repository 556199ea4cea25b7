"""Pictures of the status item and its open menu on the panels of several desktops."""

import collections

from tests.desktop.panels import (
    start_lxqt,
    start_mate,
    start_plasma,
    start_plasma_wayland,
    start_waybar,
    start_xfce,
)
from tests.desktop.pointer import click_at
from tests.harness.pictures import Picture, crop
from tests.harness.program import Program
from tests.harness.session import NOTIFICATIONS, DesktopSession
from tests.harness.status_item import StatusItem
from tests.harness.waiting import wait_for

# `window_manager`: True if the panel needs one. `settled`: after so many seconds without a change
# the panel has drawn everything.
Panel = collections.namedtuple("Panel", "name package start window_manager settled")

PANELS = [
    Panel("xfce4-panel", "xfce4-panel", start_xfce, True, 1.5),
    Panel("lxqt-panel", "lxqt-panel", start_lxqt, True, 1.5),
    Panel("mate-panel", "mate-panel", start_mate, True, 1.5),
    Panel("plasma", "plasma-workspace", start_plasma, True, 6.0),
    Panel("plasma-wayland", "kwin-wayland", start_plasma_wayland, False, 6.0),
    Panel("waybar", "waybar", start_waybar, False, 1.5),
]
# Pixels per point, and the variables that set them in the panel's toolkit.
SCALED = [
    (PANELS[0], 1, {}),
    (PANELS[0], 2, {"GDK_SCALE": "2"}),
    (PANELS[1], 1.5, {"QT_SCALE_FACTOR": "1.5"}),
    (PANELS[1], 2, {"QT_SCALE_FACTOR": "2"}),
]
EXTRA_FOLDERS = ("Links", "Reading")
CHANGED = 12  # of 255: the least difference of a channel that counts as a change


def show_item_and_menu(panel, dark, executable, output):
    """Makes a picture of the item with its menu open."""
    with DesktopSession(environment={"GLINTMARK_FAVICON_SERVICE": ""}) as session:
        session.disable(NOTIFICATIONS)
        if panel.window_manager:
            session.start_window_manager()
        panel.start(session, dark=dark)
        box = show_item(session, executable, panel.settled)
        path = output / f"{panel.name}-{'dark' if dark else 'light'}.png"
        before = session.root / "before.png"
        seen = []
        for button in (1, 3):
            session.screenshot(before)
            click_at(session, box[0] + box[2] // 2, box[1] + box[3] // 2, button)
            session.wait_until_still(path)
            menu = changed_box(before, path, away_from=box)
            if menu and menu[3] > 100:
                seen.append(f"the menu by the {'left' if button == 1 else 'right'} button")
                break
        crop(path, union(box, menu) if menu else box, margin=24)
        return "the item" + ("".join(f", {what}" for what in seen) or ", no menu")


def show_scaled(panel, scale, variables, executable, output):
    """Makes a picture of the item on a panel with `scale` pixels per point."""
    with DesktopSession(environment={"GLINTMARK_FAVICON_SERVICE": ""} | variables) as session:
        session.disable(NOTIFICATIONS)
        session.start_window_manager()
        panel.start(session)
        path = output / f"{panel.name}-{scale}x.png"
        box = show_item(session, executable, panel.settled)
        session.screenshot(path)
        crop(path, box, margin=8)
        return f"the item, {box[2]} x {box[3]} pixels"


def show_item(session, executable, settled):
    """Starts the program. Returns the place of its item: left, top, width, height."""
    session.settings.store_extra_folders([session.home / name for name in EXTRA_FOLDERS])
    before = session.wait_until_still(session.root / "empty.png", period=settled, timeout=120)
    Program(session, executable).start().wait_until_started()
    StatusItem(session)
    after = session.root / "item.png"

    def look():
        return changed_box(before, session.screenshot(after))

    wait_for(look, "the item's picture")
    session.wait_until_still(after)
    box = look()
    return icon_in(after, box)


def icon_in(path, box):
    """The last square of the changed part: on some panels the neighbours of the item move."""
    left, top, width, height = box
    if width <= height + 4:
        return box
    picture = Picture(path, box)
    background = picture.background()
    columns = [
        any(
            max(abs(a - b) for a, b in zip(picture.row(y)[x], background)) > CHANGED
            for y in range(height)
        )
        for x in range(width)
    ]
    runs, start = [], None
    for x, ink in enumerate(columns + [False]):
        if ink and start is None:
            start = x
        elif not ink and start is not None:
            runs.append((start, x))
            start = None
    first = next((run for run in runs if run[1] - run[0] >= 14), (0, width))
    return left + first[0], top, first[1] - first[0], height


def changed_box(before, after, away_from=None):
    """Where two pictures differ: left, top, width, height; None if they are equal. `away_from`: a
    box to ignore."""
    one, other = Picture(before), Picture(after)
    rows, columns = [], set()
    for y in range(one.height):
        if (
            one.data[3 * y * one.width : 3 * (y + 1) * one.width]
            == other.data[3 * y * one.width : 3 * (y + 1) * one.width]
        ):
            continue
        changed = [
            x
            for x, (a, b) in enumerate(zip(one.row(y), other.row(y)))
            if max(abs(p - q) for p, q in zip(a, b)) > CHANGED
            and not (away_from and inside(x, y, away_from))
        ]
        if changed:
            rows.append(y)
            columns.update((changed[0], changed[-1]))
    if not rows:
        return None
    return min(columns), rows[0], max(columns) + 1 - min(columns), rows[-1] + 1 - rows[0]


def inside(x, y, box):
    margin = 6  # a panel draws a frame around what the pointer is on
    return (
        box[0] - margin <= x < box[0] + box[2] + margin
        and box[1] - margin <= y < box[1] + box[3] + margin
    )


def union(one, other):
    left, top = min(one[0], other[0]), min(one[1], other[1])
    return (
        left,
        top,
        max(one[0] + one[2], other[0] + other[2]) - left,
        max(one[1] + one[3], other[1] + other[3]) - top,
    )
