"""Checks the files that a release build installs and packages against the rules of their readers.

Needs no special rights and writes only into `--output`. tests/package/run shows how the package
behaves on a system that has nothing else.
"""

import argparse
import configparser
import os
import pathlib
import platform
import re
import shutil
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ElementTree

from tests.harness.options import absolute_path
from tests.package.commands import output_of
from tests.package.completions import TABS, completed

ROOT = pathlib.Path(__file__).resolve().parents[2]
OPTIONS = argparse.Namespace(build=None, output=None)
ICON_SIZES = (16, 22, 24, 32, 48, 64, 128, 256, 512)
# By processor: where a guarded jump may lead.
GUARDED_JUMP = {"x86_64": r"\bendbr64\b", "aarch64": r"\bbti\b|\bpaciasp\b"}
LEAST_GUARDED_JUMPS = 20  # in a program; the C library's start files have a few
# On x86_64: what makes room for a large stack frame, with the next instruction; and the probe.
LARGE_FRAME = r"\bsub +\$0x[0-9a-f]{4,8},%rsp\n(.*)"
STACK_PROBE = r"\borq? +\$0x0,\S*\(%rsp\)"
XML_LANGUAGE = "{http://www.w3.org/XML/1998/namespace}lang"


def project_version():
    text = (ROOT / "CMakeLists.txt").read_text()
    return re.search(r"^project\(glintmark VERSION (\S+)", text, re.M).group(1)


def table_languages():
    """The languages of the string tables except English, by their locale names."""
    folders = {
        path.parent.name.removesuffix(".lproj")
        for path in ROOT.glob("resources/*.lproj/Localizable.strings")
    }
    return {name.replace("zh-Hans", "zh_CN") for name in folders - {"en"}}


def texts_of(language):
    """The string table of a language, which is a locale name."""
    folder = language.replace("zh_CN", "zh-Hans") + ".lproj"
    table = (ROOT / "resources" / folder / "Localizable.strings").read_text()
    return dict(re.findall(r'(?m)^"([^"]+)" = "(.*)";$', table))


def files_below(folder):
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir())


def expected_files():
    """The listed files, and all files of the product's page."""
    page = output_of("git", "-C", ROOT, "ls-files", "site").split()
    return sorted(
        (ROOT / "tests/package/files.txt").read_text().split()
        + [f"usr/share/glintmark/{name}" for name in page]
    )


def appstream_exceptions(metainfo):
    """The complaints of the machine's AppStream that do not count for this metainfo."""
    version = re.search(r"version: (\d+)", output_of("appstreamcli", "--version")).group(1)
    if int(version) < 1:
        return ["unknown-tag"]  # "developer"
    if metainfo.find("url[@type='homepage']") is None:
        return ["url-homepage-missing"]  # the build was given no address
    return []


