"""The program's status item and menu, as a panel sees them over the bus."""

import json
import re

from tests.harness.session import WATCHER
from tests.harness.waiting import wait_for

PROPERTY = "org.freedesktop.DBus.Properties.Get"
ITEM = "org.kde.StatusNotifierItem"
MENU = "com.canonical.dbusmenu"

ADD_FOLDER = "Add Folder…"
REMOVE = "Stop Watching This Folder"


def registered_items(session):
    """The addresses of all items that the panel shows."""
    answer = session.call(
        WATCHER,
        "/StatusNotifierWatcher",
        PROPERTY,
        WATCHER,
        "RegisteredStatusNotifierItems",
        check=False,
    )
    return re.findall(r"'([^']+)'", answer)


class StatusItem:
    """Waits until the item is registered. The session has no other item."""

    def __init__(self, session):
        self._session = session
        item = wait_for(lambda: registered_items(session), "a registered status item")[0]
        self.address, slash, path = item.partition("/")
        self.path = slash + path if slash else "/StatusNotifierItem"
        self.menu_path = self._property("Menu").strip("'").split("'")[-1]

    def _property(self, name):
        answer = self._session.call(self.address, self.path, PROPERTY, ITEM, name)
        return answer.strip()[2:-3].removeprefix("objectpath ")

    def title(self):
        return self._property("Title").strip("'")

    def _root(self):
        answer = self._session.run(
            [
                "busctl",
                "--user",
                "--json=short",
                "call",
                "--",
                self.address,
                self.menu_path,
                MENU,
                "GetLayout",
                "iias",
                "0",
                "-1",
                "0",
            ]
        )
        return json.loads(answer)["data"][1]

    def layout(self):
        """The menu as (id, label, enabled, children) tuples; label None for a separator."""
        return _entry(self._root())[3]

    def tree(self):
        """The menu as (properties, children) pairs, with every property that the program sends."""
        return _bare(self._root())[1]

    def labels(self):
        return [label for _, label, _, _ in self.layout()]

    def click(self, label, below=None):
        """Chooses the entry with this label in the menu or any submenu; `below`: only in the
        submenu of that entry."""
        entries = self.layout()
        if below is not None:
            entries = next(entry[3] for entry in entries if entry[1] == below)
        number = next(entry[0] for entry in _flattened(entries) if entry[1] == label)
        self._session.call(
            self.address, self.menu_path, f"{MENU}.Event", str(number), "clicked", "<''>", "0"
        )


def _entry(node):
    number, properties, children = node
    value = {key: variant["data"] for key, variant in properties.items()}
    label = None if value.get("type") == "separator" else value.get("label", "").replace("__", "_")
    return (
        number,
        label,
        value.get("enabled", True),
        [_entry(child["data"]) for child in children],
    )


def _bare(node):
    _, properties, children = node
    return (
        {key: variant["data"] for key, variant in properties.items()},
        [_bare(child["data"]) for child in children],
    )


def _flattened(entries):
    for entry in entries:
        yield entry
        yield from _flattened(entry[3])
