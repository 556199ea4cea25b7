"""The base of every desktop test: a separate session and the built program in it."""

import argparse
import pathlib
import shutil
import unittest

from tests.harness.link_file import icon_name, move_link_in
from tests.harness.program import Program
from tests.harness.session import DesktopSession
from tests.harness.sites import demo_sites
from tests.harness.web_server import SiteServer

OPTIONS = argparse.Namespace(program=None, output=None)


def note_addresses(session):
    """Makes a default browser that only notes the addresses. Returns the path of the notes."""
    notes = session.root / "browser.txt"
    # By its path: the portal that may start it has the search path of the bus.
    browser = session.stand_in("note-address", f'echo "$1" >> "{notes}"')
    applications = session.data_home / "applications"
    applications.mkdir(parents=True, exist_ok=True)
    (applications / "note-address.desktop").write_text(
        f"[Desktop Entry]\nType=Application\nName=Notes\nExec={browser} %u\n"
        "MimeType=text/html;x-scheme-handler/http;x-scheme-handler/https;\n"
    )
    (session.config_home / "mimeapps.list").write_text(
        "[Default Applications]\ntext/html=note-address.desktop\n"
        "x-scheme-handler/http=note-address.desktop\nx-scheme-handler/https=note-address.desktop\n"
    )
    return notes


class DesktopTest(unittest.TestCase):
    """A session with sites and a private home, and the program in it, not yet started."""

    maxDiff = None

    def setUp(self):
        folder = OPTIONS.output / self.id().split(".")[-1]
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        self.pictures = folder
        self.server = self.enterContext(SiteServer(demo_sites()))
        session = DesktopSession(self.server, root=folder / "session")
        self.session = self.enterContext(session)
        self.desktop = self.session.desktop
        self.downloads = self.session.downloads
        self.program = Program(self.session, OPTIONS.program)

    def write_extra_folders(self, *folders):
        """Makes folders and stores them as the user's own."""
        for folder in folders:
            pathlib.Path(folder).mkdir(parents=True, exist_ok=True)
        self.session.settings.store_extra_folders(folders)

    def stand_in_browser(self):
        return note_addresses(self.session)

    def start_program(self):
        self.program.start().wait_until_started()

    def drop(self, name, url):
        return move_link_in(self.downloads / name, url)

    def drop_and_wait(self, name, url="http://glint.example/"):
        """Drops a link and waits for its icon."""
        link = self.drop(name, url)
        self.program.wait_until_applied(link)
        return link

    def stored_icon(self, link):
        return self.session.stored_icon(icon_name(link))
