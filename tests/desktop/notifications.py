"""Pictures of the notification on real daemons."""

from tests.desktop.pointer import place_of
from tests.harness.link_file import write_link
from tests.harness.log_lines import APPLIED
from tests.harness.pictures import crop
from tests.harness.program import Program
from tests.harness.session import NOTIFICATIONS, DesktopSession
from tests.harness.sites import demo_sites
from tests.harness.waiting import wait_for
from tests.harness.web_server import SiteServer

DAEMONS = ["xfce4-notifyd", "dunst"]


def show_notification(daemon, executable, output):
    server = SiteServer(demo_sites())
    with server, DesktopSession(server) as session:
        if daemon == "dunst":
            session.spawn("dunst", ["dunst"])
            session.wait_for_bus_name(NOTIFICATIONS)
        else:
            session.start_window_manager()
            session.start_notifyd()
        program = Program(session, executable).start()
        program.wait_for_line("Glintmark: Notification authorized")
        write_link(session.downloads / "Tom & Jerry <1>.webloc", "http://glint.example/")
        program.wait_for_line(APPLIED)
        path = output / f"notification-{daemon}.png"

        def look():
            found = session.run(
                ["xdotool", "search", "--onlyvisible", "--class", daemon], check=False
            ).split()
            return found[-1] if found else None

        window = wait_for(look, "the notification")
        session.wait_until_still(path, period=0.5)
        crop(path, place_of(session, window), margin=4)
        return "the title and the file's name, written out"
