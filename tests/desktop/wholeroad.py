"""The whole road of a file on a real desktop session. Only the sites' content is made up."""

import pathlib
import signal
import subprocess

from tests.desktop.case import OPTIONS, DesktopTest
from tests.harness.bus_monitor import BusMonitor
from tests.harness.link_file import icon_name, write_link
from tests.harness.log_lines import NO_ICON, NO_LINK, STOPPED
from tests.harness.pictures import pixel
from tests.harness.processes import descendants
from tests.harness.program import Program
from tests.harness.session import NOTIFICATIONS
from tests.harness.sites import MAGENTA, TEAL, hostile_sites
from tests.harness.status_item import StatusItem
from tests.harness.waiting import wait_for


class WholeRoadTest(DesktopTest):
    def test_a_build_tree_has_its_thumbnailer_registered_only_while_it_runs(self):
        entry = self.session.data_home / "thumbnailers/com.quorvel.Glintmark.thumbnailer"
        self.start_program()
        self.assertTrue(entry.exists())
        self.program.terminate()
        self.assertFalse(entry.exists())

    def test_a_dropped_link_gets_its_icon_a_notification_and_shows_in_an_open_window(self):
        write_link(self.desktop / "Old.webloc", "http://glint.example/")
        self.session.start_desktop()
        notifications = BusMonitor(self.session, NOTIFICATIONS, "Notify")
        self.start_program()
        self.session.open_file_manager(self.downloads)
        link = self.drop_and_wait("My Site.webloc")

        with self.subTest("the log lines in their order"):
            self.assertEqual(
                self.program.lines(),
                [
                    "Glintmark: 既存weblocファイル 1 件を記録",
                    f'Glintmark: 監視対象ディレクトリ: ["{self.desktop}", "{self.downloads}"]',
                    "Glintmark: ファイル監視開始（バックグラウンドキュー）",
                    f'Glintmark: Started. Watching: ["{self.desktop}", "{self.downloads}"]',
                    "Glintmark: Notification authorized",
                    f"Glintmark: 新規webloc検知 → {link}",
                    f"Glintmark: webloc detected → {link}",
                    "Glintmark: URL → http://glint.example/",
                    "Glintmark: 採用 → htmlIcon (256x256, 透明: true)",
                    "Glintmark: Favicon fetched → http://glint.example/",
                    f"Glintmark: アイコン適用成功 → {link}",
                    f"Glintmark: Icon applied → {link}",
                ],
            )
        with self.subTest("the requests"):
            self.assertCountEqual(
                self.server.urls("glint.example"),
                [
                    "http://glint.example/",
                    "http://glint.example/icon-256.png",
                    "http://glint.example/touch.png",
                    "http://glint.example/apple-touch-icon.png",
                    "http://glint.example/manifest.json",
                    "http://glint.example/site.webmanifest",
                    "http://glint.example/manifest.webmanifest",
                    "http://glint.example/favicon.ico",
                ],
            )
        with self.subTest("the icon's pixels"):
            icon = self.stored_icon(link)
            size = subprocess.check_output(["identify", "-format", "%wx%h", icon], text=True)
            self.assertEqual(size, "512x512")
            self.assertEqual(pixel(icon, 256, 256), (*MAGENTA, 255))
            self.assertEqual(pixel(icon, 1, 1)[3], 0)
        with self.subTest("the file manager's attribute"):
            icon_uri = self.session.run(["gio", "info", "-a", "metadata::custom-icon", str(link)])
            self.assertIn(self.stored_icon(link).as_uri(), icon_uri)
        with self.subTest("the open window"):
            self.session.wait_for_colour(MAGENTA, minimum=300, picture=self.pictures / "window.png")
        with self.subTest("the notification"):
            wait_for(lambda: "My Site.webloc" in notifications.strings(), "notification")
        with self.subTest("the menu"):
            item = StatusItem(self.session)
            self.assertEqual(item.title(), "Glintmark")
            entries = [(label, enabled) for _, label, enabled, _ in item.layout()]
            self.assertRegex(entries[0][0], r"^Glintmark v\d+\.\d+\.\d+$")
            self.assertEqual(
                entries[5:9],
                [
                    ("Watched folders", False),
                    ("  ~/Desktop", False),
                    ("  ~/Downloads", False),
                    (None, True),
                ],
            )
            self.assertEqual(len(entries), 12)
        with self.subTest("the file that was there before"):
            self.assertIsNone(icon_name(self.desktop / "Old.webloc"))

    def test_quit_from_the_menu_ends_the_program_and_all_it_started(self):
        self.session.start_desktop()
        self.start_program()
        self.drop_and_wait("a.webloc")
        started = descendants(self.program.process.pid)
        item = StatusItem(self.session)
        item.click(item.labels()[-1])
        self.assertEqual(self.program.process.wait(5), 0)
        self.assertEqual(self.program.lines()[-1], STOPPED)
        wait_for(
            lambda: not [pid for pid in started if pathlib.Path(f"/proc/{pid}").exists()],
            "end of the program's children",
        )


