"""What every test of the desktop starts from: a session of its own and the built program in it."""

import argparse
import json
import os
import pathlib
import shutil
import unittest

from program import Program, extended_attribute, write_link
from session import DesktopSession
from sites import SiteServer, demo_sites

OPTIONS = argparse.Namespace(program=None, output=None)


class DesktopTest(unittest.TestCase):
    """One session with panel, notification daemon and sites; the program with its own home."""

    maxDiff = None

    def setUp(self):
        folder = OPTIONS.output / self.id().split(".")[-1]
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        self.pictures = folder
        self.server = self.enterContext(SiteServer(demo_sites()))
        self.session = self.enterContext(DesktopSession(
            root=folder / "session", keep=True, environment=self.server.proxy_environment()))
        self.desktop = self.session.home / "Desktop"
        self.downloads = self.session.home / "Downloads"
        self.program = Program(self.session, OPTIONS.program)

    def enterContext(self, context):  # unittest has it from Python 3.11 on
        value = context.__enter__()
        self.addCleanup(context.__exit__, None, None, None)
        return value

    def write_extra_folders(self, *folders):
        """What the program finds stored as the user's own folders; they are made as well."""
        for folder in folders:
            pathlib.Path(folder).mkdir(parents=True, exist_ok=True)
        path = self.session.config_home / "glintmark" / "defaults.json"
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(json.dumps({"extraFolders": [str(folder) for folder in folders]}))

    def extra_folders(self):
        path = self.session.config_home / "glintmark" / "defaults.json"
        return json.loads(path.read_text())["extraFolders"] if path.exists() else None

    def stand_in(self, name, script):
        """Puts a shell script first in the program's search path."""
        path = self.session.root / "bin" / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(0o755)
        self.session.environment["PATH"] = f"{path.parent}:{os.environ['PATH']}"

    def stand_in_browser(self):
        """A default browser that only notes what it is to open. The notes."""
        notes = self.session.root / "browser.txt"
        self.stand_in("note-address", f'echo "$1" >> "{notes}"')
        applications = self.session.data_home / "applications"
        applications.mkdir(parents=True, exist_ok=True)
        (applications / "note-address.desktop").write_text(
            "[Desktop Entry]\nType=Application\nName=Notes\nExec=note-address %u\n"
            "MimeType=text/html;x-scheme-handler/http;x-scheme-handler/https;\n")
        (self.session.config_home / "mimeapps.list").write_text(
            "[Default Applications]\ntext/html=note-address.desktop\n")
        return notes

    def start_desktop(self):
        self.session.start_window_manager()
        self.session.start_notifyd()
        self.session.start_panel()

    def start_program(self):
        self.program.start()
        self.program.wait_until_started()

    def drop(self, name, url):
        return write_link(self.downloads / name, url)

    def wait_until_applied(self, link):
        self.program.wait_for_line(f"Glintmark: Icon applied → {link}")

    def stored_icon(self, link):
        return self.session.data_home / "glintmark" / "icons" / f"{extended_attribute(link)}.png"
