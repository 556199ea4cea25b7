"""The folder dialogs of real programs, used with a real pointer: portal, zenity and kdialog."""

import os
import shutil
import signal

from tests.desktop.panels import KDE
from tests.desktop.pointer import click_at, place_of
from tests.harness.log_lines import FOLDER_ADDED
from tests.harness.pictures import crop
from tests.harness.program import Program
from tests.harness.session import NOTIFICATIONS, PORTAL, DesktopSession
from tests.harness.status_item import ADD_FOLDER, StatusItem
from tests.harness.waiting import TimedOut, wait_for

SCREEN = "1600x1200x24"  # GTK's dialog is higher than others
TITLE = "Choose a folder to watch for link files"
GTK_PORTAL = "org.freedesktop.impl.portal.desktop.gtk"


class DialogSession(DesktopSession):
    """A session with the program in it, whose folder dialog comes from `service`."""

    def __init__(self, executable, service):
        super().__init__(
            screen=SCREEN, environment={"GLINTMARK_FAVICON_SERVICE": "", "GTK_USE_PORTAL": "0"}
        )
        self._executable = executable
        self._service = service

    def start(self):
        super().start()
        self.disable(NOTIFICATIONS)
        if self._service != "portal":
            self.disable(PORTAL)
        if self._service == "kdialog":  # the program prefers zenity, so kdialog alone can be found
            (self.programs / "kdialog").symlink_to(shutil.which("kdialog"))
        self.start_window_manager()
        self.start_panel()
        self.program = Program(self, self._executable, self.variables())
        self.program.start().wait_until_started()
        self.item = StatusItem(self)
        (self.home / "Links").mkdir()

    def variables(self):
        if self._service != "kdialog":
            return {}
        # On other desktops kdialog shows Qt's dialog, which opens a folder but never chooses it.
        return {"PATH": str(self.programs), **KDE}

    def open_dialog(self):
        """Returns the dialog's window. Repeats the command, since the program ignores it until the
        last dialog's process has ended."""
        before = set(self.windows())
        window = wait_for(lambda: self._ask_for_dialog(before), "the folder dialog", timeout=60)
        self.wait_until_still(self.root / "dialog.png")
        return window

    def _ask_for_dialog(self, before):
        self.item.click(ADD_FOLDER)
        try:
            return wait_for(
                lambda: next((w for w in self.windows(TITLE) if w not in before), None),
                "a dialog",
                5.0,
            )
        except TimedOut:
            return None

    def cancel(self, window):
        self.run(["xdotool", "windowfocus", str(window), "key", "Escape"])
        self.wait_until_gone(window)

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
        session.cancel(window)
        window = session.open_dialog()
        seen.append("cancelled by Escape, and opened again")
        if service == "kdialog":
            session.run(
                ["xdotool", "windowfocus", str(window), "key", "Return"]
            )  # the dialog begins in the home folder
            session.wait_until_gone(window)
        else:
            choose_home(session, window)
        session.program.wait_for_line(f"{FOLDER_ADDED}{session.home}")
        assert session.item.labels()[8] == "  ~", session.item.labels()
        seen.append("the home folder chosen, which the menu shows")
        if service == "portal":
            seen += lose_the_service(session)
        return "; ".join(seen)


def choose_home(session, window):
    """Clicks in GTK's dialog: the home folder in the list at the left, then the button at the lower
    right."""
    left, top, width, height = place_of(session, window)
    click_at(session, left + 60, top + 60)
    session.wait_until_still(session.root / "chosen.png")
    click_at(session, left + width - 45, top + height - 25)
    session.wait_until_gone(window)


def lose_the_service(session):
    """Kills the portal's backend and then the portal itself while the dialog is open."""
    seen = []
    for name, what in ((GTK_PORTAL, "the portal's backend"), (PORTAL, "the portal")):
        before = session.program.lines_about(FOLDER_ADDED)
        session.open_dialog()
        os.kill(owner_of(session, name), signal.SIGKILL)
        session.cancel(session.open_dialog())
        assert session.program.lines_about(FOLDER_ADDED) == before
        seen.append(f"{what} killed with the dialog open: cancelled, and the next dialog opens")
    return seen


def owner_of(session, name):
    answer = session.call_bus("GetConnectionUnixProcessID", name)
    return int(answer.split("uint32 ")[1].split(",")[0])
