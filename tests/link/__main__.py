"""The built companion program: every command, as people call it, against a web on loopback.

The home folder is private and there is no desktop. `--full` also sets 2,000 icons from sites that
take 50 ms for each answer, and prints time and memory.
"""

import argparse
import json
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from tests.harness.answers import link_tag, picture
from tests.harness.bare_program import BareProgram
from tests.harness.image_files import disc_png, flat_png
from tests.harness.link_file import icon_name, write_link
from tests.harness.log_lines import APPLIED
from tests.harness.options import absolute_path
from tests.harness.waiting import DEADLINE, wait_for
from tests.harness.web_server import ANY_PATH, NEVER, Answer, SiteServer

OPTIONS = argparse.Namespace(program=None, resident=None, full=False)
SIZES = ("normal", "large", "x-large", "xx-large")
PNG_END = b"IEND\xaeB`\x82"
ENTRY = "[Desktop Entry]\nType=Link\nName=Site\nURL={}\nX-Kept=1\n"
MANY = 2000
MANY_SECONDS = 120  # for 2,000 files; alone on two cores it is far less
MANY_KILOBYTES = 100_000


def a_site(colour=(230, 20, 160), title="A &amp; B", delay=0.0):
    page = f"<title>{title}</title>" + link_tag("icon", "/icon.png")
    icon = picture(disc_png(256, colour))
    icon.delay = delay
    return {
        "/": Answer(page.encode(), delay=delay),
        "/icon.png": icon,
        ANY_PATH: Answer(b"", 404, delay=delay),
    }


class LinkTest(unittest.TestCase):
    """A home folder, and sites that answer."""

    maxDiff = None

    def setUp(self):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="glintmark-link-"))
        self.addCleanup(shutil.rmtree, self.root, ignore_errors=True)
        self.home = self.root / "home"
        self.folder = self.home / "Links"
        self.folder.mkdir(parents=True)
        (self.home / "Desktop").mkdir()
        (self.root / "runtime").mkdir()
        self.server = self.enterContext(SiteServer({}))
        self.environment = {
            "PATH": os.environ["PATH"],
            "HOME": str(self.home),
            "XDG_RUNTIME_DIR": str(self.root / "runtime"),
            "GLINTMARK_FAVICON_SERVICE": "",
            "LANG": "C.UTF-8",
            **self.server.proxy_environment(),
        }

    def run_link(self, *arguments, status=0, **settings):
        done = subprocess.run(
            [OPTIONS.program, *map(str, arguments)],
            env=self.environment,
            cwd=self.folder,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            timeout=DEADLINE,
            check=False,
            **settings,
        )
        self.assertEqual(done.returncode, status, done)
        self.assertLessEqual(
            {line.partition(b": ")[0] for line in done.stderr.splitlines()}, {b"glintmark-link"}
        )
        return done

    def objects(self, done):
        return [json.loads(line) for line in done.stdout.splitlines()]

    def add_link(self, name, host, **site):
        self.server.sites[host] = a_site(**site)
        return write_link(self.folder / name, f"http://{host}/")

    def assert_has_whole_icon(self, path):
        name = icon_name(path)
        self.assertIsNotNone(name, path)
        stored = self.home / f".local/share/glintmark/icons/{name}.png"
        self.assertTrue(stored.read_bytes().endswith(PNG_END), stored)


