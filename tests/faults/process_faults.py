"""Takes away or falsifies what the whole process needs: descriptors, memory, the wall clock, time
to run, the network, answers to look-ups, answers of sites."""

import concurrent.futures
import contextlib
import errno
import os
import pathlib
import resource
import signal
import subprocess
import time

from tests.faults.faults import ALWAYS, HANG, HOLD
from tests.faults.faulty_program import FaultyProgram
from tests.harness.answers import picture
from tests.harness.bare_program import BareProgram
from tests.harness.image_files import disc_png
from tests.harness.inotify import SystemLimit
from tests.harness.log_lines import ICON_SET, NO_ICON, REPORTED
from tests.harness.sites import MAGENTA
from tests.harness.steps import check
from tests.harness.waiting import DEADLINE, wait_for
from tests.harness.web_server import ANY_PATH, NEVER, Answer, SiteServer

ICON = picture(disc_png(32, MAGENTA))
GOOD = "good.example"
GOOD_SITE = f"http://{GOOD}/"
GOOD_SITES = {GOOD: {"/favicon.ico": ICON}}
LARGE = "large.example"
SILENT = "silent.example"
SLOW_SITE = "http://slow.example/"
YEAR = 365 * 24 * 3600
SHORT_QUEUE = 64  # events
SUSPENDED = 6.0  # seconds; longer than any of the program's own delays
MANY_DESCRIPTORS = 32
USUAL_DESCRIPTORS = 1024
AT_ONCE = 6  # programs
LARGE_PAGE = 30 << 20  # bytes
MEMORY_LEFT = (8 << 20, 24 << 20, 48 << 20, 80 << 20)
RECOVERY = 40.0  # seconds
SOON = 3.0  # seconds; one, and the rest is for a busy machine
LATE = 20.0  # seconds; the fixed delays are two, the rest is for a busy machine


@contextlib.contextmanager
def healthy_program(options, folder="Desktop"):
    """Starts the program beside a good site. It must set an icon at once, and again at the end.
    `folder`: a folder in its home that exists before the start."""
    with SiteServer(GOOD_SITES) as server, FaultyProgram(options, server) as program:
        (program.home / folder).mkdir(parents=True, exist_ok=True)
        program.start()
        check_sets_icons(program, "before")
        yield program
        check_sets_icons(program, "after")
        program.check_ends()


def check_sets_icons(program, name, address=GOOD_SITE):
    link = program.drop(f"{name}.webloc", address)
    program.wait_for_end(link, address)
    check(program.count(f"{ICON_SET}{link}") == 1, f"{name}: no icon")


def check_recovers(program):
    """After a decoder could not be started, the program waits some seconds before the next try."""
    deadline = time.monotonic() + RECOVERY
    for number in range(1000):
        address = f"{GOOD_SITE}#{number}"
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


def drop_all(program, addresses):
    """Path -> address."""
    return {program.drop(f"{n}.webloc", address): address for n, address in enumerate(addresses)}


def make_folders(program):
    folders = [program.desktop / "old" / str(number) for number in range(10)]
    for folder in folders:
        folder.mkdir(parents=True)
    return folders


def start_with_few_descriptors(options, server, most):
    """Returns the end of a link: "an icon", "no icon", "nothing" until there are more descriptors,
    or "an end" of the program, which logs the reason."""
    wrapper = ("prlimit", f"--nofile={most}:{USUAL_DESCRIPTORS}")
    with FaultyProgram(options, server, wrapper) as program:
        looks = program.faults.count("open", str(program.downloads))
        try:
            program.start()
        except RuntimeError:
            status = program.process.wait()
            wait_for(program.lines, f"the reason with {most} descriptors, ended with {status}")
            return "an end"
        link = program.downloads / "a.webloc"
        looked = program.faults.seen(looks)
        program.drop(link.name, GOOD_SITE)
        wait_for(
            lambda: program.faults.seen(looks) > looked + 3 or program.ends(link, GOOD_SITE),
            f"a look with {most} descriptors",
        )
        outcome = "nothing"
        if program.count(f"{REPORTED}{link}"):
            check_ends_once(program, {link: GOOD_SITE})
            outcome = "an icon" if program.count(f"{ICON_SET}{link}") else "no icon"
        program.limit(resource.RLIMIT_NOFILE, USUAL_DESCRIPTORS)
        check_ends_once(program, {link: GOOD_SITE})
        check_recovers(program)
        program.check_ends()
    return outcome


