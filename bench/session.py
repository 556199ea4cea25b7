"""A private session with a whole desktop, in which the program is measured."""

import contextlib

from tests.harness.link_file import write_link
from tests.harness.log_lines import APPLIED
from tests.harness.session import DesktopSession
from tests.harness.sites import demo_sites
from tests.harness.status_item import StatusItem
from tests.harness.web_server import SiteServer

SETTLED_AFTER = 32  # seconds: the image decoder and the HTTP client's thread have ended, too


@contextlib.contextmanager
def desktop():
    """Yields the session."""
    server = SiteServer(demo_sites())
    with server, DesktopSession(server) as session:
        session.start_desktop()
        yield session


def start_and_show(session, program):
    """Returns the process's id when the panel shows the status item."""
    program.start().wait_until_started()
    StatusItem(session)
    return program.process.pid


def fetch_one_icon(session, program):
    write_link(session.downloads / "a.webloc", "http://glint.example/")
    program.wait_for_line(APPLIED)
