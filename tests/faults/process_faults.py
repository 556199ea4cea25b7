"""What the process as a whole needs is taken away, or is not what it seems: descriptors, memory, the
wall clock, time to run, the network, answers to look-ups, answers of sites."""

import concurrent.futures
import errno
import resource
import signal
import subprocess
import time

from tests.faults.faults import ALWAYS, HANG, HOLD
from tests.faults.faulty_program import FaultyProgram
from tests.harness.answers import picture
from tests.harness.image_files import disc_png
from tests.harness.inotify import SystemLimit
from tests.harness.log_lines import ICON_SET, NO_ICON, REPORTED
from tests.harness.sites import MAGENTA
from tests.harness.steps import check
from tests.harness.waiting import wait_for
from tests.harness.web_server import ANY_PATH, NEVER, Answer, SiteServer

GOOD = "good.example"
LARGE = "large.example"
SILENT = "silent.example"
YEAR = 365 * 24 * 3600
SHORT_QUEUE = 64  # events
SUSPENDED = 6.0  # seconds; longer than any of the program's own delays
MANY_DESCRIPTORS = 32
USUAL_DESCRIPTORS = 1024
AT_ONCE = 6  # programs
LARGE_PAGE = 30 << 20  # bytes
MEMORY_LEFT = (8 << 20, 24 << 20, 48 << 20, 80 << 20)
RECOVERY = 40.0  # seconds
LATE = 20.0  # seconds; the fixed delays are two, the rest is for a busy machine


def good_sites():
    return {GOOD: {"/favicon.ico": picture(disc_png(32, MAGENTA))}}


def check_sets_icons(program, name, address=f"http://{GOOD}/"):
    link = program.drop(f"{name}.webloc", address)
    program.wait_for_end(link, address)
    check(program.count(f"{ICON_SET}{link}") == 1, f"{name}: no icon")


def check_recovers(program):
    """After a decoder could not be started, starting it is put off for some seconds."""
    deadline = time.monotonic() + RECOVERY
    for number in range(1000):
        address = f"http://{GOOD}/#{number}"
        link = program.drop(f"recovered-{number}.webloc", address)
        program.wait_for_end(link, address)
        if program.count(f"{ICON_SET}{link}"):
            return
        check(time.monotonic() < deadline, "no icons any more")


def check_ends_once(program, links):
    """`links`: path -> address."""
    for link, address in links.items():
        program.wait_for_end(link, address)
    twice = [link.name for link, address in links.items() if program.ends(link, address) != 1]
    check(not twice, f"more than one end: {twice[:3]}")
    reports = program.reported_paths()
    check(len(reports) == len(set(reports)), "reported twice")


def start_with_few_descriptors(options, server, most):
    """What comes of a link: "an icon", "no icon", "nothing" until there are more, or "an end" that
    says why."""
    wrapper = ("prlimit", f"--nofile={most}:{USUAL_DESCRIPTORS}")
    with FaultyProgram(options, server, wrapper) as program:
        looks = program.faults.count("open", str(program.downloads))
        try:
            program.start()
        except RuntimeError:
            status = program.process.wait()
            wait_for(program.lines, f"what it says with {most} descriptors, ended with {status}")
            return "an end"
        link, address = program.downloads / "a.webloc", f"http://{GOOD}/"
        looked = program.faults.seen(looks)
        program.drop(link.name, address)
        wait_for(
            lambda: program.faults.seen(looks) > looked + 3 or program.ends(link, address),
            f"a look with {most} descriptors",
        )
        outcome = "nothing"
        if program.count(f"{REPORTED}{link}"):
            check_ends_once(program, {link: address})
            outcome = "an icon" if program.count(f"{ICON_SET}{link}") else "no icon"
        resource.prlimit(
            program.process.pid, resource.RLIMIT_NOFILE, (USUAL_DESCRIPTORS, USUAL_DESCRIPTORS)
        )
        check_ends_once(program, {link: address})
        check_recovers(program)
        program.check_ends()
    return outcome


