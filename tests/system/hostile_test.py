# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""Two controllers among clients that mean harm: silent, malformed, hoarding, leaving; one controller is killed and stopped.

HOSTILE_SECONDS says how long. Slot 0 lives through all of it, so that what it keeps of memory and descriptors shows.
"""

import collections
import contextlib
import os
import pathlib
import random
import signal
import socket
import threading
import time
import unittest

from harness import (BY_NAME, DEADLINE_S, FAST, Background, Service, Wire, bus_call, chips_of, get, on_chip, pattern, put,
                     wait_for)

SECONDS = int(os.environ.get("HOSTILE_SECONDS", "8"))
KILL_S = float(os.environ.get("HOSTILE_KILL_SECONDS", "4"))
PAUSE_S = float(os.environ.get("HOSTILE_PAUSE_SECONDS", "0.001"))  # between two strangers at one socket
# The promise is two seconds; a machine that does other things beside this test gets more.
END_S = float(os.environ.get("HOSTILE_END_SECONDS", DEADLINE_S))
HELD = 200, 400  # connections kept open at once at a socket of slot 0 and of slot 1: many, and more than it has places
HELD_BUS = 50, 120
SPARE_FDS = 8


def broken_call(seeded, serial):
    """A call of GetManagedObjects; now and then with something broken."""
    without = [code for code in (1, 2, 3, 6) if seeded.random() < 0.05]
    message = bytearray(bus_call(0 if seeded.random() < 0.05 else serial, "org.asd.Storage1", "/org/asd/Storage1",
                                 "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", without=without))
    for _ in range(seeded.choice((0, 0, 0, 0, 1, 3))):
        message[seeded.randrange(len(message))] = seeded.randrange(256)
    return bytes(message)


class Crowd:
    """Strangers at one socket; what they hold open is bounded, the oldest goes first."""

    def __init__(self, path, seed, held):
        self.path, self.seeded, self.held = str(path), random.Random(seed), collections.deque(maxlen=held)
        self.count = 0

    def connect(self):
        stranger = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        stranger.settimeout(0.2)
        try:
            stranger.connect(self.path)
        except OSError:
            stranger.close()
            time.sleep(0.01)  # the service is down, or its queue is full: no reason to burn the processor
            raise
        if len(self.held) == self.held.maxlen:
            self.held.popleft().close()
        self.held.append(stranger)
        self.count += 1
        return stranger

    def close(self):
        for stranger in self.held:
            stranger.close()
        self.held.clear()

    def leave(self, stranger):
        self.held.remove(stranger)
        stranger.close()


class Sockets(Crowd):
    """At the IPMI socket or the link."""

    def attack(self):
        time.sleep(PAUSE_S)
        with contextlib.suppress(OSError):
            stranger, seeded = self.connect(), self.seeded
            request = Wire.request(0x32, 0x16, b"\0\0\x80\0\x14")
            stranger.sendall(seeded.choice((b"", seeded.randbytes(seeded.randrange(64)), request[:7], b"ASDL\1\1\xff\xff",
                                            b"ASDL\1\1\x08\0\x32\0\x16\0\0\x80\0\x14", request, request * 200)))
            if seeded.random() < 0.5:
                self.leave(stranger)


class Bus(Crowd):
    """At the private D-Bus socket."""

    def attack(self):
        time.sleep(PAUSE_S)
        with contextlib.suppress(OSError):
            stranger, seeded = self.connect(), self.seeded
            hello = b"\0AUTH EXTERNAL " + str(os.geteuid()).encode().hex().encode() + b"\r\n"
            if seeded.random() < 0.2:
                stranger.sendall(hello[:seeded.randrange(len(hello))] + seeded.randbytes(seeded.randrange(3)))
                return self.leave(stranger) if seeded.random() < 0.7 else None
            stranger.sendall(hello)
            if not stranger.recv(100).startswith(b"OK"):
                return None
            stranger.sendall(b"BEGIN\r\n" + b"".join(broken_call(seeded, n + 1) for n in range(seeded.choice((1, 20, 300)))))
            if seeded.random() < 0.7:
                self.leave(stranger)
        return None


class Writer:
    """Numbers one record's values on one controller; a number goes up when its write has been acknowledged."""

    def __init__(self, service, record):
        self.service, self.record, self.number, self.acknowledged = service, record, 1, 0

    def value(self, number):
        return number.to_bytes(4, "big") + pattern(BY_NAME[self.record][5] - 4, number)

    def write(self):
        with contextlib.suppress(OSError, AssertionError):  # it is down, stopped or busy: the same again
            if put(self.service, self.record, self.value(self.number)) == 0:
                self.acknowledged, self.number = self.number, self.number + 1
                return
        time.sleep(0.02)

    def check(self, case):
        for chip in chips_of(self.service, BY_NAME[self.record][1]):
            content = chip.read(BY_NAME[self.record][5] + 2)
            number = int.from_bytes(content[:4], "big")
            case.assertIn(number, (self.acknowledged, self.acknowledged + 1), f"{self.record} on {chip.image}")
            case.assertEqual(content, on_chip(self.value(number)), f"{self.record} on {chip.image}")


