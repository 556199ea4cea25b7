"""The messages on a session's bus."""

import re

from tests.harness.waiting import wait_for


class BusMonitor:
    """Records the calls (or signals) of one interface member."""

    def __init__(self, session, interface, member, kind="method_call"):
        self._session = session
        self._name = f"monitor-{member}"
        rule = f"type='{kind}',interface='{interface}',member='{member}'"
        session.spawn(self._name, ["dbus-monitor", "--session", rule])
        # The bus names the monitor once it listens.
        wait_for(lambda: "NameAcquired" in self._log(), "the bus monitor")

    def _log(self):
        return self._session.log(self._name)

    def count(self):
        """The number of messages so far."""
        message = r"^(?:method call|signal) .* member=(?!NameAcquired|NameLost)"
        return len(re.findall(message, self._log(), re.M))

    def strings(self):
        """Every string argument so far."""
        return re.findall(r'^\s+string "(.*)"$', self._log(), re.M)
