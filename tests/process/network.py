"""Networks between programs of a test, and small disks, that can be harmed."""

import os
import socket
import threading
import time


class Link:
    """A network between two programs: connections to one port go on to another. They can be cut, go slowly, or say
    nothing for a while and then everything."""

    def __init__(self, port, target):
        self.target, self.connections = target, []
        self.mend()
        self.listener = socket.create_server(("127.0.0.1", port))
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            here, _ = self.listener.accept()
            try:
                if self.is_cut:
                    raise ConnectionError
                there = socket.create_connection(("127.0.0.1", self.target), 5)
                there.settimeout(None)
            except OSError:
                here.close()
                continue
            self.connections = [end for end in self.connections if end.fileno() >= 0] + [here, there]
            for pair in ((here, there), (there, here)):
                threading.Thread(target=self.carry, args=pair, daemon=True).start()

    def carry(self, source, target):
        try:
            while piece := source.recv(65536 if not self.is_slow else 2048):
                time.sleep(0.02 if self.is_slow else 0)
                while self.is_silent:
                    time.sleep(0.02)
                target.sendall(piece)
        except OSError:
            pass
        self.end(source, target)

    @staticmethod
    def end(*connections):
        for connection in connections:
            try:
                connection.shutdown(socket.SHUT_RDWR)  # which wakes the thread that reads
            except OSError:
                pass
            connection.close()

    def harm(self, how):
        """How: "cut", "slow" or "silent"."""
        setattr(self, f"is_{how}", True)
        if how == "cut":
            self.end(*self.connections)
            self.connections = []

    def mend(self):
        self.is_cut = self.is_slow = self.is_silent = False


class Disk:
    """A small file system of a program's own (box.disks)."""

    def __init__(self, folder):
        self.ballast = f"{folder}/ballast"
        self.is_full = False

    def fill(self):
        """Until nothing fits; again when the program has given something back."""
        self.is_full = True
        with open(self.ballast, "ab", buffering=0) as file:
            for size in (1 << 20, 4096, 1):
                try:
                    while True:
                        file.write(bytes(size))
                except OSError:
                    pass

    def free(self):
        os.remove(self.ballast)
        self.is_full = False