def descriptors_at_the_start(options):
    numbers = range(4, MANY_DESCRIPTORS + 1, 1 if options.full else 7)
    pool = concurrent.futures.ThreadPoolExecutor(AT_ONCE)
    with SiteServer(GOOD_SITES) as server, pool:
        results = pool.map(lambda most: start_with_few_descriptors(options, server, most), numbers)
        outcomes = dict(zip(numbers, results))
    check(outcomes[max(numbers)] == "an icon", f"with {max(numbers)}: {outcomes[max(numbers)]}")
    least = {outcomes[most]: most for most in reversed(numbers)}
    return ", ".join(f"from {most} on {outcome}" for outcome, most in reversed(least.items()))


def descriptors_while_it_runs(options):
    """For a while no descriptor is left. Files that appear meanwhile get their icons later."""
    with healthy_program(options, "Downloads/deep") as program:
        usual = program.limit(resource.RLIMIT_NOFILE, 3)
        order = program.faults.count("open")
        during = program.drop("during.webloc", GOOD_SITE)
        below = program.downloads / "came" / "below"
        below.mkdir(parents=True)
        wait_for(lambda: program.faults.seen(order) > 6, "attempts")
        check(program.count(f"{REPORTED}{during}") == 0, "could not be listed, but was reported")
        program.limit(resource.RLIMIT_NOFILE, usual)
        check_ends_once(program, {during: GOOD_SITE})
        check(program.count(f"{ICON_SET}{during}") == 1, "no icon for a file that came meanwhile")
        for folder in (program.downloads / "deep", below):
            program.check_sees(folder / "later.webloc")
    return "lives without any, and makes up for it"


def no_more_threads(options):
    with healthy_program(options) as program:
        order = program.faults.fail("pthread_create", errno.EAGAIN, last=ALWAYS)
        check_ends_once(program, drop_all(program, [f"{GOOD_SITE}#{n}" for n in range(5)]))
        check(program.faults.seen(order), "no thread was asked for")
        program.faults.clear()
    return "lives with those that it has"


def virtual_size(pid):
    with open(f"/proc/{pid}/statm") as file:
        return int(file.read().split()[0]) * resource.getpagesize()


def fetch_with_little_memory(options, server, left):
    """Returns "lives", or how the program ended. If it ended, it must have logged the reason."""
    with FaultyProgram(options, server) as program:
        program.start()
        check_sets_icons(program, "before")
        usual = program.limit(resource.RLIMIT_AS, virtual_size(program.process.pid) + left)
        link, address = program.downloads / "large.webloc", f"http://{LARGE}/"
        program.drop(link.name, address)
        process = program.process
        wait_for(lambda: program.ends(link, address) or process.poll() is not None, "an end")
        if process.poll() is not None:
            lines = program.lines()[-2:]
            logged = "memory" in lines[-1] or "alloc" in program.log().decode()
            check(logged, f"ended and logged no reason: {lines}")
            return f"ended with {process.poll()}, {lines}"
        check(program.ends(link, address) == 1, "more than one end")
        program.limit(resource.RLIMIT_AS, usual)
        check_sets_icons(program, "after")
        program.check_ends()
        return "lives"


def little_memory(options):
    page = b"<html><head>" + b"<link rel=icon href=/x.png>" * 1000 + b" " * LARGE_PAGE
    sites = {**GOOD_SITES, LARGE: {"/": Answer(page), "/favicon.ico": Answer(page)}}
    with SiteServer(sites) as server:
        sizes = MEMORY_LEFT[:: 1 if options.full else 3]
        outcomes = [fetch_with_little_memory(options, server, left) for left in sizes]
    return ", ".join(f"{left >> 20} MB left: {how}" for left, how in zip(sizes, outcomes))


