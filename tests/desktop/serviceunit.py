"""The systemd unit under a real user manager: started, restarted after a crash, stopped."""

import os
import pathlib
import shutil
import signal
import unittest

from tests.desktop.case import OPTIONS, DesktopTest
from tests.desktop.menu import CREDIT
from tests.harness.link_file import icon_name
from tests.harness.session import PORTAL
from tests.harness.status_item import StatusItem
from tests.harness.waiting import wait_for

UNIT = "glintmark.service"
SOURCE = pathlib.Path("resources", UNIT)

# A manager starts only if systemd has booted the system. The sign is this folder, which only the
# manager sees, in a private mount namespace.
MANAGER = """
mkdir -p /run/systemd && mount -t tmpfs none /run/systemd && mkdir /run/systemd/system &&
exec /lib/systemd/systemd --user --log-target=console
"""


@unittest.skipUnless(os.geteuid() == 0, "the manager's mount namespace takes root")
class SystemdUnitTest(DesktopTest):
    def setUp(self):
        super().setUp()
        units = self.session.config_home / "systemd" / "user"
        place_of_program = units / f"{UNIT}.d" / "built.conf"
        place_of_program.parent.mkdir(parents=True)
        shutil.copy(SOURCE, units)
        place_of_program.write_text(
            f"[Service]\nExecStart=\nExecStart={OPTIONS.program}\n"
            f"Environment=PATH={self.session.programs}:{os.environ['PATH']}\n"
        )
        self.session.spawn("systemd", ["unshare", "--mount", "sh", "-c", MANAGER])
        wait_for((self.session.runtime / "systemd" / "private").exists, "the user manager")

    def systemctl(self, *arguments):
        return self.session.run(["systemctl", "--user", *arguments])

    def property(self, name):
        return self.systemctl("show", "--value", "--property", name, UNIT).strip()

    def test_under_its_limits_pictures_are_decoded_and_other_programs_start_without_them(self):
        notes = self.session.root / "limits.txt"
        script = f"grep NoNewPrivs /proc/self/status >'{notes}.new' && mv '{notes}.new' '{notes}'"
        self.session.stand_in("xdg-open", script)
        self.session.disable(PORTAL)
        self.session.start_desktop()
        self.systemctl("start", UNIT)
        item = StatusItem(self.session)
        process = pathlib.Path("/proc", self.property("MainPID"), "status")
        self.assertIn("NoNewPrivs:\t1", process.read_text())
        link = self.drop("a.webloc", "http://glint.example/")
        wait_for(lambda: icon_name(link), "the icon")
        item.click(CREDIT)
        wait_for(notes.exists, "the program that opens addresses")
        self.assertEqual(notes.read_text(), "NoNewPrivs:\t0\n")

    def test_it_starts_restarts_after_a_crash_and_stops(self):
        self.systemctl("start", UNIT)
        self.session.wait_for_bus_name("com.quorvel.Glintmark")
        first = self.property("MainPID")
        os.kill(int(first), signal.SIGKILL)
        wait_for(lambda: self.property("NRestarts") == "1", "the restart")
        self.assertNotIn(self.property("MainPID"), (first, "0"))
        self.session.wait_for_bus_name("com.quorvel.Glintmark")
        self.systemctl("stop", UNIT)
        self.assertEqual(
            [self.property(name) for name in ("ActiveState", "Result", "ExecMainStatus")],
            ["inactive", "success", "0"],
        )