class IconTest(LinkTest):
    def test_every_kind_of_link_file_gets_its_icon(self):
        webloc = self.add_link("a.webloc", "a.example")
        self.server.sites["b.example"] = a_site()
        entry = self.folder / "b.desktop"
        entry.write_text(ENTRY.format("http://b.example/"))
        entry.chmod(0o750)
        shortcut = self.folder / "c.url"
        shortcut.write_bytes(b"[InternetShortcut]\r\nURL=http://b.example/\r\n")
        (self.folder / "program.desktop").write_text("[Desktop Entry]\nType=Application\n")
        *files, summary = self.objects(self.run_link("icon", "--json", self.folder))
        self.assertEqual({entry["result"] for entry in files}, {"set"})
        self.assertEqual((summary["results"], summary["sources"]), ({"set": 3}, {"htmlIcon": 3}))
        for path in (webloc, entry, shortcut):
            self.assert_has_whole_icon(path)
        icon = f"{self.home}/.local/share/glintmark/icons/{icon_name(entry)}.png"
        expected = ENTRY.format(f"http://b.example/\nIcon={icon}")
        self.assertEqual(entry.read_text(), expected)
        self.assertEqual(entry.stat().st_mode & 0o777, 0o750)
        for size in SIZES:
            thumbnails = list((self.home / ".cache/thumbnails" / size).iterdir())
            self.assertEqual(len(thumbnails), 3)
        self.assertEqual(sorted(os.listdir(self.folder))[:3], ["a.webloc", "b.desktop", "c.url"])

    def test_an_icon_is_set_again_unless_only_missing_ones_are_wanted(self):
        path = self.add_link("a.webloc", "a.example")
        self.run_link("icon", path)
        first = icon_name(path)
        self.server.sites["a.example"] = a_site(colour=(10, 190, 170))
        self.assertIn(b"has an icon", self.run_link("icon", "--missing-only", path).stdout)
        self.assertEqual(icon_name(path), first)
        self.run_link("icon", path)
        self.assertNotEqual(icon_name(path), first)

    def test_the_lines_name_source_and_reason(self):
        good = self.add_link("a.webloc", "a.example")
        bad = write_link(self.folder / "b.webloc", "http://none.example/")
        done = self.run_link("icon", good, bad, status=os.EX_UNAVAILABLE)
        self.assertEqual(
            done.stdout.decode(),
            f"{good}: icon set (htmlIcon, 256x256)\n"
            "1 of 2 files got an icon.\n  1  htmlIcon\n"
            "  1  the site has no icon or does not answer\n",
        )
        reason = "the site has no icon or does not answer"
        self.assertEqual(done.stderr.decode(), f"glintmark-link: {bad}: {reason}\n")

    def test_a_dry_run_changes_and_asks_nothing(self):
        path = self.add_link("a.webloc", "a.example")
        self.run_link("icon", "--dry-run", path)
        self.assertIsNone(icon_name(path))
        self.assertEqual(self.server.requests, [])

    def test_an_interrupted_run_leaves_whole_files_and_a_summary(self):
        for number in range(60):
            self.add_link(f"{number:02}.webloc", f"s{number}.example")
            if number > 9:
                self.server.sites[f"s{number}.example"][ANY_PATH] = Answer(delay=NEVER)
        log = self.root / "output"
        with open(log, "wb") as output:
            process = subprocess.Popen(
                [OPTIONS.program, "icon", self.folder],
                env=self.environment,
                stdout=output,
                stderr=subprocess.PIPE,
            )
        wait_for(lambda: log.read_bytes().count(b"icon set") == 10, "the tenth icon")
        process.send_signal(signal.SIGINT)
        _, errors = process.communicate(timeout=DEADLINE)
        output = log.read_bytes()
        self.assertEqual(process.returncode, 128 + signal.SIGINT, errors)
        self.assertIn(b"10 of 60 files got an icon.", output)
        self.assertIn(b"  50  interrupted", output)
        for number in range(10):
            self.assert_has_whole_icon(self.folder / f"{number:02}.webloc")
        self.assertEqual(len(os.listdir(self.folder)), 60)

    def test_both_programs_may_work_on_the_same_files(self):
        names = [f"{number:02}.webloc" for number in range(40)]
        for number in range(40):
            self.server.sites[f"s{number}.example"] = a_site(colour=(number * 6, 20, 160))
        with BareProgram(OPTIONS.resident) as resident:
            resident.environment.update(self.server.proxy_environment())
            resident.start()
            self.home = resident.home
            self.environment["HOME"] = str(self.home)
            for number, name in enumerate(names):
                write_link(resident.desktop / name, f"http://s{number}.example/")
            runs = 0
            while resident.log().decode().count(APPLIED) < len(names) or runs < 2:
                self.run_link("icon", resident.desktop)
                runs += 1
            for name in names:
                self.assert_has_whole_icon(resident.desktop / name)
            applied = (self.home / ".local/share/glintmark/applied").read_text().splitlines()
            self.assertEqual(len(applied), len(names) * (1 + runs))
            self.assertTrue(all(len(line.split(" ")) == 2 for line in applied))
            for size in SIZES:
                for path in (self.home / ".cache/thumbnails" / size).iterdir():
                    self.assertTrue(path.read_bytes().endswith(PNG_END), path)

    @unittest.skipUnless("--full" in sys.argv, "only with --full")
    def test_two_thousand_files(self):
        for number in range(MANY):
            write_link(self.folder / f"{number}.webloc", f"http://s{number}.example/")
        sites = {f"s{number}.example": a_site(delay=0.05) for number in range(MANY)}
        with SiteServer(sites, separate_process=True) as server:
            self.environment.update(server.proxy_environment())
            begin = time.monotonic()
            done = subprocess.run(
                [OPTIONS.program, "icon", "--json", self.folder],
                env=self.environment,
                capture_output=True,
                timeout=10 * DEADLINE,
                check=False,
            )
            seconds = time.monotonic() - begin
        kilobytes = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
        *files, summary = self.objects(done)
        print(
            f"{MANY} files at 50 ms: {seconds:.1f} s (at most {MANY_SECONDS}), largest process "
            f"{kilobytes / 1000:.0f} MB (at most {MANY_KILOBYTES / 1000:.0f})"
        )
        self.assertEqual(len(files), MANY)
        self.assertEqual(summary["results"], {"set": MANY})
        self.assertLess(seconds, MANY_SECONDS)
        self.assertLess(kilobytes, MANY_KILOBYTES)
        self.assertEqual(sum(icon_name(path) is not None for path in self.folder.iterdir()), MANY)


