"""One life of the package on a clean system, step by step. tests/package/run starts it in a private
mount and process namespace, so that nothing remains after the run."""

import argparse
import configparser
import hashlib
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess

from tests.harness.ending import DECODER
from tests.harness.link_file import write_link
from tests.harness.log_lines import ICON_SET, STARTED
from tests.harness.options import absolute_path
from tests.harness.processes import executables
from tests.harness.session import BUS, bus_command
from tests.harness.sites import demo_sites
from tests.harness.waiting import wait_for
from tests.harness.web_server import SiteServer
from tests.package.commands import output_of
from tests.package.completions import TABS, completed

USER, USER_ID = "kim", 1000
RUNTIME = f"/run/user/{USER_ID}"
AUTOSTART = "etc/xdg/autostart/com.quorvel.Glintmark.desktop"
PROGRAMS = ("bin/glintmark", "bin/glintmark-link", "bin/glintmark-thumbnailer")
BUS_NAME = "com.quorvel.Glintmark"
# Files that belong to no package: notes and caches of the package manager, and files that the
# linker and the package with the certificates generate.
VOLATILE = re.compile(
    r"^(proc|sys|dev|run|tmp|home|root|var/(cache|log|lib/(dpkg|apt))|etc/ld\.so\.cache)(/|$)"
    r"|^var/lib/systemd/|^etc/resolv\.conf$"
)


def say(text):
    print(f"ok: {text}", flush=True)


def check(condition, text):
    if not condition:
        raise SystemExit(f"FAILED: {text}")
    say(text)


ROOT_ENVIRONMENT = {
    "PATH": "/usr/sbin:/usr/bin:/sbin:/bin",
    "LC_ALL": "C.UTF-8",
    "DEBIAN_FRONTEND": "noninteractive",
}


class Root:
    """The clean system in a folder."""

    def __init__(self, folder):
        self.folder = folder

    def run(self, *command):
        return output_of("chroot", self.folder, *command, env=ROOT_ENVIRONMENT)

    def apt(self, *arguments):
        return self.run("apt-get", "-y", "-qq", "--no-install-recommends", *arguments)

    def files(self):
        """The content of every file that is not volatile, by its path."""
        found = {}
        for path, folders, names in os.walk(self.folder):
            keys = {n: os.path.relpath(os.path.join(path, n), self.folder) for n in folders + names}
            lasting = {name: key for name, key in keys.items() if not VOLATILE.search(key)}
            folders[:] = [name for name in folders if name in lasting]
            for name, key in lasting.items():
                found[key] = content(os.path.join(path, name))
        return found


def content(path):
    if os.path.islink(path):
        return os.readlink(path)
    if os.path.isfile(path):
        return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()
    return "folder"


class Session:
    """A login of the user inside the root: a display, a bus, and the programs of autostart."""

    def __init__(self, root, proxy):
        self.root = root
        self.home = root.folder / "home" / USER
        self.environment = {
            "HOME": f"/home/{USER}",
            "USER": USER,
            "PATH": "/usr/local/bin:/usr/bin:/bin",
            "LANG": "C.UTF-8",
            "XDG_RUNTIME_DIR": RUNTIME,
            "DISPLAY": ":7",
            "DBUS_SESSION_BUS_ADDRESS": f"unix:path={RUNTIME}/bus",
            **proxy,
        }
        self.log_path = self.home / "session.log"
        self.start("Xvfb", ":7", "-screen", "0", "640x480x24", "-nolisten", "tcp")
        self.start(*bus_command(f"{RUNTIME}/bus"))
        wait_for((root.folder / f"{RUNTIME[1:]}/bus").exists, "the bus")

    def command(self, *command):
        user = f"--userspec={USER_ID}:{USER_ID}"
        return [shutil.which("chroot"), user, str(self.root.folder), *command]

    def start(self, *command):
        streams = {"stdin": subprocess.DEVNULL, "stderr": subprocess.STDOUT}
        options = {**streams, "env": self.environment, "start_new_session": True}
        with open(self.log_path, "ab") as log:
            return subprocess.Popen(self.command(*command), stdout=log, **options)

    def output(self, *command):
        """The output of a command, which may fail."""
        streams = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT}
        command = self.command(*command)
        return subprocess.run(command, env=self.environment, text=True, **streams).stdout

    def lines(self):
        return self.log_path.read_text(errors="replace").splitlines()

    def wait_for_line(self, beginning):
        wait_for(lambda: any(line.startswith(beginning) for line in self.lines()), beginning, 60)

    def owner(self):
        """The id of the process that owns the program's name on the bus; None without an owner."""
        call = ["gdbus", "call", "--session", "--dest", BUS, "--object-path", "/", "--method"]
        answer = self.output(*call, f"{BUS}.GetConnectionUnixProcessID", BUS_NAME)
        found = re.search(r"uint32 (\d+)", answer)
        return int(found.group(1)) if found else None

    def autostart(self):
        """Starts the program as a desktop does at login. Returns the process; None if the entry
        says that there is nothing to start."""
        parser = configparser.RawConfigParser(interpolation=None)
        parser.optionxform = str
        parser.read(self.root.folder / AUTOSTART, encoding="utf-8")
        entry = parser["Desktop Entry"]
        if self.output("sh", "-c", f"command -v {entry['TryExec']} || echo none").strip() == "none":
            return None
        return self.start(*shlex.split(entry["Exec"]))

    def login(self):
        self.log_path.write_text("")
        process = self.autostart()
        self.wait_for_line(STARTED)
        wait_for(lambda: self.owner() == process.pid, "the bus name", 60)
        return process

    def icon_for(self, name):
        """Drops a link and waits until it has its icon."""
        link = write_link(self.home / "Downloads" / name, "http://glint.example/")
        os.chown(link, USER_ID, USER_ID)
        inside = "/" + str(link.relative_to(self.root.folder))
        self.wait_for_line(f"{ICON_SET}{inside}")
        return inside


