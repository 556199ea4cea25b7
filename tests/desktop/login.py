"""Login, crashes and restarts: the desktop's parts start and end in any order while the program
runs."""

import signal

from tests.desktop.case import DesktopTest
from tests.harness.pictures import Picture
from tests.harness.session import NOTIFICATIONS
from tests.harness.status_item import StatusItem
from tests.harness.waiting import wait_for

TRAY = (1240, 0, 40, 30)  # the right end of the panel
SHOWN = 60  # pixels that are not background; the item's picture has about twice as many


class LoginTest(DesktopTest):
    def wait_until_shown(self):
        """Waits for the item's registration and for its picture on the panel."""
        StatusItem(self.session)

        def look():
            path = self.session.screenshot(self.pictures / "tray.png")
            return sum(Picture(path, TRAY).ink()) >= SHOWN

        wait_for(look, "the item's picture on the panel")

    def wait_for_notification(self):
        """Waits for a window of the notification daemon."""
        wait_for(
            lambda: self.session.run(
                ["xdotool", "search", "--onlyvisible", "--class", "xfce4-notifyd"], check=False
            ),
            "a notification on the screen",
        )

    def test_the_panel_and_the_daemon_come_after_the_program_and_restart(self):
        self.session.disable(NOTIFICATIONS)
        self.start_program()
        with self.subTest("without a daemon the error is logged"):
            self.drop_and_wait("none.webloc")
            self.program.wait_for_line("Glintmark: Notification error → ")
            self.assertEqual(self.program.lines_about("Notification authorized"), [])
        with self.subTest("program first, panel later"):
            self.session.start_window_manager()
            self.session.start_panel()
            self.wait_until_shown()
        with self.subTest("daemon later"):
            self.session.start_notifyd()
            self.drop_and_wait("later.webloc")
            self.wait_for_notification()
        with self.subTest("the panel crashes and is started again"):
            self.session.end("xfce4-panel", signal.SIGKILL)
            self.session.restart_panel()
            self.wait_until_shown()
        with self.subTest("the daemon crashes and is started again"):
            self.session.end("xfce4-notifyd", signal.SIGKILL)
            self.session.start_notifyd()
            self.drop_and_wait("again.webloc")
            self.wait_for_notification()
        with self.subTest("one error in all: that of the first file"):
            self.assertEqual(len(self.program.lines_about("Notification error")), 1)

    def test_a_daemon_that_is_stuck_holds_nothing_up(self):
        self.session.disable(NOTIFICATIONS)
        self.session.start_notifyd()
        self.start_program()
        self.program.wait_for_line("Glintmark: Notification authorized")
        daemon = self.session.processes["xfce4-notifyd"]
        daemon.send_signal(signal.SIGSTOP)
        self.drop_and_wait("first.webloc")
        self.drop_and_wait("second.webloc")
        self.assertEqual(self.program.lines_about("Notification error"), [])
        with self.subTest("what it was given is shown once it goes on"):
            daemon.send_signal(signal.SIGCONT)
            self.wait_for_notification()
        with self.subTest("one that dies without an answer is an error"):
            daemon.send_signal(signal.SIGSTOP)
            self.drop_and_wait("third.webloc")
            self.session.end("xfce4-notifyd", signal.SIGKILL)
            self.program.wait_for_line("Glintmark: Notification error → ")
