"""A private desktop session for tests: its own X server, session bus and home folder.

Only the standard library and command-line tools are used. Every program except Xvfb and dbus-daemon
is optional: `has("thunar")` is False without it, and starting it then raises `MissingProgram`.

    with DesktopSession() as session:
        session.start_desktop()
        session.open_file_manager(session.desktop)
        session.screenshot("/tmp/desktop.png")
        session.wait_for_colour((255, 0, 0))
"""

import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import uuid

from tests.harness.pictures import Picture, find_colour
from tests.harness.settings import SettingsFile
from tests.harness.waiting import DEADLINE, TimedOut, wait_for

SCREEN = "1280x800x24"
BUS = "org.freedesktop.DBus"
NOTIFICATIONS = "org.freedesktop.Notifications"
PORTAL = "org.freedesktop.portal.Desktop"
WATCHER = "org.kde.StatusNotifierWatcher"

# One bar at the top: an empty part, then the tray, which shows status items and the older X11
# icons. The icon size 0 leaves the choice to the panel.
PANEL_CONFIGURATION = """<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="dark-mode" type="bool" value="{dark}"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="size" type="uint" value="{size}"/>
      <property name="icon-size" type="uint" value="0"/>
      <property name="plugin-ids" type="array">
        <value type="int" value="1"/>
        <value type="int" value="2"/>
      </property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="separator">
      <property name="expand" type="bool" value="true"/>
      <property name="style" type="uint" value="0"/>
    </property>
    <property name="plugin-2" type="string" value="systray">
      <property name="square-icons" type="bool" value="true"/>
      <property name="known-legacy-items" type="array"/>
    </property>
  </property>
</channel>
"""


class MissingProgram(Exception):
    """The machine lacks a program that a step needs."""


def bus_command(path):
    command = ["dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog"]
    return [*command, f"--address=unix:path={path}"]


def has(program):
    return shutil.which(program) is not None


