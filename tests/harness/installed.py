"""The built package in a session, as its user finds it after the installation."""

import os
import pathlib


def install_for(session, build):
    """Installs a build below the session's root and brings the databases up to date, as a package
    manager does. The session's programs, and those that its bus starts, find it in their search
    paths. Returns the folder of the installed programs."""
    prefix = session.root / "usr"
    session.run(["cmake", "--install", str(build), "--prefix", str(prefix)])
    share = prefix / "share"
    session.run(["update-mime-database", str(share / "mime")])
    session.run(["update-desktop-database", str(share / "applications")])
    programs = pathlib.Path(prefix, "bin")
    searched = session.environment["PATH"], session.environment["XDG_DATA_DIRS"]
    for variable, folder, rest in zip(("PATH", "XDG_DATA_DIRS"), (programs, share), searched):
        session.environment[variable] = os.pathsep.join((str(folder), rest))
        session.run(["dbus-update-activation-environment", variable])
    return programs
