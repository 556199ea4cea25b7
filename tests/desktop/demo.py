"""Shows the program at work in a private desktop session: one link, one icon, one picture of it."""

import shutil
import sys

from tests.harness.link_file import icon_name, move_link_in
from tests.harness.options import parse_options
from tests.harness.program import Program
from tests.harness.session import DesktopSession
from tests.harness.sites import MAGENTA, demo_sites
from tests.harness.web_server import SiteServer


def main():
    options = parse_options(__doc__, output="build/demo")
    output = options.output
    shutil.rmtree(output, ignore_errors=True)
    output.mkdir(parents=True)
    server = SiteServer(demo_sites())
    with server, DesktopSession(server, root=output / "session") as session:
        session.start_desktop()
        program = Program(session, options.program).start().wait_until_started()
        session.open_file_manager(session.downloads)
        link = move_link_in(session.downloads / "Glint.webloc", "http://glint.example/")
        program.wait_until_applied(link)
        session.wait_for_colour(MAGENTA, minimum=300)
        picture = session.screenshot(output / "desktop.png")
        program.terminate()
        icon = session.stored_icon(icon_name(link))
        print("\n".join(program.lines()))
        print(f"\nThe link file:  {link}\nIts icon:       {icon}\nThe desktop:    {picture}")


if __name__ == "__main__":
    sys.exit(main())
