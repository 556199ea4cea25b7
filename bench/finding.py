"""Finding the icons of sites on loopback with the program and with finders from npm: how many are
found, of which size, and at what cost.

    python3 -m bench.finding [--rounds N] [--json FILE] [--smoke]

npm installs the finders into build/bench/finders. Each finder is one process, which looks at one
site after the other; all connections of the finders go to the sites' server.
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
    """False without npm."""
    if shutil.which("npm") is None:
        print("npm is not installed: no finder to compare with")
        return False
    wanted = [package for packages in PACKAGES.values() for package in packages]
    stamp = folder / "installed"
    if not stamp.exists() or stamp.read_text().split() != wanted:
        folder.mkdir(parents=True, exist_ok=True)
        (folder / "package.json").write_text("{}")
        command = ["npm", "install", "--no-audit", "--no-fund", "--loglevel=error", *wanted]
        subprocess.run(command, cwd=folder, check=True, stdout=subprocess.DEVNULL)
        stamp.write_text("\n".join(wanted))
    return True


def ask(links, command, environment=None):
    """The finder's results for each link, and for the whole run."""
    text = "\n".join(links) + "\n"
    options = {"timeout": PATIENCE, "env": {**os.environ, **(environment or {})}}
    output = subprocess.check_output(command, input=text, text=True, **options)
    *found, whole = [json.loads(line) for line in output.splitlines()]
    return found, whole


def measure(name, rounds, wanted, figures, server):
    has_icon = {site.link for site in wanted if site.has_icon}
    found = rounds[0][0]
    widths = [width_of(server, line["icon"]) for line in found if line["link"] in has_icon]

    def add(what, value, unit):
        figures.add(what, value, unit, of=name)

    def share(condition):
        return 100 * sum(map(condition, widths)) / len(widths)

    named = [line["icon"] for line in found if line["icon"] is not None]
    add("icons found", share(lambda width: width > 0), "%")
    add(f"of {LARGE} pixels or more", share(lambda width: width >= LARGE), "%")
    add("median width", statistics.median(widths), "pixels")
    add("wrongly named", sum(width_of(server, icon) == 0 for icon in named), "sites")
    times = [[line["ms"] for line in lines] for lines, _ in rounds]
    add("time a site", statistics.median(map(statistics.median, times)), "ms")
    add("time of all sites", statistics.median(map(sum, times)) / 1000, "s")
    add("processor time a site", statistics.median(map(processor_of_a_site, rounds)), "ms")
    add("memory", statistics.median(whole["megabytes"] for _, whole in rounds), "MB")


def processor_of_a_site(one_round):
    """The median, plus the image decoder's share if there is one."""
    found, whole = one_round
    median = statistics.median(line["processorMs"] for line in found)
    return median + whole.get("decoderMs", 0) / len(found)


def show_kinds(wanted, results, server):
    """Prints for each site the width of the icon that each finder found."""
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
            for name in PACKAGES:
                commands[name] = (["node", "bench/finders.mjs", name, folder, str(server.port)],)
        results = {
            name: [ask(links, *command) for _ in range(arguments.rounds)]
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
