"""One life of the package on a clean system, step by step. Run by tests/package/run, in a mount and a process
namespace of its own, so that nothing of it outlives the run."""

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

from tests.harness.link_file import write_link
from tests.harness.log_lines import ICON_SET, STARTED
from tests.harness.processes import executables
from tests.harness.sites import demo_sites
from tests.harness.waiting import wait_for
from tests.harness.web_server import SiteServer

USER, USER_ID = "kim", 1000
AUTOSTART = "etc/xdg/autostart/com.quorvel.Glintmark.desktop"
BUS_NAME = "com.quorvel.Glintmark"
# What belongs to no package's files: the package manager's own notes and caches, and what the linker and the
# certificates' package make of the libraries that were there.
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


class Root:
    """The clean system in a folder."""

    def __init__(self, folder):
        self.folder = folder

    def run(self, *command, check_status=True, **options):
        done = subprocess.run(
            ["chroot", str(self.folder), *command],
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            check=False,
            env={
                "PATH": "/usr/sbin:/usr/bin:/sbin:/bin",
                "LC_ALL": "C.UTF-8",
                "DEBIAN_FRONTEND": "noninteractive",
            },
            **options,
        )
        if check_status and done.returncode != 0:
            raise SystemExit(
                f"FAILED: {shlex.join(command)}: status {done.returncode}\n{done.stdout}"
            )
        return done.stdout

    def apt(self, *arguments):
        return self.run("apt-get", "-y", "-qq", "--no-install-recommends", *arguments)

    def files(self):
        """Every path with what it holds, but for the volatile ones."""
        found = {}
        for path, folders, names in os.walk(self.folder):
            relative = os.path.relpath(path, self.folder)
            folders[:] = [
                name
                for name in folders
                if not VOLATILE.search(os.path.normpath(f"{relative}/{name}"))
            ]
            for name in folders + names:
                key = os.path.normpath(f"{relative}/{name}")
                if not VOLATILE.search(key):
                    found[key] = content(os.path.join(path, name))
        return found


def content(path):
    if os.path.islink(path):
        return os.readlink(path)
    if os.path.isfile(path):
        return hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest()
    return "folder"


