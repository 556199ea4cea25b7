"""Parts of websites: the answers and tags of which tests build their sites."""

import json

from tests.harness.web_server import Answer


def picture(data):
    return Answer(data, content_type="image/png")


def manifest(*icons):
    content = json.dumps({"name": "A site", "icons": list(icons)})
    return Answer(content.encode(), content_type="application/manifest+json")


def redirect(location, status=302, *headers):
    return Answer(b"", status, content_type=None, headers=(("Location", location), *headers))


def link_tag(rel, href, sizes=None, **attributes):
    attributes = {"rel": rel, "href": href, "sizes": sizes, **attributes}
    given = [f'{name}="{value}"' for name, value in attributes.items() if value is not None]
    return f"<link {' '.join(given)}>"
