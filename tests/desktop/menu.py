"""The menu of the running program: every entry as a panel reads it, every command as a user gives
it."""

import shutil

from tests.desktop.case import DesktopTest
from tests.desktop.pointer import click_at, opened_menu
from tests.harness.bus_monitor import BusMonitor
from tests.harness.log_lines import FOLDER_ADDED, FOLDER_REMOVED, REPORTED, STARTED, STOPPED
from tests.harness.session import PORTAL
from tests.harness.status_item import ADD_FOLDER, MENU, REMOVE, StatusItem
from tests.harness.waiting import wait_for

VERSION_LINE = r"^Glintmark v\d+\.\d+\.\d+$"
CREDIT = "Made by the Glintmark developers"
REVEAL = "Show in File Manager"
QUIT = "Quit Glintmark"

SEPARATOR = ({"type": "separator"}, [])


def command(label, **more):
    return {"label": label, **more}, []


def caption(label):
    return {"label": label, "enabled": False}, []


def folder_entry(label):
    return ({"label": label, "children-display": "submenu"}, [command(REMOVE), command(REVEAL)])


def expected_below_version(*extra_folders):
    """The whole menu after its first line. `extra_folders`: the labels of the user's own
    folders."""
    return [
        command(CREDIT),
        SEPARATOR,
        caption("Watching for new link files"),
        SEPARATOR,
        caption("Watched folders"),
        caption("  ~/Desktop"),
        caption("  ~/Downloads"),
        *[folder_entry(label) for label in extra_folders],
        SEPARATOR,
        command(ADD_FOLDER, shortcut=[["Control", "a"]]),
        SEPARATOR,
        command(QUIT, shortcut=[["Control", "q"]]),
    ]


class MenuCase(DesktopTest):
    def check_menu(self, item, *extra_folders):
        version, *rest = item.tree()
        self.assertRegex(version[0]["label"], VERSION_LINE)
        self.assertEqual(version, command(version[0]["label"]))
        self.assertEqual(rest, expected_below_version(*extra_folders))

    def prepare_commands(self):
        """Replaces the programs that the commands start, but not the file manager."""
        self.pages = self.stand_in_browser()
        self.session.disable(PORTAL)
        self.session.activate_with(
            "org.freedesktop.FileManager1", f"{shutil.which('thunar')} --daemon"
        )

    def choose_in_dialog(self, folder):
        """The next folder dialog answers with `folder`."""
        folder.mkdir(parents=True, exist_ok=True)
        self.session.stand_in("zenity", f'echo "{folder}"')

    def wait_for_pages(self, count):
        def look():
            lines = self.pages.read_text().splitlines() if self.pages.exists() else []
            return lines if len(lines) == count else None

        for address in wait_for(look, f"{count} pages opened"):
            self.assertRegex(address, r"^(file://)?/.*/site/index\.html$")


class MenuTest(MenuCase):
    def test_the_layout_for_two_folders_and_for_five(self):
        self.session.start_panel()
        self.start_program()
        self.check_menu(StatusItem(self.session))
        self.assertEqual(self.program.terminate(), 0)

        home = self.session.home
        copy = self.session.root / f"copy{home}" / "In"
        self.write_extra_folders(home / "Links", home / "my_links & more", copy)
        self.program.start()
        wait_for(lambda: len(self.program.lines_about(STARTED)) == 2, "the second start")
        root = str(self.session.root).replace("_", "__")
        self.check_menu(
            StatusItem(self.session), "  ~/Links", "  ~/my__links & more", f"  {root}/copy~/In"
        )

    def test_every_command_works_and_the_layout_changes_with_the_list(self):
        home = self.session.home
        self.prepare_commands()
        self.write_extra_folders(home / "One", home / "Two", home / "Three")
        self.session.start_window_manager()
        self.session.start_panel()
        self.start_program()
        item = StatusItem(self.session)
        updates = BusMonitor(self.session, MENU, "LayoutUpdated", "signal")

        with self.subTest("the product's page, from two lines"):
            item.click(item.labels()[0])
            self.wait_for_pages(1)
            item.click(CREDIT)
            self.wait_for_pages(2)
        with self.subTest("lines that cannot be chosen do nothing"):
            for label in (
                "Watching for new link files",
                "Watched folders",
                "  ~/Desktop",
                "  ~/One",
            ):
                item.click(label)
        with self.subTest("a folder is shown"):
            item.click(REVEAL, below="  ~/Two")
            wait_for(lambda: self.session.windows("Two"), "the file manager's window")
        with self.subTest("a folder is removed"):
            item.click(REMOVE, below="  ~/Two")
            self.check_menu(item, "  ~/One", "  ~/Three")
            wait_for(lambda: updates.count() == 1, "one new layout")
            self.assertEqual(
                self.session.settings.extra_folders(), [str(home / "One"), str(home / "Three")]
            )
            self.program.wait_for_line(f"{FOLDER_REMOVED}{home}/Two")
        with self.subTest("a folder is added"):
            self.choose_in_dialog(home / "Four")
            item.click(ADD_FOLDER)
            self.program.wait_for_line(f"{FOLDER_ADDED}{home}/Four")
            self.check_menu(item, "  ~/One", "  ~/Three", "  ~/Four")
            wait_for(lambda: updates.count() == 2, "another new layout")
            self.assertEqual(self.session.settings.extra_folders()[-1], str(home / "Four"))
        with self.subTest("the new folder is watched"):
            link = home / "Four" / "a.webloc"
            link.write_text("no property list")
            self.program.wait_for_line(f"{REPORTED}{link}")
        with self.subTest("a folder that is listed already is not added again"):
            self.choose_in_dialog(home / "One")
            item.click(ADD_FOLDER)
            item.click(REMOVE, below="  ~/Three")  # runs after the dialog
            self.program.wait_for_line(f"{FOLDER_REMOVED}{home}/Three")
            self.check_menu(item, "  ~/One", "  ~/Four")
            wait_for(lambda: updates.count() >= 3, "one more layout")
            self.assertEqual(updates.count(), 3)
        with self.subTest("the program ends"):
            item.click(QUIT)
            self.assertEqual(self.program.process.wait(5), 0)
        self.assertEqual(len(self.pages.read_text().splitlines()), 2)


class PointerTest(MenuCase):
    """Finds the lines of the menu by their number: version, credit, two captions, two folders, the
    user's folders, two commands."""

    def open_menu(self, lines):
        menu = opened_menu(self.session, lambda: click_at(self.session, 1265, 15)).read()
        self.assertEqual(len(menu.rows), lines)
        return menu

    def test_every_command_works_under_a_real_pointer(self):
        home = self.session.home
        self.prepare_commands()
        self.write_extra_folders(home / "One")
        self.session.start_window_manager()
        self.session.start_panel()
        self.start_program()
        StatusItem(self.session)  # waits until the panel has it

        self.open_menu(9).click(0)
        self.wait_for_pages(1)
        self.open_menu(9).click(1)
        self.wait_for_pages(2)
        self.open_menu(9).open_submenu(6).click(1)
        wait_for(lambda: self.session.windows("One"), "the file manager's window")
        self.choose_in_dialog(home / "Two")
        self.open_menu(9).click(-2)
        self.program.wait_for_line(f"{FOLDER_ADDED}{home}/Two")
        self.open_menu(10).open_submenu(6).click(0)
        self.program.wait_for_line(f"{FOLDER_REMOVED}{home}/One")
        self.open_menu(9).click(-1)
        self.assertEqual(self.program.process.wait(10), 0)
        self.assertEqual(self.program.lines()[-1], STOPPED)
