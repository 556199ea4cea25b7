"""Builds and runs everything under bench/ and writes docs/benchmarks.md with its plots.

    scripts/bench [--smoke] [--page] [NAME...]

Without a name: all, and the page. With names: only those, and the page only with --page, from these
and from the earlier results of the others in build/bench/results. --smoke: a few seconds each, with
the peers that are installed; limits do not count, no page. Each program fails if a limit is
exceeded. Use a machine that does nothing else.
"""

import argparse
import json
import os
import pathlib
import platform
import re
import subprocess
import sys
import time

from bench import report
from bench.report import Question

results = pathlib.Path("build/bench/results")
timeout = 3600  # seconds, for one program

# One benchmark each, in the order of the page.
questions = [
    Question(
        "resident",
        "What does the program cost while it waits?",
        "As multiples of the limit.",
        "PSS after a fetch|private memory after a fetch|wake-ups a minute|start to.*median",
        "times the limit",
        beside="limit",
    ),
    Question(
        "idle",
        "What does waiting cost beside other programs of the status bar?",
        "All run at once in one session; multiples of glintmark's figure. A "
        "library that several of them load counts less for each.",
        "PSS|private memory|wake-ups a minute|processor time a minute",
        "times glintmark's",
        beside="glintmark",
        logarithmic=True,
    ),
    Question(
        "finding",
        "How many icons are found, how large, and at what cost?",
        "Compared with finders for Node, over the same sites on loopback; "
        "multiples of glintmark's figure. No finder asks a service, only "
        "the site. A vector drawing counts as 512 pixels. glintmark's "
        "figures include the decoder's processor time and memory.",
        "icons found|of .* pixels or more|median width|time a site|processor time a site|memory",
        "times glintmark's",
        beside="glintmark",
        logarithmic=True,
    ),
    Question(
        "fetching",
        "What does finding an icon cost beside libcurl alone?",
        "A bare libcurl loop makes the same requests. Each starts as soon "
        "as the one it depends on has ended, so the loop's time is that of "
        "the longest chain.",
        "processor time, times.*|time beyond.*",
        "times the limit",
        beside="limit",
    ),
    Question(
        "URLSessionBench",
        "What does the HTTP client cost beside libcurl alone?",
        "The same requests through the session and through a bare libcurl loop.",
        "processor time, times libcurl's",
        "processor time, times libcurl's",
    ),
    Question(
        "PageExtractionBench",
        "How long does the search of a page take?",
        "Pages of 10 MB, compared with gumbo and libxml2, which parse the "
        "page into a tree. 1 is the limit, one second. A parser at 10,000 "
        "ms had not finished by then, or crashed.",
        "10 MB",
        "times the limit of 1 s",
        beside="limit",
        logarithmic=True,
    ),
    Question(
        "ImageDecodingBench",
        "What does it take to decode an icon and scale it to 512 pixels?",
        "In the sandbox, in the calling process (unboxed), and with gdk-pixbuf, "
        "which has no sandbox and scales bilinearly.",
        "median",
        "times gdk-pixbuf's",
        beside="gdk-pixbuf",
    ),
    Question(
        "BombsBench",
        "How long do image bombs take, and how much memory?",
        "Processor time and memory of the process tree, as multiples of their limits.",
        "processor time|memory of the process tree",
        "times the limit",
        beside="limit",
        logarithmic=True,
    ),
    Question(
        "HostileLinkBench",
        "How long do links that send bombs hold up an honest one?",
        "Each hostile link has a PNG of 7000 x 7000 pixels at all of its icon addresses.",
        "delay of the honest link|memory of the decoder's processes",
        "times the limit",
        beside="limit",
        logarithmic=True,
    ),
    Question(
        "IconSettingBench",
        "How long is the main thread held while a file gets its icon?",
        "Writing thumbnails and attributes, for three kinds of pictures "
        "that were encoded and stored before.",
        "median",
        "times the limit",
        beside="limit",
    ),
    Question(
        "WatchingBench",
        "What does watching cost beside a bare loop?",
        "A loop that opens, reads and watches each directory is the least that any "
        "program can do.",
        "walk, times the bare loop's",
        "times the bare loop",
    ),
    Question(
        "LinkFileBench",
        "What does reading a link file of 100 MB cost?",
        "Each file has one address, and something large that is ignored.",
        "memory",
        "MB",
    ),
    Question(
        "PollBench",
        "What does a poll of 100,000 entries cost beside a bare read?",
        "Known link files must also be looked up; the limit is the same.",
        "read, times the bare one",
        "times a bare read",
    ),
    Question(
        "watching",
        "What does the whole program take for many directories, beside its peers?",
        "Proportional memory and the processor time of the set-up, as multiples of glintmark's.",
        "PSS|set-up, processor time",
        "times glintmark's",
        beside="glintmark",
        logarithmic=True,
    ),
    Question(
        "road",
        "How do many links fare that are dropped at once?",
        "Each link has its own site, which answers every request after 50 ms.",
        "all done after|process tree, most|main thread held, longest|added.*",
        "times the limit",
        beside="limit",
        logarithmic=True,
    ),
]


