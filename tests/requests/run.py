#!/usr/bin/env python3
"""Every request that a fetch makes, seen from outside: the built programs against a recording proxy.

Each site of sites.py is fetched by explain-icon, which runs the program's own code; the link that comes
twice at once is given to the program itself. Fails when one request is missing, too many, too early,
or carries other header fields than it should. The record of all requests is left in a file.
"""

import argparse
import concurrent.futures
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import urllib.parse

from recorder import DEADLINE, NOT_FOUND, Authority, Script, recorder
from sites import HOSTS, SITE, all_sites, html, icon, picture, site

BROWSER = ("Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 "
           "(KHTML, like Gecko) Version/17.0 Safari/605.1.15")
OWN_NAME = re.compile(r"Glintmark/\d+(\.\d+)+")
COMMON = {"Accept": "*/*", "Accept-Encoding": "deflate, gzip, br, zstd"}
AT_ONCE = 4  # sites fetched at a time
LINK = """<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>URL</key><string>{link}</string></dict></plist>
"""


def environment(proxy, more):
    """What a fetch sees: nothing of the caller's but the way to programs and libraries."""
    kept = {name: os.environ[name] for name in ("PATH", "LD_LIBRARY_PATH") if name in os.environ}
    return {**kept, "LC_ALL": "C.UTF-8", **proxy, **more}


def header_complaints(request, more):
    """What is wrong with the header fields of a request that should have those of `more` besides."""
    fields = dict(request.headers)
    complaints = [] if len(fields) == len(request.headers) else ["a field twice"]
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


def request_complaints(script, headers):
    complaints = script.finish()
    for request in script.requests:
        if request.method != "GET":
            complaints.append(f"{request.method} {request.url}")
        complaints += header_complaints(request, headers.get(request.url, {}))
    return complaints


def described(candidate):
    return f"{candidate['source']} {candidate['width']:g}x{candidate['height']:g}"


def report_complaints(site, script, status, output):
    """What is wrong with explain-icon's report."""
    lines = [json.loads(line) for line in output.splitlines()]
    complaints = []

    def expect(what, actual, expected):
        if actual != expected:
            complaints.append(f"{what}: {actual} instead of {expected}")

    candidates = [line for line in lines if line["kind"] == "candidate"]
    expect("candidates", sorted(map(described, candidates)), sorted(site.candidates))
    winners = [line["candidate"] and described(line["candidate"])
               for line in lines if line["kind"] == "winner"]
    expect("winner", winners, [site.winner])
    expect("exit status", status, 0 if site.winner else 1)

    answered = [line for line in lines if line["kind"] == "request" and line["status"]]
    followed = [request for request in script.requests
                if "Location" in dict(site.answers.get(request.url, NOT_FOUND).headers)]
    expect("answered requests in the report", len(answered), len(script.requests) - len(followed))
    return complaints


def fetch(site, explain_icon, authority):
    """Its script, with what happened, and what was wrong."""
    script = Script(site.paths, site.answers, last=site.last)
    with recorder(script, authority) as proxy:
        run = subprocess.run([explain_icon, "--json", site.link], text=True, timeout=120,
                             env=environment(proxy, site.environment), capture_output=True)
    complaints = request_complaints(script, site.headers)
    return script, complaints + report_complaints(site, script, run.returncode, run.stdout)


def fetch_twice_at_once(program, authority):
    """The program itself, with one link in two files: all requests come twice, none is shared."""
    own = "http://icons.example"
    once = site("Two fetches for one link at once know nothing of each other",
                answers={SITE + "/": html(icon("1.png")), SITE + "/1.png": picture(96)},
                icons=[SITE + "/1.png"], environment={"GLINTMARK_FAVICON_SERVICE": own},
                service=[[own + "/s2/favicons?domain=site.example&sz=256"]])
    paths = {f"{name} {number}": steps for number in (1, 2) for name, steps in once.paths.items()}
    # The service answers neither of them before both have asked it.
    script = Script(paths, once.answers, together=["service 1", "service 2"])
    complaints = []
    with tempfile.TemporaryDirectory() as home, recorder(script, authority) as proxy:
        desktop = pathlib.Path(home, "Desktop")
        desktop.mkdir()
        surroundings = environment(proxy, {**once.environment, "HOME": home,
                                           "XDG_RUNTIME_DIR": home})
        log = pathlib.Path(home, "log")
        with log.open("w") as sink:
            process = subprocess.Popen([program], env=surroundings, stdout=sink, stderr=sink)
        try:
            wait_for_lines(log, "Started", 1)
            for name in ("a", "b"):
                (desktop / f"{name}.webloc").write_text(LINK.format(link=once.link))
            wait_for_lines(log, "Icon applied", 2)
        except TimeoutError as error:
            complaints.append(str(error))
        finally:
            process.terminate()
            process.wait()
    return once, script, complaints + request_complaints(script, {})


def wait_for_lines(log, text, count):
    deadline = time.monotonic() + 3 * DEADLINE
    while log.read_text().count(f"Glintmark: {text}") < count:
        if time.monotonic() > deadline:
            raise TimeoutError(f"no {count} lines {text!r} in the log:\n{log.read_text()}")
        time.sleep(0.02)


def record(rule, script):
    """A site's part of the record."""
    return f"{rule}\n" + "".join(
        f"  {request.path or '?':11}{request.method} {request.url}\n" for request in script.requests)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--explain-icon", required=True)
    parser.add_argument("--program", required=True)
    parser.add_argument("--output", required=True, type=pathlib.Path, help="for the record")
    parser.add_argument("--only", default="", help="the sites whose rule holds this text")
    options = parser.parse_args()

    sites = [entry for entry in all_sites() if options.only in entry.rule]
    results = []
    with tempfile.TemporaryDirectory() as folder:
        authority = Authority(folder, HOSTS)
        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
            twice = pool.submit(fetch_twice_at_once, options.program, authority)
            fetches = [pool.submit(fetch, entry, options.explain_icon, authority)
                       for entry in sites]
            results += [(entry, *running.result()) for entry, running in zip(sites, fetches)]
            results.append(twice.result())

    options.output.parent.mkdir(parents=True, exist_ok=True)
    options.output.write_text("\n".join(record(entry.rule, script) for entry, script, _ in results))
    failed = 0
    for entry, _, complaints in results:
        if complaints:
            failed += 1
            print(f"FAILED {entry.rule} ({entry.link})", *complaints, sep="\n    ")
    count = sum(len(script.requests) for _, script, _ in results)
    print(f"{len(results)} sites, {count} requests, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
