"""The folder dialog where there is no portal: the programs that stand in for it, and none at all."""

from case import DesktopTest
from menu import ADD_FOLDER, QUIT
from program import Program, StatusItem
from session import wait_for


class FolderPanelTest(DesktopTest):
    def setUp(self):
        super().setUp()
        self.session.activate_with("org.freedesktop.portal.Desktop", "/bin/false")
        self.stand_in("true", "")  # makes the folder of the stand-ins
        self.program = Program(self.session, self.program.executable, {
            "PATH": str(self.session.root / "bin")})  # nothing else is found
        self.session.start_panel()
        self.start_program()
        self.item = StatusItem(self.session)

    def test_kdialog_stands_in_for_zenity_and_a_cancelled_dialog_changes_nothing(self):
        calls = self.session.root / "calls.txt"
        self.stand_in("kdialog", f'echo "$@" >> "{calls}"; exit 1')
        self.item.click(ADD_FOLDER)
        wait_for(calls.exists, "the dialog")
        self.assertIn("--getexistingdirectory", calls.read_text())
        self.stand_in("kdialog", f'echo "{self.session.home}/Links"')
        self.item.click(ADD_FOLDER)
        line = self.program.wait_for_line("Glintmark: Folder added → ")
        self.assertEqual(line, f"Glintmark: Folder added → {self.session.home}/Links")
        self.assertEqual(self.extra_folders(), [f"{self.session.home}/Links"])

    def test_without_any_dialog_the_panel_counts_as_cancelled(self):
        self.item.click(ADD_FOLDER)
        self.item.click(ADD_FOLDER)
        self.item.click(QUIT)  # runs after the others
        self.assertEqual(self.program.process.wait(5), 0)
        self.assertEqual(self.program.lines_about("Folder added"), [])
        self.assertIsNone(self.extra_folders())
