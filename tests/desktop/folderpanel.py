"""The folder dialog without a portal: with the programs that replace it, and without any."""

from tests.desktop.case import DesktopTest
from tests.desktop.menu import QUIT
from tests.harness.log_lines import FOLDER_ADDED
from tests.harness.program import Program
from tests.harness.session import PORTAL
from tests.harness.status_item import ADD_FOLDER, StatusItem
from tests.harness.waiting import wait_for


class FolderPanelTest(DesktopTest):
    def setUp(self):
        super().setUp()
        self.session.disable(PORTAL)
        only_stand_ins = {"PATH": str(self.session.programs)}
        self.program = Program(self.session, self.program.executable, only_stand_ins)
        self.session.start_panel()
        self.start_program()
        self.item = StatusItem(self.session)

    def test_kdialog_stands_in_for_zenity_and_a_cancelled_dialog_changes_nothing(self):
        calls = self.session.root / "calls.txt"
        self.session.stand_in("kdialog", f'echo "$@" >> "{calls}"; exit 1')
        self.item.click(ADD_FOLDER)
        wait_for(calls.exists, "the dialog")
        self.assertIn("--getexistingdirectory", calls.read_text())
        self.session.stand_in("kdialog", f'echo "{self.session.home}/Links"')
        self.item.click(ADD_FOLDER)
        line = self.program.wait_for_line(FOLDER_ADDED)
        self.assertEqual(line, f"{FOLDER_ADDED}{self.session.home}/Links")
        self.assertEqual(self.session.settings.extra_folders(), [f"{self.session.home}/Links"])

    def test_without_any_dialog_the_panel_counts_as_cancelled(self):
        self.item.click(ADD_FOLDER)
        self.item.click(ADD_FOLDER)
        self.item.click(QUIT)  # runs after the others
        self.assertEqual(self.program.process.wait(5), 0)
        self.assertEqual(self.program.lines_about(FOLDER_ADDED), [])
        self.assertIsNone(self.session.settings.extra_folders())