class DesktopSession:
    """Keeps everything below one folder. At the end all processes end.

    Programs that the bus starts are found by a mark in their environment.
    """

    def __init__(self, server=None, root=None, screen=SCREEN, environment=None):
        """`server`: the web that the programs see. `root`: the folder for the session's files,
        which stay there; without it the folder is temporary. `environment`: more variables."""
        self._keep = root is not None
        self._screen = screen
        self._mark = f"GLINTMARK_DESKTOP_SESSION={uuid.uuid4()}"
        if root is None:
            root = tempfile.mkdtemp(prefix="glintmark-desktop-")
        self.root = pathlib.Path(root).resolve()
        self.home = self.root / "home"
        self.desktop = self.home / "Desktop"
        self.downloads = self.home / "Downloads"
        self.logs = self.root / "logs"
        self.programs = self.root / "bin"  # see stand_in()
        # Outside the root: the path of a socket is limited to 107 bytes.
        self.runtime = pathlib.Path(tempfile.mkdtemp(prefix="glintmark-runtime-"))
        self.data_home = self.home / ".local" / "share"
        self.config_home = self.home / ".config"
        self.cache_home = self.home / ".cache"
        self.settings = SettingsFile(self.config_home)
        self._extra_environment = dict(environment or {})
        if server is not None:
            self._extra_environment.update(server.proxy_environment())
        self.environment = {}
        self.processes = {}  # name -> Popen, in order of start

    # ---- life -------------------------------------------------------------------------------

    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self.stop()
            raise
        return self

    def __exit__(self, *exception):
        self.stop()

    def start(self):
        """Makes the folders and starts the X server and the session bus."""
        homes = (self.data_home, self.config_home, self.cache_home)
        for folder in (self.desktop, self.downloads, self.logs, self.programs, *homes):
            folder.mkdir(parents=True, exist_ok=True)
        self.environment = self._base_environment()
        self._start_x_server()
        self.start_bus()

    def stop(self):
        """Ends every process of the session by its id and removes the temporary folders."""
        for name in reversed(list(self.processes)):
            if name not in ("Xvfb", "dbus-daemon"):
                self.end(name)
        for name in ("dbus-daemon", "Xvfb"):
            self.end(name)
        self._end_marked_processes()
        shutil.rmtree(self.runtime, ignore_errors=True)
        if not self._keep:
            shutil.rmtree(self.root, ignore_errors=True)

    def _base_environment(self):
        kept = ("PATH", "LANGUAGE", "LC_ALL", "USER", "LOGNAME", "TERM")
        environment = {key: os.environ[key] for key in kept if key in os.environ}
        mark_name, mark_value = self._mark.split("=")
        environment.update(
            {
                "HOME": str(self.home),
                "XDG_DATA_HOME": str(self.data_home),
                "XDG_CONFIG_HOME": str(self.config_home),
                "XDG_CACHE_HOME": str(self.cache_home),
                "XDG_STATE_HOME": str(self.home / ".local" / "state"),
                "XDG_RUNTIME_DIR": str(self.runtime),
                "XDG_DATA_DIRS": "/usr/local/share:/usr/share",
                "XDG_CONFIG_DIRS": "/etc/xdg",
                "XDG_CURRENT_DESKTOP": "XFCE",
                "XDG_SESSION_TYPE": "x11",
                "LANG": os.environ.get("LANG", "C.UTF-8"),
                "GDK_BACKEND": "x11",
                "QT_QPA_PLATFORM": "xcb",
                "NO_AT_BRIDGE": "1",  # no accessibility bus: it would outlive its clients
                "GTK_A11Y": "none",
                "GSK_RENDERER": "cairo",  # with others GTK 4 stops drawing on Xvfb
                "GVFS_DISABLE_FUSE": "1",
                "GSETTINGS_BACKEND": "memory",
                mark_name: mark_value,
            }
        )
        environment.update(self._extra_environment)
        return environment

    def _start_x_server(self):
        read_end, write_end = os.pipe()
        self.spawn(
            "Xvfb",
            [
                "Xvfb",
                "-displayfd",
                str(write_end),
                "-screen",
                "0",
                self._screen,
                "-nolisten",
                "tcp",
                "-noreset",
            ],
            pass_fds=(write_end,),
        )
        os.close(write_end)
        with os.fdopen(read_end) as pipe:
            number = pipe.readline().strip()  # empty if the server has ended
        if not number:
            raise RuntimeError(f"Xvfb did not start: {self.log('Xvfb')}")
        self.environment["DISPLAY"] = f":{number}"

    def start_bus(self):
        """Starts the session bus. After `end("dbus-daemon")` it gets the same address again."""
        path = self.runtime / "bus"
        path.unlink(missing_ok=True)
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={path}"
        self.spawn("dbus-daemon", bus_command(path))
        wait_for(lambda: _accepts(path), "session bus")

    # ---- processes --------------------------------------------------------------------------

    def spawn(self, name, command, environment=None, **options):
        """Starts `command` under the name `name`; its output goes to logs/NAME.log."""
        if not has(command[0]):
            raise MissingProgram(command[0])
        with open(self.logs / f"{name}.log", "ab") as log:
            process = subprocess.Popen(
                command,
                env={**self.environment, **(environment or {})},
                cwd=self.home,
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=log,
                start_new_session=True,
                **options,
            )
        self.processes[name] = process
        return process

    def run(self, command, check=True, environment=None, timeout=DEADLINE):
        """Runs `command` to its end and returns its standard output as text."""
        if not has(command[0]):
            raise MissingProgram(command[0])
        done = subprocess.run(
            command,
            env={**self.environment, **(environment or {})},
            cwd=self.home,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            timeout=timeout,
            check=False,
        )
        if check and done.returncode != 0:
            raise RuntimeError(
                f"{command}: status {done.returncode}: " f"{done.stderr.decode(errors='replace')}"
            )
        return done.stdout.decode(errors="replace")

    def end(self, name, how=signal.SIGTERM, timeout=5.0):
        """Ends the process with this name, if it still runs, and returns its status."""
        process = self.processes.pop(name, None)
        if process is None:
            return None
        if process.poll() is None:
            process.send_signal(how)
            try:
                process.wait(timeout)
            except subprocess.TimeoutExpired:
                process.kill()
        return process.wait()

    def stand_in(self, name, script):
        """Puts a shell script before the machine's programs in the search path."""
        path = self.programs / name
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(0o755)
        searched = self.environment["PATH"].split(os.pathsep)
        if str(self.programs) not in searched:
            self.environment["PATH"] = os.pathsep.join((str(self.programs), *searched))
        return path

    def stored_icon(self, name):
        return self.data_home / "glintmark" / "icons" / f"{name}.png"

    def log(self, name):
        path = self.logs / f"{name}.log"
        return path.read_text(errors="replace") if path.exists() else ""

    def marked_processes(self):
        """Ids of all processes of this session, also of those that the bus started."""
        mark = self._mark.encode()
        found = []
        for entry in os.listdir("/proc"):
            if not entry.isdigit() or int(entry) == os.getpid():
                continue
            try:
                variables = pathlib.Path("/proc", entry, "environ").read_bytes().split(b"\0")
            except OSError:
                continue  # it has ended, or belongs to another user
            if mark in variables:
                found.append(int(entry))
        return found

    def _end_marked_processes(self):
        for how, patience in ((signal.SIGTERM, 3.0), (signal.SIGKILL, 3.0)):
            for pid in self.marked_processes():
                try:
                    os.kill(pid, how)
                except ProcessLookupError:
                    pass
            try:
                wait_for(lambda: not self.marked_processes(), "end of the session", patience)
                return
            except TimedOut:
                continue

    # ---- the desktop's parts ----------------------------------------------------------------

    def call(self, destination, path, method, *arguments, check=True):
        """Calls a method on the session bus and returns the answer as text."""
        return self.run(
            [
                "gdbus",
                "call",
                "--session",
                "--dest",
                destination,
                "--object-path",
                path,
                "--method",
                method,
                *arguments,
            ],
            check,
        )

    def call_bus(self, method, *arguments, check=True):
        """Calls a method of the bus daemon."""
        return self.call(BUS, "/org/freedesktop/DBus", f"{BUS}.{method}", *arguments, check=check)

    def activate_with(self, name, command):
        """Has the bus start `command` for a client that asks for `name`, whatever the machine has
        installed; with "/bin/false" the name stays without an owner."""
        folder = self.runtime / "dbus-1" / "services"
        folder.mkdir(parents=True, exist_ok=True)
        (folder / f"{name}.service").write_text(f"[D-BUS Service]\nName={name}\nExec={command}\n")
        self.call_bus("ReloadConfig")

    def disable(self, name):
        """Leaves a service's bus name without an owner, though the machine has the service."""
        self.activate_with(name, "/bin/false")

    def bus_name_has_owner(self, name):
        return "true" in self.call_bus("NameHasOwner", name, check=False)

    def wait_for_bus_name(self, name, timeout=DEADLINE):
        wait_for(lambda: self.bus_name_has_owner(name), f"bus name {name}", timeout)

    def start_desktop(self):
        self.start_window_manager()
        self.start_notifyd()
        self.start_panel()

    def start_window_manager(self):
        """Starts xfwm4 or else openbox. Without both there is no window manager."""
        for name, command in (("xfwm4", ["xfwm4", "--compositor=off"]), ("openbox", ["openbox"])):
            if has(name):
                self.spawn(name, command)
                wait_for(
                    lambda: "window id" in self.run(["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"]),
                    "window manager",
                )
                return

    def start_panel(self, dark=False, size=30):
        """xfce4-panel with a tray, ready for status items."""
        file = self.config_home / "xfce4/xfconf/xfce-perchannel-xml/xfce4-panel.xml"
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(PANEL_CONFIGURATION.format(dark="true" if dark else "false", size=size))
        self.restart_panel()

    def restart_panel(self):
        self.end("xfce4-panel")
        self.spawn("xfce4-panel", ["xfce4-panel", "--disable-wm-check"])
        self.wait_for_bus_name(WATCHER)

    def start_notifyd(self):
        """The Xfce notification daemon."""
        for place in (
            "/usr/lib/x86_64-linux-gnu/xfce4/notifyd",
            "/usr/lib/xfce4/notifyd",
            "/usr/libexec/xfce4/notifyd",
            "/usr/libexec",
        ):
            program = pathlib.Path(place, "xfce4-notifyd")
            if program.exists():
                self.spawn("xfce4-notifyd", [str(program)])
                self.wait_for_bus_name(NOTIFICATIONS)
                return
        raise MissingProgram("xfce4-notifyd")

    def open_file_manager(self, folder):
        """Opens `folder` in Thunar and waits for the window."""
        before = set(self.windows())
        self.spawn("thunar", ["thunar", str(folder)])
        wait_for(lambda: set(self.windows(folder.name)) - before, "the file manager's window")

    def windows(self, title=""):
        """Ids of the visible windows whose title contains `title`."""
        output = self.run(
            ["xdotool", "search", "--onlyvisible", "--name", title or ".+"], check=False
        )
        return [int(line) for line in output.split()]

    # ---- pictures ---------------------------------------------------------------------------

    def screenshot(self, path):
        """The whole screen as a PNG file."""
        self.run(["import", "-silent", "-window", "root", str(path)])
        return path

    def wait_until_still(self, picture, period=1.5, timeout=DEADLINE):
        """Takes screenshots until the screen has not changed for `period` seconds."""
        last = {"bytes": None, "since": 0.0}

        def look():
            pixels = Picture(self.screenshot(picture)).data
            now = time.monotonic()
            if pixels != last["bytes"]:
                last.update(bytes=pixels, since=now)
            return now - last["since"] >= period

        wait_for(look, "a screen that stands still", timeout)
        return picture

    def wait_for_colour(self, rgb, tolerance=8, minimum=100, timeout=DEADLINE, picture=None):
        """Takes screenshots until one has at least `minimum` pixels of a colour. Returns their box.
        `picture`: where the last screenshot stays."""
        target = picture or self.root / "colour.png"

        def look():
            box = find_colour(self.screenshot(target), rgb, tolerance)
            return box if box and box.pixels >= minimum else None

        return wait_for(look, f"colour {rgb}", timeout)


def _accepts(path):
    with socket.socket(socket.AF_UNIX) as probe:
        try:
            probe.connect(str(path))
        except OSError:
            return False
    return True
