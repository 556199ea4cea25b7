"""The built program in a desktop session: starting it, reading its log, asking its menu."""

import json
import os
import pathlib
import re
import signal
import subprocess

from session import DEADLINE, wait_for

LINK = """<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
\t<key>URL</key>
\t<string>{url}</string>
</dict>
</plist>
"""


def write_link(path, url):
    """Puts a link file in place the way a browser's drop does: written beside, then renamed."""
    path = pathlib.Path(path)
    unfinished = path.with_name(path.name + ".part")
    unfinished.write_text(LINK.format(url=url))
    unfinished.rename(path)
    return path


class Program:
    """One run of the program; its lines are read from standard error."""

    def __init__(self, session, executable, environment=None, name="glintmark"):
        self._session = session
        self.executable = pathlib.Path(executable).resolve()
        self._environment = environment or {}
        self._name = name
        self.process = None

    def start(self):
        self.process = self._session.spawn(self._name, [str(self.executable)], self._environment)
        return self

    def wait_until_started(self):
        return self.wait_for_line("Glintmark: Started. Watching: ")

    def output(self):
        return self._session.log(self._name).splitlines()

    def lines(self):
        """The program's log, without what else it says on standard error."""
        return [line for line in self.output() if line.startswith("Glintmark: ")]

    def wait_for_line(self, beginning, timeout=DEADLINE):
        """The first line that begins so."""
        return wait_for(lambda: next((line for line in self.lines() if line.startswith(beginning)),
                                     None), f"log line {beginning!r}", timeout)

    def lines_about(self, text):
        return [line for line in self.lines() if text in line]

    def terminate(self, how=signal.SIGTERM, timeout=5.0):
        """Asks it to end; its exit status."""
        return self._session.end(self._name, how, timeout)

    def descendants(self):
        """Ids of the processes below it."""
        found, waiting = [], [self.process.pid]
        while waiting:
            parent = waiting.pop()
            children = pathlib.Path(f"/proc/{parent}/task/{parent}/children")
            ids = [int(word) for word in children.read_text().split()] if children.exists() else []
            found += ids
            waiting += ids
        return found


class StatusItem:
    """The program's status item and menu, as a panel sees them over the bus."""

    def __init__(self, session):
        self._session = session
        self.address, self.path = self._registered()
        self.menu_path = self._property("Menu").strip("'").split("'")[-1]

    def _registered(self):
        def look():
            answer = self._session.run([
                "gdbus", "call", "--session", "--dest", "org.kde.StatusNotifierWatcher",
                "--object-path", "/StatusNotifierWatcher", "--method",
                "org.freedesktop.DBus.Properties.Get", "org.kde.StatusNotifierWatcher",
                "RegisteredStatusNotifierItems"], check=False)
            return re.findall(r"'([^']+)'", answer)
        item = wait_for(look, "a registered status item")[0]
        address, slash, path = item.partition("/")
        return address, slash + path if slash else "/StatusNotifierItem"

    def _call(self, path, method, *arguments):
        return self._session.run(["gdbus", "call", "--session", "--dest", self.address,
                                  "--object-path", path, "--method", method, *arguments])

    def _property(self, name):
        answer = self._call(self.path, "org.freedesktop.DBus.Properties.Get",
                            "org.kde.StatusNotifierItem", name)
        return answer.strip()[2:-3].removeprefix("objectpath ")

    def title(self):
        return self._property("Title").strip("'")

    def layout(self):
        """The menu as (id, label, enabled, children) tuples; label None for a separator."""
        answer = self._session.run([
            "busctl", "--user", "--json=short", "call", "--", self.address, self.menu_path,
            "com.canonical.dbusmenu", "GetLayout", "iias", "0", "-1", "0"])
        return _entry(json.loads(answer)["data"][1])[3]

    def tree(self):
        """The menu as (properties, children) pairs, with every property that the program gives."""
        answer = self._session.run([
            "busctl", "--user", "--json=short", "call", "--", self.address, self.menu_path,
            "com.canonical.dbusmenu", "GetLayout", "iias", "0", "-1", "0"])
        return _bare(json.loads(answer)["data"][1])[1]

    def labels(self):
        return [label for _, label, _, _ in self.layout()]

    def click(self, label, below=None):
        """Chooses the entry of this label, wherever in the menu or in one submenu it stands."""
        entries = self.layout()
        if below is not None:
            entries = next(entry[3] for entry in entries if entry[1] == below)
        number = next(entry[0] for entry in _flattened(entries) if entry[1] == label)
        self._call(self.menu_path, "com.canonical.dbusmenu.Event", str(number), "clicked",
                   "<''>", "0")


def _entry(node):
    number, properties, children = node
    value = {key: variant["data"] for key, variant in properties.items()}
    label = None if value.get("type") == "separator" else value.get("label", "").replace("__", "_")
    return (number, label, value.get("enabled", True), [_entry(child["data"]) for child in children])


def _bare(node):
    _, properties, children = node
    return ({key: variant["data"] for key, variant in properties.items()},
            [_bare(child["data"]) for child in children])


def _flattened(entries):
    for entry in entries:
        yield entry
        yield from _flattened(entry[3])


class BusMonitor:
    """Records the calls (or signals) of one interface member on the session bus."""

    def __init__(self, session, interface, member, kind="method_call"):
        self._session = session
        self._name = f"monitor-{member}"
        session.spawn(self._name, ["dbus-monitor", "--session",
                                   f"type='{kind}',interface='{interface}',member='{member}'"])
        # It announces itself once it listens.
        wait_for(lambda: "NameAcquired" in session.log(self._name), "bus monitor")

    def count(self):
        """How many messages were seen so far."""
        return len(re.findall(r"^(?:method call|signal) .* member=(?!NameAcquired|NameLost)",
                              self._session.log(self._name), re.M))

    def strings(self):
        """Every string argument seen so far."""
        return re.findall(r'^\s+string "(.*)"$', self._session.log(self._name), re.M)


def proportional_memory(pid):
    """PSS and private memory of a process in KiB."""
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    fields = dict(re.findall(r"^(\w+):\s+(\d+) kB", text, re.M))
    return int(fields["Pss"]), int(fields["Private_Clean"]) + int(fields["Private_Dirty"])


def extended_attribute(path):
    try:
        return os.getxattr(path, "user.glintmark.icon").decode()
    except OSError:
        return None


def pixel(png, x, y):
    """The straight RGBA value of one pixel."""
    text = subprocess.run(["convert", str(png), "-depth", "8", "-crop", f"1x1+{x}+{y}", "rgba:-"],
                          check=True, stdout=subprocess.PIPE).stdout
    return tuple(text)
