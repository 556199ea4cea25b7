"""Link files (.webloc) and the mark that the program leaves on them."""

import os
import pathlib
import xml.sax.saxutils

TEXT = """<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" \
"http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
\t<key>URL</key>
\t<string>{url}</string>
</dict>
</plist>
"""


def link_text(url):
    return TEXT.format(url=xml.sax.saxutils.escape(url))


def write_link(path, url):
    """Writes a link file as a browser's drop does: under another name, then renamed."""
    path = pathlib.Path(path)
    unfinished = path.with_name(path.name + ".part")
    unfinished.write_text(link_text(url))
    unfinished.rename(path)
    return path


def move_link_in(path, url):
    """The same for a folder that is open in a file manager. The file is written beside the folder:
    Thunar 4.20 never shows a file that is made inside and renamed at once."""
    path = pathlib.Path(path)
    unfinished = path.parent.with_name(path.name + ".part")
    unfinished.write_text(link_text(url))
    unfinished.rename(path)
    return path


def icon_name(path):
    """The name of the stored icon that a file has; None without an icon."""
    try:
        return os.getxattr(path, "user.glintmark.icon").decode()
    except OSError:
        return None