class Session:
    """A login of the user inside the root: a display, a bus, and what autostart starts."""

    def __init__(self, root, proxy):
        self.root = root
        self.home = root.folder / "home" / USER
        self.environment = {
            "HOME": f"/home/{USER}",
            "USER": USER,
            "PATH": "/usr/local/bin:/usr/bin:/bin",
            "LANG": "C.UTF-8",
            "XDG_RUNTIME_DIR": f"/run/user/{USER_ID}",
            "DISPLAY": ":7",
            "DBUS_SESSION_BUS_ADDRESS": f"unix:path=/run/user/{USER_ID}/bus",
            **proxy,
        }
        self.log_path = self.home / "session.log"
        self.start("Xvfb", ":7", "-screen", "0", "640x480x24", "-nolisten", "tcp")
        self.start(
            "dbus-daemon",
            "--session",
            "--nofork",
            "--nopidfile",
            "--nosyslog",
            f"--address=unix:path=/run/user/{USER_ID}/bus",
        )
        wait_for((root.folder / f"run/user/{USER_ID}/bus").exists, "the bus")

    def command(self, *command):
        return [
            shutil.which("chroot"),
            f"--userspec={USER_ID}:{USER_ID}",
            str(self.root.folder),
            *command,
        ]

    def start(self, *command):
        with open(self.log_path, "ab") as log:
            return subprocess.Popen(
                self.command(*command),
                env=self.environment,
                stdout=log,
                stderr=log,
                stdin=subprocess.DEVNULL,
                start_new_session=True,
            )

    def output(self, *command):
        return subprocess.run(
            self.command(*command),
            env=self.environment,
            text=True,
            check=False,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
        ).stdout

    def lines(self):
        return self.log_path.read_text(errors="replace").splitlines()

    def wait_for_line(self, beginning):
        wait_for(lambda: any(line.startswith(beginning) for line in self.lines()), beginning, 60)

    def owner(self):
        """The process that owns the program's name on the bus; none without an owner."""
        answer = self.output(
            "gdbus",
            "call",
            "--session",
            "--dest",
            "org.freedesktop.DBus",
            "--object-path",
            "/",
            "--method",
            "org.freedesktop.DBus.GetConnectionUnixProcessID",
            BUS_NAME,
        )
        found = re.search(r"uint32 (\d+)", answer)
        return int(found.group(1)) if found else None

    def autostart(self):
        """Does what a desktop does with the entry at login; the process, or none when the entry
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
    return [pid for pid, path in executables() if "glintmark-image-decoder" in path]


def next_version(package, folder):
    """The same package under a higher version."""
    tree = folder / "next"
    shutil.rmtree(tree, ignore_errors=True)
    subprocess.run(["dpkg-deb", "--raw-extract", str(package), str(tree)], check=True)
    control = tree / "DEBIAN" / "control"
    control.write_text(re.sub(r"(?m)^Version: .*$", r"\g<0>+next", control.read_text()))
    upgrade = folder / "next.deb"
    subprocess.run(
        ["dpkg-deb", "--root-owner-group", "--build", str(tree), str(upgrade)],
        check=True,
        stdout=subprocess.DEVNULL,
    )
    return upgrade


def prepare(base, folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    subprocess.run(["tar", "-C", str(folder), "-xf", str(base)], check=True)
    subprocess.run(["mount", "--make-rprivate", "/"], check=True)
    subprocess.run(["mount", "-t", "proc", "proc", "/proc"], check=True)
    for name in ("proc", "dev"):
        subprocess.run(["mount", "--rbind", f"/{name}", str(folder / name)], check=True)
    cache = folder.parent / "cleanroot.packages"
    (cache / "partial").mkdir(parents=True, exist_ok=True)
    subprocess.run(
        ["mount", "--bind", str(cache), str(folder / "var/cache/apt/archives")], check=True
    )
    shutil.copy("/etc/resolv.conf", folder / "etc/resolv.conf")
    root = Root(folder)
    root.run("useradd", "--create-home", "--uid", str(USER_ID), "--user-group", USER)
    root.run(
        "install",
        "-d",
        "-m",
        "700",
        "-o",
        USER,
        "-g",
        USER,
        f"/run/user/{USER_ID}",
        f"/home/{USER}/Desktop",
        f"/home/{USER}/Downloads",
    )
    (folder / "tmp/.X11-unix").mkdir(mode=0o1777, exist_ok=True)
    os.chmod(folder / "tmp/.X11-unix", 0o1777)
    os.chmod(folder / f"home/{USER}/Downloads", 0o777)
    return root


def life(root, package):
    upgrade = next_version(package, root.folder.parent)
    for source, name in ((package, "first.deb"), (upgrade, "next.deb")):
        shutil.copy(source, root.folder / "root" / name)
    root.apt("install", "ca-certificates")  # which autoremove keeps: other packages recommend it
    before = root.files()

    root.apt("install", "/root/first.deb")
    check(
        "ok installed" in root.run("dpkg-query", "-W", "-f", "${Status}", "glintmark"),
        "apt installs the package with what it depends on",
    )
    for program in (
        "/usr/bin/glintmark",
        "/usr/bin/glintmark-thumbnailer",
        "/usr/libexec/glintmark/glintmark-image-decoder",
    ):
        check("not found" not in root.run("ldd", program), f"{program} finds its libraries")
    check("glintmark" in root.run("man", "-w", "glintmark"), "the manual page is found")

    with SiteServer(demo_sites()) as server:
        session = Session(root, server.proxy_environment())
        use(root, session)
    check(
        (session.home / ".local/share/glintmark/icons").is_dir(), "the user's icons are still there"
    )

    root.apt("autoremove", "--purge")
    after = root.files()
    differing = sorted(
        key for key in before.keys() | after.keys() if before.get(key) != after.get(key)
    )
    check(not differing, f"every file is as before the installation {differing[:20]}")
    named = root.run(
        "find",
        "/etc",
        "/usr",
        "/var",
        "/opt",
        "-xdev",
        "(",
        "-iname",
        "*glintmark*",
        "-o",
        "-iname",
        "*quorvel*",
        ")",
        "-not",
        "-path",
        "/var/cache/apt/*",
    ).split()
    check(not named, f"no name of the program is left {named}")


def use(root, session):
    running = session.login()
    check(
        executable(running.pid) == f"{root.folder}/usr/bin/glintmark"
        or executable(running.pid).endswith("/usr/bin/glintmark"),
        "autostart starts it",
    )
    link = session.icon_for("first.webloc")
    say("a dropped link gets its icon")
    check(
        "application/x-webloc"
        in session.output("gio", "info", "-a", "standard::content-type", link),
        "the type of link files is known",
    )
    check_thumbnailer(root, session, link)

    root.apt("install", "/root/next.deb")
    check(
        running.poll() is None and executable(running.pid).endswith("(deleted)"),
        "an upgrade leaves the running program alone",
    )
    for pid in decoders():
        os.kill(pid, signal.SIGKILL)
    wait_for(lambda: not decoders(), "the decoders' end")
    session.icon_for("upgraded.webloc")
    check(
        decoders() and all(executable(pid).endswith("(deleted)") for pid in decoders()),
        "it goes on with the decoder of its own build",
    )
    check("running already" in session.output("glintmark"), "a second start finds it")
    check(end(running) == 0, "it ends with status 0")
    running = session.login()
    check(
        executable(running.pid).endswith("/usr/bin/glintmark"), "a new start gets the new program"
    )
    session.icon_for("new.webloc")
    check(
        all(executable(pid).endswith("glintmark-image-decoder") for pid in decoders()),
        "and the new decoder",
    )

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


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument(
        "--base", required=True, type=pathlib.Path, help="the clean root as a tar file"
    )
    parser.add_argument("--package", required=True, type=pathlib.Path)
    arguments = parser.parse_args()
    base = arguments.base.resolve()
    folder = base.parent / "cleanroot.root"
    life(prepare(base, folder), arguments.package.resolve())
    print("The package keeps its promises.")


if __name__ == "__main__":
    main()
