"""Reading pictures of the screen."""

import collections
import subprocess

Box = collections.namedtuple("Box", "left top right bottom pixels")


INK = 40  # how far a channel of text is from its background, at least; greyed text included
LOWEST_TEXT = 5  # pixels; what is lower is a separator
WIDEST_GAP = 2  # pixels between the parts of one line of text, such as a letter and its dot


class Picture:
    """The pixels of a PNG file, or of one part of it."""

    def __init__(self, png, part=None):
        """`part`: left, top, width and height."""
        crop = ["-crop", "{2}x{3}+{0}+{1}".format(*part), "+repage"] if part else []
        size = subprocess.run(
            ["convert", str(png), *crop, "-format", "%w %h", "info:"],
            check=True,
            stdout=subprocess.PIPE,
        ).stdout.split()
        self.width, self.height = int(size[0]), int(size[1])
        self.data = subprocess.run(
            ["convert", str(png), *crop, "-depth", "8", "rgb:-"], check=True, stdout=subprocess.PIPE
        ).stdout

    def row(self, y):
        """The pixels of one row as a list of channel triples."""
        data = self.data[3 * y * self.width : 3 * (y + 1) * self.width]
        return list(zip(data[0::3], data[1::3], data[2::3]))

    def background(self):
        pixels = zip(self.data[0::3], self.data[1::3], self.data[2::3])
        return collections.Counter(pixels).most_common(1)[0][0]

    def ink(self):
        """How many pixels each row has that are not background."""
        background = self.background()
        return [
            sum(
                1
                for pixel in self.row(y)
                if max(abs(a - b) for a, b in zip(pixel, background)) > INK
            )
            for y in range(self.height)
        ]


def text_rows(picture):
    """The middle of each line of text, from the top; separators are left out."""
    rows, start, last = [], None, None
    for y, ink in enumerate(picture.ink() + [0] * (WIDEST_GAP + 2)):
        if ink:
            start = y if start is None else start
            last = y
        elif start is not None and y - last > WIDEST_GAP:
            if last - start + 1 >= LOWEST_TEXT:
                rows.append((start + last) // 2)
            start = None
    return rows


def find_colour(png, rgb, tolerance=8):
    """The bounding box of all pixels of the picture whose channels are each within `tolerance` of
    `rgb` (right and bottom exclusive), with their number. None without such a pixel."""
    picture = Picture(png)
    width, height = picture.width, picture.height
    hits = _matches(picture.data, rgb, tolerance)
    rows = [hits[y * width : (y + 1) * width] for y in range(height)]
    marked = [y for y, row in enumerate(rows) if any(row)]
    if not marked:
        return None
    left = min(rows[y].find(1) for y in marked)
    right = max(rows[y].rfind(1) for y in marked) + 1
    return Box(left, marked[0], right, marked[-1] + 1, hits.count(1))


def _matches(data, rgb, tolerance):
    """One byte a pixel: 1 where all three channels match."""
    combined = None
    for channel, wanted in enumerate(rgb):
        table = bytes(1 if abs(value - wanted) <= tolerance else 0 for value in range(256))
        plane = int.from_bytes(data[channel::3].translate(table), "big")
        combined = plane if combined is None else combined & plane
    return combined.to_bytes(len(data) // 3, "big")


def crop(png, box, margin=0):
    """Cuts the picture down to the box (left, top, width, height) and `margin` pixels around it."""
    left, top, width, height = box
    left, top = max(left - margin, 0), max(top - margin, 0)
    subprocess.run(
        [
            "mogrify",
            "-crop",
            f"{width + 2 * margin}x{height + 2 * margin}+{left}+{top}",
            "+repage",
            str(png),
        ],
        check=True,
    )


def pixel(png, x, y):
    """The straight RGBA value of one pixel."""
    text = subprocess.run(
        ["convert", str(png), "-depth", "8", "-crop", f"1x1+{x}+{y}", "rgba:-"],
        check=True,
        stdout=subprocess.PIPE,
    ).stdout
    return tuple(text)
