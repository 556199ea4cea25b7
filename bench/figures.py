"""What the benchmarks of the whole program share: options, keeping figures, and asking the system for
them."""

import argparse
import json
import pathlib
import re


def parse_arguments(description, **more):
    """The options of every benchmark, and `more` of its own: name=argparse's settings."""
    parser = argparse.ArgumentParser(description=description.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--program", type=pathlib.Path, default="build/bench/glintmark")
    parser.add_argument("--json", type=pathlib.Path, help="also write the figures there")
    parser.add_argument("--smoke", action="store_true", help="a short run; limits do not count")
    for name, settings in more.items():
        parser.add_argument(name if "nargs" in settings else "--" + name.replace("_", "-"),
                            **settings)
    return parser.parse_args()


class Figures:
    """Prints each figure and keeps it; notes which limits were passed."""

    def __init__(self):
        self.figures = []

    def add(self, what, value, unit, most=None, of="glintmark", at=""):
        """`of`: whose figure it is; `at`: the case, where there are several."""
        limit = ("" if most is None else
                 f"  (at most {most:g})" if value <= most else f"  OVER {most:g}")
        print(f"{of:12} {at + ': ' if at else ''}{what:44} {value:12.3f} {unit}{limit}", flush=True)
        self.figures.append({"what": what, "of": of, "at": at, "value": value, "unit": unit,
                             "most": most})

    @property
    def failures(self):
        return [figure["what"] for figure in self.figures
                if figure["most"] is not None and figure["value"] > figure["most"]]

    def finish(self, arguments):
        """Writes the figures where the arguments say; the status to end with."""
        if arguments.json:
            arguments.json.write_text(json.dumps(self.figures, indent=1) + "\n")
        return 1 if self.failures and not arguments.smoke else 0


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
