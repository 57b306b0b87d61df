"""Samba's registry shares, with state, locks and caches in a folder of their own."""

import os

from processes import CannotMeasure, run, time_of


class Samba:
    def __init__(self, folder):
        self.configuration = os.path.join(folder, "smb.conf")
        self.listing = os.path.join(folder, "listing")
        self.folder = folder
        lines = ["[global]", "workgroup = BENCH", f"log file = {folder}/log"]
        for name in ("state directory", "lock directory", "private dir", "cache directory",
                     "pid directory", "ncalrpc dir"):
            place = os.path.join(folder, name.split()[0])
            os.makedirs(place, mode=0o755)
            lines.append(f"{name} = {place}")
        self.lines = lines
        self._write_configuration(self.configuration, "registry")

    def _write_configuration(self, path, included):
        with open(path, "w", encoding="utf-8") as file:
            file.write("\n".join([*self.lines, f"include = {included}"]) + "\n")

    def net(self, *arguments):
        return ["net", "-s", self.configuration, "conf", *arguments]

    def fill(self, folders):
        """One share per folder, with what `net conf addshare` would give it."""
        shares = os.path.join(self.folder, "shares.conf")
        with open(shares, "w", encoding="utf-8") as file:
            for folder in folders:
                file.write(f"[{os.path.basename(folder)}]\npath = {folder}\n"
                           "guest ok = no\nread only = no\n")
        run(self.net("import", shares))

    def time_of_list(self, expected):
        return self._time_of_listing(self.net("list"), expected)

    def time_of_import(self, shares):
        """Of the shares of a file, into a registry that has none yet."""
        return time_of(self.net("import", shares))

    def time_of_testparm(self, shares, expected):
        """Of a configuration that includes a file of shares."""
        configuration = os.path.join(self.folder, "including.conf")
        self._write_configuration(configuration, shares)
        return self._time_of_listing(["testparm", "-s", configuration], expected + 1)  # [global]

    def _time_of_listing(self, command, expected):
        took = time_of(command, self.listing)
        with open(self.listing, encoding="utf-8") as file:
            found = sum(line.startswith("[") for line in file)
        if found != expected:
            raise CannotMeasure(f"{' '.join(command)} lists {found} sections, not {expected}")
        return took

    def time_of_add(self, name, folder):
        return time_of(self.net("addshare", name, folder, "writeable=y", "guest_ok=n"))

    def time_of_remove(self, name):
        return time_of(self.net("delshare", name))
