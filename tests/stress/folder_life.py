"""A random life of watched folders, and what the program must and must not report about it."""

import os
import random
import shutil

ENDING = b".webloc"
# No percent sign, which the log reads as a directive.
NAMES = [
    b"a",
    b"b",
    b"c",
    b"Site",
    b"My Site",
    b"\xe3\x82\xb5\xe3\x82\xa4\xe3\x83\x88",
    b"\xff\xfe",
    b"two\nlines",
    b'quo"te',
    b"back\\slash",
    b".hidden",
    b"n" * 240,
]
# Similar to the ending of a link file.
OTHER_ENDINGS = [b".WEBLOC", b".Webloc", b".webloc.part", b".webloc~", b".weblo", b"webloc", b""]

MAXIMUM_DIRECTORIES = 60
MAXIMUM_PATH = 2000  # half of PATH_MAX, since trees are moved below trees


class FolderLife:
    """Acts on folders and records what must and may be reported.

    A directory is noted as changed when an entry of it is made, removed, moved, written or given
    other attributes; when the directory itself appears, it is noted with all directories below. All
    link files that are in a noted directory at the end must have been reported. A reported file
    must at some time have been in a noted directory.

    When events are lost, only a directory's time stamps and its place are left. They show neither
    that an entry was written or given other attributes, nor that a directory moved and came back.
    """

    def __init__(self, folders, outside, link_text, seed, loses_events):
        self._random = random.Random(seed)
        self._folders = [os.fsencode(folder) for folder in folders]
        self._outside = os.fsencode(outside)  # on the same file system, not watched
        self._lasting_file = os.path.join(os.path.dirname(self._outside), b"lasting")
        open(self._lasting_file, "wb").close()
        self._away = {}  # a folder that is not in its place -> where it is
        self._link_text = link_text.encode()
        self._count = 0
        self._loses_events = loses_events
        self._changed = set()  # device and inode of directories
        self._arrived = set()  # of those that appeared
        self._places = set()  # at the begin of the round: identity and path of all directories
        self._inventory = set()
        self._may = set()
        self.log = []

    # ---- the record -------------------------------------------------------------------------

    def take_inventory(self, home):
        for folder in [os.fsencode(home), *self._folders]:
            if os.path.isdir(folder):
                self._inventory.update(self._links_in(folder))

    def begin_round(self):
        """All that must be reported so far has been reported."""
        self._places = {
            (self._identity(directory), directory)
            for folder in self._folders
            for directory in self._below(folder)
        }

    def must_be_reported(self):
        return {
            path
            for folder in self._folders
            for directory in self._below(folder)
            if self._is_noted(directory)
            for path in self._links_in(directory)
        } - self._inventory

    def _is_noted(self, directory):
        identity = self._identity(directory)
        may_have_come_back = self._loses_events and (identity, directory) in self._places
        return identity in self._changed or (identity in self._arrived and not may_have_come_back)

    def may_be_reported(self):
        return self._may - self._inventory

    def _links_in(self, directory):
        return {
            os.path.join(directory, name)
            for name in os.listdir(directory)
            if name.endswith(ENDING) and os.path.exists(os.path.join(directory, name))
        }

    def _below(self, directory):
        """The directory and all directories below it. Symbolic links are not followed."""
        return [path for path, _, _ in os.walk(directory)]

    def _identity(self, directory):
        status = os.stat(directory)
        return status.st_dev, status.st_ino

    def _note_change(self, directory):
        self._changed.add(self._identity(directory))
        self._note_scan(directory)

    def _note_scan(self, directory):
        if any(
            directory == folder or directory.startswith(folder + b"/") for folder in self._folders
        ):
            self._may.update(self._links_in(directory))

    def _note_arrival(self, directory):
        for path in self._below(directory):
            self._arrived.add(self._identity(path))
            self._note_scan(path)

    def _note_entry(self, directory):
        """An entry was written or given other attributes."""
        if self._loses_events:
            self._note_scan(directory)
        else:
            self._note_change(directory)

    # ---- life -------------------------------------------------------------------------------

    def act(self):
        """Does one random act."""
        acts = [
            (30, self._add_file),
            (6, self._add_other_file),
            (6, self._remove_file),
            (6, self._write_file),
            (6, self._change_attributes),
            (8, self._rename_file),
            (4, self._link_file),
            (10, self._make_path),
            (6, self._move_directory),
            (4, self._move_in),
            (3, self._move_out),
            (3, self._remove_directory),
            (2, self._exchange_directories),
            (2, self._leave_folder),
            (4, self._return_folder),
            (2, self._link_directory),
        ]
        weights = [weight for weight, _ in acts]
        act = self._random.choices([act for _, act in acts], weights)[0]
        self.log.append(act.__name__)
        act()

    def pause(self):
        """Seconds until the next acts."""
        return self._random.choice([0.0, 0.05, 0.3, 0.7, 1.1])

    def make_folder(self, folder):
        """Makes a watched folder that was missing at the start."""
        os.makedirs(folder)
        self._note_arrival(os.fsencode(folder))

    def come_home(self):
        """Returns every watched folder to its place."""
        while self._away:
            self._return_folder()

    def _pick(self, sequence):
        return self._random.choice(sequence) if sequence else None

    def _name(self):
        """A name, sometimes one that was used before."""
        self._count += 1
        number = self._random.randrange(40) if self._random.random() < 0.4 else self._count + 1000
        return (self._pick(NAMES) + b"-" + str(number).encode())[-240:]

    def _present_folders(self):
        return [folder for folder in self._folders if os.path.isdir(folder)]

    def _directories(self, with_folders=True):
        """All directories below the watched folders, in a fixed order."""
        found = []
        for folder in self._present_folders():
            below = self._below(folder)
            found += sorted(below if with_folders else below[1:])
        return found

    def _files(self):
        return sorted(
            os.path.join(directory, name)
            for directory in self._directories()
            for name in os.listdir(directory)
            if not os.path.isdir(os.path.join(directory, name))
            and not os.path.islink(os.path.join(directory, name))
        )

    def _write(self, path):
        with open(path, "wb") as file:
            file.write(self._link_text if self._random.random() < 0.2 else b"")

    def _add_file(self):
        directory = self._pick(self._directories())
        if directory is None:
            return
        path = os.path.join(directory, self._name() + ENDING)
        if os.path.isdir(path):
            return
        how = self._random.random()
        if how < 0.5:
            is_new = not os.path.lexists(path)
            self._write(path)
            if not is_new:
                self._note_entry(directory)
                return
        elif how < 0.9:  # as browsers do
            self._write(path + b".part")
            os.rename(path + b".part", path)
        elif not os.path.lexists(path):
            os.mkdir(path)  # a directory with the ending counts as a file
            self._note_arrival(path)
        self._note_change(directory)

    def _add_other_file(self):
        directory = self._pick(self._directories())
        if directory is not None:
            path = os.path.join(directory, self._name() + self._pick(OTHER_ENDINGS))
            if not os.path.lexists(path):
                self._write(path)
                self._note_change(directory)

    def _remove_file(self):
        path = self._pick(self._files())
        if path is not None:
            os.unlink(path)
            self._note_change(os.path.dirname(path))

    def _write_file(self):
        path = self._pick(self._files())
        if path is not None:
            with open(path, "ab") as file:
                file.write(b"\n")
            self._note_entry(os.path.dirname(path))

    def _change_attributes(self):
        """Of a file, or of a directory, which may then be readable only now."""
        path = self._pick(self._files() + self._directories(with_folders=False))
        if path is None:
            return
        change = self._pick(
            [
                lambda: os.chmod(path, self._pick([0o700, 0o755])),
                lambda: os.utime(path),
                lambda: os.setxattr(path, b"user.stress", b"%d" % self._count),
            ]
        )
        change()
        self._note_entry(os.path.dirname(path))
        if os.path.isdir(path):
            self._note_entry(path)
            # Its changed time stamp looks like a move to a walk.
            for below in self._below(path):
                self._note_scan(below)

    def _rename_file(self):
        path, directory = self._pick(self._files()), self._pick(self._directories())
        if path is not None:
            target = os.path.join(directory, self._name() + self._pick([ENDING] * 4 + [b".txt"]))
            if not os.path.isdir(target) and target != path:
                linked = os.path.exists(target) and os.path.samefile(path, target)
                os.rename(path, target)
                if not linked:  # else rename(2) does nothing
                    self._note_change(os.path.dirname(path))
                    self._note_change(directory)

    def _link_file(self):
        path, directory = self._pick(self._files()), self._pick(self._directories())
        if path is None:
            return
        target = os.path.join(directory, self._name() + ENDING)
        if os.path.lexists(target):
            return
        if self._random.random() < 0.5:
            os.link(path, target)
        else:  # to a file that stays: a target that appears later adds no name
            os.symlink(self._lasting_file, target)
        self._note_change(directory)

    def _make_path(self):
        """Makes a path at once, with a file at the bottom."""
        directory = self._pick(self._directories())
        if (
            directory is None
            or len(self._directories()) > MAXIMUM_DIRECTORIES
            or len(directory) > MAXIMUM_PATH
        ):
            return
        top = os.path.join(directory, self._name())
        if os.path.lexists(top):
            return
        bottom = os.path.join(top, *[self._name() for _ in range(self._random.randrange(4))])
        os.makedirs(bottom)
        self._write(os.path.join(bottom, self._name() + ENDING))
        self._note_change(directory)
        self._note_arrival(top)
        self._note_change(bottom)

    def _move_directory(self):
        source = self._pick(self._directories(with_folders=False))
        directory = self._pick(self._directories())
        if source is None or (directory + b"/").startswith(source + b"/"):
            return
        target = os.path.join(directory, self._name())
        if len(target) < MAXIMUM_PATH and not os.path.lexists(target):
            os.rename(source, target)
            self._note_change(os.path.dirname(source))
            self._note_change(directory)
            self._note_arrival(target)

    def _move_in(self):
        """Moves in a tree that was made elsewhere, or one that was moved out before."""
        directory = self._pick(self._directories())
        if directory is None:
            return
        target = os.path.join(directory, self._name())
        if os.path.lexists(target) or len(self._directories()) > MAXIMUM_DIRECTORIES:
            return
        kept = sorted(os.listdir(self._outside))
        if kept and self._random.random() < 0.7:
            source = os.path.join(self._outside, self._pick(kept))
        else:
            source = os.path.join(self._outside, self._name() + b"-made")
            os.makedirs(os.path.join(source, b"deep", b"deeper"))
            for place in (b".", b"deep", b"deep/deeper"):
                self._write(os.path.join(source, place, self._name() + ENDING))
        os.rename(source, target)
        self._note_change(directory)
        self._note_arrival(target)

    def _move_out(self):
        source = self._pick(self._directories(with_folders=False))
        if source is not None:
            self._count += 1
            os.rename(source, os.path.join(self._outside, b"out-%d" % self._count))
            self._note_change(os.path.dirname(source))

    def _remove_directory(self):
        path = self._pick(self._directories(with_folders=False))
        if path is not None:
            shutil.rmtree(path)
            self._note_change(os.path.dirname(path))

    def _exchange_directories(self):
        one, other = (self._pick(self._directories(with_folders=False)) for _ in range(2))
        if (
            one is None
            or (one + b"/").startswith(other + b"/")
            or (other + b"/").startswith(one + b"/")
        ):
            return
        aside = os.path.join(self._outside, b"aside-%d" % self._count)
        os.rename(one, aside)
        os.rename(other, one)
        os.rename(aside, other)
        for path in (one, other):
            self._note_change(os.path.dirname(path))
            self._note_arrival(path)

    def _leave_folder(self):
        """Moves a watched folder away, or removes it."""
        folder = self._pick(self._present_folders())
        if folder is None or len(self._away) > 1:
            return
        self._count += 1
        aside = folder + b"-aside-%d" % self._count
        os.rename(folder, aside)
        if self._random.random() < 0.3:
            if os.path.islink(aside):
                os.unlink(aside)
            else:
                shutil.rmtree(aside)
            self._away[folder] = None
        else:
            self._away[folder] = aside

    def _return_folder(self):
        """Moves a watched folder back with a new file, or makes it again."""
        folder = self._pick(sorted(self._away))
        if folder is None:
            return
        aside = self._away.pop(folder)
        if aside is None:
            os.makedirs(os.path.join(folder, b"fresh"))
        else:
            self._write(os.path.join(aside, self._name() + ENDING))
            os.rename(aside, folder)
        self._note_arrival(folder)
        self._note_change(folder)

    def _link_directory(self):
        """Makes a symbolic link to a directory; the program must not watch its target."""
        directory = self._pick(self._directories())
        if directory is None:
            return
        target = os.path.join(os.path.dirname(self._outside), b"link-targets")
        os.makedirs(target, exist_ok=True)
        path = os.path.join(directory, self._name())
        if not os.path.lexists(path):
            os.symlink(target, path)
            self._note_change(directory)
        self._write(os.path.join(target, self._name() + ENDING))
