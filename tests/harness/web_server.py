"""A web server on loopback that plays the whole web: it is a proxy too, so it answers for any host.

The program under test reaches it through `http_proxy` and `https_proxy`; nothing leaves the
machine.

    with SiteServer(demo_sites()) as server:
        environment = server.proxy_environment()
        ...
        server.requests  # [Request(method="GET", url="http://glint.example/", headers=[...]), ...]
"""

import asyncio
import collections
import dataclasses
import http
import math
import multiprocessing
import socket
import ssl
import struct
import threading
import urllib.parse

Request = collections.namedtuple("Request", "method url headers")

HTML = "text/html; charset=utf-8"
NEVER = math.inf
ENDLESS = b"bytes without end, in place of `raw`"
ANY_PATH = "*"
TLS_HANDSHAKE = b"\x16"  # the first byte of a client that speaks TLS to the plain port
WITHOUT_BODY = (204, 304)


@dataclasses.dataclass
class Answer:
    """The server's answer to a request."""

    body: bytes = b""
    status: int = 200
    content_type: str | None = HTML  # None: without this header field
    headers: tuple = ()
    delay: float = 0.0  # seconds before the answer, or NEVER
    truncate: int = 0  # bytes at the end of the body that are not sent
    raw: bytes | None = None  # sent instead of a response; the connection is reset afterwards


NOT_FOUND = Answer(b"<html><title>404</title>nothing here", 404)


class WebServer:
    """Serves HTTP in a thread. The method `answer` of a subclass decides what is sent."""

    def __init__(self, tls_context=None, separate_process=False):
        """`tls_context`: the certificate for https tunnels, which are refused without it.
        `separate_process`: serve in a child process, so that its processor time is not measured."""
        self._tls_context = tls_context
        self._socket = socket.create_server(("127.0.0.1", 0))
        self.port = self._socket.getsockname()[1]
        self._stop_reader, self._stop_writer = multiprocessing.Pipe(duplex=False)
        runner = multiprocessing.Process if separate_process else threading.Thread
        self._runner = runner(target=lambda: asyncio.run(self._serve()), daemon=True)

    def __enter__(self):
        self._runner.start()
        return self

    def __exit__(self, *exception):
        self._stop_writer.send(None)
        self._runner.join()
        for end in (self._stop_writer, self._stop_reader, self._socket):
            end.close()

    async def answer(self, request):
        """The `Answer` to a `Request`. Runs on the server's thread."""
        raise NotImplementedError

    def proxy_environment(self):
        """The variables that make a program use this server as its proxy."""
        address = f"http://127.0.0.1:{self.port}"
        return {"http_proxy": address, "https_proxy": address, "no_proxy": ""}

    async def _serve(self):
        stop = asyncio.Event()
        asyncio.get_running_loop().add_reader(self._stop_reader.fileno(), stop.set)
        server = await asyncio.start_server(self._serve_connection, sock=self._socket, backlog=256)
        await stop.wait()
        server.close()

    async def _serve_connection(self, reader, writer):
        try:
            await self._serve_requests(reader, writer)
        except (asyncio.IncompleteReadError, asyncio.LimitOverrunError, OSError, ssl.SSLError):
            pass  # the client has closed the connection, or does not speak HTTP
        except asyncio.CancelledError:
            pass  # the server stops; asyncio would log the cancelled task
        finally:
            writer.close()

    async def _serve_requests(self, reader, writer):
        site = None  # "https://host" inside a tunnel
        keep_alive = True
        while keep_alive:
            request = await _read_request(reader, site)
            if request.method != "CONNECT":
                answer = await self.answer(request)
                await asyncio.sleep(answer.delay)
                keep_alive = await _send(answer, request.method, writer)
            elif self._tls_context is None:
                await _send(Answer(status=502), request.method, writer)
                return
            else:
                writer.write(b"HTTP/1.1 200 OK\r\n\r\n")
                await writer.start_tls(self._tls_context)
                site = "https://" + request.url.removesuffix(":443")


async def _read_request(reader, site):
    """`site`: scheme and host for a request with only a path; None: http and its Host field."""
    head = await reader.readexactly(1)
    if head == TLS_HANDSHAKE:
        raise ConnectionError("TLS on the plain port")
    head += await reader.readuntil(b"\r\n\r\n")
    first_line, *lines = head.decode("latin-1").rstrip().split("\r\n")
    method, target, _ = first_line.split(" ", 2)
    fields = [line.partition(":") for line in lines]
    headers = [(name, value.strip()) for name, _, value in fields]
    if target.startswith("/"):
        target = (site or "http://" + dict(headers).get("Host", "")) + target
    return Request(method, target, headers)


async def _send(answer, method, writer):
    """False if the connection must be closed."""
    if answer.raw is not None:
        await _send_raw(answer.raw, writer)
        return False
    fields = list(answer.headers)
    if answer.status not in WITHOUT_BODY:
        fields.insert(0, ("Content-Length", len(answer.body)))
    if answer.content_type is not None:
        fields.insert(0, ("Content-Type", answer.content_type))
    head = f"HTTP/1.1 {answer.status} {http.HTTPStatus(answer.status).phrase}\r\n"
    head += "".join(f"{name}: {value}\r\n" for name, value in fields) + "\r\n"
    body = b"" if method == "HEAD" else answer.body
    writer.write(head.encode("latin-1") + body[: len(body) - answer.truncate])
    await writer.drain()
    return not answer.truncate


async def _send_raw(data, writer):
    writer.transport.set_write_buffer_limits(0)  # drain() returns when everything has been sent
    while data is ENDLESS:
        writer.write(b"HTTP/1.1 200 OK\r\n\r\n" + bytes(65536))
        await writer.drain()
        await asyncio.sleep(0)  # drain() alone does not let other connections run
    writer.write(data)
    await writer.drain()
    # With a linger time of zero, close() sends a reset.
    linger = struct.pack("ii", 1, 0)
    writer.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, linger)


class SiteServer(WebServer):
    """Answers from a table and records the requests.

    `sites`: host -> path with query, or ANY_PATH -> answer. It may change while the server runs.
    """

    def __init__(self, sites, tls_context=None, separate_process=False):
        super().__init__(tls_context, separate_process)
        self.sites = sites
        self.requests = []  # in order of arrival; empty with `separate_process`

    async def answer(self, request):
        self.requests.append(request)
        return self.answer_for(request.url)

    def answer_for(self, url):
        parts = urllib.parse.urlsplit(url)
        path = (parts.path or "/") + (f"?{parts.query}" if parts.query else "")
        site = self.sites.get(parts.hostname, {})
        return site.get(path) or site.get(ANY_PATH, NOT_FOUND)

    def urls(self, host=None):
        """The addresses requested so far, of one host or of all, in order of arrival."""
        urls = [request.url for request in self.requests]
        return [url for url in urls if host in (None, urllib.parse.urlsplit(url).hostname)]
