"""Pictures of the notification on real daemons."""

from pictures import crop
from pointer import place_of
from program import Program, write_link
from session import DesktopSession, wait_for
from sites import SiteServer, demo_sites

DAEMONS = ["xfce4-notifyd", "dunst"]


def show_notification(daemon, executable, output):
    with SiteServer(demo_sites()) as server, \
            DesktopSession(environment=server.proxy_environment()) as session:
        if daemon == "dunst":
            session.spawn("dunst", ["dunst"])
            session.wait_for_bus_name("org.freedesktop.Notifications")
        else:
            session.start_window_manager()
            session.start_notifyd()
        program = Program(session, executable).start()
        program.wait_for_line("Glintmark: Notification authorized")
        write_link(session.home / "Downloads" / "Tom & Jerry <1>.webloc", "http://glint.example/")
        program.wait_for_line("Glintmark: Icon applied")
        path = output / f"notification-{daemon}.png"

        def look():
            found = session.run(["xdotool", "search", "--onlyvisible", "--class", daemon],
                                check=False).split()
            return found[-1] if found else None
        window = wait_for(look, "the notification")
        session.wait_until_still(path, period=0.5)
        crop(path, place_of(session, window), margin=4)
        return "the title and the file's name, written out"