def descriptors_at_the_start(options):
    numbers = range(4, MANY_DESCRIPTORS + 1, 1 if options.full else 7)
    with SiteServer(good_sites()) as server, concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        outcomes = dict(
            zip(
                numbers,
                pool.map(lambda most: start_with_few_descriptors(options, server, most), numbers),
            )
        )
    check(outcomes[max(numbers)] == "an icon", f"with {max(numbers)}: {outcomes[max(numbers)]}")
    least = {
        outcome: min(most for most in numbers if outcomes[most] == outcome)
        for outcome in outcomes.values()
    }
    return ", ".join(f"from {most} on {outcome}" for outcome, most in least.items())


def descriptors_while_it_runs(options):
    """None is left for a while; files that came meanwhile get their icons then."""
    with SiteServer(good_sites()) as server, FaultyProgram(options, server) as program:
        deep = program.downloads / "deep"
        deep.mkdir()
        program.start()
        check_sets_icons(program, "before")
        usual = resource.prlimit(program.process.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(program.process.pid, resource.RLIMIT_NOFILE, (3, usual[1]))
        order = program.faults.count("open")
        during = program.drop("during.webloc", f"http://{GOOD}/")
        (program.downloads / "came" / "below").mkdir(parents=True)
        wait_for(lambda: program.faults.seen(order) > 6, "attempts")
        check(program.count(f"{REPORTED}{during}") == 0, "could not be listed, but was reported")
        resource.prlimit(program.process.pid, resource.RLIMIT_NOFILE, usual)
        check_ends_once(program, {during: f"http://{GOOD}/"})
        check(program.count(f"{ICON_SET}{during}") == 1, "no icon for what came meanwhile")
        for folder in (deep, program.downloads / "came" / "below"):
            (folder / "later.webloc").touch()
            wait_for(
                lambda: program.has_reported([folder / "later.webloc"]),
                f"a later file in {folder.name}",
            )
        check_sets_icons(program, "after")
        program.check_ends()
    return "lives without any, and makes up for it"


def no_more_threads(options):
    with SiteServer(good_sites()) as server, FaultyProgram(options, server) as program:
        program.start()
        check_sets_icons(program, "before")
        order = program.faults.fail("pthread_create", errno.EAGAIN, last=ALWAYS)
        links = {
            program.drop(f"{number}.webloc", f"http://{GOOD}/#{number}"): f"http://{GOOD}/#{number}"
            for number in range(5)
        }
        check_ends_once(program, links)
        check(program.faults.seen(order), "no thread was asked for")
        program.faults.clear()
        check_sets_icons(program, "after")
        program.check_ends()
    return "lives with those that it has"


def virtual_size(pid):
    with open(f"/proc/{pid}/statm") as file:
        return int(file.read().split()[0]) * resource.getpagesize()


def fetch_with_little_memory(options, server, left):
    """How it went: "failed" when the program lives on, "ended" when it ended and said so."""
    with FaultyProgram(options, server) as program:
        program.start()
        check_sets_icons(program, "before")
        usual = resource.prlimit(program.process.pid, resource.RLIMIT_AS)
        resource.prlimit(
            program.process.pid,
            resource.RLIMIT_AS,
            (virtual_size(program.process.pid) + left, usual[1]),
        )
        link, address = program.downloads / "large.webloc", f"http://{LARGE}/"
        program.drop(link.name, address)
        wait_for(
            lambda: program.ends(link, address) or program.process.poll() is not None, "an end"
        )
        if program.process.poll() is not None:
            check(
                "memory" in program.lines()[-1] or "alloc" in program.log().decode(),
                f"ended and said nothing: {program.lines()[-2:]}",
            )
            return f"ended with {program.process.poll()}, {program.lines()[-2:]}"
        check(program.ends(link, address) == 1, "more than one end")
        resource.prlimit(program.process.pid, resource.RLIMIT_AS, usual)
        check_sets_icons(program, "after")
        program.check_ends()
        return "lives"


def little_memory(options):
    page = b"<html><head>" + b"<link rel=icon href=/x.png>" * 1000 + b" " * LARGE_PAGE
    sites = {**good_sites(), LARGE: {"/": Answer(page), "/favicon.ico": Answer(page)}}
    with SiteServer(sites) as server:
        how = {
            left >> 20: fetch_with_little_memory(options, server, left)
            for left in MEMORY_LEFT[:: 1 if options.full else 3]
        }
    return ", ".join(f"{left} MB left: {outcome}" for left, outcome in how.items())


def wall_clock_jumps(options):
    with SiteServer(good_sites()) as server, FaultyProgram(options, server) as program:
        program.start()
        for number, ahead in enumerate((YEAR, -YEAR, 0)):
            program.faults.set_wall_clock_ahead(ahead)
            begin = time.monotonic()
            check_sets_icons(program, f"jump-{number}")
            check(time.monotonic() - begin < LATE, f"late after a jump to {ahead} s")
            folder = program.downloads / f"new-{number}" / "below"
            folder.mkdir(parents=True)
            (folder / "x.webloc").touch()
            wait_for(
                lambda: program.has_reported([folder / "x.webloc"]),
                f"a file in a new folder after a jump to {ahead} s",
            )
        program.check_ends()
    return "a year forwards and two backwards change nothing"


def clock_set_back_while_events_are_lost(options):
    """What changed is then told by time stamps, which are earlier than those seen before."""
    with FaultyProgram(options) as program:
        folders = [program.desktop / "old" / str(number) for number in range(10)]
        for folder in folders:
            folder.mkdir(parents=True)
        program.faults.set_wall_clock_ahead(YEAR)
        with SystemLimit("max_queued_events", SHORT_QUEUE) as limit:
            program.start()
        check_reports(program, [program.desktop / "before" / "x.webloc"])
        program.process.send_signal(signal.SIGSTOP)
        program.faults.set_wall_clock_ahead(0)
        files = [program.desktop / f"{number}.webloc" for number in range(4 * SHORT_QUEUE)]
        check_reports(program, files + [folder / "x.webloc" for folder in folders])
        program.check_ends()
    return "nothing lost" if limit.changed else "left out: the queue's length may not be set"


def clock_set_back_during_the_first_walk(options):
    """By a second, as a time service does after a boot, and by a year."""
    for seconds in (1, YEAR):
        with FaultyProgram(options) as program:
            folders = [program.desktop / "old" / str(number) for number in range(10)]
            for folder in folders:
                folder.mkdir(parents=True)
            program.faults.set_wall_clock_ahead(seconds)
            held = program.faults.fail("inotify_add_watch", HOLD, "/Desktop/old")
            program.start()
            wait_for(lambda: program.faults.seen(held), "the walk")
            program.faults.set_wall_clock_ahead(0)
            files = [folder / "x.webloc" for folder in folders]
            for path in files:
                path.touch()
            program.faults.release(held)
            wait_for(
                lambda: program.has_reported(files),
                f"reports after the clock was set back by {seconds} s",
            )
            program.check_ends()
    return "nothing lost"


def check_reports(program, paths):
    for path in paths:
        path.parent.mkdir(exist_ok=True)
        path.touch()
    program.process.send_signal(signal.SIGCONT)
    wait_for(lambda: program.has_reported(paths), "reports")


def suspension(options):
    """Stopped while files appear, at the top and in new and old folders below."""
    with SiteServer(good_sites()) as server, FaultyProgram(options, server) as program:
        old = program.desktop / "old" / "below"
        old.mkdir(parents=True)
        program.start()
        check_sets_icons(program, "before")
        program.process.send_signal(signal.SIGSTOP)
        links = {}
        for number in range(10):
            new = program.downloads / f"new-{number}" / "below"
            new.mkdir(parents=True)
            for folder in (program.desktop, old, new):
                link = folder / f"{number}.webloc"
                program.write(link, f"http://{GOOD}/#{number}-{folder.name}")
                links[link] = f"http://{GOOD}/#{number}-{folder.name}"
        until = time.monotonic() + SUSPENDED
        wait_for(lambda: time.monotonic() > until, "the morning")
        program.process.send_signal(signal.SIGCONT)
        check_ends_once(program, links)
        check_sets_icons(program, "after")
        program.check_ends()
    return f"{len(links)} files meanwhile, each once"


def network_down(options):
    """In a network of its own, in which not even loopback is up."""
    wrapper = ("unshare", "--user", "--map-root-user", "--net")
    if subprocess.run([*wrapper, "true"], check=False, stderr=subprocess.DEVNULL).returncode != 0:
        return "left out: no network namespace to be had"
    addresses = [
        "http://127.0.0.1:9/",
        "http://192.0.2.1/",
        "https://[2001:db8::1]/",
        "http://nowhere.example/",
    ]
    with FaultyProgram(options, wrapper=wrapper) as program:
        program.start()
        links = {
            program.drop(f"{number}.webloc", address): address
            for number, address in enumerate(addresses)
        }
        check_ends_once(program, links)
        check(
            all(program.count(f"{NO_ICON}{address}") == 1 for address in addresses),
            "no failure line",
        )
        program.check_ends()
    return f"{len(addresses)} links, one failure line each"


def slow_lookup(options):
    """Of one name, while others are answered at once."""
    with SiteServer({}) as server, FaultyProgram(options) as program:
        icon = f"http://localhost:{server.port}/icon.png"
        server.sites["localhost"] = {
            "/": Answer(f'<link rel="icon" href="{icon}">'.encode()),
            "/icon.png": picture(disc_png(32, MAGENTA)),
        }
        program.faults.fail("getaddrinfo", HANG, "slow.example", last=ALWAYS)
        program.start()
        slow = program.drop("slow.webloc", "http://slow.example/")
        wait_for(
            lambda: "Glintmark: URL → http://slow.example/" in program.lines(), "the slow link"
        )
        check_sets_icons(program, "other", f"http://localhost:{server.port}/")
        check(not program.ends(slow, "http://slow.example/"), "the others wait for the slow one")
        check_ends_once(program, {slow: "http://slow.example/"})
        check(program.count(f"{NO_ICON}http://slow.example/") == 1, "no failure line")
        check_sets_icons(program, "after", f"http://localhost:{server.port}/")
        program.check_ends()
    return "others proceed, the slow one ends in its failure line"


def silent_sites(options):
    """They accept and never answer. New files are seen all the while."""
    count = 500 if options.full else 24
    sites = {f"{number}.{SILENT}": {ANY_PATH: Answer(delay=NEVER)} for number in range(count)}
    with SiteServer(sites) as server, FaultyProgram(options, server) as program:
        program.start()
        links = {}
        for number in range(count):
            address = f"http://{number}.{SILENT}/"
            links[program.drop(f"{number}.webloc", address)] = address
        wait_for(lambda: server.urls(), "the first request")
        begin = time.monotonic()
        lively = program.downloads / "lively.webloc"
        lively.touch()
        wait_for(lambda: program.count(f"{REPORTED}{lively}"), "a new file")
        check(time.monotonic() - begin < LATE, "a new file was seen late")
        begin = time.monotonic()
        for link, address in links.items():
            wait_for(lambda: program.count(f"{NO_ICON}{address}"), f"the end of {link.name}", 400)
        taken = time.monotonic() - begin
        check_ends_once(program, links)
        program.check_ends()
    return f"{count} links, one failure line each, after {taken:.0f} s"
