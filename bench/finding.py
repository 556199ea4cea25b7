"""Finding the icons of sites on loopback, beside the finders that npm packages: how many are found, of
which size, and what that takes.

    python3 -m bench.finding [--rounds N] [--json FILE] [--smoke]

The packages come by npm into build/bench/finders. Each finder is one process for all sites, which it
asks one after the other; every connection of a package is led to the sites' server.
"""

import json
import os
import pathlib
import shutil
import statistics
import subprocess
import sys

from bench.finding_sites import site_server, sites, width_of
from bench.options import parse_bench_options
from tests.harness.figures import Figures

PACKAGES = {
    "page-icon": ["page-icon@0.4.0"],
    "metascraper-logo-favicon": ["metascraper@5.49.24", "metascraper-logo-favicon@5.49.24"],
    "parse-favicon": ["parse-favicon@7.0.1"],
}
LARGE = 128  # pixels
PATIENCE = 600  # seconds, for one round of a finder

folder = pathlib.Path("build/bench/finders").resolve()


def install_packages():
    """Whether they are there."""
    if shutil.which("npm") is None:
        print("npm is not installed: no finder to compare with")
        return False
    wanted = [package for packages in PACKAGES.values() for package in packages]
    stamp = folder / "installed"
    if not stamp.exists() or stamp.read_text().split() != wanted:
        folder.mkdir(parents=True, exist_ok=True)
        (folder / "package.json").write_text("{}")
        subprocess.run(
            ["npm", "install", "--no-audit", "--no-fund", "--loglevel=error", *wanted],
            cwd=folder,
            check=True,
            stdout=subprocess.DEVNULL,
        )
        stamp.write_text("\n".join(wanted))
    return True


def ask(command, links, environment=None):
    """A line for each link, and what the finder says of the whole run."""
    done = subprocess.run(
        command,
        input="\n".join(links) + "\n",
        stdout=subprocess.PIPE,
        text=True,
        env={**os.environ, **(environment or {})},
        timeout=PATIENCE,
        check=True,
    )
    *found, whole = [json.loads(line) for line in done.stdout.splitlines()]
    return found, whole


def measure(name, rounds, wanted, figures, server):
    has_icon = {site.link for site in wanted if site.has_icon}
    found = rounds[0][0]
    widths = [width_of(server, line["icon"]) for line in found if line["link"] in has_icon]

    def add(what, value, unit):
        figures.add(what, value, unit, of=name)

    def over_rounds(value):
        return statistics.median(map(value, rounds))

    add("icons found", 100 * sum(width > 0 for width in widths) / len(widths), "%")
    add(
        f"of {LARGE} pixels or more",
        100 * sum(width >= LARGE for width in widths) / len(widths),
        "%",
    )
    add("median width", statistics.median(widths), "pixels")
    add(
        "wrongly named",
        sum(line["icon"] is not None and width_of(server, line["icon"]) == 0 for line in found),
        "sites",
    )
    add(
        "time a site",
        over_rounds(lambda one: statistics.median(line["ms"] for line in one[0])),
        "ms",
    )
    add(
        "time of all sites", over_rounds(lambda one: sum(line["ms"] for line in one[0])) / 1000, "s"
    )
    add("processor time a site", over_rounds(processor_of_a_site), "ms")
    add("memory", over_rounds(lambda one: one[1]["megabytes"]), "MB")


def processor_of_a_site(one_round):
    """The median, and the image decoder's share, where there is one."""
    found, whole = one_round
    return statistics.median(line["processorMs"] for line in found) + whole.get(
        "decoderMs", 0
    ) / len(found)


def show_kinds(wanted, results, server):
    """Which finder found what on which site: for a reader of the output."""
    for number, site in enumerate(wanted):
        widths = [width_of(server, rounds[0][0][number]["icon"]) for rounds in results.values()]
        print(f"{site.kind:45}" + "".join(f"{width or '-':>6}" for width in widths))


def main():
    arguments = parse_bench_options(__doc__, rounds={"type": int, "default": 3})
    wanted = sites()
    if arguments.smoke:
        wanted, arguments.rounds = wanted[:5], 1
    links = [site.link for site in wanted]
    figures = Figures()
    with site_server(wanted) as server:
        commands = {"glintmark": (["build/bench/find-icons"], server.proxy_environment())}
        if not arguments.smoke and install_packages():
            commands |= {
                name: (["node", "bench/finders.mjs", name, folder, str(server.port)], None)
                for name in PACKAGES
            }
        results = {
            name: [ask(*command[:1], links, command[1]) for _ in range(arguments.rounds)]
            for name, command in commands.items()
        }
    show_kinds(wanted, results, server)
    figures.add("sites", len(wanted), "")
    for name, rounds in results.items():
        measure(name, rounds, wanted, figures, server)
        strangers = rounds[0][1].get("strangers", [])
        figures.add("other hosts asked", len(strangers), "", 0, of=name)
    return figures.finish(arguments)


if __name__ == "__main__":
    sys.exit(main())