def resources(pid):
    status = pathlib.Path(f"/proc/{pid}/status").read_text(encoding="ascii")
    rss = next(int(line.split()[1]) for line in status.splitlines() if line.startswith("VmRSS"))
    return rss, len(os.listdir(f"/proc/{pid}/fd"))


class Hostile(unittest.TestCase):
    def test_nothing_ends_it_nothing_is_lost_and_it_keeps_nothing(self):
        with Service(*FAST) as first, Service(*FAST, slot=1, folder=first.folder) as second:
            first.start_as("master")
            second.start_as("slave")
            before = resources(first.process.pid)
            crowds = [kind(service.run_dir / f"slot{service.slot}" / name, seed, held[service.slot])
                      for seed, service in enumerate((first, second))
                      for kind, name, held in ((Sockets, "ipmi.sock", HELD), (Sockets, "link.sock", HELD), (Bus, "bus", HELD_BUS))]
            writers = [Writer(first, "brand"), Writer(first, "model"), Writer(second, "vendor")]
            kills = threading.Event(), random.Random(1)
            ends, samples, end = [0.0], [], time.monotonic() + SECONDS
            with contextlib.ExitStack() as running:
                for function in [crowd.attack for crowd in crowds] + [writer.write for writer in writers]:
                    running.enter_context(Background(function))
                while time.monotonic() < end:
                    kills[0].wait(KILL_S)
                    ends.append(self._harm(first, second, kills[1]))
                    samples.append(resources(first.process.pid))
            for crowd in crowds:
                crowd.close()
            print(f"{sum(crowd.count for crowd in crowds)} strangers, {[w.acknowledged for w in writers]} writes; resident "
                  f"KiB and descriptors before {before}, " + " ".join(map(str, samples[::max(1, len(samples) // 12)])))
            wait_for(lambda: resources(first.process.pid)[1] <= before[1] + SPARE_FDS, "its descriptors to be given back")
            for writer in writers:
                self.assertGreater(writer.acknowledged, 0, writer.record)
                writer.check(self)
            self.assertEqual(get(first, "brand")[0], 0)
            ends += [self._end(second), self._end(first)]
            print(f"longest end after SIGTERM {max(ends):.2f} s")
            self.assertLess(max(ends), END_S)

    def _harm(self, first, second, seeded):
        self.assertIsNone(first.process.poll(), first.log()[-5000:])
        self.assertIsNone(second.process.poll(), second.log()[-5000:])
        first.process.send_signal(signal.SIGHUP)
        how = seeded.choice((signal.SIGSTOP, signal.SIGKILL, signal.SIGTERM))
        took = self._end(second) if how == signal.SIGTERM else 0.0
        second.process.send_signal(how)
        if how == signal.SIGSTOP:
            time.sleep(0.5)  # how long it is stopped, not a wait for anything
            second.process.send_signal(signal.SIGCONT)
            return took
        second.kill()
        second.start()
        return took

    @staticmethod
    def _end(service):
        """How long it takes to end when it is asked to; nothing may have gone wrong within it."""
        began = time.monotonic()
        service.end()
        return time.monotonic() - began


if __name__ == "__main__":
    unittest.main()
