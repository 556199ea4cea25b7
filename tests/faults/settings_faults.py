"""Every call that saving or reading the settings makes fails once, in the program that is told by its
menu to add and remove folders."""

import errno

from tests.faults.faults import ALWAYS, CUT_SHORT, Faults
from tests.faults.faulty_program import FaultyProgram
from tests.harness.program import Program
from tests.harness.session import PORTAL, DesktopSession
from tests.harness.status_item import StatusItem
from tests.harness.steps import check
from tests.harness.waiting import wait_for

ADD, REMOVE = "Add Folder…", "Stop Watching This Folder"
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
        # Of the panel only the part that status items are told to; no picture is looked at.
        self._session.start_panel()
        self.program.start().wait_until_started()
        self._menu = StatusItem(self._session)

    def change(self):
        """Adds the folder, or removes it again. What the settings have to hold then."""
        self._changes += 1
        adds = self._changes % 2 == 1
        self.click(ADD if adds else REMOVE)
        line = f"Glintmark: Folder {'added' if adds else 'removed'} → {self.shared}"
        wait_for(lambda: self.program.lines().count(line) == (self._changes + 1) // 2, line)
        folders = [str(self.shared)] if adds else []
        # The menu is made anew after the settings are saved.
        wait_for(lambda: (f"  {self.shared}" in self._menu.labels()) == adds, "the menu")
        return {"extraFolders": folders, **KEPT}

    def click(self, label):
        self._menu.click(label)

    def stored(self):
        return self._session.settings.values()


def calls_of_a_save(settings):
    """As (function, number of the call)."""
    orders = {
        function: settings.faults.count(function, str(settings.folder)) for function in FUNCTIONS
    }
    check(settings.change() == settings.stored(), "the settings were not stored")
    calls = {function: settings.faults.seen(order) for function, order in orders.items()}
    settings.faults.clear()
    check(
        all(calls[function] for function in ("mkostemps", "write", "rename"))
        and calls["fsync"] == 2,
        f"not a save as expected: {calls}",
    )
    return [
        (function, number) for function, count in calls.items() for number in range(1, count + 1)
    ]


def check_fault(settings, function, error, number):
    """A save that fails leaves the old or the new settings whole; the next one stores all."""
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
        faults = [
            (function, error, number)
            for function, number in calls
            for error in FUNCTIONS[function][: None if options.full else 1]
        ]
        for fault in faults:
            check_fault(settings, *fault)
        check(settings.program.terminate() == 0, "the end")
    return f"{len(faults)} faults, the settings always whole, the next save always stored"


def each_call_of_reading_fails(options):
    """What cannot be read counts as nothing, and is not overwritten but kept aside."""
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
