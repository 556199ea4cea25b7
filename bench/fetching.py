"""The cost of finding an icon compared to a bare libcurl with the same requests in the same order.

    python3 -m bench.fetching [--rounds N] [--json FILE] [--smoke]

Uses the sites of finding_sites.py, over http through one connection to a proxy, and over https with
new connections for each site. The program's processor time is that of all its threads until the
next fetch begins, so that what follows a fetch counts, too. Fails if the processor time is more
than 1.5 times libcurl's (1.2 times over https), or if the fetch takes over 10 ms longer than the
bare requests. The bare requests take as long as their longest chain. A run in which other requests
are answered than over http is an error. The same limits hold for a fetch to which no answer is an
image, so that passing images to the decoder and their pixels back can be told from the rest.

The second peer is the same libcurl loop that then decodes every image among the answers with the
format libraries in its own process, without a sandbox. It only decodes: it makes no scaled picture
and looks at no pixel. The program and its image decoder together may take 1.6 times as much.
"""

import logging
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import urllib.parse

from bench.finding import ask
from bench.finding_sites import site_server, sites
from bench.options import parse_bench_options
from tests.harness.figures import Figures
from tests.requests.recorder import Authority

MAXIMUM_RATIO = {"http": 1.5, "https": 1.2}
MAXIMUM_RATIO_WITH_DECODING = 1.6
MAXIMUM_BEYOND = 10  # milliseconds


def trusted_folder(authority):
    """A folder with the authority's certificate, named so that OpenSSL finds it there."""
    folder = authority.certificate.parent / "trusted"
    folder.mkdir()
    shutil.copy(authority.certificate, folder)
    subprocess.run(["openssl", "rehash", folder], check=True)
    return folder


def rounds_over(scheme, wanted, rounds, authority, trusted, *options):
    with site_server(wanted, authority.context) as server:
        links = [site.link.replace("http://", scheme + "://", 1) for site in wanted]
        more = {"SSL_CERT_DIR": str(trusted)}
        command = ["build/bench/find-icons", "--bare", *options]
        return [ask(links, command, server.proxy_environment() | more) for _ in range(rounds)]


def check_answers(wanted, rounds, expected):
    """`expected`: the numbers of answers and of pictures for each site."""
    for fetches, _ in rounds:
        for site, fetch, (answers, images) in zip(wanted, fetches, expected):
            if (fetch["answers"], fetch["bareAnswers"]) != (answers, answers):
                sys.exit(f"{site.kind}: other requests are answered: {fetch}, not {answers}")
            if fetch["images"] != images:
                sys.exit(f"{site.kind}: other pictures are found: {fetch}, not {images}")


def per_site(rounds, name):
    """For each site the median over all rounds."""
    values = [[fetch[name] for fetch in fetches] for fetches, _ in rounds]
    return [statistics.median(site) for site in zip(*values)]


def times_bare(rounds):
    return sum(per_site(rounds, "processorMs")) / sum(per_site(rounds, "bareProcessorMs"))


def measure(scheme, wanted, rounds, blind, figures):
    def add(*figure, **more):
        figures.add(*figure, at=scheme, **more)

    bare = sum(per_site(rounds, "bareProcessorMs"))
    own = sum(per_site(rounds, "processorMs"))
    decoder = statistics.median(whole["decoderMs"] for _, whole in rounds)
    requests = sum(fetch["requests"] for fetch in rounds[0][0])
    add("requests", requests / len(wanted), "a site")
    add("processor time", bare / len(wanted), "ms a site", of="libcurl")
    add("processor time", own / len(wanted), "ms a site")
    add("processor time of the image decoder", decoder / len(wanted), "ms a site")
    add("processor time, times libcurl's", times_bare(rounds), "", MAXIMUM_RATIO[scheme])
    what = "processor time where no answer is an image, times libcurl's"
    add(what, times_bare(blind), "", MAXIMUM_RATIO[scheme])
    decoding = sum(per_site(rounds, "decodingMs"))
    add("processor time of decoding in place", decoding / len(wanted), "ms a site", of="libcurl")
    add(
        "processor time with the decoder's, times libcurl's with decoding in place",
        (own + decoder) / (bare + decoding),
        "",
        MAXIMUM_RATIO_WITH_DECODING,
    )
    times, bare_times = per_site(rounds, "ms"), per_site(rounds, "bareMs")
    add("time, median", statistics.median(bare_times), "ms", of="libcurl")
    add("time, median", statistics.median(times), "ms")
    beyond = statistics.median(own - bare for own, bare in zip(times, bare_times))
    add("time beyond the bare requests, median", beyond, "ms", MAXIMUM_BEYOND)


def main():
    # The server warns whenever a client closes a TLS connection.
    logging.getLogger("asyncio").setLevel(logging.ERROR)
    arguments = parse_bench_options(__doc__, rounds={"type": int, "default": 5})
    # Large pages have their own benchmark.
    wanted = [site for site in sites() if "huge" not in site.kind]
    if arguments.smoke:
        wanted, arguments.rounds = wanted[:5], 1
    hosts = {urllib.parse.urlsplit(site.link).hostname for site in wanted}
    hosts |= {host for site in wanted for host in site.hosts}
    figures = Figures()
    with tempfile.TemporaryDirectory() as folder:
        authority = Authority(pathlib.Path(folder), sorted(hosts))
        trusted = trusted_folder(authority)
        expected = None
        for scheme in MAXIMUM_RATIO:
            setting = (scheme, wanted, arguments.rounds, authority, trusted)
            rounds = rounds_over(*setting)
            expected = expected or [(fetch["answers"], fetch["images"]) for fetch in rounds[0][0]]
            check_answers(wanted, rounds, expected)
            measure(scheme, wanted, rounds, rounds_over(*setting, "--blind"), figures)
    return figures.finish(arguments)


if __name__ == "__main__":
    sys.exit(main())
