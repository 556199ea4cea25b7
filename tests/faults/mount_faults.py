"""Calls into a file system that does not answer: they hang for as long as the test wants. The
program must go on with everything else."""

from tests.faults.faults import ALWAYS, HOLD
from tests.faults.faulty_program import FaultyProgram
from tests.harness.log_lines import NO_LINK
from tests.harness.steps import check
from tests.harness.waiting import wait_for

DEAD_LINKS = 6  # more than the threads of a queue
STILL_KNOWN = "Glintmark: 既存weblocファイル 0 件を記録"


def links(options):
    """The targets of symbolic links do not answer."""
    with FaultyProgram(options) as program:
        order = program.faults.fail("stat", HOLD, "dead", last=ALWAYS)
        program.start()
        dead = [program.desktop / f"dead-{number}.webloc" for number in range(DEAD_LINKS)]
        for link in dead:
            link.symlink_to(program.root / link.name)
            (program.root / link.name).touch()
        wait_for(lambda: program.faults.seen(order), "a look at a target")
        program.check_sees(program.desktop / "beside.webloc")
        program.check_sees(program.downloads / "elsewhere.webloc")
        program.faults.release(order)
        program.wait_for_reports(dead)
        program.check_ends()
    return f"{DEAD_LINKS} links hold up nothing"


def reading(options):
    """Opening a link file does not return."""
    with FaultyProgram(options) as program:
        order = program.faults.fail("open", HOLD, "dead", last=ALWAYS)
        program.start()
        dead = [program.desktop / f"dead-{number}.webloc" for number in range(DEAD_LINKS)]
        for path in dead:
            path.touch()
        wait_for(lambda: program.faults.seen(order) == DEAD_LINKS, "the reading")
        other = program.desktop / "other.webloc"
        other.touch()
        wait_for(lambda: program.count(f"{NO_LINK}{other}"), "the end of the other file")
        check(not any(program.count(f"{NO_LINK}{path}") for path in dead), "a dead file was read")
        program.faults.release(order)
        for path in dead:
            wait_for(lambda: program.count(f"{NO_LINK}{path}"), f"the end of {path.name}")
        program.check_ends()
    return f"{DEAD_LINKS} files hold up nothing"


def folder(options):
    """A watched folder does not answer at the start. Its files are not new when it does."""
    with FaultyProgram(options) as program:
        share = program.root / "dead-share"
        share.mkdir()
        (share / "old.webloc").touch()
        program.settings.store_extra_folders([share])
        orders = [
            program.faults.fail(function, HOLD, "/dead-share", last=ALWAYS)
            for function in ("open", "statx")
        ]
        program.start()
        check(program.count(STILL_KNOWN) == 1, "the folder was listed")
        program.check_sees(program.desktop / "beside.webloc")
        for order in orders:
            program.faults.release(order)
        new = share / "new.webloc"
        wait_for(lambda: is_polled(program, share), "the folder")
        program.check_sees(new)
        check(share / "old.webloc" not in program.reported_paths(), "an old file was reported")
        program.check_ends()
    return "taken up when it answers, its old files are not new"


def is_polled(program, folder):
    """Two more looks: the first may be that of the inventory."""
    order = program.faults.count("open", str(folder))
    wait_for(lambda: program.faults.seen(order) >= 3, f"looks at {folder}")
    return True
