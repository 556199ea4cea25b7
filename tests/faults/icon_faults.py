"""Every call that setting an icon needs fails once, each for another file."""

import colorsys
import concurrent.futures
import errno
import hashlib
import subprocess

from tests.faults.faults import CUT_SHORT
from tests.faults.faulty_program import FaultyProgram
from tests.harness.answers import picture
from tests.harness.image_files import flat_png
from tests.harness.link_file import icon_name
from tests.harness.log_lines import ICON_SET
from tests.harness.steps import check
from tests.harness.waiting import wait_for
from tests.harness.web_server import SiteServer

SITES = 48
AT_ONCE = 6  # programs
LAST = "last"  # the second file of each site

# For each kind of file: the functions, and the errors that they may return.
LINK_FILE = {
    "stat": [errno.EIO],
    "open": [errno.EMFILE, errno.EIO],
    "fstat": [errno.EIO],
    "read": [errno.EIO],
    "setxattr": [errno.ENOSPC, errno.ENOTSUP],
    "utimensat": [errno.EPERM],
}
NEW_FILE = {
    "mkostemps": [errno.EMFILE],
    "fchmod": [errno.EPERM],
    "write": [errno.ENOSPC, CUT_SHORT],
    "rename": [errno.ENOSPC],
    "close": [errno.EIO],
}
STORED = {"stat": [errno.EIO], **NEW_FILE}
STORED_FAULTS = sum(map(len, STORED.values()))


def colour_of(number):
    return tuple(int(255 * part) for part in colorsys.hsv_to_rgb(number / SITES, 0.9, 0.9))


def sites():
    return {
        f"s{number}.example": {"/favicon.ico": picture(flat_png(32, 32, colour_of(number)))}
        for number in range(SITES)
    }


def address_of(number):
    return f"http://s{number}.example/"


def thumbnail_name(link):
    return hashlib.md5(link.as_uri().encode()).hexdigest()


def link_of(program, number):
    return program.downloads / f"link-{number}-.webloc"


def drop_all(program, numbers):
    for number in numbers:
        program.drop(link_of(program, number).name, address_of(number))
    for number in numbers:
        program.wait_for_end(link_of(program, number), address_of(number))


def clean_run(options, server):
    """The names of the first sites' stored icons, and the number of calls of each function for a
    file."""
    with FaultyProgram(options, server) as program:
        link = link_of(program, 0)
        program.start()
        orders = {("link", name): program.faults.count(name, link.name) for name in LINK_FILE}
        for name in NEW_FILE:
            orders["thumbnail", name] = program.faults.count(name, thumbnail_name(link))
        numbers = range(STORED_FAULTS)
        drop_all(program, numbers)
        names = [icon_name(link_of(program, number)) for number in numbers]
        calls = {key: program.faults.seen(order) for key, order in orders.items()}
    check(len({*names, None}) == STORED_FAULTS + 1, f"not every icon was set: {names}")
    check(calls["thumbnail", "rename"] == 4, f"other thumbnails than expected: {calls}")
    return names, calls


def plan(calls):
    """A list of (kind, function, error, number of the call), each with its own link."""
    found = []
    for kind, functions in (("stored", STORED), ("link", LINK_FILE), ("thumbnail", NEW_FILE)):
        for function, errors in functions.items():
            for error in errors:
                # A stored icon is one file, written at once.
                most = calls.get((kind, function), 1)
                found += [(kind, function, error, call) for call in range(1, most + 1)]
    return found[:SITES]


def pixel_colours(files):
    """The colour in the middle of each picture. One command reads them all."""
    colour = ",".join(f"%[fx:int(255*p{{w/2,h/2}}.{channel}+.5)]" for channel in "rgb")
    command = ["identify", "-format", colour + "\n", *files]
    lines = subprocess.run(command, check=True, capture_output=True, text=True).stdout.split()
    return [tuple(map(int, line.split(","))) for line in lines]


def check_pictures(program, faults):
    """All icons and thumbnails that exist are complete and show the right site."""
    expected = {}
    for number in range(len(faults)):
        link = link_of(program, number)
        for file in program.thumbnails.glob(f"*/{thumbnail_name(link)}.png"):
            expected[file] = colour_of(number)
        if name := icon_name(link):
            stored = program.icons / f"{name}.png"
            check(stored.exists(), f"link {number} has an icon that does not exist")
            expected[stored] = colour_of(number)
    for (file, wanted), colour in zip(expected.items(), pixel_colours(expected)):
        check(max(abs(a - b) for a, b in zip(colour, wanted)) < 3, f"{file} has {colour}")


def check_next_icons(program, faults, step=1):
    """Checks every `step`-th site once more, without faults."""
    program.faults.clear()
    numbers = range(0, len(faults), step)
    links = [program.drop(f"{LAST}-{number}.webloc", address_of(number)) for number in numbers]
    for link, fault in zip(links, faults[::step]):
        wait_for(lambda: program.count(f"{ICON_SET}{link}"), f"the icon of a file after {fault}")
        thumbnails = list(program.thumbnails.glob(f"*/{thumbnail_name(link)}.png"))
        check(len(thumbnails) == 4, f"thumbnails of a file after {fault}")


def folder_cannot_be_made(options, server, number):
    with FaultyProgram(options, server) as program:
        order = program.faults.fail("mkdir", errno.ENOSPC, str(program.home), number)
        program.start()
        drop_all(program, [0])
        check(program.faults.seen(order) >= number, f"folder {number} was not made")
        check(program.ends(link_of(program, 0), address_of(0)) == 1, f"folder {number}: more ends")
        check(not program.unfinished_files(), f"folder {number}: {program.unfinished_files()}")
        check_next_icons(program, [f"folder {number}"])
        program.check_ends()


def each_folder_cannot_be_made(options):
    """The folders that the first icon of a user needs."""
    with SiteServer(sites()) as server:
        with FaultyProgram(options, server) as program:
            order = program.faults.count("mkdir", str(program.home))
            program.start()
            drop_all(program, [0])
            count = program.faults.seen(order)
        numbers = range(1, count + 1, 1 if options.full else 4)
        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
            list(pool.map(lambda number: folder_cannot_be_made(options, server, number), numbers))
    return f"{len(numbers)} folders, the next icon always set"


def each_call_fails(options):
    with SiteServer(sites()) as server:
        names, calls = clean_run(options, server)
        faults = plan(calls)
        with FaultyProgram(options, server) as program:
            program.start()
            subjects = {
                "link": lambda number: link_of(program, number).name,
                "thumbnail": lambda number: thumbnail_name(link_of(program, number)),
                "stored": lambda number: names[number],
            }
            orders = [
                program.faults.fail(function, error, subjects[kind](number), call)
                for number, (kind, function, error, call) in enumerate(faults)
            ]
            drop_all(program, range(len(faults)))
            seen = map(program.faults.seen, orders)
            unused = [fault for fault, count in zip(faults, seen) if count < fault[3]]
            check(not unused, f"calls that did not come: {unused}")
            for number, fault in enumerate(faults):
                ends = program.ends(link_of(program, number), address_of(number))
                check(ends == 1, f"{fault}: {ends} ends")
            check(not program.unfinished_files(), f"left: {program.unfinished_files()}")
            check_pictures(program, faults)
            check_next_icons(program, faults, 1 if options.full else 3)
            program.check_lives("all faults")
            program.check_ends()
    return f"{len(faults)} faults, one end each, no wrong icon, nothing left over"
