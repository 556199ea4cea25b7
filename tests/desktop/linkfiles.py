"""The companion program as a file manager starts it, and its notifications."""

import pathlib
import shutil

from tests.desktop.case import OPTIONS, DesktopTest
from tests.harness.bus_monitor import BusMonitor
from tests.harness.link_file import write_link
from tests.harness.session import NOTIFICATIONS
from tests.harness.sites import MAGENTA
from tests.harness.waiting import wait_for

ENTRIES = pathlib.Path(__file__).resolve().parents[2] / "resources/link"


class LinkFileTest(DesktopTest):
    def setUp(self):
        super().setUp()
        companion = OPTIONS.program.parent / "glintmark-link"
        self.companion = self.session.stand_in("glintmark-link", f'exec "{companion}" "$@"')
        self.notes = self.stand_in_browser()
        for entry in ENTRIES.glob("com.quorvel.Glintmark.*.desktop"):
            shutil.copy(entry, self.session.data_home / "applications")
        self.session.run(["update-desktop-database", self.session.data_home / "applications"])

    def test_a_double_click_opens_the_link_in_the_browser(self):
        self.session.start_desktop()
        self.start_program()
        self.session.open_file_manager(self.downloads)
        self.drop_and_wait("Glint.webloc")
        shown = self.session.wait_for_colour(MAGENTA, picture=self.pictures / "thunar.png")
        middle = ((shown.left + shown.right) // 2, (shown.top + shown.bottom) // 2)
        self.session.run(["xdotool", "mousemove", *map(str, middle)])
        self.session.run(["xdotool", "click", "--repeat", "2", "--delay", "100", "1"])
        opened = "http://glint.example/\n"
        wait_for(lambda: self.notes.exists() and self.notes.read_text() == opened, "the browser")

    def test_a_refusal_is_a_notification_where_there_is_no_terminal(self):
        self.session.start_desktop()
        notifications = BusMonitor(self.session, NOTIFICATIONS, "Notify")
        link = write_link(self.downloads / "a.webloc", "file:///etc/passwd")
        self.session.run([str(self.companion), "open", str(link)], check=False)
        wait_for(lambda: notifications.count() == 1, "the notification")
        self.assertTrue(any("“file”" in text for text in notifications.strings()))
        self.assertFalse(self.notes.exists())
