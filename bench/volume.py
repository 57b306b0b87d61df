"""A volume with many objects in it, to be counted."""

import os
import struct

from processes import run

FOLDERS = 2_000
FILES = 99  # in each folder
SIZE = 37  # bytes by which each file of a folder is longer than the one before
OWNERS = 40
FIRST_OWNER = 100_000
SLOTS = 2_048


class Volume:
    """A folder that is mounted on itself, so that it is a volume's highest."""

    def __init__(self, path):
        self.path = path
        os.makedirs(path)
        run(["mount", "--bind", path, path])
        self.make_quota_file()
        self.objects = 1 + self._fill()

    def make_quota_file(self):
        """An empty one, so that the next run has something to write."""
        header = struct.pack(">8I16s16x", 0xFF31FF35, 1, SLOTS, 0, 0, 0, 604800, 604800, b"QUOTA HASH FILE")
        with open(os.path.join(self.path, ".quota.user"), "wb") as file:
            file.write(header)
            file.truncate((SLOTS + 1) * 64)

    def _fill(self):
        """The number of objects that were made."""
        made = 0
        for number in range(FOLDERS):
            above = os.path.join(self.path, f"folder{number // 100:02d}")
            if number % 100 == 0:
                os.mkdir(above)
                made += 1
            self._fill_folder(os.path.join(above, f"folder{number % 100:02d}"), number)
            made += 1 + FILES
        return made

    @staticmethod
    def _fill_folder(folder, number):
        os.mkdir(folder)
        for file in range(FILES):
            path = os.path.join(folder, f"file{file:04d}")
            descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
            os.write(descriptor, b"x" * (file * SIZE))
            os.fchown(descriptor, FIRST_OWNER + (number + file) % OWNERS, 0)
            os.close(descriptor)

    def close(self):
        run(["umount", self.path])

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
