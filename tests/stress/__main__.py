"""Drives the built program over real folders and checks its log: each new link file is reported
exactly once, and nothing else. A short run by default; --full for the whole.

    python3 -m tests.stress [--full] [--seconds S] [--seed N] [--place FOLDER] [NAME ...]

Names: life, lost, paths, burst, overflow, limit.
"""

import collections
import os
import signal
import subprocess
import sys
import time

from tests.harness.bare_program import BareProgram
from tests.harness.inotify import SystemLimit, usual_limit, watches_of
from tests.harness.options import absolute_path, parse_options
from tests.harness.steps import Failed, check, run_step
from tests.harness.waiting import TimedOut, wait_for
from tests.stress.folder_life import FolderLife

ROUND_SECONDS = 4.0  # of life between two looks at the log; more than the program's fixed delays
ACTS_AT_ONCE = 12
QUEUE_LIMIT = "max_queued_events"
SHORT_QUEUE = 64
FEW_WATCHES = 200


def sample(paths):
    return ", ".join(repr(path.replace(b"n" * 240, b"n..."))[1:] for path in paths[:3])


def compare(program, must, may=None):
    """Waits until all of `must` are reported. Nothing may be reported twice, or that is not in
    `may` (default: `must`)."""
    must = set(must)
    may = must if may is None else may
    try:
        wait_for(lambda: must <= set(program.reported_paths()), "the reports")
    except TimedOut as late:
        missing = sorted(must - set(program.reported_paths()))
        what = f"{len(missing)} of {len(must)} not reported, such as {sample(missing)}"
        raise Failed(what) from late
    counts = collections.Counter(program.reported_paths())
    twice = [path for path, count in counts.items() if count > 1]
    check(not twice, f"reported more than once: {sample(twice)}")
    wrong = sorted(set(counts) - set(may))
    check(not wrong, f"{len(wrong)} reported that must not be, such as {sample(wrong)}")


def short_queue():
    """For a program that starts meanwhile: the kernel reads the limit when it makes a queue."""
    return SystemLimit(QUEUE_LIMIT, SHORT_QUEUE)


class Sentinels:
    """Files whose reports show that the program has handled everything before them."""

    def __init__(self, program):
        self._program = program
        self.folder = program.home / "Sentinels"
        self.folder.mkdir()
        self.paths = set()

    def wait(self):
        path = self.folder / str(len(self.paths)) / "x.webloc"
        path.parent.mkdir()  # not in the folder itself, which the poll scans
        path.touch()
        self.paths.add(os.fsencode(path))
        self._program.wait_for_reports([path], "a sentinel")


def populate(folder):
    """Makes link files before the start."""
    for name in (
        "Old.webloc",
        "OLD.WEBLOC",
        "sub/old.webloc",
        "sub/deep/old.webloc",
        "quiet/old.webloc",
        "quiet/deep/old.webloc",
    ):
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.touch()


def live(options, loses_events):
    """A random life of four folders. With `loses_events` the program is stopped again and again,
    and the kernel's queue is short."""
    with BareProgram(options.program, options.place) as program:
        real = program.root / "real"
        real.mkdir()
        shortcut, late = program.home / "Shortcut", program.home / "far" / "Late"
        shortcut.symlink_to(real)
        outside = program.root / "outside"
        outside.mkdir()
        for folder in (program.desktop, program.downloads, real):
            populate(folder)
        (program.home / "Home.webloc").touch()
        sentinels = Sentinels(program)
        program.settings.store_extra_folders([shortcut, late, sentinels.folder])
        life = FolderLife(
            [program.desktop, program.downloads, shortcut, late],
            outside,
            program.dead_link,
            options.seed,
            loses_events,
        )
        life.take_inventory(program.home)
        with short_queue() if loses_events else usual_limit(QUEUE_LIMIT):
            program.start()
        # Until a directory is watched, its time stamps alone tell what changed: not that an entry
        # was written or given other attributes.
        sentinels.wait()
        life.make_folder(late)
        life.begin_round()
        end = time.monotonic() + options.seconds
        while time.monotonic() < end:
            live_a_while(program, life, loses_events, min(ROUND_SECONDS, options.seconds / 3))
            life.come_home()
            sentinels.wait()
            compare(
                program,
                life.must_be_reported() | sentinels.paths,
                life.may_be_reported() | sentinels.paths,
            )
            life.begin_round()
        return f"{len(life.log)} acts, {len(program.reported_paths())} reports"


def live_a_while(program, life, loses_events, seconds):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if loses_events:
            program.process.send_signal(signal.SIGSTOP)
        for _ in range(ACTS_AT_ONCE * (10 if loses_events else 1)):
            life.act()
        program.process.send_signal(signal.SIGCONT)
        # Bursts of acts. The pauses end in different parts of the fixed delays.
        time.sleep(life.pause())


