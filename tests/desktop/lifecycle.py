"""The built program's life in a session: one instance, its end in any state, a bus that stops and
starts again, folders that cannot be written."""

import os
import pathlib
import signal
import socket
import tempfile
import time
import unittest

from tests.desktop.case import OPTIONS, DesktopTest
from tests.harness.answers import picture
from tests.harness.bus_monitor import BusMonitor
from tests.harness.ending import DECODER, SECOND, check_end, copy_program
from tests.harness.image_files import flat_png
from tests.harness.link_file import icon_name, write_link
from tests.harness.log_lines import APPLIED, FOLDER_ADDED, FOLDER_REMOVED, STARTED, STOPPED
from tests.harness.processes import children, processes_of
from tests.harness.program import Program
from tests.harness.session import NOTIFICATIONS, PORTAL, DesktopSession
from tests.harness.sites import TEAL, hostile_sites
from tests.harness.status_item import ADD_FOLDER, REMOVE, StatusItem
from tests.harness.waiting import wait_for

OWN_NAME = "com.quorvel.Glintmark"
LARGE = (8192, 1500)  # pixels: too many to be kept, so drawing decodes them again
BUSY = "busy.example"
SETTINGS = '{"extraFolders": []}'


def status_of(pid):
    """State and parent as in proc(5); "X" is the state of a process that does not exist."""
    try:
        fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(") ")[2].split()
        return fields[0], int(fields[1])
    except OSError:
        return "X", 0


def state_of(pid):
    return status_of(pid)[0]


def parent_of(pid):
    return status_of(pid)[1]


def is_sandboxed(pid):
    """True if the process has a system call filter: a decoder's child has one while it decodes."""
    try:
        return "\nSeccomp:\t2\n" in pathlib.Path(f"/proc/{pid}/status").read_text()
    except OSError:
        return False


def stop(pid):
    """False if the process ended before it could be stopped."""
    try:
        os.kill(pid, signal.SIGSTOP)
    except ProcessLookupError:
        return False
    return wait_for(lambda: state_of(pid) in "TZX" and state_of(pid), "a stop") == "T"


class LifecycleTest(DesktopTest):
    """Runs a copy of the program, so that its processes can be told from those of other
    sessions."""

    def setUp(self):
        super().setUp()
        self.executable = copy_program(OPTIONS.program, self.session.programs)
        self.decoder = self.session.programs / DECODER
        self.program = Program(self.session, self.executable)
        self.addCleanup(self.kill_decoders)

    def kill_decoders(self):
        """After a failed test, stopped decoders may be left."""
        for pid in processes_of(self.decoder):
            os.kill(pid, signal.SIGKILL)

    def check_end(self, how=signal.SIGTERM):
        check_end(self.program.process, self.session.programs, self.id(), how)

    def provide_dialog_program(self, script):
        """Disables the portal and provides `script` as the dialog program."""
        self.session.disable(PORTAL)
        self.session.stand_in("zenity", script)


class EndTest(LifecycleTest):
    def test_it_ends_within_a_second_when_idle(self):
        for how in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(how.name):
                self.start_program()
                self.check_end(how)
                self.assertEqual(self.program.lines()[-1], STOPPED)
                self.program.clear_log()

    def test_it_ends_within_a_second_while_a_site_is_silent(self):
        self.server.sites.update(hostile_sites())
        self.start_program()
        self.drop("silent.webloc", "http://silent.example/")
        wait_for(lambda: self.server.urls("silent.example"), "the request")
        self.check_end()
        self.assertEqual(self.program.lines()[-1], STOPPED)

    def decoder_process(self):
        """The decoder that forks the others. Its parent, which the program started, has ended."""
        candidates = processes_of(self.decoder)
        others = {self.program.process.pid, *candidates}
        return next((pid for pid in candidates if parent_of(pid) not in others), None)

    def catch_decode(self):
        """Stops a process while it decodes the large picture."""
        decoder = wait_for(self.decoder_process, "the decoder")
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline:  # without a pause, since decoding is fast
            for child in children(decoder):
                if is_sandboxed(child) and stop(child):
                    return child
        self.fail("no decode")

    def start_large_decode(self):
        self.server.sites[BUSY] = {"/favicon.ico": picture(flat_png(*LARGE, TEAL))}
        self.start_program()
        self.drop("busy.webloc", f"http://{BUSY}/")

    def test_it_ends_within_a_second_while_a_decode_hangs(self):
        self.start_large_decode()
        child = self.catch_decode()
        self.check_end()
        wait_for(lambda: state_of(child) in "ZX", "the child's end", SECOND)
        self.assertEqual(self.program.lines()[-1], STOPPED)

    def test_it_ends_within_a_second_while_its_main_thread_waits_for_a_decode(self):
        self.start_large_decode()
        self.program.wait_for_line("Glintmark: Favicon fetched")
        child = self.catch_decode()
        self.check_end()
        wait_for(lambda: state_of(child) in "ZX", "the child's end", SECOND)

    def test_it_ends_within_a_second_while_its_dialog_is_open(self):
        self.provide_dialog_program("echo $$ >open; exec sleep 1000")
        self.session.start_desktop()
        self.start_program()
        StatusItem(self.session).click(ADD_FOLDER)
        note = self.session.home / "open"
        wait_for(lambda: note.exists() and note.read_text().strip(), "the dialog")
        dialog = pathlib.Path("/proc", note.read_text().strip())
        self.check_end()
        wait_for(lambda: not dialog.exists(), "the dialog's end", SECOND)

    def test_it_ends_within_a_second_while_a_silent_bus_holds_its_start_up(self):
        with tempfile.TemporaryDirectory(prefix="glintmark-bus-") as folder:
            path = f"{folder}/bus"
            with socket.socket(socket.AF_UNIX) as bus:
                bus.bind(path)
                bus.listen()
                self.session.environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={path}"
                self.program.start()
                connection, _ = bus.accept()
                with connection:
                    self.check_end()