class WithoutDesktopTest(DesktopTest):
    def test_without_panel_daemon_or_manager_icons_are_set_all_the_same(self):
        self.start_program()
        link = self.drop_and_wait("m.webloc", "http://manifest.example/")
        self.assertEqual(pixel(self.stored_icon(link), 256, 256), (*TEAL, 255))
        self.assertEqual(self.program.terminate(), 0)

    def test_without_a_session_bus_icons_are_set_all_the_same(self):
        self.session.end("dbus-daemon")
        self.start_program()
        link = self.drop_and_wait("m.webloc", "http://manifest.example/")
        self.assertIsNotNone(icon_name(link))

    def test_before_the_first_link_it_holds_no_library_for_drawing_or_requests(self):
        self.start_program()
        held = pathlib.Path(f"/proc/{self.program.process.pid}/maps").read_text()
        self.assertIn("libglib-2.0", held)
        for library in ("libcairo", "libpixman", "libX11", "libcurl", "libssl"):
            self.assertNotIn(library, held)

    def test_a_second_start_says_so_and_ends(self):
        self.start_program()
        second = Program(self.session, OPTIONS.program, name="second").start()
        self.assertEqual(second.process.wait(10), 0)
        self.assertEqual(second.output(), ["Glintmark is running already."])

    def test_termination_signals_end_it_in_order(self):
        for how in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(how.name):
                self.start_program()
                self.assertEqual(self.program.terminate(how), 0)
                self.assertEqual(self.program.lines()[-1], STOPPED)
                self.program.clear_log()


class BadInputTest(DesktopTest):
    def test_each_bad_link_gets_its_lines_and_the_program_goes_on(self):
        self.start_program()
        broken = self.downloads / "broken.webloc"
        broken.write_bytes(b"no property list")
        folder = self.downloads / "folder.webloc"
        folder.mkdir()
        huge = self.downloads / "huge.webloc"
        with open(huge, "wb") as file:
            file.truncate(3 << 30)
        odd = self.drop("odd.webloc", "not a link")
        self.program.wait_for_line(f"Glintmark: plistパース失敗 → {broken}")
        self.program.wait_for_line(f"{NO_LINK}{broken}")
        for path in (folder, huge):  # there is no memory for the huge one
            self.program.wait_for_line(f"Glintmark: ファイル読み込み失敗 → {path}")
            self.program.wait_for_line(f"{NO_LINK}{path}")
        self.program.wait_for_line(f"{NO_ICON}not a link")
        self.assertIsNone(icon_name(odd))
        self.drop_and_wait("good.webloc")

    def test_each_bad_site_ends_in_one_failure_line_and_the_program_goes_on(self):
        self.server.sites.update(hostile_sites())
        self.start_program()
        for host in hostile_sites():
            self.drop(f"{host}.webloc", f"http://{host}/")
        for host in hostile_sites():
            line = f"{NO_ICON}http://{host}/"
            self.program.wait_for_line(line, timeout=90)
            self.assertEqual(
                self.program.lines_about(f"http://{host}/"),
                [f"Glintmark: URL → http://{host}/", line],
            )
        self.drop_and_wait("good.webloc")

    def test_a_percent_sign_in_a_name_is_expanded(self):
        self.start_program()
        self.drop("100%d.webloc", "http://glint.example/")
        self.program.wait_for_line(f"Glintmark: Icon applied → {self.downloads}/1000.webloc")
        self.assertIsNotNone(icon_name(self.downloads / "100%d.webloc"))