class InstallTest(unittest.TestCase):
    """The tree that "cmake --install" makes for the prefix of packages."""

    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.root = OPTIONS.output / "root"
        shutil.rmtree(cls.root, ignore_errors=True)
        output_of(
            "cmake",
            "--install",
            OPTIONS.build,
            "--prefix",
            "/usr",
            env={**os.environ, "DESTDIR": str(cls.root)},
        )
        cls.share = cls.root / "usr/share"

    def test_exactly_the_expected_files_are_there(self):
        self.assertEqual(files_below(self.root), expected_files())

    def test_another_prefix_has_its_own_configuration_folder(self):
        other = OPTIONS.output / "other"
        shutil.rmtree(other, ignore_errors=True)
        output_of("cmake", "--install", OPTIONS.build, "--prefix", other)
        moved = sorted(name.removeprefix("usr/") for name in expected_files())
        self.assertEqual(files_below(other), moved)

    def test_the_desktop_entry_is_valid_and_starts_an_installed_program(self):
        entry = self.share / "applications/com.quorvel.Glintmark.desktop"
        self.assertEqual(output_of("desktop-file-validate", entry), "")
        text = entry.read_text()
        for key in ("Exec", "TryExec"):
            self.assertRegex(text, rf"(?m)^{key}=glintmark$")

    def test_the_session_starts_the_program_at_login_and_not_over_the_bus(self):
        entry = (self.share / "applications/com.quorvel.Glintmark.desktop").read_text()
        path = self.root / "etc/xdg/autostart/com.quorvel.Glintmark.desktop"
        self.assertEqual(output_of("desktop-file-validate", path), "")
        kept = [
            line
            for line in entry.partition("\n[Desktop Action ")[0].splitlines()
            if not line.startswith(("DBusActivatable=", "Actions="))
        ]
        self.assertEqual(path.read_text().splitlines(), kept)

    def test_the_bus_starts_the_installed_program_under_the_name_of_its_entry(self):
        service = self.share / "dbus-1/services/com.quorvel.Glintmark.service"
        self.assertEqual(
            service.read_text().splitlines(),
            ["[D-BUS Service]", "Name=com.quorvel.Glintmark", "Exec=/usr/bin/glintmark"],
        )

    def test_the_actions_of_the_entry_have_the_texts_of_the_menu(self):
        entry = configparser.ConfigParser(interpolation=None, strict=True)
        entry.optionxform = str
        entry.read(self.share / "applications/com.quorvel.Glintmark.desktop")
        main = entry["Desktop Entry"]
        self.assertEqual(main["DBusActivatable"], "true")
        actions = {"add-folder": "menu.addFolder", "quit": "menu.quit"}
        self.assertEqual(main["Actions"].strip(";").split(";"), list(actions))
        for action, key in actions.items():
            names = {f"Name[{name}]": texts_of(name)[key] for name in table_languages()}
            names["Name"] = texts_of("en")[key]
            command = f"gapplication action com.quorvel.Glintmark {action}"
            self.assertEqual(dict(entry[f"Desktop Action {action}"]), {**names, "Exec": command})

    def test_a_double_click_on_a_link_file_opens_it(self):
        applications = self.share / "applications"
        for name in ("Open", "SaveLink", "SetIcon"):
            entry = applications / f"com.quorvel.Glintmark.{name}.desktop"
            self.assertEqual(output_of("desktop-file-validate", entry), "")
            self.assertRegex(entry.read_text(), r"(?m)^Exec=glintmark-link ")
        output_of("update-desktop-database", applications)
        cache = applications / "mimeinfo.cache"
        text = cache.read_text()
        cache.unlink()
        # Without a choice of the user, the first of a type is its default.
        self.assertIn("application/x-webloc=com.quorvel.Glintmark.Open.desktop;", text)
        # Plasma 6 ignores InitialPreference: it may see only one program for the type.
        rival = applications / "com.quorvel.Glintmark.SetIcon.desktop"
        self.assertIn("\nNotShowIn=KDE;\n", rival.read_text())

    def test_shells_accept_the_completions(self):
        bash = self.share / "bash-completion/completions/glintmark-link"
        zsh = self.share / "zsh/vendor-completions/_glintmark-link"
        fish = self.share / "fish/vendor_completions.d/glintmark-link.fish"
        for shell, path in (("bash", bash), ("zsh", zsh), ("fish", fish)):
            output_of(shell, "-n", path)
        find = {"bash": f". {bash}", "zsh": f"fpath=({zsh.parent} $fpath)"}
        for typed, whole in TABS.items():
            for shell, preparation in find.items():
                line = completed(shell, typed, preparation, OPTIONS.output)
                self.assertEqual(line, f"{whole} ", shell)
            asked = output_of("fish", "--no-config", "-c", f"source {fish}; complete -C '{typed}'")
            self.assertEqual(asked.split()[0], whole.split()[-1], "fish")

    def test_appstream_accepts_the_metainfo(self):
        metainfo = self.share / "metainfo/com.quorvel.Glintmark.metainfo.xml"
        tree = ElementTree.parse(metainfo)
        ignored = [f"--override={tag}=pedantic" for tag in appstream_exceptions(tree)]
        report = output_of(
            "appstreamcli", "validate", "--no-net", "--strict", "--pedantic", *ignored, metainfo
        )
        self.assertLessEqual(set(re.findall(r"unknown-tag (\S+)", report)), {"developer"})
        self.assertEqual(tree.findtext("id"), "com.quorvel.Glintmark")
        self.assertEqual(tree.find("releases/release").get("version"), project_version())

    def test_the_mime_type_is_well_formed_and_known_to_a_database(self):
        output_of("xmllint", "--noout", self.share / "mime/packages/com.quorvel.Glintmark.xml")
        output_of("update-mime-database", self.share / "mime")
        self.assertIn(
            "60:application/x-webloc:*.webloc", (self.share / "mime/globs2").read_text().split("\n")
        )
        for path in (self.share / "mime").iterdir():  # remove the generated files
            if path.name != "packages":
                shutil.rmtree(path) if path.is_dir() else path.unlink()

    def test_manual_pages_render_without_a_warning(self):
        for page in (self.share / "man/man1").iterdir():
            with self.subTest(page.name):
                done = subprocess.run(
                    ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", str(page)],
                    stdout=subprocess.DEVNULL,
                    stderr=subprocess.PIPE,
                    text=True,
                    check=False,
                    env={**os.environ, "LC_ALL": "C.UTF-8", "MANROFFSEQ": ""},
                )
                self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_all_recipes_are_for_this_version(self):
        for name, key in (("glintmark.spec", "Version: +"), ("PKGBUILD", "pkgver=")):
            text = (ROOT / "packaging" / name).read_text()
            self.assertRegex(text, rf"(?m)^{key}{re.escape(project_version())}$", name)

    def test_icons_have_their_sizes(self):
        for size in ICON_SIZES:
            icon = self.share / f"icons/hicolor/{size}x{size}/apps/glintmark.png"
            self.assertEqual(output_of("identify", "-format", "%wx%h", icon), f"{size}x{size}")

    def test_all_texts_come_in_the_same_languages(self):
        languages = table_languages()
        self.assertGreaterEqual(len(languages), 9)
        entry = (ROOT / "resources/com.quorvel.Glintmark.desktop").read_text()
        for key in ("GenericName", "Comment", "Keywords"):
            found = set(re.findall(rf"(?m)^{key}\[(\w+)\]=.", entry))
            self.assertEqual(found, languages, key)
        for name, keys in (
            ("com.quorvel.Glintmark.Open.desktop", ("Name", "Comment")),
            ("com.quorvel.Glintmark.SaveLink.desktop", ("Name", "Comment")),
            ("com.quorvel.Glintmark.SetIcon.desktop", ("Name", "Comment")),
            ("glintmark-get-icon.servicemenu", ("Name",)),
            ("glintmark-get-icon.nemo_action", ("Name", "Comment")),
            ("glintmark-get-icon.action", ("Name",)),
        ):
            text = (ROOT / "resources/link" / name).read_text()
            for key in keys:
                found = set(re.findall(rf"(?m)^{key}\[(\w+)\]=.", text))
                self.assertEqual(found, languages, f"{name}: {key}")
        for name in ("com.quorvel.Glintmark.metainfo.xml.in", "filetype/com.quorvel.Glintmark.xml"):
            self.check_xml_languages(ROOT / "resources" / name, languages)

    def check_xml_languages(self, path, languages):
        """Each text without a language must be followed by one in each language."""
        for parent in ElementTree.parse(path).iter():
            texts = [child for child in parent if child.get(XML_LANGUAGE)]
            for tag in {child.tag for child in texts}:
                same = [child for child in parent if child.tag == tag]
                originals = sum(child.get(XML_LANGUAGE) is None for child in same)
                for language in languages:
                    found = sum(child.get(XML_LANGUAGE) == language for child in same)
                    self.assertEqual(found, originals, f"{path.name}: {tag} in {language}")
                self.assertEqual(len(same), originals * (1 + len(languages)), path.name)


