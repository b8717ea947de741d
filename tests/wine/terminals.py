#!/usr/bin/env python3
"""Pseudo-terminals for programs under Wine, which can't make them, and COM names that lead to them.

Listens on a TCP port of this machine and writes its number to standard output. A connection sends one line:

    terminal            a new terminal; the answer is the path that hosts open. From then on the connection carries
                        the terminal's bytes both ways, and its end pulls the cable.
    pull <path>         pulls the cable at once: hosts find the terminal hung up after the answer
    link COM105 <path>  lets the COM name lead to the terminal
    unlink COM105       the opposite; a name that leads nowhere is fine

The answer to the latter three is "done". What can't be done is answered by "error: " and the reason. Runs until SIGTERM
or SIGINT and leaves no COM name behind.
"""

import os
import re
import select
import signal
import socket
import sys
import termios
import tty

CHUNK = 4096  # at most so many bytes wait in either direction; beyond that the sender does
LONGEST_REQUEST = 256
HANG_UP = select.EPOLLHUP | select.EPOLLERR | select.EPOLLRDHUP


class Names:
    """The COM names of the Wine prefix that were made here."""

    def __init__(self, prefix):
        self._folder = os.path.join(prefix, "dosdevices")
        self._made = set()

    def link(self, name, target):
        path = self._path(name)
        draft = path + ".new"
        self._remove(draft)
        os.symlink(target, draft)
        os.replace(draft, path)  # in one step: hosts look at any time
        self._made.add(name)

    def unlink(self, name):
        self._remove(self._path(name))
        self._made.discard(name)

    def unlink_all(self):
        for name in list(self._made):
            self.unlink(name)

    def _path(self, name):
        if not re.fullmatch(r"COM[1-9][0-9]{0,4}", name):
            raise ValueError("no name of a serial port: " + name)
        return os.path.join(self._folder, name.lower())

    @staticmethod
    def _remove(path):
        try:
            os.unlink(path)
        except FileNotFoundError:
            pass


class Terminal:
    """A raw pseudo-terminal. The slave stays open here, so that a host may close it and come again."""

    def __init__(self):
        self.master, self._slave = os.openpty()
        tty.setraw(self._slave, termios.TCSANOW)
        os.set_blocking(self.master, False)
        self.path = os.ttyname(self._slave)

    def close(self):
        os.close(self.master)
        os.close(self._slave)


class Flow:
    """One direction between two non-blocking files: reads no more before everything read is written."""

    def __init__(self, source, sink):
        self.source, self.sink = source, sink
        self._waiting = b""

    def wants_to_read(self):
        return not self._waiting

    def move(self):
        """False at the end of the source. Raises OSError if either file fails."""
        if not self._waiting:
            try:
                self._waiting = os.read(self.source, CHUNK)
            except BlockingIOError:
                return True
            if not self._waiting:
                return False
        try:
            self._waiting = self._waiting[os.write(self.sink, self._waiting):]
        except BlockingIOError:
            pass
        return True


class Connection:
    """One client: its request first, then the bytes of its terminal, if it has asked for one."""

    def __init__(self, bridge, client):
        self._bridge, self._client = bridge, client
        self._request = b""
        self._terminal = None
        self._flows = ()
        self.is_open = True
        client.setblocking(False)
        client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        bridge.watch(client.fileno(), self, select.EPOLLIN)

    def ready(self, events):
        try:
            open_still = not events & HANG_UP and (self._relay() if self._terminal else self._take_request())
        except OSError:
            open_still = False
        if not open_still:
            self.close()

    def close(self):
        self.is_open = False
        self._bridge.forget(self._client.fileno())
        if self._terminal:
            self._bridge.forget(self._terminal.master)
            del self._bridge.terminals[self._terminal.path]
            self._terminal.close()
        self._client.close()

    def _take_request(self):
        # To the end of the line and not a byte further: what follows belongs to the terminal.
        while not self._request.endswith(b"\n"):
            try:
                byte = self._client.recv(1)
            except BlockingIOError:
                return True
            if not byte or len(self._request) >= LONGEST_REQUEST:
                return False
            self._request += byte
        return self._obey(self._request.decode("ascii", "replace").split())

    def _obey(self, words):
        """False if the connection has done its service."""
        names = self._bridge.names
        try:
            match words:
                case ["terminal"]:
                    self._start_terminal()
                    return True
                case ["pull", path]:
                    self._bridge.pull(path)
                case ["link", name, target]:
                    names.link(name, target)
                case ["unlink", name]:
                    names.unlink(name)
                case _:
                    raise ValueError("no such request")
            self._answer("done")
        except (OSError, ValueError) as error:
            self._answer(f"error: {error}")
        return False

    def _answer(self, text):
        self._client.send(text.encode() + b"\n")  # a line always fits a fresh connection's buffer

    def _start_terminal(self):
        terminal = Terminal()
        try:
            self._answer(terminal.path)
        except OSError:
            terminal.close()
            raise
        self._terminal = terminal
        self._bridge.terminals[terminal.path] = self
        client, master = self._client.fileno(), terminal.master
        self._flows = (Flow(client, master), Flow(master, client))
        self._bridge.watch(master, self, select.EPOLLIN)

    def _relay(self):
        for flow in self._flows:
            if not flow.move():
                return False
        self._choose_events()
        return True

    def _choose_events(self):
        inwards, outwards = self._flows
        for file, reads, writes in ((inwards.source, inwards, outwards), (outwards.source, outwards, inwards)):
            events = select.EPOLLIN if reads.wants_to_read() else 0
            if not writes.wants_to_read():
                events |= select.EPOLLOUT
            self._bridge.change(file, events)


class Listener:
    is_open = True

    def __init__(self, bridge):
        self._bridge = bridge
        self._listener = socket.socket()
        # Small buffers, so that a host that reads nothing holds up the device soon, as a cable would.
        self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2 * CHUNK)
        self._listener.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 2 * CHUNK)
        self._listener.bind(("127.0.0.1", 0))
        self._listener.listen()
        self._listener.setblocking(False)
        bridge.watch(self._listener.fileno(), self, select.EPOLLIN)

    def port(self):
        return self._listener.getsockname()[1]

    def ready(self, _events):
        try:
            Connection(self._bridge, self._listener.accept()[0])
        except OSError:
            pass  # the client has gone again


class Bridge:
    """What waits for all files and knows who owns them."""

    def __init__(self, names):
        self.names = names
        self.terminals = {}  # the connections that have one, by the terminal's path
        self._epoll = select.epoll()
        self._owners = {}

    def watch(self, file, owner, events):
        self._owners[file] = owner
        self._epoll.register(file, events | select.EPOLLRDHUP)

    def change(self, file, events):
        self._epoll.modify(file, events | select.EPOLLRDHUP)

    def forget(self, file):
        del self._owners[file]
        self._epoll.unregister(file)

    def pull(self, path):
        if path not in self.terminals:
            raise ValueError("no such terminal: " + path)
        self.terminals[path].close()

    def run(self):
        while True:
            # The owners are looked up before any of them acts: a file's number may go over to another one meanwhile.
            for owner, events in [(self._owners[file], events) for file, events in self._epoll.poll()]:
                if owner.is_open:
                    owner.ready(events)


def main():
    names = Names(os.environ["WINEPREFIX"])
    for number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(number, lambda *_: sys.exit(0))
    try:
        bridge = Bridge(names)
        print(Listener(bridge).port(), flush=True)
        bridge.run()
    finally:
        names.unlink_all()


if __name__ == "__main__":
    main()
