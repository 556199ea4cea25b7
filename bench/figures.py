"""What the benchmarks of the whole program share: keeping figures, and asking the system for them."""

import pathlib
import re


class Figures:
    """Prints each figure and keeps it; notes which limits were passed."""

    def __init__(self):
        self.values = {}
        self.failures = []

    def add(self, name, value, unit, most=None):
        passed = most is None or value <= most
        limit = "" if most is None else f"  (at most {most:g})" if passed else f"  OVER {most:g}"
        print(f"{name:44} {value:12.3f} {unit}{limit}", flush=True)
        self.values[name] = value
        if not passed:
            self.failures.append(name)


def task_files(pid, name):
    """The file of this name of each thread; threads may end meanwhile."""
    for task in sorted(pathlib.Path(f"/proc/{pid}/task").iterdir()):
        try:
            yield (task / "comm").read_text().strip(), (task / name).read_text()
        except OSError:
            pass


def processor_seconds(pid, thread=None):
    """By proc(5), /proc/PID/task/TID/schedstat, whose first field is in nanoseconds."""
    return sum(int(text.split()[0]) for comm, text in task_files(pid, "schedstat")
               if thread in (None, comm)) / 1e9


def wake_ups(pid, thread=None):
    return sum(int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", text, re.M)[1])
               for comm, text in task_files(pid, "status") if thread in (None, comm))


def memory_megabytes(pid):
    """Proportional and private memory; the kernel's own for the watches is in neither."""
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    fields = {key: int(value) for key, value in re.findall(r"^(\w+):\s+(\d+) kB", text, re.M)}
    return fields["Pss"] / 1024, (fields["Private_Clean"] + fields["Private_Dirty"]) / 1024
