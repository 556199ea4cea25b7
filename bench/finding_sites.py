"""Sites on loopback, of the kinds that exist in the web, for finders of icons.

`sites()` gives the link of each and the answers of its hosts; `site_server` serves them; `width_of`
is the width of the icon that a finder has found.
"""

import dataclasses
import functools
import gzip
import subprocess
import urllib.parse

from tests.harness import answers, image_files, web_server
from tests.harness.answers import link_tag as link
from tests.harness.web_server import ANY_PATH, SiteServer

ANSWER_AFTER = 0.010  # seconds
SLOW = 1.0
HUGE = 1_000_000  # bytes
VECTOR_WIDTH = 512  # a drawing fits any size
MAXIMUM_REDIRECTS = 5
TYPES = {
    "png": "image/png",
    "ico": "image/x-icon",
    "svg": "image/svg+xml",
    "html": "text/html",
    "json": "application/manifest+json",
    "jpg": "image/jpeg",
    "webp": "image/webp",
    "gif": "image/gif",
    "webmanifest": "application/manifest+json",
}


@dataclasses.dataclass
class Answer(web_server.Answer):
    content_type: str | None = None  # None: by the address
    delay: float = ANSWER_AFTER
    width: int = 0  # of the picture in the body


@dataclasses.dataclass
class Site:
    kind: str
    link: str
    hosts: dict  # host -> path and query -> answer
    has_icon: bool


# ---- pictures -----------------------------------------------------------------------------------