def shell(command):
    return subprocess.run(command, shell=True, capture_output=True, text=True).stdout.strip()


def facts(arguments):
    model = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    memory = re.search(r"MemTotal:\s*(\d+)", pathlib.Path("/proc/meminfo").read_text())
    system = shell(". /etc/os-release && echo $PRETTY_NAME")
    return [
        f"Machine: {os.cpu_count()} x {model.group(1) if model else platform.machine()}, "
        f"{int(memory.group(1)) / 2**20:.0f} GiB, {system}, Linux {platform.release()}, "
        f"{shell('g++ --version | head -n 1')}",
        f"Last run: `{' '.join(['scripts/bench', *arguments])}`, of source "
        f"{shell('git rev-parse --short HEAD')}; load of the machine at its end: "
        f"{os.getloadavg()[0]:.1f}",
    ]


def command_of(name):
    has_driver = pathlib.Path(f"bench/{name}.py").exists()
    return ["python3", "-m", f"bench.{name}"] if has_driver else [f"build/bench/{name}"]


def run(question, smoke):
    name = question.benchmark
    print(f"\n== {name}", flush=True)
    command = command_of(name)
    figures = results / f"{name}.figures"
    figures.unlink(missing_ok=True)
    begin = time.monotonic()
    try:
        command_line = [*command, "--json", figures] + ["--smoke"] * smoke
        held = subprocess.run(command_line, timeout=timeout).returncode == 0
    except subprocess.TimeoutExpired:
        print("took too long")
        held = False
    record = {
        "command": " ".join(command),
        "held": held,
        "seconds": time.monotonic() - begin,
        "figures": json.loads(figures.read_text()) if figures.exists() else [],
    }
    if not smoke:
        (results / f"{name}.json").write_text(json.dumps(record, indent=1))
    return held


def write_page(arguments):
    records = []
    for question in questions:
        path = results / f"{question.benchmark}.json"
        if path.exists():
            record = json.loads(path.read_text())
            records.append({"name": question.benchmark, "question": question, **record})
    report.write(pathlib.Path("docs/benchmarks.md"), facts(arguments), records)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--smoke", action="store_true")
    parser.add_argument("--page", action="store_true")
    known = ", ".join(question.benchmark for question in questions)
    parser.add_argument("names", nargs="*", metavar="NAME", help=known)
    arguments = parser.parse_args()
    groups = "build test session bench" + ("" if arguments.smoke else " plot")
    peers = "" if arguments.smoke else "install_available peers && "
    build = f". scripts/lib.sh && install_missing {groups} && {peers}build bench benchmarks"
    subprocess.run(["bash", "-ec", build], check=True)
    results.mkdir(exist_ok=True)
    names = arguments.names or [question.benchmark for question in questions]
    chosen = [question for question in questions if question.benchmark in names]
    held = [run(question, arguments.smoke) for question in chosen]
    if arguments.page or not (arguments.names or arguments.smoke):
        write_page(sys.argv[1:])
    return 0 if all(held) else 1


if __name__ == "__main__":
    sys.exit(main())