class SingleInstanceTest(LifecycleTest):
    def test_of_many_starts_at_once_one_stays(self):
        programs = [Program(self.session, self.executable, name=f"start{i}") for i in range(6)]
        for program in programs:
            program.start()
        wait_for(lambda: sum(p.process.poll() is not None for p in programs) == 5, "five ends")
        stayed = [p for p in programs if p.process.poll() is None]
        self.assertEqual(len(stayed), 1)
        for program in programs:
            if program not in stayed:
                self.assertEqual(program.process.returncode, 0)
                self.assertEqual(program.output(), ["Glintmark is running already."])
        stayed[0].wait_until_started()

    def test_another_session_has_its_own(self):
        self.start_program()
        with DesktopSession(root=self.pictures / "other") as other:
            second = Program(other, self.executable).start().wait_until_started()
            self.assertEqual(second.terminate(), 0)

    def test_of_two_that_started_without_a_bus_one_stays_when_it_comes(self):
        self.session.end("dbus-daemon")
        programs = [Program(self.session, self.executable, name=f"start{i}") for i in range(2)]
        for program in programs:
            program.start().wait_until_started()
        self.session.start_bus()
        ended = wait_for(
            lambda: next((p for p in programs if p.process.poll() is not None), None), "an end", 90
        )
        self.assertEqual(ended.process.returncode, 0)
        self.assertEqual(ended.output()[-2:], ["Glintmark is running already.", STOPPED])
        self.session.wait_for_bus_name(OWN_NAME)
        self.assertEqual(sum(p.process.poll() is not None for p in programs), 1)

    def test_after_its_end_another_may_start(self):
        self.start_program()
        self.program.process.kill()
        self.program.process.wait()
        self.program.clear_log()
        self.start_program()
        self.assertTrue(self.session.bus_name_has_owner(OWN_NAME))


class BusRestartTest(LifecycleTest):
    def test_icons_are_set_without_the_bus_and_services_taken_up_when_it_is_back(self):
        self.session.start_desktop()
        self.start_program()
        StatusItem(self.session)
        self.drop_and_wait("before.webloc")

        self.session.end("dbus-daemon", signal.SIGKILL)
        without = self.drop_and_wait("without.webloc", "http://manifest.example/")
        self.assertIsNotNone(icon_name(without))
        self.assertIsNone(self.program.process.poll())

        for name in ("xfce4-panel", "xfce4-notifyd"):
            self.session.end(name)
        self.session.start_bus()
        self.session.wait_for_bus_name(OWN_NAME, timeout=90)
        self.session.start_notifyd()
        self.session.start_panel()
        item = StatusItem(self.session)
        self.assertEqual(item.title(), "Glintmark")
        notifications = BusMonitor(self.session, NOTIFICATIONS, "Notify")
        self.drop_and_wait("after.webloc")
        wait_for(lambda: "after.webloc" in notifications.strings(), "notification")
        second = Program(self.session, self.executable, name="second").start()
        self.assertEqual(second.process.wait(10), 0)
        self.assertEqual(second.output(), ["Glintmark is running already."])
        self.assertEqual(self.program.terminate(), 0)


