"""Drivers that consist of named steps: a step returns one line about its result, or fails."""

import time

from tests.harness.waiting import TimedOut


class Failed(AssertionError):
    """The program did not do what it must."""


def check(condition, what):
    if not condition:
        raise Failed(what)


def run_step(name, step, options):
    """Prints the result. False if the step failed."""
    begin = time.monotonic()
    try:
        held, result = True, step(options)
    except (Failed, TimedOut) as failure:
        held, result = False, f"FAILED: {failure}"
    print(f"{name:9} {result} ({time.monotonic() - begin:.1f} s)", flush=True)
    return held
