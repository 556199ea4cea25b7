"""A forward proxy on loopback that knows which requests a fetch is to make, and in which order.

A fetch runs along paths: lists of steps, one after the other, each step a list of addresses that are
asked for together. The proxy gives a request its place in the first path that is waiting for it, and
answers it once the whole step has come; a request that no path waits for is an unexpected one. The
first steps of all paths are one such step: none is answered before all have come, so that paths which
do not start at once, or which wait for one another, are found out without any clock.

https is recorded like http: the proxy ends the tunnel itself, under a certificate of its own.
"""

import collections
import contextlib
import dataclasses
import http.server
import pathlib
import socketserver
import ssl
import subprocess
import threading

DEADLINE = 10.0  # seconds; only a failing test waits for it

Request = collections.namedtuple("Request", "method url headers path")


@dataclasses.dataclass
class Answer:
    body: bytes = b""
    status: int = 200
    headers: tuple = ()


NOT_FOUND = Answer(b"nothing here", 404)


class Authority:
    """A key and a certificate for `hosts` that vouches for itself."""

    def __init__(self, folder, hosts):
        self.certificate = pathlib.Path(folder) / "certificate.pem"
        key = pathlib.Path(folder) / "key.pem"
        names = ",".join(f"DNS:{host}" for host in hosts)
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:P-256", "-nodes", "-days", "2", "-subj",
                        "/CN=recorder of the tests", "-addext", f"subjectAltName={names}",
                        "-keyout", str(key), "-out", str(self.certificate)],
                       check=True, stderr=subprocess.DEVNULL)
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(self.certificate, key)


class _Path:
    """One chain of requests: how far it has come, and how much of its present step."""

    def __init__(self, name, steps):
        self.name = name
        self.steps = [collections.Counter(step) for step in steps]
        self.arrived = collections.Counter()
        self.answered = 0

    def step(self):
        return self.steps[0] if self.steps else collections.Counter()

    def awaits(self, url):
        return self.arrived[url] < self.step()[url]

    def step_has_come(self):
        return self.arrived == self.step()

    def answer(self):
        self.answered += 1
        if self.answered == self.step().total():
            self.steps.pop(0)
            self.arrived.clear()
            self.answered = 0

    def missing(self):
        return [url for step in self.steps for url in (step - self.arrived).elements()]


class Script:
    """The requests that are to come: `paths` is path -> steps. The first answer of the path `last`
    waits until all others have ended. `together`: the paths whose first steps come at once."""

    def __init__(self, paths, answers, last=None, together=None):
        self._paths = [_Path(name, steps) for name, steps in paths.items()]
        self._answers = answers
        self._last = last
        self._starting = {path for path in self._paths
                          if path.steps and (together is None or path.name in together)}
        self._changed = threading.Condition()
        self.requests = []
        self.complaints = []

    def answer(self, method, url, headers):
        """The answer to a request, once it is due. Any thread."""
        with self._changed:
            path = next((path for path in self._paths if path.awaits(url)), None)
            self.requests.append(Request(method, url, headers, path.name if path else None))
            if path is None:
                self.complaints.append(f"not expected, or not yet: {url}")
                return self._answers.get(url, NOT_FOUND)
            path.arrived[url] += 1
            self._changed.notify_all()
            if not self._changed.wait_for(lambda: self._is_due(path), DEADLINE):
                self.complaints.append(f"left alone: {url}")
            self._starting.discard(path)
            path.answer()
            self._changed.notify_all()
            return self._answers.get(url, NOT_FOUND)

    def _is_due(self, path):
        others_have_come = (path not in self._starting or
                            all(other.step_has_come() for other in self._starting))
        others_have_ended = (path.name != self._last or
                             all(other is path or not other.steps for other in self._paths))
        return path.step_has_come() and others_have_come and others_have_ended

    def finish(self):
        """What was wrong, once the fetch has ended."""
        with self._changed:
            for path in self._paths:
                self.complaints += [f"never came: {url}" for url in path.missing()]
            return self.complaints


class _Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    tunnel = None  # what a tunnel leads to, "https://host"

    def do_CONNECT(self):
        self.send_response_only(200)
        self.end_headers()
        self.connection = self.server.authority.context.wrap_socket(self.connection,
                                                                    server_side=True)
        self.rfile = self.connection.makefile("rb", -1)
        self.wfile = self.connection.makefile("wb")
        self.tunnel = "https://" + self.path.removesuffix(":443")
        self.close_connection = False

    def do_GET(self):
        url = self.path if self.tunnel is None else self.tunnel + self.path
        answer = self.server.script.answer(self.command, url, list(self.headers.items()))
        self.send_response_only(answer.status)
        for name, value in answer.headers:
            self.send_header(name, value)
        if answer.status not in (204, 304):
            self.send_header("Content-Length", str(len(answer.body)))
        self.end_headers()
        self.wfile.write(answer.body)

    do_HEAD = do_POST = do_PUT = do_OPTIONS = do_GET  # to be recorded as what they are

    def log_message(self, *_):
        pass


class _Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True
    request_queue_size = 128

    def handle_error(self, request, client_address):
        pass  # a client that hangs up is no error of the proxy


@contextlib.contextmanager
def recorder(script, authority):
    """While it lasts, the proxy plays `script`. Gives the environment that leads to it."""
    server = _Server(("127.0.0.1", 0), _Handler)
    server.script = script
    server.authority = authority
    thread = threading.Thread(target=server.serve_forever, args=(0.02,), daemon=True)
    thread.start()
    address = f"http://127.0.0.1:{server.server_address[1]}"
    try:
        yield {"http_proxy": address, "https_proxy": address, "no_proxy": "",
               "SSL_CERT_FILE": str(authority.certificate)}
    finally:
        server.shutdown()
        server.server_close()
        thread.join()
