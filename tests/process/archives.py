"""Archive files of gateways for a test, that grow and break; and what stands in them, read on its own account."""

import os
import re

LINE = re.compile(rb"(-?\d+),(\d+),(-?(?:\d+\.\d{6}|inf|nan))")
HOUR = 1709377200


def kind_of(name):
    """hourly, daily, event; None for another file."""
    if name == "_A57":
        return "event"
    number = re.fullmatch(r"_?A(\d+)|T4", name)
    return None if not number else "hourly" if int(number[1] or 4) <= 28 else "daily"


def bits_of(text):
    """A value to its last bit; all NaN are the same."""
    return float(text).hex()


def lines_of(path):
    """(time, quality, value) of each line; what does not parse is none, and what has no end is none yet."""
    with open(path, "rb") as file:
        pieces = file.read().split(b"\n")
    for match in filter(None, map(LINE.fullmatch, pieces[:-1])):
        if -2**31 <= int(match[1]) < 2**31:
            yield int(match[1]), int(match[2]), bits_of(match[3])


class Archives:
    """The storage of a gateway, and every line that ever stood there."""

    def __init__(self, name):
        self.name, self.root = name, f"/tmp/{name}"
        self.ever = set()
        os.makedirs(f"{self.root}/tmp")

    def files(self):
        """((meter, system, kind, name), path) of the files that only grow: a driver that stages has them apart."""
        storage = f"{self.root}/mnt/storage"
        for meter in os.listdir(storage):
            for system in filter(str.isdigit, os.listdir(f"{storage}/{meter}")):
                folder = f"{storage}/{meter}/{system}"
                staged = f"{folder}/tmp_archives"
                folder = staged if os.path.isdir(staged) and os.listdir(staged) else f"{folder}/tc_archives"
                for name in filter(kind_of, os.listdir(folder) if os.path.isdir(folder) else ()):
                    yield (meter, int(system), kind_of(name), name), f"{folder}/{name}"

    def on_file(self):
        """Identity -> (quality, value) of the line written last; and of events, of which several have one time, all."""
        last, events = {}, set()
        for place, path in self.files():
            for moment, *record in lines_of(path):
                if place[2] == "event":
                    events.add((*place, moment, *record))
                else:
                    last[(*place, moment)] = tuple(record)
        return last, events


class Invented(Archives):
    """Lines by chance, in files to which anything happens."""

    def __init__(self, name, chance):
        super().__init__(name)
        self.chance, self.count = chance, {}
        for meter in ("m1", "m.2"):
            for archive in ("A1", "A4", "A12", "A29", "_A57"):
                path = f"{self.root}/mnt/storage/{meter}/1/tc_archives/{archive}"
                os.makedirs(os.path.dirname(path), exist_ok=True)
                open(path, "w").close()
                self.count[path] = 0

    def write(self, share):
        for place, path in self.files():
            with open(path, "r+b") as file:
                file.seek(0, os.SEEK_END)
                if file.tell():
                    file.seek(-1, os.SEEK_END)
                    if file.read(1) != b"\n":  # a torn line gets its end, as the daemon gives it one
                        file.write(b"\n")
                for hour in range(self.count[path], self.count[path] + 30):
                    # Now and then an hour is read again, with another value.
                    moment = HOUR + 3600 * (hour if self.chance.random() < 0.9 else self.chance.randrange(hour + 1))
                    line = moment, self.chance.choice((192, 192, 192, 0)), f"{self.chance.randrange(10**9) / 1000:.6f}"
                    self.ever.add((*place, *line[:2], bits_of(line[2])))
                    file.write(f"{line[0]},{line[1]},{line[2]}\n".encode())
            self.count[path] += 30

    def harm(self):
        """Something befalls a file."""
        path = self.chance.choice(list(self.count))
        fault = self.chance.choice(("torn", "zeros", "emptied", "replaced", "cut"))
        with open(path, "rb") as file:
            text = file.read()
        if fault == "torn":
            text += f"{HOUR},192,12.3".encode()
        elif fault == "zeros":
            text += bytes(300) + b"\n"
        elif fault == "cut":
            text = text[:text.rfind(b"\n", 0, len(text) // 2) + 1]
        elif fault == "emptied":
            text = b""
        if fault == "replaced":
            with open(path + ".new", "wb") as file:
                file.write(text[text.find(b"\n", len(text) // 3) + 1:])
            os.rename(path + ".new", path)
        else:
            with open(path, "r+b") as file:
                file.truncate(0)
                file.write(text)
        return fault


class Simulated(Archives):
    """What a daemon wrote in a time of faults of its meters, its line and its storage, byte by byte as it stands."""

    def __init__(self, name, chance, source):
        super().__init__(name)
        self.chance, self.sizes = chance, {}
        for folder, _, names in os.walk(f"{source}/mnt/storage"):
            copy = self.root + folder.removeprefix(source)
            os.makedirs(copy, exist_ok=True)
            for path in (f"{folder}/{archive}" for archive in names if kind_of(archive)):
                self.sizes[path] = f"{copy}/{os.path.basename(path)}"
                open(self.sizes[path], "w").close()

    def write(self, share):
        """So much of each file, wherever in a line that is; at the end a torn line gets its end, too."""
        for path, copy in self.sizes.items():
            with open(path, "rb") as source, open(copy, "ab") as file:
                text = source.read()
                text += b"" if text.endswith(b"\n") or not text else b"\n"
                until = len(text) if share >= 1 else int(len(text) * share * self.chance.uniform(0.8, 1))
                file.write(text[file.tell():until])
        if share >= 1:
            last, events = self.on_file()
            self.ever = events | {(*place, moment, *record) for place, path in self.files()
                                  for moment, *record in lines_of(path)}