class SessionEndTest(LifecycleTest):
    """The program as a session manager starts it: another process is the session's leader."""

    def start_led(self):
        """Starts the program under the process "leader". Returns its id."""
        self.session.spawn("leader", ["sh", "-c", f"{self.executable} 2>&1 & echo $! >pid; wait"])
        note = self.session.home / "pid"
        wait_for(lambda: note.exists() and note.read_text().strip(), "the program")
        wait_for(lambda: STARTED in self.session.log("leader"), "its start")
        return int(note.read_text())

    def test_it_ends_with_its_session_when_bus_and_session_manager_are_gone(self):
        pid = self.start_led()
        self.session.end("leader", signal.SIGKILL)
        self.session.end("dbus-daemon", signal.SIGKILL)
        wait_for(lambda: state_of(pid) in "ZX", "its end")
        self.assertEqual(self.session.log("leader").splitlines()[-1], STOPPED)

    def test_it_outlives_a_session_manager_whose_bus_goes_on(self):
        pid = self.start_led()
        self.session.end("leader", signal.SIGKILL)
        self.drop("later.webloc", "http://glint.example/")
        wait_for(lambda: APPLIED in self.session.log("leader"), "the icon")
        self.assertNotIn(state_of(pid), "ZX")
        os.kill(pid, signal.SIGTERM)
        wait_for(lambda: state_of(pid) in "ZX", "its end")


@unittest.skipUnless(os.geteuid() == 0, "mounting needs root")
class HomeTest(LifecycleTest):
    """The program runs in a private mount namespace, in which its home is unusual."""

    def start_with(self, preparation):
        shared = self.session.root / "shared"
        shared.mkdir()
        self.provide_dialog_program(f"echo {shared}")
        script = self.session.stand_in(
            "start", f"set -e\nmount --make-rprivate /\n{preparation}\nexec {self.executable}"
        )
        self.session.start_desktop()
        self.program.process = self.session.spawn("glintmark", ["unshare", "--mount", str(script)])
        self.program.wait_until_started()
        return shared

    def test_folders_that_are_not_absolute_count_as_unset(self):
        elsewhere = self.session.root / "elsewhere"
        elsewhere.mkdir()
        users = self.session.root / "passwd"
        users.write_text(f"root:x:0:0::{self.session.home}:/bin/sh\n")
        shared = self.start_with(
            f"mount --bind {users} /etc/passwd\ncd {elsewhere}\nexport HOME=\n"
            "for name in CONFIG DATA CACHE; do export XDG_${name}_HOME=here; done"
        )
        StatusItem(self.session).click(ADD_FOLDER)
        self.program.wait_for_line(f"{FOLDER_ADDED}{shared}")
        link = self.drop_and_wait("a.webloc")
        self.assertEqual(self.session.settings.extra_folders(), [str(shared)])
        self.assertTrue(self.stored_icon(link).exists())
        self.assertEqual(os.listdir(elsewhere), [])

    def check_goes_on(self, shared):
        """A folder is added, watched and removed again, though nothing can be stored."""
        item = StatusItem(self.session)
        item.click(ADD_FOLDER)
        self.program.wait_for_line(f"{FOLDER_ADDED}{shared}")
        self.check_settings()
        self.assertIn(f"  {shared}", item.labels())
        link = write_link(shared / "a.webloc", "http://glint.example/")
        self.program.wait_until_applied(link)
        item.click(REMOVE)
        self.program.wait_for_line(f"{FOLDER_REMOVED}{shared}")
        wait_for(lambda: f"  {shared}" not in item.labels(), "the menu, rebuilt after storing")
        self.check_settings()
        self.assertEqual(self.program.terminate(), 0)
        self.assertEqual(self.program.lines()[-1], STOPPED)

    def check_settings(self):
        """The program's view of the folder: the file is unchanged and there is no other."""
        root = f"/proc/{self.program.process.pid}/root"
        folder = pathlib.Path(f"{root}{self.session.config_home}/glintmark")
        self.assertEqual((folder / "defaults.json").read_text(), SETTINGS)
        self.assertEqual(os.listdir(folder), ["defaults.json"])

    def test_a_read_only_home_loses_nothing_and_the_program_goes_on(self):
        self.session.settings.store_extra_folders([])
        home = self.session.home
        self.check_goes_on(
            self.start_with(f"mount --bind {home} {home}\nmount -o remount,bind,ro {home}")
        )

    def test_a_full_disk_loses_nothing_and_the_program_goes_on(self):
        home, folder = self.session.home, self.session.config_home / "glintmark"
        self.check_goes_on(
            self.start_with(
                f"mount -t tmpfs -o size=64k none {home}\nmkdir -p {folder} {self.desktop}\n"
                f"printf '%s' '{SETTINGS}' >{folder}/defaults.json\n"
                f"head -c 1000000 /dev/zero >{home}/filler 2>/dev/null || true"
            )
        )
