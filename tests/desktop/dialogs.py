"""The folder dialog of real programs, under a real pointer: portal, zenity and kdialog."""

import os
import shutil
import signal

from menu import ADD_FOLDER
from pictures import crop
from pointer import click_at, place_of
from program import Program, StatusItem
from session import DesktopSession, TimedOut, wait_for

SCREEN = "1600x1200x24"  # GTK's dialog opens higher than others
TITLE = "Choose a folder to watch for link files"
PORTAL = "org.freedesktop.portal.Desktop"
GTK_PORTAL = "org.freedesktop.impl.portal.desktop.gtk"


class DialogSession(DesktopSession):
    """A session with the program in it, whose folder dialog comes from `service`."""

    def __init__(self, executable, service):
        super().__init__(screen=SCREEN, environment={"GLINTMARK_FAVICON_SERVICE": "", "GTK_USE_PORTAL": "0"})
        self._executable = executable
        self._service = service

    def start(self):
        super().start()
        self.activate_with("org.freedesktop.Notifications", "/bin/false")
        if self._service != "portal":
            self.activate_with(PORTAL, "/bin/false")
        if self._service == "kdialog":  # found after zenity, so it alone is in the search path
            folder = self.root / "bin"
            folder.mkdir()
            (folder / "kdialog").symlink_to(shutil.which("kdialog"))
        self.start_window_manager()
        self.start_panel()
        path = {"PATH": str(self.root / "bin")} if self._service == "kdialog" else {}
        self.program = Program(self, self._executable, path).start()
        self.program.wait_until_started()
        self.item = StatusItem(self)
        (self.home / "Links").mkdir()

    def open_dialog(self):
        """Gives the command; the dialog's window."""
        before = set(self.windows())
        self.item.click(ADD_FOLDER)
        window = wait_for(lambda: next((w for w in self.windows(TITLE) if w not in before), None),
                          "the folder dialog", timeout=60)
        self.wait_until_still(self.root / "dialog.png")
        return window

    def picture(self, window, path):
        crop(self.screenshot(path), place_of(self, window), margin=4)

    def wait_until_gone(self, window):
        wait_for(lambda: window not in self.windows(), "end of the dialog")


def choose_folder(service, executable, output):
    """Cancels one dialog, then chooses a folder in another."""
    seen = []
    with DialogSession(executable, service) as session:
        window = session.open_dialog()
        session.picture(window, output / f"dialog-{service}.png")
        seen.append("the dialog with its message as title")
        session.run(["xdotool", "key", "Escape"])
        session.wait_until_gone(window)
        window = session.open_dialog()
        seen.append("cancelled by Escape, and opened again")
        if service != "kdialog":
            choose_home(session, window)
            session.program.wait_for_line(f"Glintmark: Folder added → {session.home}")
            assert session.item.labels()[8] == "  ~", session.item.labels()
            seen.append("the home folder chosen, which the menu shows")
        if service == "portal":
            seen += lose_the_service(session)
        return "; ".join(seen)


def choose_home(session, window):
    """Under the pointer, in GTK's dialog: the home folder in the list at the left, then the button
    at the lower right."""
    left, top, width, height = place_of(session, window)
    click_at(session, left + 60, top + 60)
    session.wait_until_still(session.root / "chosen.png")
    click_at(session, left + width - 45, top + height - 25)
    session.wait_until_gone(window)


def lose_the_service(session):
    """The dialog is open when its backend, and then the portal itself, is killed."""
    seen = []
    for name, what in ((GTK_PORTAL, "the portal's backend"), (PORTAL, "the portal")):
        before = session.program.lines_about("Folder added")
        session.open_dialog()
        os.kill(owner_of(session, name), signal.SIGKILL)
        # The next command runs only after the panel has ended.
        wait_for(lambda: can_open_again(session), f"end of the dialog of {name}", timeout=60)
        assert session.program.lines_about("Folder added") == before
        seen.append(f"{what} killed with the dialog open: cancelled, and the next dialog opens")
    return seen


def can_open_again(session):
    """Gives the command again and again until a new dialog stands there; closes it."""
    session.item.click(ADD_FOLDER)
    try:
        window = wait_for(lambda: next(iter(session.windows(TITLE)), None), "a dialog", 5.0)
    except TimedOut:
        return False
    session.run(["xdotool", "windowfocus", str(window), "key", "Escape"])
    session.wait_until_gone(window)
    return True


def owner_of(session, name):
    answer = session.run(["gdbus", "call", "--session", "--dest", "org.freedesktop.DBus",
                          "--object-path", "/org/freedesktop/DBus", "--method",
                          "org.freedesktop.DBus.GetConnectionUnixProcessID", name])
    return int(answer.split("uint32 ")[1].split(",")[0])