class PackageTest(unittest.TestCase):
    """The package that CPack makes of the same build."""

    maxDiff = None

    @classmethod
    def setUpClass(cls):
        folder = OPTIONS.output / "package"
        shutil.rmtree(folder, ignore_errors=True)
        output_of("cpack", "-G", "DEB", "-B", folder, cwd=OPTIONS.build)
        (cls.package,) = folder.glob("*.deb")
        cls.root = folder / "root"
        output_of("dpkg-deb", "--raw-extract", cls.package, cls.root)

    def field(self, name):
        return output_of("dpkg-deb", "--field", self.package, name).strip()

    def test_lintian_finds_no_error_and_no_warning(self):
        metainfo = self.root / "usr/share/metainfo/com.quorvel.Glintmark.metainfo.xml"
        exceptions = appstream_exceptions(ElementTree.parse(metainfo))
        # Since Debian 13, lintian asks AppStream, which is asked above with the same exceptions.
        asks_appstream = "url-homepage-missing" in exceptions
        suppressed = ["--suppress-tags", "appstream-metadata-validation-failed"]
        print(
            output_of(
                "lintian",
                "--allow-root",
                "--profile",
                "debian",
                "--fail-on",
                "error,warning",
                "--display-info",
                *(suppressed if asks_appstream else []),
                self.package,
            )
        )

    def test_it_holds_what_is_installed(self):
        files = [name for name in files_below(self.root) if not name.startswith("DEBIAN/")]
        self.assertEqual(files, expected_files())

    def test_it_is_named_for_its_version(self):
        self.assertEqual(self.field("Version"), project_version())
        self.assertEqual(
            self.package.name, f"glintmark_{project_version()}_{self.field('Architecture')}.deb"
        )

    def test_it_depends_on_the_libraries_that_its_programs_load(self):
        depends = self.field("Depends")
        for library in (
            "libglib2.0-0",
            "libcurl4",
            "libpcre2-8-0",
            "libcairo2",
            "libseccomp2",
            "libpng16",
            "libavif",
            "libc6",
        ):
            self.assertIn(library, depends)
        self.assertNotIn("-dev", depends)

    def test_the_autostart_entry_is_a_configuration_file(self):
        self.assertEqual(
            (self.root / "DEBIAN/conffiles").read_text().split(),
            ["/etc/xdg/autostart/com.quorvel.Glintmark.desktop"],
        )

    def test_it_runs_no_scripts(self):
        self.assertEqual(
            {path.name for path in (self.root / "DEBIAN").iterdir()},
            {"conffiles", "control", "md5sums"},
        )

    def programs(self):
        names = ("bin/glintmark", "bin/glintmark-link", "bin/glintmark-thumbnailer")
        decoder = "libexec/glintmark/glintmark-image-decoder"
        return [self.root / "usr" / name for name in (*names, decoder)]

    def test_programs_are_stripped_and_hardened(self):
        for program in self.programs():
            with self.subTest(program.name):
                self.assertNotIn(".symtab", output_of("readelf", "-SW", program))
                self.assertIn("DYN (Position-Independent", output_of("readelf", "-hW", program))
                self.assertIn("GNU_RELRO", output_of("readelf", "-lW", program))
                self.assertIn("BIND_NOW", output_of("readelf", "-dW", program))
                self.assertNotRegex(output_of("readelf", "-dW", program), r"TEXTREL|RPATH|RUNPATH")
                self.assertRegex(
                    output_of("readelf", "-lW", program), r"(?m)^ +GNU_STACK .* RW +0x\w+$"
                )
                symbols = output_of("readelf", "--dyn-syms", "-W", program)
                self.assertIn("__stack_chk_fail", symbols)
                self.assertIn("__glibcxx_assert_fail", symbols)
                self.assertRegex(symbols, r"__\w+_chk@")  # of _FORTIFY_SOURCE

    def test_jumps_and_large_stack_frames_are_guarded(self):
        """Looks at the code. The note about guarded jumps (IBT, SHSTK) is missing, since the C
        library's start files of Debian have none."""
        guarded_jump = GUARDED_JUMP.get(platform.machine())
        if guarded_jump is None:
            self.skipTest(f"no known instructions for {platform.machine()}")
        large_frames = []
        for program in self.programs():
            code = output_of("objdump", "-d", "--no-show-raw-insn", program)
            with self.subTest(program.name):
                self.assertGreaterEqual(len(re.findall(guarded_jump, code)), LEAST_GUARDED_JUMPS)
            large_frames += re.findall(LARGE_FRAME, code)
        if platform.machine() == "x86_64":
            self.assertNotEqual([], large_frames)
            for instruction in large_frames:
                self.assertRegex(instruction, STACK_PROBE)

    def test_no_path_of_the_build_machine_is_in_it(self):
        for path in self.root.rglob("*"):
            if path.is_file():
                self.assertNotIn(str(ROOT).encode(), path.read_bytes(), path.name)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", default="build/release", type=absolute_path)
    parser.add_argument("--output", default="build/package", type=absolute_path)
    parser.add_argument("tests", nargs="*", help="names of single tests")
    arguments = parser.parse_args()
    OPTIONS.build, OPTIONS.output = arguments.build, arguments.output
    OPTIONS.output.mkdir(parents=True, exist_ok=True)
    unittest.main(argv=[sys.argv[0], "-v", *arguments.tests])


if __name__ == "__main__":
    main()