@functools.cache
def png_bytes(width, height):
    """A gradient."""
    rows = [
        b"".join(bytes((255 * x // width, 255 * y // height, 90, 255)) for x in range(width))
        for y in range(height)
    ]
    return image_files.png(width, height, rows)


@functools.cache
def png(width, height=None):
    return Answer(png_bytes(width, height or width), width=width)


@functools.cache
def ico(*edges):
    pictures = [(edge, png_bytes(edge, edge)) for edge in edges]
    return Answer(image_files.ico(*pictures), width=max(edges))


@functools.cache
def other_format(name, width):
    """By ImageMagick."""
    body = subprocess.run(
        ["convert", "-size", f"{width}x{width}", "plasma:blue-red", f"{name}:-"],
        check=True,
        stdout=subprocess.PIPE,
    ).stdout
    return Answer(body, width=width)


SVG = Answer(
    b'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 16 16">'
    b'<circle cx="8" cy="8" r="7" fill="#1f6feb"/></svg>',
    width=VECTOR_WIDTH,
)


# ---- pages --------------------------------------------------------------------------------------

FILLER = '<div class="card"><p>Words and <b>more</b> words.</p><img src="a.jpg" alt="A"></div>\n'


def page(*tags, status=200, body=FILLER * 100, **more):
    text = (
        '<!DOCTYPE html><html lang="en"><head><meta charset="utf-8"><title>A site</title>'
        '<link rel="stylesheet" href="/style.css">\n'
        + "\n".join(tags)
        + f"\n</head><body>{body}</body></html>"
    )
    return Answer(text.encode(), status, TYPES["html"], **more)


def icon(href, sizes=None, **more):
    return link("icon", href, sizes, **more)


def manifest(*icons):
    return Answer(answers.manifest(*icons).body)


def src(address, sizes, **more):
    return {"src": address, "sizes": sizes, "type": "image/png", **more}


def moved(location, status=301):
    return Answer(status=status, headers=(("Location", location),))


def typed(answer, content_type):
    return dataclasses.replace(answer, content_type=content_type)


def several(answer, *paths):
    return {path: answer for path in paths}


# ---- the sites ----------------------------------------------------------------------------------

# Each site is laid out by hand: a table that a reader can scan.
# fmt: off

def favicon_sites():
    at = "/favicon.ico"
    return {
        "favicon.ico alone, 16": {"/": page(), at: ico(16)},
        "favicon.ico alone, 32": {"/": page(), at: ico(32)},
        "favicon.ico alone, 16 to 48": {"/": page(), at: ico(16, 32, 48)},
        "favicon.ico alone, 16 to 256": {"/": page(), at: ico(16, 32, 48, 256)},
        "favicon.ico alone, page missing": {at: ico(32)},
        "favicon.ico that is a PNG": {"/": page(), at: png(64)},
        "favicon.ico that is a GIF": {"/": page(), at: other_format("gif", 48)},
        "favicon.ico behind a redirect": {"/": page(), at: moved("/static/f.ico"),
                                          "/static/f.ico": ico(32, 64)},
        "favicon.ico, page forbidden to robots": {"/": page(status=403), at: ico(32)},
        "favicon.ico, page in a redirect loop": {"/": moved("/", 302), at: ico(48)},
        "favicon.ico named as shortcut icon": {"/": page(link("shortcut icon", at)), at: ico(32)},
        "favicon.ico under another type": {
            "/": page(), at: typed(ico(32), "application/octet-stream")},
        "favicon.ico without a page's head": {
            "/": typed(Answer(b"<h1>It works!</h1>"), "text/html"), at: ico(16, 32)},
    }


def link_sites():
    sizes = ["16x16", "32x32", "96x96", "192x192"]
    sized = {f"/icons/{size}.png": png(int(size.split("x")[0])) for size in sizes}
    old = {"/favicon.ico": ico(16)}
    touches = [57, 60, 72, 76, 114, 120, 144, 152, 180]
    return {
        "one icon": {"/": page(icon("/icon.png")), "/icon.png": png(32)},
        "icons of four sizes": {
            "/": page(*(icon(f"/icons/{size}.png", size) for size in sizes)), **sized, **old},
        "icons of four sizes, none said": {
            "/": page(*(icon(f"/icons/{size}.png") for size in sizes)), **sized, **old},
        "several sizes in one tag": {"/": page(icon("/i.ico", "16x16 32x32 64x64")),
                                     "/i.ico": ico(16, 32, 64)},
        "icon on another host": {"/": page(icon("http://cdn.{host}/icon.png", "192x192")),
                                 "http://cdn.{host}/icon.png": png(192), **old},
        "icon with a query": {"/": page(icon("img/icon.png?v=2", "64x64")),
                              "/img/icon.png?v=2": png(64), **old},
        "icon in the root with a query": {"/": page(icon("/icon.png?v=3", "192x192")),
                                          "/icon.png?v=3": png(192), **old},
        "icon with an escaped query": {"/": page(icon("icon.png?a=1&amp;b=2", "96x96")),
                                       "/icon.png?a=1&b=2": png(96), **old},
        "attributes without quotes": {"/": page("<link rel=icon href=/icon.png sizes=96x96>"),
                                      "/icon.png": png(96), **old},
        "capitals and single quotes": {
            "/": page("<LINK REL='ICON' HREF='/icon.png' SIZES='96X96'>"),
            "/icon.png": png(96), **old},
        "address before the kind": {
            "/": page('<link href="/icon.png" rel="icon" type="image/png">'),
            "/icon.png": png(128), **old},
        "tag over several lines": {"/": page('<link\n  rel="icon"\n  sizes="128x128"\n  '
                                             'href="/icon.png"\n/>'), "/icon.png": png(128), **old},
        "base address": {"/": page('<base href="/assets/">', icon("icon.png", "128x128")),
                         "/assets/icon.png": png(128), **old},
        "data in the address": {"/": page(icon("data:image/png;base64,iVBORw0KGgo=")), **old},
        "icon in the text of a script": {
            "/": page("<script>document.head.innerHTML += '" + icon("/icon.png") + "'</script>"),
            "/icon.png": png(128), **old},
        "icon in a comment for old browsers": {
            "/": page("<!--[if IE]>" + link("shortcut icon", "/ie.ico") + "<![endif]-->",
                      icon("/icon.png", "128x128")),
            "/ie.ico": ico(16), "/icon.png": png(128)},
        "a logo that is not square": {
            "/": page(icon("/logo.png")), "/logo.png": png(200, 60), **old},
        "address without an ending": {"/": page(icon("/brand/icon", type="image/png")),
                                      "/brand/icon": typed(png(180), "image/png")},
        "ending in capitals": {"/": page(icon("/Icon.PNG", "192x192")), "/Icon.PNG": png(192)},
        "icon as WebP": {"/": page(icon("/icon.webp", "192x192", type="image/webp")),
                         "/icon.webp": other_format("webp", 192), **old},
        "thirty icons": {
            "/": page(*(icon(f"/i{edge}.png", f"{edge}x{edge}") for edge in range(16, 256, 8))),
            **{f"/i{edge}.png": png(edge) for edge in range(16, 256, 8)}},
        "touch icon and small favicon": {
            "/": page(link("apple-touch-icon", "/touch.png"), icon("/favicon.ico")),
            "/touch.png": png(180), "/favicon.ico": ico(16, 32)},
        "touch icons of nine sizes": {
            "/": page(*(link("apple-touch-icon", f"/t{edge}.png", f"{edge}x{edge}")
                        for edge in touches)), **{f"/t{edge}.png": png(edge) for edge in touches}},
        "touch icon that nothing names": {"/": page(), "/apple-touch-icon.png": png(180), **old},
        "precomposed touch icon that nothing names": {
            "/": page(), "/apple-touch-icon-precomposed.png": png(152), **old},
        "precomposed touch icon": {"/": page(link("apple-touch-icon-precomposed", "/touch.png")),
                                   "/touch.png": png(144), **old},
        "touch icon as JPEG": {"/": page(link("apple-touch-icon", "/touch.jpg")),
                               "/touch.jpg": other_format("jpg", 180), **old},
        "SVG alone": {"/": page(icon("/icon.svg", type="image/svg+xml")), "/icon.svg": SVG},
        "SVG and favicon.ico": {"/": page(icon("/icon.svg", type="image/svg+xml")),
                                "/icon.svg": SVG, "/favicon.ico": ico(32)},
        "SVG and PNG": {"/": page(icon("/icon.svg", "any"), icon("/icon.png", "192x192")),
                        "/icon.svg": SVG, "/icon.png": png(192)},
        "SVG and touch icon": {"/": page(icon("/icon.svg"), link("apple-touch-icon", "/touch.png")),
                               "/icon.svg": SVG, "/touch.png": png(180)},
        "mask icon alone": {"/": page(link("mask-icon", "/mask.svg", color="#000")),
                            "/mask.svg": SVG, **old},
        "tile of another system": {
            "/": page('<meta name="msapplication-TileImage" content="/tile.png">'),
            "/tile.png": png(144), **old},
    }


def manifest_sites():
    icons = several(png(192), "/m192.png") | several(png(512), "/m512.png")
    named = manifest(src("/m192.png", "192x192"), src("/m512.png", "512x512"))
    old = {"/favicon.ico": ico(16, 32)}
    return {
        "manifest": {"/": page(link("manifest", "/site.webmanifest"), icon("/favicon.ico")),
                     "/site.webmanifest": named, **icons, **old},
        "manifest.json": {"/": page(link("manifest", "/manifest.json")), "/manifest.json": named,
                          **icons, **old},
        "manifest that nothing names": {"/": page(), "/manifest.json": named, **icons, **old},
        "manifest in an odd place": {
            "/": page(link("manifest", "/assets/app.webmanifest")),
            "/assets/app.webmanifest": named, **icons, **old},
        "manifest with relative addresses": {
            "/": page(link("manifest", "/manifest.webmanifest")),
            "/manifest.webmanifest": manifest(src("img/m.png", "256x256")),
            "/img/m.png": png(256), **old},
        "manifest with a maskable icon besides": {
            "/": page(link("manifest", "/manifest.json")),
            "/manifest.json": manifest(src("/m512.png", "512x512", purpose="maskable"),
                                       src("/m192.png", "192x192", purpose="any")), **icons, **old},
        "manifest with an SVG besides": {
            "/": page(link("manifest", "/manifest.json")),
            "/manifest.json": manifest({"src": "/m.svg", "sizes": "any", "type": "image/svg+xml"},
                                       src("/m192.png", "192x192")), "/m.svg": SVG, **icons},
        "manifest that is no JSON": {"/": page(link("manifest", "/manifest.json")),
                                     "/manifest.json": page(), **old},
    }


def trouble_sites():
    named = page(icon("/icon.png", "128x128"))
    good = {"/icon.png": png(128)}
    old = {"/favicon.ico": ico(32)}
    huge = FILLER * (HUGE // len(FILLER))
    return {
        "missing page with icons": {"/": page(icon("/icon.png"), status=404), **good},
        "broken server with icons": {"/": page(icon("/icon.png"), status=500), **good},
        "page moved to another host": {
            "/": moved("http://www.{host}/"),
            "http://www.{host}/": page(icon("http://www.{host}/icon.png")),
            "http://www.{host}/icon.png": png(128)},
        "page moved to its language": {"/": moved("/en/", 302), "/en/": named, **good},
        "page moved three times": {"/": moved("/a"), "/a": moved("/b", 302), "/b": moved("/c", 308),
                                   "/c": named, **good},
        "icon moved to another host": {"/": named, "/icon.png": moved("http://cdn.{host}/i.png"),
                                       "http://cdn.{host}/i.png": png(128)},
        "icon under the type of a page": {
            "/": named, "/icon.png": typed(png(128), "text/html")},
        "icon under the type of bytes": {
            "/": named, "/icon.png": typed(png(128), "application/octet-stream")},
        "icon that is missing": {"/": named, **old},
        "icon that is a page": {"/": named, "/icon.png": page(), **old},
        "icon that is empty": {"/": named, "/icon.png": Answer(), **old},
        "icon that is cut off": {"/": named, "/icon.png": Answer(png_bytes(128, 128)[:200]), **old},
        "broken icon before a good one": {
            "/": page(icon("/broken.png", "256x256"), icon("/icon.png", "128x128")),
            "/broken.png": Answer(b"\x89PNG\r\n\x1a\n broken"), **good},
        "icon that takes the server down": {
            "/": page(icon("/error.png", "256x256"), icon("/icon.png", "128x128")),
            "/error.png": Answer(b"error", 500), **good},
        "huge page, icon in its head": {"/": page(icon("/icon.png", "128x128"), body=huge), **good},
        "huge page, icon at its end": {"/": page(body=huge + icon("/icon.png")), **good},
        "slow page": {"/": dataclasses.replace(named, delay=SLOW), **good},
        "slow icon": {"/": named, "/icon.png": dataclasses.replace(png(128), delay=SLOW)},
        "packed page": {"/": dataclasses.replace(
            named, body=gzip.compress(named.body),
            headers=(("Content-Encoding", "gzip"),)), **good},
        "page in Latin-1": {"/": Answer(named.body.replace(b"A site", b"Une ic\xf4ne"),
                                        content_type="text/html; charset=iso-8859-1"), **good},
        "page with a byte-order mark": {"/": dataclasses.replace(
            named, body=b"\xef\xbb\xbf" + named.body), **good},
        "a place for every address": {ANY_PATH: page()},
        "nothing at all": {"/": page()},
        "nothing, and no page": {},
    }


# fmt: on


def sites():
    found = []
    kinds = favicon_sites() | link_sites() | manifest_sites() | trouble_sites()
    for number, (kind, paths) in enumerate(kinds.items()):
        host = f"site-{number}.example.com"
        hosts = {}
        for address, answer in paths.items():
            parts = urllib.parse.urlsplit(address.format(host=host))
            path = parts.path + (f"?{parts.query}" if parts.query else "")
            hosts.setdefault(parts.hostname or host, {})[path] = completed(answer, host, path)
        has_icon = any(answer.width for paths in hosts.values() for answer in paths.values())
        found.append(Site(kind, f"http://{host}/", hosts, has_icon))
    return found


def completed(answer, host, path):
    """With the host in place of "{host}", and a content type."""
    ending = path.partition("?")[0].rpartition(".")[2].lower()
    kind = answer.content_type or TYPES.get(ending, TYPES["html"])
    if answer.width:
        return dataclasses.replace(answer, content_type=kind)
    headers = tuple((name, value.format(host=host)) for name, value in answer.headers)
    body = answer.body.replace(b"{host}", host.encode())
    return dataclasses.replace(answer, body=body, content_type=kind, headers=headers)


def site_server(all_sites, tls_context=None):
    """In a separate process, so that its processor time is not counted."""
    hosts = {host: paths for site in all_sites for host, paths in site.hosts.items()}
    return SiteServer(hosts, tls_context, separate_process=True)


def width_of(server, address):
    """The width of the picture at an address; 0 if there is none."""
    for _ in range(MAXIMUM_REDIRECTS):
        answer = server.answer_for(address or "")
        location = dict(answer.headers).get("Location")
        if location is None:
            return getattr(answer, "width", 0) if answer.status == 200 else 0
        address = urllib.parse.urljoin(address, location)
    return 0