def wall_clock_jumps(options):
    with SiteServer(GOOD_SITES) as server, FaultyProgram(options, server) as program:
        program.start()
        for number, ahead in enumerate((YEAR, -YEAR, 0)):
            program.faults.set_wall_clock_ahead(ahead)
            begin = time.monotonic()
            check_sets_icons(program, f"jump-{number}")
            check(time.monotonic() - begin < LATE, f"late after a jump to {ahead} s")
            folder = program.downloads / f"new-{number}" / "below"
            folder.mkdir(parents=True)
            program.check_sees(folder / "x.webloc")
        program.check_ends()
    return "a year forwards and two backwards change nothing"


def clock_set_back_while_events_are_lost(options):
    """The program then finds the changes by time stamps, which are earlier than the known ones."""
    with FaultyProgram(options) as program:
        folders = make_folders(program)
        program.faults.set_wall_clock_ahead(YEAR)
        with SystemLimit("max_queued_events", SHORT_QUEUE) as limit:
            program.start()
        before = program.desktop / "before"
        before.mkdir()
        program.check_sees(before / "x.webloc")
        program.process.send_signal(signal.SIGSTOP)
        program.faults.set_wall_clock_ahead(0)
        files = [program.desktop / f"{number}.webloc" for number in range(4 * SHORT_QUEUE)]
        files += [folder / "x.webloc" for folder in folders]
        for path in files:
            path.touch()
        program.process.send_signal(signal.SIGCONT)
        program.wait_for_reports(files)
        program.check_ends()
    return "nothing lost" if limit.changed else "left out: the queue's length may not be set"


def clock_set_back_during_the_first_walk(options):
    """By a second, as a time service does after a boot, and by a year."""
    for seconds in (1, YEAR):
        with FaultyProgram(options) as program:
            files = [folder / "x.webloc" for folder in make_folders(program)]
            program.faults.set_wall_clock_ahead(seconds)
            held = program.faults.fail("inotify_add_watch", HOLD, "/Desktop/old")
            program.start()
            wait_for(lambda: program.faults.seen(held), "the walk")
            program.faults.set_wall_clock_ahead(0)
            for path in files:
                path.touch()
            program.faults.release(held)
            program.wait_for_reports(files, f"reports after the clock was set back by {seconds} s")
            program.check_ends()
    return "nothing lost"


def suspension(options):
    """Stopped while files appear, at the top and in new and old folders below."""
    with healthy_program(options, "Desktop/old/below") as program:
        program.process.send_signal(signal.SIGSTOP)
        links = {}
        for number in range(10):
            new = program.downloads / f"new-{number}" / "below"
            new.mkdir(parents=True)
            for folder in (program.desktop, program.desktop / "old" / "below", new):
                link = folder / f"{number}.webloc"
                links[link] = f"{GOOD_SITE}#{number}-{folder.name}"
                program.write(link, links[link])
        until = time.monotonic() + SUSPENDED
        wait_for(lambda: time.monotonic() > until, "the end of the suspension")
        program.process.send_signal(signal.SIGCONT)
        check_ends_once(program, links)
    return f"{len(links)} files meanwhile, each once"


def network_down(options):
    """In a private network namespace, in which not even loopback is up."""
    wrapper = ("unshare", "--user", "--map-root-user", "--net")
    if subprocess.run([*wrapper, "true"], check=False, stderr=subprocess.DEVNULL).returncode != 0:
        return "left out: network namespaces are not available"
    hosts = ("127.0.0.1:9", "192.0.2.1", "[2001:db8::1]", "nowhere.example")
    with FaultyProgram(options, wrapper=wrapper) as program:
        program.start()
        links = drop_all(program, [f"http://{host}/" for host in hosts])
        check_ends_once(program, links)
        failures = [program.count(f"{NO_ICON}{address}") for address in links.values()]
        check(failures == [1] * len(links), "no failure line")
        program.check_ends()
    return f"{len(links)} links, one failure line each"


