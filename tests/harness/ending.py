"""The end of the program: within a second, with status 0, and no process of it is left."""

import shutil
import signal
import time

from tests.harness.processes import processes_of
from tests.harness.steps import check
from tests.harness.waiting import wait_for

SECOND = 1.0
DECODER = "glintmark-image-decoder"


def copy_program(executable, folder):
    """Copies the program with its decoder into a folder, so that the processes of the copy can be
    told from those of other sessions. Returns the program's path."""
    folder.mkdir(exist_ok=True)
    for name in ("glintmark", DECODER):
        shutil.copy(executable.parent / name, folder)
    return folder / "glintmark"


def check_end(process, folder, state="", how=signal.SIGTERM):
    """Ends the program whose copy is in `folder`. `state`: what it does at that time."""
    begin = time.monotonic()
    process.send_signal(how)
    status = process.wait(30)
    seconds = time.monotonic() - begin
    check(seconds < SECOND, f"{state}: ended after {seconds:.1f} s")
    check(status == 0, f"{state}: ended with {status}")
    wait_for(lambda: not processes_of(folder / DECODER), f"{state}: the decoder's end", SECOND)
