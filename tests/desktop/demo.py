#!/usr/bin/env python3
"""Shows the program at work in a private desktop session: one link, one icon, one picture of it."""

import argparse
import pathlib
import shutil
import sys

from program import Program, extended_attribute, write_link
from session import DesktopSession
from sites import MAGENTA, SiteServer, demo_sites


def show(executable, output):
    shutil.rmtree(output, ignore_errors=True)
    output.mkdir(parents=True)
    with SiteServer(demo_sites()) as server, \
            DesktopSession(root=output / "session", keep=True,
                           environment=server.proxy_environment()) as session:
        session.start_window_manager()
        session.start_notifyd()
        session.start_panel()
        program = Program(session, executable).start()
        program.wait_until_started()
        folder = session.home / "Downloads"
        session.open_file_manager("thunar", folder)
        link = write_link(folder / "Glint.webloc", "http://glint.example/")
        program.wait_for_line(f"Glintmark: Icon applied → {link}")
        session.wait_for_colour(MAGENTA, minimum=300)
        picture = session.screenshot(output / "desktop.png")
        program.terminate()
        print("\n".join(program.lines()))
        icon = session.data_home / "glintmark" / "icons" / f"{extended_attribute(link)}.png"
        print(f"\nThe link file:  {link}\nIts icon:       {icon}\nThe desktop:    {picture}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True, type=pathlib.Path)
    parser.add_argument("--output", required=True, type=pathlib.Path)
    arguments = parser.parse_args()
    show(arguments.program, arguments.output.resolve())


if __name__ == "__main__":
    sys.exit(main())