def end(process):
    process.send_signal(signal.SIGTERM)
    return process.wait(10)


def executable(pid):
    return os.readlink(f"/proc/{pid}/exe")


def decoders():
    return [pid for pid, path in executables() if DECODER in path]


def next_version(package, folder):
    """The same package with a higher version."""
    tree = folder / "next"
    shutil.rmtree(tree, ignore_errors=True)
    output_of("dpkg-deb", "--raw-extract", package, tree)
    control = tree / "DEBIAN" / "control"
    control.write_text(re.sub(r"(?m)^Version: .*$", r"\g<0>+next", control.read_text()))
    upgrade = folder / "next.deb"
    output_of("dpkg-deb", "--root-owner-group", "--build", tree, upgrade)
    return upgrade


def prepare(base, folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    output_of("tar", "-C", folder, "-xf", base)
    output_of("mount", "--make-rprivate", "/")
    output_of("mount", "-t", "proc", "proc", "/proc")
    for name in ("proc", "dev"):
        output_of("mount", "--rbind", f"/{name}", folder / name)
    cache = folder.parent / "cleanroot.packages"
    (cache / "partial").mkdir(parents=True, exist_ok=True)
    output_of("mount", "--bind", cache, folder / "var/cache/apt/archives")
    shutil.copy("/etc/resolv.conf", folder / "etc/resolv.conf")
    root = Root(folder)
    root.run("useradd", "--create-home", "--uid", str(USER_ID), "--user-group", USER)
    owner = ["-m", "700", "-o", USER, "-g", USER]
    root.run("install", "-d", *owner, RUNTIME, f"/home/{USER}/Desktop", f"/home/{USER}/Downloads")
    (folder / "tmp/.X11-unix").mkdir(mode=0o1777, exist_ok=True)
    os.chmod(folder / "tmp/.X11-unix", 0o1777)
    os.chmod(folder / f"home/{USER}/Downloads", 0o777)
    return root


def life(root, package):
    upgrade = next_version(package, root.folder.parent)
    for source, name in ((package, "first.deb"), (upgrade, "next.deb")):
        shutil.copy(source, root.folder / "root" / name)
    # autoremove keeps the certificates: other packages recommend them.
    root.apt("install", "ca-certificates", "bash-completion", "zsh", "fish")
    before = root.files()

    root.apt("install", "/root/first.deb")
    status = root.run("dpkg-query", "-W", "-f", "${Status}", "glintmark")
    check("ok installed" in status, "apt installs the package and its dependencies")
    for name in (*PROGRAMS, f"libexec/glintmark/{DECODER}"):
        program = f"/usr/{name}"
        check("not found" not in root.run("ldd", program), f"{program} finds its libraries")
    for page in ("glintmark", "glintmark-link"):
        check(page in root.run("man", "-w", page), f"the manual page {page} is found")

    with SiteServer(demo_sites()) as server:
        session = Session(root, server.proxy_environment())
        use(root, session)
    icons = session.home / ".local/share/glintmark/icons"
    check(icons.is_dir(), "the user's icons are still there")

    root.apt("autoremove", "--purge")
    after = root.files()
    keys = before.keys() | after.keys()
    differing = sorted(key for key in keys if before.get(key) != after.get(key))
    check(not differing, f"every file is as before the installation {differing[:20]}")
    names = ["(", "-iname", "*glintmark*", "-o", "-iname", "*quorvel*", ")"]
    folders = ["/etc", "/usr", "/var", "/opt", "-xdev"]
    named = root.run("find", *folders, *names, "-not", "-path", "/var/cache/apt/*").split()
    check(not named, f"no name of the program is left {named}")


def use(root, session):
    running = session.login()
    check(executable(running.pid).endswith("/usr/bin/glintmark"), "autostart starts it")
    link = session.icon_for("first.webloc")
    say("a dropped link gets its icon")
    content_type = session.output("gio", "info", "-a", "standard::content-type", link)
    check("application/x-webloc" in content_type, "the type of link files is known")
    check_thumbnailer(root, session, link)
    try_companion(session)
    try_completions(session)

    root.apt("install", "/root/next.deb")
    old_one_runs = running.poll() is None and executable(running.pid).endswith("(deleted)")
    check(old_one_runs, "an upgrade leaves the running program alone")
    for pid in decoders():
        os.kill(pid, signal.SIGKILL)
    wait_for(lambda: not decoders(), "the decoders' end")
    session.icon_for("upgraded.webloc")
    own = decoders() and all(executable(pid).endswith("(deleted)") for pid in decoders())
    check(own, "it goes on with the decoder of its own build")
    check("running already" in session.output("glintmark"), "a second start finds it")
    check(end(running) == 0, "it ends with status 0")
    running = session.login()
    new = executable(running.pid).endswith("/usr/bin/glintmark")
    check(new, "a new start gets the new program")
    session.icon_for("new.webloc")
    new = all(executable(pid).endswith(DECODER) for pid in decoders())
    check(new, "and the new decoder")

    root.apt("remove", "glintmark")
    session.icon_for("removed.webloc")
    check(running.poll() is None, "removal leaves the running program alone")
    check(end(running) == 0, "and it ends with status 0")
    left = root.run("find", "/etc", "/usr", "-iname", "*glintmark*").split()
    check(left == [f"/{AUTOSTART}"], f"only the configuration file is left {left}")
    check(session.autostart() is None, "which starts nothing at the next login")
    root.apt("purge", "glintmark")


def check_thumbnailer(root, session, link):
    entry = (root.folder / "usr/share/thumbnailers/com.quorvel.Glintmark.thumbnailer").read_text()
    check("MimeType=application/x-webloc;" in entry, "a thumbnailer is registered for the type")
    command = re.search(r"(?m)^Exec=(.*)$", entry).group(1)
    values = {"%i": link, "%o": "/tmp/thumbnail.png", "%s": "128"}
    print(session.output(*[values.get(word, word) for word in shlex.split(command)]), end="")
    picture = root.folder / "tmp/thumbnail.png"
    check(picture.exists() and picture.read_bytes().startswith(b"\x89PNG"), "and makes a thumbnail")


def try_companion(session):
    """Every command of the companion, as a new user tries them."""
    home = f"/home/{USER}"
    version = session.output("glintmark-link", "--version")
    check(re.fullmatch(r"glintmark-link \d+\.\d+\.\d+\n", version), "--version prints a version")
    check("glintmark-link COMMAND" in session.output("glintmark-link", "--help"), "--help helps")
    made = session.output("glintmark-link", "new", "http://glint.example/", home)
    check(made == f"{home}/Glint.webloc\n", "new makes a link file named for the page")
    made = made.strip()
    lines = session.output("glintmark-link", "icon", made)
    check(f"{made}: icon set (htmlIcon, 256x256)" in lines, "icon sets its icon")
    lines = session.output("glintmark-link", "explain", made)
    check("Winner: htmlIcon http://glint.example/icon-256.png" in lines, "explain says why")
    lines = session.output("glintmark-link", "open", made)
    check("no program" in lines or "browser" in lines, f"open says that there is none: {lines!r}")
    opened = install_browser(session)
    for command in (("glintmark-link", "open"), ("gio", "open")):
        session.output(*command, made)
        wait_for(opened.exists, f"{command}")
        check(opened.read_text() == "http://glint.example/\n", f"{' '.join(command)} opens it")
        opened.unlink()


def install_browser(session):
    """A default browser of the user that only notes the address. Returns the path of the note."""
    browser, note = (session.home / name for name in ("browser", "opened"))
    browser.write_text(f'#!/bin/sh\necho "$1" >/home/{USER}/part\nmv ~/part ~/{note.name}\n')
    browser.chmod(0o755)
    applications = session.home / ".local/share/applications"
    applications.mkdir(parents=True, exist_ok=True)
    (applications / "browser.desktop").write_text(
        f"[Desktop Entry]\nType=Application\nName=Browser\nExec=/home/{USER}/browser %u\n"
        "MimeType=x-scheme-handler/http;x-scheme-handler/https;\n"
    )
    (applications / "mimeapps.list").write_text(
        "[Default Applications]\nx-scheme-handler/http=browser.desktop\n"
    )
    return note


def try_completions(session):
    """In the shells' own folders for packages."""
    settings = [f"{name}={value}" for name, value in session.environment.items()]
    preparations = {"bash": ". /usr/share/bash-completion/bash_completion", "zsh": ""}
    for typed, whole in TABS.items():
        for shell, preparation in preparations.items():
            line = completed(
                shell,
                typed,
                preparation,
                session.home,
                lambda command: session.command("env", "-i", "TERM=dumb", *settings, *command),
                f"/home/{USER}",
            )
            check(line == f"{whole} ", f"{shell} completes: {line}")
        asked = session.output("fish", "-c", f"complete -C '{typed}'").split()
        check(asked and asked[0] == whole.split()[-1], f"fish completes: {typed}: {asked}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument(
        "--base", required=True, type=absolute_path, help="the clean root, a tar file"
    )
    parser.add_argument("--package", required=True, type=absolute_path)
    arguments = parser.parse_args()
    folder = arguments.base.parent / "cleanroot.root"
    life(prepare(arguments.base, folder), arguments.package)
    print("The package keeps its promises.")


if __name__ == "__main__":
    main()
