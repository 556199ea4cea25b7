"""Every request of a fetch, seen from outside: the built programs against a recording proxy.

Each site of sites.py is fetched by "glintmark-link explain", which runs the program's own code; one
link is given to the program itself, twice at once. Fails if a request is missing, superfluous or
too early, or if its header fields are wrong. The record of all requests is left in a file.
"""

import concurrent.futures
import json
import os
import re
import subprocess
import sys
import tempfile
import urllib.parse

from tests.harness.bare_program import BareProgram
from tests.harness.log_lines import APPLIED
from tests.harness.options import absolute_path, parse_options
from tests.harness.waiting import TimedOut, wait_for
from tests.requests.recorder import NOT_FOUND, Authority, Recorder
from tests.requests.sites import HOSTS, SITE, all_sites, html, icon, picture, site

BROWSER = (
    "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 "
    "(KHTML, like Gecko) Version/17.0 Safari/605.1.15"
)
OWN_NAME = re.compile(r"Glintmark/\d+(\.\d+)+")
COMMON = {"Accept": "*/*", "Accept-Encoding": "deflate, gzip, br, zstd"}
AT_ONCE = 4  # fetches


def environment(recorder, more):
    """The caller's variables that lead to programs and libraries, and those of the fetch."""
    kept = {name: os.environ[name] for name in ("PATH", "LD_LIBRARY_PATH") if name in os.environ}
    return {**kept, "LC_ALL": "C.UTF-8", **recorder.environment(), **more}


def header_complaints(request, more):
    """The complaints about a request's header fields. `more`: fields beyond the usual ones."""
    fields = dict(request.headers)
    complaints = [] if len(fields) == len(request.headers) else ["a field occurs twice"]
    agent = fields.pop("User-Agent", "")
    address = urllib.parse.urlsplit(request.url)
    is_manifest = address.path.endswith((".json", ".webmanifest"))
    if not (OWN_NAME.fullmatch(agent) if is_manifest else agent == BROWSER):
        complaints.append(f"under the name {agent!r}")
    expected = {**COMMON, "Host": address.netloc, **more}
    if address.scheme == "http":
        expected["Proxy-Connection"] = "Keep-Alive"  # for the proxy alone
    if fields != expected:
        complaints.append(f"with {fields} instead of {expected}")
    return [f"{request.url}: {complaint}" for complaint in complaints]


def request_complaints(recorder, headers):
    complaints = recorder.complaints()
    for request in recorder.requests:
        if request.method != "GET":
            complaints.append(f"{request.method} {request.url}")
        complaints += header_complaints(request, headers.get(request.url, {}))
    return complaints


def described(candidate):
    return f"{candidate['source']} {candidate['width']:g}x{candidate['height']:g}"


def report_complaints(site, recorder, status, output):
    """The complaints about the report of "glintmark-link explain"."""
    lines = [json.loads(line) for line in output.splitlines()]
    complaints = []

    def expect(what, actual, expected):
        if actual != expected:
            complaints.append(f"{what}: {actual} instead of {expected}")

    candidates = [line for line in lines if line["kind"] == "candidate"]
    expect("candidates", sorted(map(described, candidates)), sorted(site.candidates))
    winners = [
        line["candidate"] and described(line["candidate"])
        for line in lines
        if line["kind"] == "winner"
    ]
    expect("winner", winners, [site.winner] if site.has_host else [])
    without_winner = os.EX_UNAVAILABLE if site.has_host else os.EX_DATAERR
    expect("exit status", status, os.EX_OK if site.winner else without_winner)

    answered = [line for line in lines if line["kind"] == "request" and line["status"]]
    followed = [
        request
        for request in recorder.requests
        if "Location" in dict(site.answers.get(request.url, NOT_FOUND).headers)
    ]
    expect("answered requests in the report", len(answered), len(recorder.requests) - len(followed))
    return complaints


def fetch(site, link_program, authority):
    """Returns the requests and the complaints."""
    with Recorder(authority, site.paths, site.answers, site.last) as recorder:
        run = subprocess.run(
            [link_program, "explain", "--json", site.link],
            env=environment(recorder, site.environment),
            text=True,
            timeout=120,
            capture_output=True,
        )
    complaints = request_complaints(recorder, site.headers)
    complaints += report_complaints(site, recorder, run.returncode, run.stdout)
    return site, recorder.requests, complaints


def fetch_twice_at_once(program, authority):
    """The program itself, with one link in two files: each request is made twice."""
    own = "http://icons.example"
    once = site(
        "Two fetches for one link at once know nothing of each other",
        answers={SITE + "/": html(icon("1.png")), SITE + "/1.png": picture(96)},
        icons=[SITE + "/1.png"],
        environment={"GLINTMARK_FAVICON_SERVICE": own},
        service=[[own + "/s2/favicons?domain=site.example&sz=256"]],
    )
    paths = {f"{name} {number}": steps for number in (1, 2) for name, steps in once.paths.items()}
    # The service answers neither fetch before both have asked it.
    together = ["service 1", "service 2"]
    complaints = []
    with (
        Recorder(authority, paths, once.answers, together=together) as recorder,
        BareProgram(program) as running,
    ):
        running.environment.update(environment(recorder, once.environment))
        running.start()
        for name in ("a", "b"):
            running.drop(f"{name}.webloc", once.link)
        try:
            wait_for(lambda: running.log().decode().count(APPLIED) == 2, "two icons")
        except TimedOut as error:
            complaints += [str(error), *running.lines()]
    return once, recorder.requests, complaints + request_complaints(recorder, {})


def record(rule, requests):
    """A site's part of the record."""
    lines = [f"  {request.path or '?':11}{request.method} {request.url}\n" for request in requests]
    return f"{rule}\n" + "".join(lines)


def main():
    options = parse_options(
        __doc__,
        output="build/requests.log",
        link_program={"type": absolute_path, "default": "build/release/glintmark-link"},
        only={"default": "", "help": "the sites whose rule contains this text"},
    )
    sites = [entry for entry in all_sites() if options.only in entry.rule]
    with tempfile.TemporaryDirectory() as folder:
        authority = Authority(folder, HOSTS)
        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
            twice = pool.submit(fetch_twice_at_once, options.program, authority)
            fetches = [
                pool.submit(fetch, entry, options.link_program, authority) for entry in sites
            ]
            results = [running.result() for running in [*fetches, twice]]

    options.output.parent.mkdir(parents=True, exist_ok=True)
    options.output.write_text("\n".join(record(entry.rule, made) for entry, made, _ in results))
    failed = 0
    for entry, _, complaints in results:
        if complaints:
            failed += 1
            print(f"FAILED {entry.rule} ({entry.link})", *complaints, sep="\n    ")
    count = sum(len(requests) for _, requests, _ in results)
    print(f"{len(results)} sites, {count} requests, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
