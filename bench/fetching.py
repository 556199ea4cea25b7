"""What finding an icon takes beside a bare libcurl that does the same requests in the same order.

    python3 -m bench.fetching [--rounds N] [--json FILE] [--smoke]

Over the sites of finding_sites.py. Fails when the processor time is more than 1.5 times libcurl's, or
the time more than 10 ms beyond that of the bare requests, which is that of their longest chain.
"""

import json
import os
import statistics
import subprocess
import sys

from bench.finding_sites import site_server, sites
from bench.options import parse_bench_options
from tests.harness.figures import Figures

MOST_RATIO = 1.5
MOST_BEYOND = 10  # milliseconds


def fetch_all(wanted, server):
    done = subprocess.run(
        ["build/bench/find-icons", "--bare"],
        stdout=subprocess.PIPE,
        text=True,
        input="".join(site.link + "\n" for site in wanted),
        check=True,
        env={**os.environ, **server.proxy_environment()},
    )
    *fetches, whole = [json.loads(line) for line in done.stdout.splitlines()]
    return fetches, whole


def main():
    arguments = parse_bench_options(__doc__, rounds={"type": int, "default": 5})
    # Large pages have a benchmark of their own.
    wanted = [site for site in sites() if "huge" not in site.kind]
    if arguments.smoke:
        wanted, arguments.rounds = wanted[:5], 1
    with site_server(wanted) as server:
        rounds = [fetch_all(wanted, server) for _ in range(arguments.rounds)]

    def per_site(name):
        """The median over all rounds of each site; then over the sites."""
        return [
            statistics.median(site)
            for site in zip(*([fetch[name] for fetch in fetches] for fetches, _ in rounds))
        ]

    figures = Figures()
    bare = sum(per_site("bareProcessorMs"))
    own = sum(per_site("processorMs"))
    decoder = statistics.median(whole["decoderMs"] for _, whole in rounds)
    figures.add(
        "requests", sum(fetch["requests"] for fetch in rounds[0][0]) / len(wanted), "a site"
    )
    figures.add("processor time", bare / len(wanted), "ms a site", of="libcurl")
    figures.add("processor time", own / len(wanted), "ms a site")
    figures.add("processor time of the image decoder", decoder / len(wanted), "ms a site")
    figures.add("processor time, times libcurl's", own / bare, "", MOST_RATIO)
    figures.add("processor time with the decoder's, times libcurl's", (own + decoder) / bare, "")
    times, bare_times = per_site("ms"), per_site("bareMs")
    figures.add("time, median", statistics.median(bare_times), "ms", of="libcurl")
    figures.add("time, median", statistics.median(times), "ms")
    figures.add(
        "time beyond the bare requests, median",
        statistics.median(own - bare for own, bare in zip(times, bare_times)),
        "ms",
        MOST_BEYOND,
    )
    return figures.finish(arguments)


if __name__ == "__main__":
    sys.exit(main())
