"""Every call that saving or reading the settings needs fails once. Commands of the menu make the
program save: they add and remove a folder."""

import errno

from tests.faults.faults import ALWAYS, CUT_SHORT, Faults
from tests.faults.faulty_program import FaultyProgram
from tests.harness.log_lines import FOLDER_ADDED, FOLDER_REMOVED
from tests.harness.program import Program
from tests.harness.session import PORTAL, DesktopSession
from tests.harness.status_item import ADD_FOLDER, REMOVE, StatusItem
from tests.harness.steps import check
from tests.harness.waiting import wait_for

FUNCTIONS = {
    "mkdir": [errno.EIO, errno.ENOSPC],
    "mkostemps": [errno.EMFILE, errno.ENOSPC],
    "fchmod": [errno.EPERM],
    "write": [errno.ENOSPC, errno.EIO, CUT_SHORT],
    "fsync": [errno.EIO, errno.ENOSPC],
    "rename": [errno.EXDEV, errno.ENOSPC],
    "close": [errno.EIO],
    "open": [errno.EMFILE],
}
READING = {"open": [errno.EMFILE, errno.EIO], "fstat": [errno.EIO], "read": [errno.EIO]}
KEPT = {"another": 1}


class Settings:
    """A session whose folder panel always answers with the same folder, and the program in it."""

    def __init__(self, session, options):
        self._session = session
        self.faults = Faults(session.root, options.faults)
        self.shared = session.root / "shared"
        self.shared.mkdir()
        self.file = session.settings.path
        self.folder = self.file.parent
        session.disable(PORTAL)
        session.stand_in("zenity", f"echo {self.shared}")
        session.environment.update(self.faults.environment())
        session.settings.store({"extraFolders": [], **KEPT})
        self.program = Program(session, options.program)
        self._changes = 0
        self._menu = None

    def start(self):
        # Of the panel only the bus service for status items matters.
        self._session.start_panel()
        self.program.start().wait_until_started()
        self._menu = StatusItem(self._session)

    def change(self):
        """Adds the folder, or removes it again. Returns what the settings must contain."""
        self._changes += 1
        adds = self._changes % 2 == 1
        self.click(ADD_FOLDER if adds else REMOVE)
        line = f"{FOLDER_ADDED if adds else FOLDER_REMOVED}{self.shared}"
        wait_for(lambda: self.program.lines().count(line) == (self._changes + 1) // 2, line)
        folders = [str(self.shared)] if adds else []
        # The menu is rebuilt after the settings are saved.
        wait_for(lambda: (f"  {self.shared}" in self._menu.labels()) == adds, "the menu")
        return {"extraFolders": folders, **KEPT}

    def click(self, label):
        self._menu.click(label)

    def stored(self):
        return self._session.settings.values()


def calls_of_a_save(settings):
    """A list of (function, number of the call)."""
    folder = str(settings.folder)
    orders = {function: settings.faults.count(function, folder) for function in FUNCTIONS}
    check(settings.change() == settings.stored(), "the settings were not stored")
    calls = {function: settings.faults.seen(order) for function, order in orders.items()}
    settings.faults.clear()
    complete = calls["mkostemps"] and calls["write"] and calls["rename"] and calls["fsync"] == 2
    check(complete, f"not a save as expected: {calls}")
    return [(function, n) for function, count in calls.items() for n in range(1, count + 1)]


def check_fault(settings, function, error, number):
    """A failed save leaves the old or the new settings complete; the next one stores all."""
    fault = f"{function} number {number}, error {error}"
    before = settings.stored()
    order = settings.faults.fail(function, error, str(settings.folder), number)
    after = settings.change()
    check(settings.faults.seen(order) >= number, f"{fault} did not come")
    check(settings.stored() in (before, after), f"{fault}: {settings.file.read_text()}")
    left = [path.name for path in settings.folder.iterdir() if path != settings.file]
    check(not left, f"{fault}: left {left}")
    settings.faults.clear()
    check(settings.change() == settings.stored(), f"{fault}: the next save failed")


def each_call_of_a_save_fails(options):
    with DesktopSession() as session:
        settings = Settings(session, options)
        settings.start()
        calls = calls_of_a_save(settings)
        most = None if options.full else 1
        faults = [(*call, error) for call in calls for error in FUNCTIONS[call[0]][:most]]
        for function, number, error in faults:
            check_fault(settings, function, error, number)
        check(settings.program.terminate() == 0, "the end")
    return f"{len(faults)} faults, the settings always whole, the next save always stored"


def each_call_of_reading_fails(options):
    """Settings that cannot be read count as empty. They are kept, not overwritten."""
    faults = [(function, error) for function, errors in READING.items() for error in errors]
    for function, error in faults:
        with FaultyProgram(options) as program:
            extra = program.home / "Extra"
            extra.mkdir()
            program.settings.store_extra_folders([extra])
            settings = program.settings.path
            before = settings.read_bytes()
            order = program.faults.fail(function, error, str(settings), last=ALWAYS)
            program.start()
            check(program.faults.seen(order), f"{function} did not come")
            check(str(extra) not in program.log().decode(), "watched though it could not be read")
            link = program.drop("a.webloc", "http://127.0.0.1:1/")
            program.wait_for_end(link, "http://127.0.0.1:1/")
            program.check_ends()
            check(settings.read_bytes() == before, "the settings were changed")
    return f"{len(faults)} faults, the file as it was"
