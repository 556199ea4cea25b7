"""The cost of finding an icon compared to a bare libcurl with the same requests in the same order.

    python3 -m bench.fetching [--rounds N] [--json FILE] [--smoke]

Uses the sites of finding_sites.py. Fails if the processor time is more than 1.5 times libcurl's, or
if the fetch takes over 10 ms longer than the bare requests. The bare requests take as long as their
longest chain.
"""

import statistics
import sys

from bench.finding import ask
from bench.finding_sites import site_server, sites
from bench.options import parse_bench_options
from tests.harness.figures import Figures

MAXIMUM_RATIO = 1.5
MAXIMUM_BEYOND = 10  # milliseconds


def main():
    arguments = parse_bench_options(__doc__, rounds={"type": int, "default": 5})
    # Large pages have their own benchmark.
    wanted = [site for site in sites() if "huge" not in site.kind]
    if arguments.smoke:
        wanted, arguments.rounds = wanted[:5], 1
    with site_server(wanted) as server:
        links = [site.link for site in wanted]
        command = (["build/bench/find-icons", "--bare"], server.proxy_environment())
        rounds = [ask(links, *command) for _ in range(arguments.rounds)]

    def per_site(name):
        """For each site the median over all rounds."""
        values = [[fetch[name] for fetch in fetches] for fetches, _ in rounds]
        return [statistics.median(site) for site in zip(*values)]

    figures = Figures()
    bare = sum(per_site("bareProcessorMs"))
    own = sum(per_site("processorMs"))
    decoder = statistics.median(whole["decoderMs"] for _, whole in rounds)
    requests = sum(fetch["requests"] for fetch in rounds[0][0])
    figures.add("requests", requests / len(wanted), "a site")
    figures.add("processor time", bare / len(wanted), "ms a site", of="libcurl")
    figures.add("processor time", own / len(wanted), "ms a site")
    figures.add("processor time of the image decoder", decoder / len(wanted), "ms a site")
    figures.add("processor time, times libcurl's", own / bare, "", MAXIMUM_RATIO)
    figures.add("processor time with the decoder's, times libcurl's", (own + decoder) / bare, "")
    times, bare_times = per_site("ms"), per_site("bareMs")
    figures.add("time, median", statistics.median(bare_times), "ms", of="libcurl")
    figures.add("time, median", statistics.median(times), "ms")
    beyond = statistics.median(own - bare for own, bare in zip(times, bare_times))
    figures.add("time beyond the bare requests, median", beyond, "ms", MAXIMUM_BEYOND)
    return figures.finish(arguments)


if __name__ == "__main__":
    sys.exit(main())
