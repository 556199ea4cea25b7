"""Every call that watching needs fails once: at the start, and when the folders change."""

import concurrent.futures
import errno

from tests.faults.faulty_program import FaultyProgram
from tests.harness.steps import check
from tests.harness.waiting import DEADLINE, TimedOut

AT_ONCE = 8  # programs
FEW_CALLS, MAXIMUM_CALLS = 2, 12  # of one function
PATIENCE = 6.0  # seconds until another change is made
STREAM_RUNS = "Glintmark: ファイル監視開始（バックグラウンドキュー）"
LISTING = ("open", "getdents64")
MAKES_STREAM = ("inotify_init1", "eventfd", "pthread_create")
TREE = "Desktop"
FOLDER_CALLS = {
    "open": errno.EMFILE,
    "fstat": errno.EIO,
    "fstatfs": errno.EIO,
    "statx": errno.EIO,
    "getdents64": errno.EIO,
    "inotify_add_watch": errno.ENOMEM,
}
OTHER_CALLS = {
    "inotify_init1": errno.EMFILE,
    "eventfd": errno.EMFILE,
    "ppoll": errno.ENOMEM,
    "pthread_create": errno.EAGAIN,
}


def subject_of(function):
    return "" if function in OTHER_CALLS else "inotify" if function == "read" else f"/{TREE}"


def make_old_tree(program):
    deep = program.desktop / "a" / "b" / "c"
    deep.mkdir(parents=True)
    (program.desktop / "old.webloc").touch()


def change(program):
    """Makes link files and returns them. All must be reported."""
    (program.desktop / "new").mkdir()
    made = [program.desktop / name for name in ("top.webloc", "a/b/c/deep.webloc", "new/in.webloc")]
    for path in made:
        path.touch()
    return made


def clean_run(options):
    with FaultyProgram(options) as program:
        make_old_tree(program)
        orders = {
            function: program.faults.count(function, subject_of(function))
            for function in (*FOLDER_CALLS, *OTHER_CALLS, "read")
        }
        program.start()
        made = change(program)
        program.wait_for_reports(made)
        return {function: program.faults.seen(order) for function, order in orders.items()}


def check_fault(options, function, number):
    """One call fails; link files that appear later must be reported all the same. A folder that
    could not be listed is listed at its next change; without the stream the folders are polled."""
    fault = f"{function} number {number}"
    with FaultyProgram(options) as program:
        make_old_tree(program)
        error = {**FOLDER_CALLS, **OTHER_CALLS}.get(function, errno.EIO)
        program.faults.fail(function, error, subject_of(function), number)
        program.start()
        made = change(program)
        top = program.desktop / "top.webloc"
        program.wait_for_reports([top], f"{fault}: the file that the poll finds")
        if STREAM_RUNS in program.lines():
            wait_for_all(program, made, fault, function in LISTING)
        else:
            check(function in MAKES_STREAM, f"{fault}: no stream")
        program.check_lives(fault)
        program.check_ends()


def wait_for_all(program, made, fault, may_need_change):
    try:
        program.wait_for_reports(made, fault, PATIENCE if may_need_change else DEADLINE)
    except TimedOut:
        if not may_need_change:
            raise
        later = [path.with_name("later.webloc") for path in made]
        for path in later:
            path.touch()
        program.wait_for_reports(made + later, f"{fault}, after the next change")


def each_call_fails(options):
    calls = clean_run(options)
    faults = [
        (function, number)
        for function, count in calls.items()
        for number in range(1, min(count, MAXIMUM_CALLS if options.full else FEW_CALLS) + 1)
    ]
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        jobs = [pool.submit(check_fault, options, *fault) for fault in faults]
        for job in jobs:
            job.result()
    return f"{len(faults)} faults, nothing lost that an event or the poll can bring"
