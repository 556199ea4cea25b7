"""The built program on a real desktop session."""

import sys
import unittest

from tests.desktop import (
    folderpanel,
    launcher,
    lifecycle,
    linkfiles,
    login,
    menu,
    serviceunit,
    wholeroad,
)
from tests.desktop.case import OPTIONS
from tests.harness.options import parse_options

SUBJECTS = (wholeroad, folderpanel, launcher, lifecycle, linkfiles, login, menu, serviceunit)


def load_tests(loader, *_):
    """unittest's hook: all tests of the subjects."""
    return loader.suiteClass(map(loader.loadTestsFromModule, SUBJECTS))


def main():
    names = {"nargs": "*", "metavar": "NAME", "help": "a test, such as menu.MenuTest"}
    options = parse_options(__doc__, output="build/desktop", tests=names)
    OPTIONS.program, OPTIONS.output = options.program, options.output
    unittest.main(argv=[sys.argv[0], "-v", *options.tests])


if __name__ == "__main__":
    main()