class OpenTest(LinkTest):
    def setUp(self):
        super().setUp()
        programs = self.root / "bin"
        programs.mkdir()
        browser = programs / "browser"
        browser.write_text(f'#!/bin/sh\necho "$1" >> {self.root}/opened\n')
        browser.chmod(0o755)
        self.environment["PATH"] = f"{programs}:{self.environment['PATH']}"
        applications = self.home / ".local/share/applications"
        applications.mkdir(parents=True)
        (applications / "browser.desktop").write_text(
            "[Desktop Entry]\nType=Application\nName=Browser\nExec=browser %u\n"
            "MimeType=x-scheme-handler/http;x-scheme-handler/https;\n"
        )
        (applications / "mimeapps.list").write_text(
            "[Default Applications]\nx-scheme-handler/http=browser.desktop\n"
        )

    def opened(self):
        path = self.root / "opened"
        return path.read_text().splitlines() if path.exists() else []

    def test_without_a_portal_the_default_program_opens_the_link(self):
        path = self.add_link("a b.webloc", "a.example")
        self.run_link("open", path)
        wait_for(lambda: self.opened() == ["http://a.example/"], "the browser")
        self.run_link("open", path.as_uri())
        wait_for(lambda: self.opened() == ["http://a.example/"] * 2, "the browser")

    def test_other_schemes_are_refused_by_name(self):
        path = write_link(self.folder / "a.webloc", "file:///etc/passwd")
        done = self.run_link("open", path, status=os.EX_DATAERR)
        self.assertIn("“file”".encode(), done.stderr)
        self.assertEqual(len(done.stderr.splitlines()), 1)
        self.assertEqual(self.opened(), [])