def random_life(options):
    return live(options, loses_events=False)


def life_with_losses(options):
    return live(options, loses_events=True)


def paths_made_at_once(options):
    """`mkdir -p`, and at once a file at the bottom."""
    with BareProgram(options.program, options.place) as program:
        with usual_limit(QUEUE_LIMIT):
            program.start()
        made = []
        for number in range(options.rounds):
            folder = program.downloads / str(number) / "one" / "two" / "three"
            folder.mkdir(parents=True)
            (folder / "x.webloc").touch()
            made.append(os.fsencode(folder / "x.webloc"))
        compare(program, made)
        return f"{len(made)} rounds, {len(program.reported_paths())} reports"


def burst(options):
    """Link files in many directories, made as fast as possible."""
    with BareProgram(options.program, options.place) as program:
        with usual_limit(QUEUE_LIMIT):
            program.start()
        made = make_burst(program, options)
        compare(program, made)
        return f"{len(made)} files in {options.directories} directories, all reported once"


def make_burst(program, options):
    folders = [program.desktop / f"{number}" for number in range(options.directories)]
    for folder in folders:
        folder.mkdir()
    made = []
    for number in range(options.files // options.directories):
        for folder in folders:
            path = folder / f"{number}.webloc"
            path.touch()
            made.append(os.fsencode(path))
    return made


def burst_with_overflow(options):
    """The same while the kernel's queue overflows, at least once."""
    with BareProgram(options.program, options.place) as program:
        with short_queue() as limit:
            program.start()
        old = [program.desktop / "before" / str(number) for number in range(10)]
        for folder in old:
            folder.mkdir(parents=True)
        program.process.send_signal(signal.SIGSTOP)
        made = make_burst(program, options)
        for folder in old:  # the queue is full by now
            (folder / "last.webloc").touch()
            made.append(os.fsencode(folder / "last.webloc"))
        program.process.send_signal(signal.SIGCONT)
        compare(program, made)
        for folder in old:  # the watches are complete again
            (folder / "later.webloc").touch()
            made.append(os.fsencode(folder / "later.webloc"))
        compare(program, made)
        how = f"a queue of {SHORT_QUEUE}" if limit.changed else "the queue as it is"
        return f"{len(made)} files in {options.directories} directories, {how}, all reported once"


def few_watches(options):
    """The kernel allows fewer watches than there are directories: those that exist keep working,
    and the poll finds the files in the folders themselves."""
    wrapper = (
        "unshare",
        "--user",
        "--map-root-user",
        "sh",
        "-c",
        f'echo {FEW_WATCHES} >/proc/sys/user/max_inotify_watches && exec "$0"',
    )
    if (
        subprocess.run(
            [*wrapper[:5], "echo 200 >/proc/sys/user/max_inotify_watches"],
            check=False,
            stderr=subprocess.DEVNULL,
        ).returncode
        != 0
    ):
        return "left out: user namespaces are not available"
    with BareProgram(options.program, options.place, wrapper) as program:
        for number in range(3 * FEW_WATCHES):
            (program.desktop / f"{number:04}" / "below").mkdir(parents=True)
        (program.downloads / "sub").mkdir()
        program.start()
        wait_for(lambda: watches_of(program.process.pid) == FEW_WATCHES, "the limit")
        made = [program.desktop / "x.webloc", program.downloads / "x.webloc"]
        for path in made:
            path.touch()
        compare(program, map(os.fsencode, made))
        return f"{FEW_WATCHES} watches for {6 * FEW_WATCHES} directories"


STRESSES = {
    "life": random_life,
    "lost": life_with_losses,
    "paths": paths_made_at_once,
    "burst": burst,
    "overflow": burst_with_overflow,
    "limit": few_watches,
}


def main():
    options = parse_options(
        __doc__,
        full={"action": "store_true", "help": "1,000 paths, 20,000 files, 2 minutes"},
        seconds={"type": float, "help": "of random life"},
        seed={"type": int, "default": int(time.time())},
        place={"type": absolute_path, "help": "where to make the folders ($TMPDIR)"},
        names={"nargs": "*", "metavar": "NAME", "help": ", ".join(STRESSES)},
    )
    options.seconds = options.seconds or (120.0 if options.full else 3.0)
    options.rounds = 1000 if options.full else 100
    options.directories = 1000 if options.full else 100
    options.files = 20 * options.directories
    held = [run_step(name, STRESSES[name], options) for name in options.names or STRESSES]
    if all(held):
        return 0
    print(f"The seed was {options.seed}.")
    return 1


if __name__ == "__main__":
    sys.exit(main())
