"""A web server that knows which requests a fetch must make, and in which order.

A fetch follows several paths at once. A path is a list of steps, one after the other; a step is a
list of addresses that are requested together. The recorder assigns a request to the first path that
waits for it, and answers it when the whole step has arrived; a request that no path waits for is a
complaint. The first steps of all paths count as one step: none is answered before all have
arrived. So paths that do not start at once, or that wait for each other, are found without a clock.

https is recorded like http: the recorder ends the tunnel itself, with its own certificate.
"""

import asyncio
import collections
import pathlib
import ssl
import subprocess

from tests.harness.web_server import Answer, WebServer

DEADLINE = 10.0  # seconds; only a failing test waits for it
NOT_FOUND = Answer(b"nothing here", 404, content_type=None)

Recorded = collections.namedtuple("Recorded", "method url headers path")


class Authority:
    """A key and a self-signed certificate for `hosts`."""

    def __init__(self, folder, hosts):
        self.certificate = pathlib.Path(folder) / "certificate.pem"
        key = pathlib.Path(folder) / "key.pem"
        names = ",".join(f"DNS:{host}" for host in hosts)
        command = ["openssl", "req", "-x509", "-newkey", "ec", "-nodes", "-days", "2"]
        command += ["-pkeyopt", "ec_paramgen_curve:P-256", "-subj", "/CN=recorder of the tests"]
        command += ["-addext", f"subjectAltName={names}", "-keyout", key, "-out", self.certificate]
        subprocess.run(command, check=True, stderr=subprocess.DEVNULL)
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(self.certificate, key)


class _Path:
    """One chain of requests: the steps not yet answered, and how much of the first has arrived."""

    def __init__(self, name, steps):
        self.name = name
        self.steps = [collections.Counter(step) for step in steps]
        self.arrived = collections.Counter()
        self.answered = 0

    def step(self):
        return self.steps[0] if self.steps else collections.Counter()

    def awaits(self, url):
        return self.arrived[url] < self.step()[url]

    def step_has_arrived(self):
        return self.arrived == self.step()

    def note_answer(self):
        self.answered += 1
        if self.answered == self.step().total():
            self.steps.pop(0)
            self.arrived.clear()
            self.answered = 0

    def missing(self):
        return [url for step in self.steps for url in (step - self.arrived).elements()]


class Recorder(WebServer):
    """`paths`: name -> steps. `answers`: address -> answer. The path `last` gets its first answer
    when all others have ended. `together`: the paths whose first steps arrive at once, by default
    all."""

    def __init__(self, authority, paths, answers, last=None, together=None):
        super().__init__(authority.context)
        self._authority = authority
        self._paths = [_Path(name, steps) for name, steps in paths.items()]
        self._answers = answers
        self._last = last
        together = paths if together is None else together
        self._starting = {path for path in self._paths if path.steps and path.name in together}
        self._changed = asyncio.Condition()
        self.requests = []
        self._complaints = []

    def environment(self):
        certificate = str(self._authority.certificate)
        return {**self.proxy_environment(), "SSL_CERT_FILE": certificate}

    async def answer(self, request):
        """Waits until the answer is due."""
        async with self._changed:
            path = next((path for path in self._paths if path.awaits(request.url)), None)
            self.requests.append(Recorded(*request, path.name if path else None))
            if path is None:
                self._complaints.append(f"not expected, or not yet: {request.url}")
            else:
                path.arrived[request.url] += 1
                self._changed.notify_all()
                await self._wait_until_due(path, request)
                self._starting.discard(path)
                path.note_answer()
                self._changed.notify_all()
        return self._answers.get(request.url, NOT_FOUND)

    async def _wait_until_due(self, path, request):
        try:
            due = self._changed.wait_for(lambda: self._is_due(path))
            await asyncio.wait_for(due, DEADLINE)
        except asyncio.TimeoutError:
            self._complaints.append(f"no other request arrived: {request.url}")

    def _is_due(self, path):
        others_have_arrived = path not in self._starting or all(
            other.step_has_arrived() for other in self._starting
        )
        others_have_ended = path.name != self._last or all(
            other is path or not other.steps for other in self._paths
        )
        return path.step_has_arrived() and others_have_arrived and others_have_ended

    def complaints(self):
        """All complaints. Call it when the fetch has ended."""
        missing = [url for path in self._paths for url in path.missing()]
        return self._complaints + [f"never came: {url}" for url in missing]