class NewTest(LinkTest):
    def test_a_link_file_is_named_for_its_page(self):
        self.server.sites["a.example"] = a_site(title="&lt;A/B&gt;")
        for name in ("<A-B>.webloc", "<A-B> 2.webloc"):
            done = self.run_link("new", "http://a.example/")
            self.assertEqual(done.stdout.decode(), f"{self.folder}/{name}\n")
        self.run_link("new", "http://none.example/", self.folder)
        self.assertTrue((self.folder / "none.example.webloc").exists())

    def test_another_file_is_only_replaced_by_force(self):
        path = self.folder / "a.webloc"
        self.run_link("new", "http://a.example/", path)
        done = self.run_link("new", "http://b.example/", path, status=os.EX_CANTCREAT)
        self.assertIn(b"a file of this name exists", done.stderr)
        self.assertIn("http://a.example/", path.read_text())
        self.run_link("new", "--force", "http://b.example/", path)
        self.assertIn("http://b.example/", path.read_text())

    def test_other_forms_become_link_files(self):
        dropped = ENTRY.replace("URL", "URL[$e]")  # as Dolphin writes it
        (self.folder / "a.desktop").write_text(dropped.format("http://a.example/?b&c"))
        (self.folder / "b.url").write_bytes(b"[InternetShortcut]\r\nURL=http://b.example/\r\n")
        self.run_link("new", "--from", "a.desktop", "b.url")
        self.assertIn("http://a.example/?b&amp;c", (self.folder / "a.webloc").read_text())
        self.assertIn("http://b.example/", (self.folder / "b.webloc").read_text())
        self.run_link("new", "--from", "a.webloc", status=os.EX_DATAERR)

    def test_dropped_addresses_land_on_the_desktop(self):
        self.server.sites["a.example"] = a_site(title="A")
        self.run_link("new", "--desktop", "http://a.example/", "http://none.example/")
        self.assertEqual(
            sorted(os.listdir(self.home / "Desktop")), ["A.webloc", "none.example.webloc"]
        )
        self.run_link("new", "--desktop", "javascript:1", status=os.EX_DATAERR)
        self.run_link("new", "--desktop", status=os.EX_USAGE)


class ExplainTest(LinkTest):
    def test_a_file_is_explained_like_its_link(self):
        path = self.add_link("a.webloc", "a.example")
        for argument in (path, "http://a.example/"):
            output = self.run_link("explain", argument).stdout.decode()
            self.assertIn("Winner: htmlIcon http://a.example/icon.png\n", output)
        objects = self.objects(self.run_link("explain", "--json", path))
        self.assertEqual(objects[-1]["candidate"]["source"], "htmlIcon")

    def test_a_page_shows_the_pictures(self):
        self.server.sites["a.example"] = a_site()
        self.server.sites["a.example"]["/favicon.ico"] = picture(flat_png(32, 32, (1, 2, 3)))
        page = self.folder / "page.html"
        self.run_link("explain", "--html", page, "http://a.example/")
        self.assertEqual(page.read_text().count('<img alt="" src="data:image/png;base64,'), 2)

    def test_a_site_without_an_icon_and_a_text_without_a_host_fail(self):
        done = self.run_link("explain", "http://none.example/", status=os.EX_UNAVAILABLE)
        self.assertIn(b"No icon.\n", done.stdout)
        self.run_link("explain", "none.example", status=os.EX_DATAERR)


class CommandLineTest(LinkTest):
    def test_help_and_version_succeed_and_wrong_use_fails(self):
        self.assertIn(b"glintmark-link COMMAND", self.run_link("--help").stdout)
        self.assertRegex(self.run_link("--version").stdout, rb"^glintmark-link \d")
        for arguments in ((), ("unknown",), ("icon",), ("icon", "--unknown", "a")):
            done = self.run_link(*arguments, status=os.EX_USAGE)
            self.assertEqual(len(done.stderr.splitlines()), 1)

    def test_texts_are_in_the_language_of_the_user(self):
        self.environment["LANGUAGE"] = "ja"
        self.assertIn("使い方:", self.run_link("--help").stdout.decode())


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", default="build/release/glintmark-link", type=absolute_path)
    parser.add_argument("--resident", default="build/release/glintmark", type=absolute_path)
    parser.add_argument("--full", action="store_true")
    parser.add_argument("tests", nargs="*", help="names of single tests")
    vars(OPTIONS).update(vars(parser.parse_args()))
    unittest.main(argv=[sys.argv[0], "-v", *OPTIONS.tests])


if __name__ == "__main__":
    main()
