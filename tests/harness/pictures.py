"""Reading pictures of the screen."""

import collections
import csv
import re
import subprocess

Box = collections.namedtuple("Box", "left top right bottom pixels")


INK = 40  # the least difference of a channel between text, even grey, and its background
LOWEST_TEXT = 5  # pixels; a lower line is a separator
MAGNIFIED = (3, 2, 4)  # sizes at which text is read; one that fails may be read at another
WIDEST_SPACE = 16  # pixels between two words of a line
WIDEST_GAP = 2  # pixels between the parts of one line of text, such as a letter and its dot


class Picture:
    """The pixels of a PNG file, or of one part of it."""

    def __init__(self, png, part=None):
        """`part`: left, top, width and height."""
        crop = ["-crop", "{2}x{3}+{0}+{1}".format(*part), "+repage"] if part else []
        command = ["convert", png, *crop]
        size = subprocess.check_output([*command, "-format", "%w %h", "info:"]).split()
        self.width, self.height = map(int, size)
        self.data = subprocess.check_output([*command, "-depth", "8", "rgb:-"])

    def row(self, y):
        """The pixels of one row as a list of (red, green, blue)."""
        data = self.data[3 * y * self.width : 3 * (y + 1) * self.width]
        return list(zip(data[0::3], data[1::3], data[2::3]))

    def background(self):
        pixels = zip(self.data[0::3], self.data[1::3], self.data[2::3])
        return collections.Counter(pixels).most_common(1)[0][0]

    def ink(self):
        """For each row the number of pixels that are not background."""
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
    """The y position of each line of text, without separators."""
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
    """The bounding box (right and bottom exclusive) and the number of the pixels whose channels are
    each within `tolerance` of `rgb`. None without any."""
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


def read_words(png, magnified):
    """The words in a picture of the screen, read by tesseract: (word, Box) in the order of reading.
    Signs around a word are left out. `pixels` of a box is its area."""
    large = subprocess.check_output(
        ["convert", png, "-colorspace", "gray", "-resize", f"{100 * magnified}%", "png:-"]
    )
    table = subprocess.run(
        ["tesseract", "-", "-", "--psm", "11", "tsv"],
        input=large,
        stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL,
        check=True,
    ).stdout.decode()
    words = []
    for row in csv.DictReader(table.splitlines(), delimiter="\t", quoting=csv.QUOTE_NONE):
        word = re.sub(r"^\W+|\W+$", "", row["text"] or "")
        if word:
            edges = (int(row[key]) // magnified for key in ("left", "top", "width", "height"))
            left, top, width, height = edges
            words.append((word, Box(left, top, left + width, top + height, width * height)))
    return words


def find_text(png, text):
    """The box of a line in a picture of the screen that ends with these words. None without one."""
    lines = (_line_that_ends_with(text.split(), read_words(png, size)) for size in MAGNIFIED)
    return next(filter(None, lines), None)


def _line_that_ends_with(wanted, words):
    for end in range(len(wanted), len(words) + 1):
        boxes = [box for _, box in words[end - len(wanted) : end]]
        found = [word for word, _ in words[end - len(wanted) : end]] == wanted
        goes_on = end < len(words) and _is_same_line(boxes[-1], words[end][1])
        if found and not goes_on and all(map(_is_same_line, boxes, boxes[1:])):
            left, right = boxes[0].left, boxes[-1].right
            top, bottom = min(box.top for box in boxes), max(box.bottom for box in boxes)
            return Box(left, top, right, bottom, (right - left) * (bottom - top))
    return None


def _is_same_line(word, following):
    """True if one word directly follows another."""
    overlap = min(word.bottom, following.bottom) - max(word.top, following.top)
    return overlap > 0 and 0 <= following.left - word.right <= WIDEST_SPACE


def _matches(data, rgb, tolerance):
    """One byte a pixel: 1 where all three channels match."""
    combined = None
    for channel, wanted in enumerate(rgb):
        table = bytes(1 if abs(value - wanted) <= tolerance else 0 for value in range(256))
        plane = int.from_bytes(data[channel::3].translate(table), "big")
        combined = plane if combined is None else combined & plane
    return combined.to_bytes(len(data) // 3, "big")


def crop(png, box, margin=0):
    """Cuts the picture to the box (left, top, width, height) and `margin` pixels around it."""
    left, top, width, height = box
    left, top = max(left - margin, 0), max(top - margin, 0)
    area = f"{width + 2 * margin}x{height + 2 * margin}+{left}+{top}"
    subprocess.run(["mogrify", "-crop", area, "+repage", png], check=True)


def pixel(png, x, y):
    """The RGBA value of one pixel; colours are not multiplied by alpha."""
    part = ["-depth", "8", "-crop", f"1x1+{x}+{y}"]
    return tuple(subprocess.check_output(["convert", png, *part, "rgba:-"]))
