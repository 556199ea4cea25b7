"""Websites on which many tests find icons, and websites that are bad in every way."""

from tests.harness.answers import link_tag, manifest, picture, redirect
from tests.harness.image_files import disc_png, flat_png, ico
from tests.harness.web_server import ANY_PATH, ENDLESS, NEVER, Answer

# Colours that no desktop theme shows, so that a screenshot can be searched for them.
MAGENTA = (230, 20, 160)
TEAL = (10, 190, 170)
ORANGE = (250, 130, 10)


def icon_file(*edges):
    pictures = [(edge, disc_png(edge, ORANGE)) for edge in edges]
    return Answer(ico(*pictures), content_type="image/x-icon")


def demo_sites():
    """Host -> path and query -> answer."""
    touch_icon = picture(flat_png(180, 180, ORANGE))
    icons = link_tag("icon", "/icon-256.png", "256x256")
    icons += link_tag("apple-touch-icon", "/touch.png")
    page = f"<!DOCTYPE html><html><head><title>Glint</title>{icons}</head></html>"
    large = {"src": "/large.png", "sizes": "512x512"}
    return {
        "glint.example": {
            "/": Answer(page.encode()),
            "/icon-256.png": picture(disc_png(256, MAGENTA)),
            "/touch.png": touch_icon,
            "/apple-touch-icon.png": touch_icon,
            "/favicon.ico": icon_file(32),
        },
        "manifest.example": {
            "/": Answer(b"<html><head><title>No icon links</title></head></html>"),
            "/site.webmanifest": manifest({"src": "/small.png", "sizes": "48x48"}, large),
            "/large.png": picture(disc_png(512, TEAL)),
        },
        "small.example": {"/favicon.ico": icon_file(16, 32)},
    }


def hostile_sites():
    """Sites without any icon, each bad in its own way on every path."""
    image = disc_png(64, ORANGE)
    answers = {
        "silent.example": Answer(delay=NEVER),
        "reset.example": Answer(raw=b""),
        "garbage.example": Answer(raw=b"\x00\xff garbage\r\n\r\n" * 100),
        "endless.example": Answer(raw=ENDLESS),
        "truncated.example": Answer(image, content_type="image/png", truncate=40),
        "loop.example": redirect("/again"),
        "broken.example": picture(image[:200]),
        "empty.example": Answer(b""),
    }
    return {host: {ANY_PATH: answer} for host, answer in answers.items()}
