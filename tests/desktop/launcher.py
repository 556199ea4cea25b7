"""The program without its menu: what launchers and the bus start and ask for."""

import configparser
import pathlib
import shlex
import shutil
import unittest

from tests.desktop.case import OPTIONS, DesktopTest
from tests.harness.bus_monitor import BusMonitor
from tests.harness.log_lines import FOLDER_ADDED, STOPPED
from tests.harness.program import Program
from tests.harness.session import NOTIFICATIONS, PORTAL
from tests.harness.status_item import ADD_FOLDER, StatusItem
from tests.harness.waiting import wait_for

NAME = "com.quorvel.Glintmark"
APPLICATION = "org.freedesktop.Application"
ENTRY = pathlib.Path(__file__).resolve().parents[2] / "resources" / f"{NAME}.desktop"


class LauncherTest(DesktopTest):
    def setUp(self):
        super().setUp()
        self.folder = self.session.home / "Links"
        self.folder.mkdir()
        self.session.disable(PORTAL)
        self.session.stand_in("zenity", f"echo '{self.folder}'")
        self.log = self.session.root / "started.log"
        path = self.session.environment["PATH"]  # the bus began without the program above
        start = self.session.stand_in(
            "start", f"PATH='{path}' exec {OPTIONS.program} 2>>'{self.log}'"
        )
        self.session.activate_with(NAME, start)

    def ask(self, method, *arguments):
        path = "/" + NAME.replace(".", "/")
        self.session.call(NAME, path, f"{APPLICATION}.{method}", *arguments)

    def wait_for_line(self, beginning):
        def look():
            lines = self.log.read_text().splitlines() if self.log.exists() else []
            return [line for line in lines if line.startswith(beginning)]

        return wait_for(look, f"log line {beginning!r}")

    def check_end(self):
        self.wait_for_line(STOPPED)
        wait_for(lambda: not self.session.bus_name_has_owner(NAME), "its end")

    def test_the_bus_starts_the_program_for_each_kind_of_call(self):
        calls = (
            ("Activate", "{}"),
            ("Open", "['file:///']", "{}"),
            ("ActivateAction", "add-folder", "[]", "{}"),
        )
        for call in calls:
            with self.subTest(call[0]):
                self.log.unlink(missing_ok=True)
                self.ask(*call)
                self.wait_for_line("Glintmark: Started. Watching: ")
                if "add-folder" in call:
                    self.wait_for_line(f"{FOLDER_ADDED}{self.folder}")
                self.ask("ActivateAction", "quit", "[]", "{}")
                self.check_end()

    @unittest.skipUnless(shutil.which("gapplication"), "needs gapplication")
    def test_the_commands_of_the_entrys_actions_work_in_launchers_that_do_not_use_the_bus(self):
        entry = configparser.ConfigParser(interpolation=None)
        entry.read(ENTRY)
        for action, line in (("add-folder", f"{FOLDER_ADDED}{self.folder}"), ("quit", STOPPED)):
            self.session.run(shlex.split(entry[f"Desktop Action {action}"]["Exec"]))
            self.wait_for_line(line)
        self.check_end()

    def test_a_start_without_a_panel_shows_one_notification_with_the_commands(self):
        self.session.start_window_manager()
        self.session.start_notifyd()
        notify = BusMonitor(self.session, NOTIFICATIONS, "Notify")
        self.ask("Activate", "{}")
        wait_for(notify.count, "the notification")
        for text in ("add-folder", ADD_FOLDER, "quit", "Quit Glintmark"):
            self.assertIn(text, notify.strings())
        wait_for(
            lambda: self.session.run(
                ["xdotool", "search", "--onlyvisible", "--class", "xfce4-notifyd"], check=False
            ),
            "a notification on the screen",
        )
        self.session.screenshot(self.pictures / "notification.png")
        close = BusMonitor(self.session, NOTIFICATIONS, "CloseNotification")
        self.ask("ActivateAction", "quit", "[]", "{}")
        self.check_end()
        wait_for(close.count, "its removal at the program's end")
        self.assertEqual(notify.count(), 1)

    def test_a_start_with_a_panel_shows_no_notification(self):
        self.session.start_desktop()
        notify = BusMonitor(self.session, NOTIFICATIONS, "Notify")
        self.start_program()
        StatusItem(self.session)
        self.ask("Activate", "{}")
        # Its notification comes more than two seconds later, long after that for the start.
        self.drop_and_wait("a.webloc")
        wait_for(notify.count, "the link's notification")
        self.assertEqual(notify.count(), 1)
        self.assertNotIn(ADD_FOLDER, notify.strings())

    def test_a_second_start_tells_the_first(self):
        self.start_program()
        calls = BusMonitor(self.session, APPLICATION, "Activate")
        second = Program(self.session, OPTIONS.program, name="second").start()
        self.assertEqual(second.process.wait(10), 0)
        self.assertEqual(second.output(), ["Glintmark is running already."])
        wait_for(calls.count, "the call")
        self.assertIn("glintmark-second-start", calls.strings())
