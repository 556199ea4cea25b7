"""Facts about processes from proc(5): relatives, memory, processor time."""

import os
import pathlib
import re

PROC = pathlib.Path("/proc")


def _entries(folder):
    """The subfolders that are named for a process or thread."""
    try:
        return sorted(entry for entry in folder.iterdir() if entry.name.isdigit())
    except OSError:
        return []  # the process has ended


def _thread_files(pid, name):
    """(folder of the thread, text of its file `name`) for each thread of a process."""
    for task in _entries(PROC / f"{pid}/task"):
        try:
            yield task, (task / name).read_text()
        except OSError:
            pass  # the thread has ended


def executables():
    """(id, path of the executable) of each process that may be examined."""
    for entry in _entries(PROC):
        try:
            yield int(entry.name), os.readlink(entry / "exe")
        except OSError:
            pass  # it has ended, or belongs to another user


def processes_of(executable):
    """Ids of the processes that run a file."""
    return [pid for pid, path in executables() if path == str(executable)]


def children(pid):
    lists = _thread_files(pid, "children")
    return [int(word) for _, text in lists for word in text.split()]


def descendants(pid):
    """Ids of all processes that the process and its descendants started."""
    found = []
    for child in children(pid):
        found += [child, *descendants(child)]
    return found


def memory_megabytes(pid):
    """Proportional (PSS) and private memory; (0, 0) if the process has ended. The kernel's memory
    for inotify watches is in neither."""
    try:
        text = (PROC / f"{pid}/smaps_rollup").read_text()
    except OSError:
        return 0, 0
    fields = {key: int(value) for key, value in re.findall(r"^(\w+):\s+(\d+) kB", text, re.M)}
    return fields["Pss"] / 1024, (fields["Private_Clean"] + fields["Private_Dirty"]) / 1024


def _texts(pid, name, thread):
    """The files `name` of the threads; `thread`: only of threads with this name."""
    names = dict(_thread_files(pid, "comm"))
    for task, text in _thread_files(pid, name):
        if thread in (None, names.get(task, "").strip()):
            yield text


def processor_seconds(pid, thread=None):
    """The first field of /proc/PID/task/TID/schedstat is in nanoseconds."""
    return sum(int(text.split()[0]) for text in _texts(pid, "schedstat", thread)) / 1e9


def wake_ups(pid, thread=None):
    """How often a thread went to sleep: each time is followed by one wake-up."""
    pattern = re.compile(r"^voluntary_ctxt_switches:\s+(\d+)", re.M)
    return sum(int(pattern.search(text)[1]) for text in _texts(pid, "status", thread))