def slow_lookup(options):
    """The look-up of one name hangs, others are answered at once."""
    with SiteServer({}) as server, FaultyProgram(options) as program:
        site = f"http://localhost:{server.port}/"
        page = Answer(f'<link rel="icon" href="{site}icon.png">'.encode())
        server.sites["localhost"] = {"/": page, "/icon.png": ICON}
        program.faults.fail("getaddrinfo", HANG, "slow.example", last=ALWAYS)
        program.start()
        slow = program.drop("slow.webloc", SLOW_SITE)
        wait_for(lambda: program.count(f"Glintmark: URL → {SLOW_SITE}"), "the slow link")
        check_sets_icons(program, "other", site)
        check(not program.ends(slow, SLOW_SITE), "the others wait for the slow one")
        check_ends_once(program, {slow: SLOW_SITE})
        check(program.count(f"{NO_ICON}{SLOW_SITE}") == 1, "no failure line")
        check_sets_icons(program, "after", site)
        program.check_ends()
    return "others proceed, the slow one ends in its failure line"


def silent_sites(options):
    """The sites accept connections and never answer. New files are seen nevertheless."""
    hosts = [f"{number}.{SILENT}" for number in range(500 if options.full else 24)]
    sites = {host: {ANY_PATH: Answer(delay=NEVER)} for host in hosts}
    with SiteServer(sites) as server, FaultyProgram(options, server) as program:
        program.start()
        links = drop_all(program, [f"http://{host}/" for host in hosts])
        wait_for(server.urls, "the first request")
        begin = time.monotonic()
        program.check_sees(program.downloads / "lively.webloc")
        check(time.monotonic() - begin < LATE, "a new file was seen late")
        begin = time.monotonic()
        for link, address in links.items():
            wait_for(lambda: program.count(f"{NO_ICON}{address}"), f"the end of {link.name}", 400)
        seconds = time.monotonic() - begin
        check_ends_once(program, links)
        program.check_ends()
    return f"{len(links)} links, one failure line each, after {seconds:.0f} s"


def one_link_behind_silent_sites(options):
    """As many sites as are asked at once are silent. A link that comes later is fetched soon."""
    silent = {f"{number}.{SILENT}": {ANY_PATH: Answer(delay=NEVER)} for number in range(128)}
    with SiteServer({**silent, **GOOD_SITES}) as server, BareProgram(options.program) as program:
        program.environment.update(server.proxy_environment())
        program.start()
        for host in silent:
            program.drop(f"{host}.webloc", f"http://{host}/")
        wait_for(lambda: sum(bool(server.urls(host)) for host in silent) > 96, "the silent sites")
        program.drop("lone.webloc", GOOD_SITE)
        wait_for(lambda: program.count(f"Glintmark: URL → {GOOD_SITE}"), "the reading")
        begin = time.monotonic()
        wait_for(lambda: server.urls(GOOD), "the first request")
        seconds = time.monotonic() - begin
    check(seconds < SOON, f"asked after {seconds:.1f} s")
    return f"asked {seconds:.2f} s after it was read"


def closed_standard_descriptors(options):
    """Without them, the program's own files must not get their numbers: what it logs to standard
    error would go into one of these."""
    null = os.path.realpath("/dev/null")
    closing = 'exec "$0" 0<&- 1>&- 2>&-'
    with BareProgram(options.program, wrapper=("sh", "-c", closing)) as program:
        process = program.spawn()
        descriptors = pathlib.Path(f"/proc/{process.pid}/fd")

        def opened():
            links = {}
            for entry in descriptors.iterdir():
                with contextlib.suppress(OSError):
                    links[entry.name] = os.readlink(entry)
            return links

        try:
            wait_for(lambda: any("inotify" in link for link in opened().values()), "the start")
            standard = {number: link for number, link in opened().items() if int(number) < 3}
            check(standard == dict.fromkeys("012", null), f"open: {standard}")
        finally:
            process.terminate()
            check(process.wait(DEADLINE) == 0, "did not end by itself")
            process.stderr.close()
    return "no standard input, output or error at the start"
