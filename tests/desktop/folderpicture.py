"""The picture of a folder whose links have their sites' icons, for the product's page."""

import subprocess

from tests.harness.answers import picture
from tests.harness.link_file import move_link_in
from tests.harness.log_lines import APPLIED
from tests.harness.pictures import crop, find_colour
from tests.harness.program import Program
from tests.harness.session import NOTIFICATIONS, DesktopSession
from tests.harness.waiting import wait_for
from tests.harness.web_server import Answer, SiteServer

# Name of the link, colour of its site's icon, and the shapes that are drawn on it in white.
SITES = [
    ("Atlas", "#2a7de1", "circle 128,128 128,60 fill #2a7de1 ellipse 128,128 30,68 0,360"),
    ("Garden", "#2e9e5b", "ellipse 128,110 46,62 0,360 rectangle 122,150 134,210"),
    ("Kitchen", "#e2572b", "roundrectangle 70,120 186,190 20,20 rectangle 84,84 172,104"),
    ("Music", "#8a3ffc", "circle 96,180 96,152 rectangle 112,70 124,180 rectangle 112,70 184,92"),
    ("News", "#1f2937", "rectangle 70,70 186,94 rectangle 70,116 186,134 rectangle 70,156 140,174"),
    ("Weather", "#f2a900", "circle 128,128 128,76"),
]
COMMON = ("Atlas", "News")  # their colours occur in the rest of the window, too


def drawn_icon(colour, shapes):
    return subprocess.run(
        [
            "convert",
            "-size",
            "256x256",
            "xc:none",
            "-fill",
            colour,
            "-draw",
            "roundrectangle 8,8 248,248 52,52",
            "-fill",
            "white",
            "-draw",
            shapes,
            "png:-",
        ],
        check=True,
        stdout=subprocess.PIPE,
    ).stdout


def rgb(colour):
    return tuple(int(colour[i : i + 2], 16) for i in (1, 3, 5))


def sites():
    found = {}
    for name, colour, shapes in SITES:
        found[f"{name.lower()}.example"] = {
            "/": Answer(b'<link rel="icon" href="/icon.png" sizes="256x256">'),
            "/icon.png": picture(drawn_icon(colour, shapes)),
        }
    return found


def show_folder(executable, output):
    server = SiteServer(sites())
    with server, DesktopSession(server) as session:
        session.disable(NOTIFICATIONS)
        session.start_window_manager()
        program = Program(session, executable).start().wait_until_started()
        folder = session.downloads
        session.open_file_manager(folder)
        for name, _, _ in SITES:
            move_link_in(folder / f"{name}.webloc", f"http://{name.lower()}.example/")
        wait_for(lambda: len(program.lines_about(APPLIED)) == len(SITES), "all icons")
        path = output / "folder.png"
        session.wait_until_still(path, period=6.0, timeout=60)
        # The icons and their names, without the rest of the window.
        boxes = [find_colour(path, rgb(colour)) for name, colour, _ in SITES if name not in COMMON]
        left, top = min(box.left for box in boxes), min(box.top for box in boxes)
        crop(
            path,
            (
                left,
                top,
                max(box.right for box in boxes) - left,
                max(box.bottom for box in boxes) - top,
            ),
            margin=30,
        )
        return "six links with their sites' icons"
