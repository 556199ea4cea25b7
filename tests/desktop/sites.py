"""A forward proxy on loopback that plays the whole web: it answers for any host out of a table.

The program under test is pointed at it with `http_proxy` and `https_proxy`; nothing leaves the
machine. Every request is kept in order, with its header fields as sent.

    with SiteServer(demo_sites()) as server:
        environment = server.proxy_environment()
        ...
        server.requests  # [Request(method="GET", url="http://glint.example/", headers=[...]), ...]
"""

import argparse
import collections
import dataclasses
import http.server
import json
import math
import socket
import socketserver
import struct
import sys
import threading
import urllib.parse
import zlib

Request = collections.namedtuple("Request", "method url headers")

# Colours that no desktop theme shows, so that a screenshot can be searched for them.
MAGENTA = (230, 20, 160)
TEAL = (10, 190, 170)
ORANGE = (250, 130, 10)


@dataclasses.dataclass
class Answer:
    """What a path answers. `wait` is waited for before the answer; `truncate` bytes are held back;
    `raw` bytes go out instead of a response, and then the connection is reset."""
    body: bytes = b""
    status: int = 200
    content_type: str = "text/html; charset=utf-8"
    headers: tuple = ()
    wait: threading.Event | None = None
    truncate: int = 0
    raw: bytes | None = None


ENDLESS = b"bytes without end, in place of `raw`"
NOT_FOUND = Answer(b"<html><title>404</title>nothing here", 404)


def png(width, height, rgb, transparent_corners=True):
    """A flat picture; with transparent corners it is a disc."""
    radius = min(width, height) / 2
    rows = []
    for y in range(height):
        row = bytearray(b"\0")  # filter type: none
        for x in range(width):
            outside = math.hypot(x + 0.5 - width / 2, y + 0.5 - height / 2) > radius
            row += bytes(rgb) + (b"\0" if outside and transparent_corners else b"\xff")
        rows.append(bytes(row))

    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data)))

    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(b"".join(rows))) + chunk(b"IEND", b""))


def ico(*pictures):
    """An icon file of PNG pictures, given as (edge length, bytes)."""
    offset = 6 + 16 * len(pictures)
    directory = struct.pack("<HHH", 0, 1, len(pictures))
    for edge, data in pictures:
        directory += struct.pack("<BBBBHHII", edge % 256, edge % 256, 0, 0, 1, 32, len(data), offset)
        offset += len(data)
    return directory + b"".join(data for _, data in pictures)


def picture(data):
    return Answer(data, content_type="image/png")


def demo_sites():
    """Host -> path and query -> answer."""
    return {
        "glint.example": {
            "/": Answer(b'<!DOCTYPE html><html><head><title>Glint</title>'
                        b'<link rel="icon" href="/icon-256.png" sizes="256x256">'
                        b'<link rel="apple-touch-icon" href="/touch.png"></head></html>'),
            "/icon-256.png": picture(png(256, 256, MAGENTA)),
            "/touch.png": picture(png(180, 180, ORANGE, transparent_corners=False)),
            "/apple-touch-icon.png": picture(png(180, 180, ORANGE, transparent_corners=False)),
            "/favicon.ico": Answer(ico((32, png(32, 32, ORANGE))), content_type="image/x-icon"),
        },
        "manifest.example": {
            "/": Answer(b"<html><head><title>No icon links</title></head></html>"),
            "/site.webmanifest": Answer(
                json.dumps({"icons": [{"src": "/small.png", "sizes": "48x48"},
                                      {"src": "/large.png", "sizes": "512x512"}]}).encode(),
                content_type="application/manifest+json"),
            "/large.png": picture(png(512, 512, TEAL)),
        },
        "small.example": {
            "/favicon.ico": Answer(ico((16, png(16, 16, ORANGE)), (32, png(32, 32, ORANGE))),
                                   content_type="image/x-icon"),
        },
    }


ANY_PATH = "*"


