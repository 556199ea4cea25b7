"""Waiting for conditions, never for a duration."""

import time

DEADLINE = 60.0  # seconds; generous, since a loaded or instrumented program is slow
POLL_INTERVAL = 0.02


class TimedOut(AssertionError):
    """A condition did not come true in time."""


def wait_for(condition, what, timeout=DEADLINE):
    """Polls until `condition()` is true and returns its value."""
    deadline = time.monotonic() + timeout
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise TimedOut(f"{what}: not within {timeout:.0f} s")
        time.sleep(POLL_INTERVAL)
