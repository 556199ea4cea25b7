"""The command line of the drivers."""

import argparse
import pathlib

RELEASE = "build/release/glintmark"


def absolute_path(text):
    return pathlib.Path(text).resolve()


def parse_options(description, program=RELEASE, output=None, **more):
    """Every driver has --program; `output`: the default of --output, which is missing without it.
    `more`: further options as name=argparse's settings; those with `nargs` are positional."""
    parser = argparse.ArgumentParser(description=description.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--program", type=absolute_path, default=program)
    if output:
        parser.add_argument("--output", type=absolute_path, default=output)
    for name, settings in more.items():
        flag = name if "nargs" in settings else "--" + name.replace("_", "-")
        parser.add_argument(flag, **settings)
    return parser.parse_args()