def hostile_sites():
    """Sites none of which has an icon to give, each bad in its own way on every path."""
    silent = threading.Event()  # never set
    return {
        "silent.example": {ANY_PATH: Answer(wait=silent)},
        "reset.example": {ANY_PATH: Answer(raw=b"")},
        "garbage.example": {ANY_PATH: Answer(raw=b"\x00\xff garbage\r\n\r\n" * 100)},
        "endless.example": {ANY_PATH: Answer(raw=ENDLESS)},
        "truncated.example": {ANY_PATH: Answer(png(64, 64, ORANGE), truncate=40,
                                               content_type="image/png")},
        "loop.example": {ANY_PATH: Answer(status=302, headers=(("Location", "/again"),))},
        "broken.example": {ANY_PATH: Answer(png(64, 64, ORANGE)[:200], content_type="image/png")},
        "empty.example": {ANY_PATH: Answer(b"")},
    }


class _Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        self.server.owner.record(Request("GET", self.path, list(self.headers.items())))
        answer = self.server.owner.answer_for(self.path)
        if answer.wait is not None:
            answer.wait.wait()
        if answer.raw is not None:
            self._send_raw(answer.raw)
            return
        self.send_response_only(answer.status)
        self.send_header("Content-Type", answer.content_type)
        self.send_header("Content-Length", str(len(answer.body)))
        for name, value in answer.headers:
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(answer.body[:len(answer.body) - answer.truncate])
        if answer.truncate:
            self.close_connection = True

    def _send_raw(self, data):
        self.close_connection = True
        try:
            while data is ENDLESS:
                self.wfile.write(b"HTTP/1.1 200 OK\r\n\r\n" + bytes(65536))
            self.wfile.write(data)
            # With no time to linger, closing sends a reset.
            self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        except OSError:
            pass  # the client has had enough

    def do_CONNECT(self):
        self.server.owner.record(Request("CONNECT", self.path, list(self.headers.items())))
        self.send_response_only(502)
        self.send_header("Content-Length", "0")
        self.end_headers()
        self.close_connection = True

    def log_message(self, *_):
        pass  # the requests are in the record


class _Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True
    request_queue_size = 128

    def handle_error(self, request, client_address):
        pass  # a client that hangs up is no error of the server


class SiteServer:
    def __init__(self, sites, port=0, log=None):
        self.sites = sites
        self._log = log
        self._lock = threading.Lock()
        self.requests = []
        self._server = _Server(("127.0.0.1", port), _Handler)
        self._server.owner = self
        self.port = self._server.server_address[1]
        self._thread = threading.Thread(target=self._server.serve_forever, args=(0.05,), daemon=True)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *exception):
        self._server.shutdown()
        self._server.server_close()

    def proxy_environment(self):
        address = f"http://127.0.0.1:{self.port}"
        return {"http_proxy": address, "https_proxy": address, "no_proxy": ""}

    def record(self, request):
        with self._lock:
            self.requests.append(request)
            if self._log is not None:
                self._log.write(json.dumps(request._asdict()) + "\n")
                self._log.flush()

    def answer_for(self, url):
        parts = urllib.parse.urlsplit(url)
        path = (parts.path or "/") + (f"?{parts.query}" if parts.query else "")
        site = self.sites.get((parts.hostname or "").lower(), {})
        return site.get(path) or site.get(ANY_PATH, NOT_FOUND)

    def urls(self, host=None):
        """The addresses asked for so far, of one host or of all, in order of arrival."""
        with self._lock:
            return [request.url for request in self.requests
                    if host is None or urllib.parse.urlsplit(request.url).hostname == host]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--port", type=int, default=0)
    port = parser.parse_args().port
    with SiteServer(demo_sites(), port, sys.stdout) as server:
        print(f"http_proxy=http://127.0.0.1:{server.port}", flush=True)
        threading.Event().wait()


if __name__ == "__main__":
    main()
