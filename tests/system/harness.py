# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""A real asd in a folder of its own, and the clients that talk to it."""

import binascii
import contextlib
import fcntl
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time
import unittest
from unittest import mock

BINARY = pathlib.Path(os.environ["ASD_BINARY"])
ASDCTL = os.environ.get("ASDCTL_BINARY")
CONFIG = pathlib.Path(os.environ["ASD_CONFIG"])
DEADLINE_S = 30  # for anything that must come; generous, because sanitizers and busy machines are slow

BOARD_PATH = "/org/asd/Storage1/Board"
ITEM, BOARD = "org.asd.AtomStorageData1", "org.asd.Board1"


def item_path(name):
    return f"/org/asd/Storage1/AtomStorageData/{name}"


def wait_for(condition, what, deadline_s=DEADLINE_S):
    """Polls until the condition holds and returns its value."""
    end = time.monotonic() + deadline_s
    while not (value := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"{what}: not within {deadline_s} s")
        time.sleep(0.01)
    return value


def stays(condition, what, seconds=0.5):
    """Polls that the condition holds for as long: for what must not come. On a busy machine it can miss, not fail."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        assert condition(), f"{what}: not for {seconds} s"
        time.sleep(0.01)


def run(*words):
    """A client or a start that fails: its CompletedProcess."""
    return subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=DEADLINE_S, check=False)


def asdctl(run_dir, *words, data=b""):
    """The operator's command on a pipe: (status, standard output, standard error)."""
    done = subprocess.run([ASDCTL, "--run-dir", run_dir, *map(str, words)], input=data, capture_output=True,
                          timeout=DEADLINE_S, check=False)
    return done.returncode, done.stdout, done.stderr.decode()


class BusDaemon:
    """A "session" or "system" bus of the test's own: what this process starts takes it for the real one."""

    def __init__(self, kind, running=True, policies=None):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="asd-bus-", dir="/tmp"))
        self.address = f"unix:path={self.folder}/bus"
        self._environment = mock.patch.dict(os.environ, {f"DBUS_{kind.upper()}_BUS_ADDRESS": self.address})
        self._running, self._daemon, self._how = running, None, "--session"
        if policies:  # it is open to every user of the machine then, and they decide
            self.folder.chmod(0o755)
            (self.folder / "bus.conf").write_text(f"<busconfig><listen>{self.address}</listen><auth>EXTERNAL</auth>{policies}"
                                                  "</busconfig>", encoding="utf-8")
            self._how = f"--config-file={self.folder}/bus.conf"

    def __enter__(self):
        self._environment.start()
        if self._running:
            self.start()
        return self

    def start(self):
        self._daemon = subprocess.Popen(["dbus-daemon", self._how, f"--address={self.address}", "--nofork"],
                                        stderr=subprocess.DEVNULL)
        wait_for(self._listens, "the bus")

    def _listens(self):
        with contextlib.suppress(OSError), socket.socket(socket.AF_UNIX) as client:
            client.connect(str(self.folder / "bus"))
            return True
        return False

    def stop(self):
        self._daemon.kill()
        self._daemon.wait(DEADLINE_S)
        (self.folder / "bus").unlink(missing_ok=True)

    def __exit__(self, *_):
        if self._daemon:
            self.stop()
        self._environment.stop()
        shutil.rmtree(self.folder)


def on_chip(data):
    """A record: the data and its checksum."""
    return data + (binascii.crc_hqx(data, 0) ^ 0xFFFF).to_bytes(2, "little")


class Chip:
    """Where one record is, as the enclosure file says."""

    def __init__(self, enclosure, name, state_dir, slot):
        chip = next(c for c in enclosure["Chips"] if c["Name"] == name)
        part = next(p for p in enclosure["Parts"] if p["Name"] == chip["Part"])
        self.offset = int(str(chip["Offset"]), 0)
        self.image = state_dir / ("" if part.get("Shared") else f"slot{slot}") / part["File"]

    def read(self, length):
        """The bytes as a controller reads them: never those of a write under way."""
        with open(self.image, "rb") as image:
            fcntl.fcntl(image, fcntl.F_OFD_SETLKW, struct.pack("hhqqi", fcntl.F_RDLCK, os.SEEK_SET, 0, 0, 0))
            image.seek(self.offset)
            return image.read(length)

    def has_begun_with(self, byte):
        """Whether the first byte is there, also when the write is still under way."""
        with open(self.image, "rb") as image:
            image.seek(self.offset)
            return image.read(1) == byte

    def write(self, data, at=0):
        with open(self.image, "r+b") as image:
            image.seek(self.offset + at)
            image.write(data)


class Service:
    """asd with its own run and state folders; the folders outlive restarts."""

    def __init__(self, *arguments, config=CONFIG, slot=0, folder=None):
        self._owned = None if folder else tempfile.mkdtemp(prefix="asd-test-", dir="/tmp")  # short: sockets live below
        self.folder = pathlib.Path(folder or self._owned)
        self.config, self.slot, self.arguments = config, slot, arguments
        self.run_dir, self.state_dir = self.folder / "run", self.folder / "state"
        self.socket = self.run_dir / f"slot{slot}" / "ipmi.sock"
        self.log_file = self.folder / f"log{slot}"
        self.enclosure = json.loads(pathlib.Path(config).read_text(encoding="utf-8"))
        self.process = None
        self.launcher = ()  # words before the command: what it is to be started with or by

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill()
        if self._owned:
            shutil.rmtree(self._owned)

    def use_changed_enclosure(self):
        """Later starts take the enclosure as it is in self.enclosure now."""
        self.config = self.folder / "enclosure.json"
        self.config.write_text(json.dumps(self.enclosure, indent=1), encoding="utf-8")

    def command(self):
        return [*self.launcher, BINARY, "--config", self.config, "--slot", str(self.slot), "--run-dir", self.run_dir,
                "--state-dir", self.state_dir, *self.arguments]

    def start(self):
        """Starts the process and returns when its socket answers."""
        with open(self.log_file, "ab") as log:
            self.process = subprocess.Popen(self.command(), stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        wait_for(self._is_up, "the socket to answer")
        return self

    def _is_up(self):
        if self.process.poll() is not None:
            raise AssertionError(f"asd ended with {self.process.returncode}:\n{self.log()}")
        with contextlib.suppress(OSError), self.connect():
            return True
        return False

    def start_as(self, role):
        """Starts and returns when it has taken that role: a master has loaded its items then."""
        before = self.entered(role)
        self.start()
        wait_for(lambda: self.entered(role) > before, f"the {role} role")
        return self

    def entered(self, role):
        """How often the log says that it took that role."""
        return self.log().count(f"asd enter {role} mode!")

    def stop(self, how=signal.SIGTERM):
        """Asks the service to end and returns its status."""
        self.process.send_signal(how)
        return self.process.wait(DEADLINE_S)

    def end(self):
        """Ends it as its manager would; nothing may have gone wrong within it."""
        assert self.stop() == 0, self.log()
        assert not re.search("Sanitizer|CRITICAL", self.log()), self.log()

    def kill(self):
        if self.process and self.process.poll() is None:
            self.process.kill()
            self.process.wait(DEADLINE_S)

    def log(self):
        return self.log_file.read_text(encoding="utf-8", errors="replace") if self.log_file.exists() else ""

    def wait_for_log(self, text):
        wait_for(lambda: text in self.log(), f"the log to say {text!r}")

    def chip(self, name):
        return Chip(self.enclosure, name, self.state_dir, self.slot)

    def connect(self):
        connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVTIMEO, struct.pack("ll", DEADLINE_S, 0))
        try:
            connection.connect(str(self.socket))
        except OSError:
            connection.close()
            raise
        return connection

    def ipmitool(self, *words):
        """Runs the stock client; its CompletedProcess."""
        asked = self.process
        client = subprocess.Popen(["ipmitool", "-I", "dummy", *words], env={**os.environ, "IPMI_DUMMY_SOCK": self.socket},
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        try:
            wait_for(lambda: client.poll() is not None or asked.poll() is not None, f"ipmitool {words}")
            with contextlib.suppress(subprocess.TimeoutExpired):
                client.wait(0.2)
        finally:
            client.kill()  # one whose service dies before the answer goes on reading at the end of the stream for ever
            out, errors = client.communicate()
        return subprocess.CompletedProcess(words, client.returncode, out, errors)

    def set_board(self, name, *values):
        """Sets a property of the board, or calls its method of that name."""
        words = [f"{BOARD}.{name}", *values]
        if not name.startswith("Set"):
            kind = "int32" if name == "PowerStandBy" else "byte"
            words = ["org.freedesktop.DBus.Properties.Set", BOARD, name, f"<{kind} {values[0]}>"]
        assert self.gdbus(BOARD_PATH, *words) == ("()", ""), words

    def raw(self, *request):
        """One request through ipmitool, network function first: (completion code, data)."""
        done = self.ipmitool("raw", *(f"{byte:#04x}" for byte in request))
        if done.returncode == 0:
            return 0, bytes.fromhex(done.stdout)
        code = re.search(r"rsp=(0x[0-9a-f]+)", done.stderr)
        assert code, f"ipmitool raw {bytes(request).hex()}: no answer\n{self.log()}"
        return int(code[1], 16), b""

    def direct(self, netfn, cmd, *data):
        """The same without the time that ipmitool takes to start."""
        with self.connect() as connection:
            connection.sendall(Wire.request(netfn, cmd, bytes(data)))
            answer = Wire.response(connection)
        assert answer, f"{bytes((netfn, cmd, *data)).hex()}: no answer\n{self.log()}"
        return answer[2:]

    def ctl(self, *words):
        """What asdctl prints as JSON; None: it was refused."""
        status, out, _ = asdctl(self.run_dir, "--slot", self.slot, "--json", *words)
        return json.loads(out) if status == 0 else None

    def gdbus(self, path, method, *arguments):
        """A method through the stock client: (what it printed, "") or ("", the error's name)."""
        done = run("gdbus", "call", "--address", f"unix:path={self.run_dir}/slot{self.slot}/bus", "--dest",
                   "org.asd.Storage1", "--object-path", path, "--method", method, *map(str, arguments))
        if done.returncode == 0:
            return done.stdout.strip(), ""
        error = re.search(r"GDBus\.Error:([\w.]+)", done.stderr)
        return "", error[1] if error else done.stderr


class Wire:
    """The dummy interface's own bytes, for requests that no well-behaved client sends."""

    POINTER = struct.calcsize("P")
    REQUEST = "=BBBBH2x" + f"{POINTER}x"
    RESPONSE = "=BBBBB3xi" + ("12x" if POINTER == 8 else "4x")

    @classmethod
    def request(cls, netfn, cmd, data=b"", length=None):
        return struct.pack(cls.REQUEST, netfn, 0, cmd, 0, len(data) if length is None else length) + data

    @classmethod
    def response(cls, connection):
        """(network function, command, completion code, data), or None when the service closed first."""
        head = connection.recv(struct.calcsize(cls.RESPONSE), socket.MSG_WAITALL)
        if not head:
            return None
        netfn, cmd, _, _, code, length = struct.unpack(cls.RESPONSE, head)
        data = connection.recv(length, socket.MSG_WAITALL) if length else b""
        assert len(data) == length, f"closed in the middle of an answer: {data.hex()}"
        return netfn, cmd, code, data


def aligned(data, size):
    return data + bytes(-len(data) % size)


def bus_call(serial, destination, path, interface, member, signature="", body=b"", without=()):
    """A method call as D-Bus has it on the wire, little-endian, but for these header fields."""
    fields = b""
    for code, kind, text in ((1, b"o", path), (2, b"s", interface), (3, b"s", member), (6, b"s", destination), (8, b"g", signature)):
        if text and code not in without:
            length = struct.pack("<B" if kind == b"g" else "<I", len(text))
            fields = aligned(fields, 8) + bytes((code, 1)) + kind + b"\0" + length + text.encode() + b"\0"
    return aligned(struct.pack("<cBBBIII", b"l", 1, 0, 1, len(body), serial, len(fields)) + fields, 8) + body


class BusClient:
    """A client of a bus, with a name of its own; its calls do not wait for each other."""

    DRIVER = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")

    def __init__(self, bus, name=None):
        self._socket, self._got, self._serial, self._replies = socket.socket(socket.AF_UNIX), b"", 0, {}
        self._socket.settimeout(DEADLINE_S)
        self._socket.connect(bus.address.removeprefix("unix:path="))
        self._socket.sendall(b"\0AUTH EXTERNAL " + str(os.geteuid()).encode().hex().encode() + b"\r\n")
        assert self._socket.recv(100).startswith(b"OK ")
        self._socket.sendall(b"BEGIN\r\n")
        self._socket.settimeout(None)
        self.reply(self.call(*self.DRIVER, "Hello"))
        if name:
            asked = aligned(struct.pack("<I", len(name)) + name.encode() + b"\0", 4) + struct.pack("<I", 4)
            assert self.reply(self.call(*self.DRIVER, "RequestName", "su", asked)) == struct.pack("<I", 1), name

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self._socket.close()

    def call(self, *words):
        """Sends and returns the call's number."""
        self._serial += 1
        self._socket.sendall(bus_call(self._serial, *words))
        return self._serial

    def replies(self):
        """The bodies of what has come and was not taken, by the call's number, in that order; an error is a failure."""
        with contextlib.suppress(BlockingIOError):
            while piece := self._socket.recv(65536, socket.MSG_DONTWAIT):
                self._got += piece
        while len(self._got) >= 16:
            kind, body, fields = self._got[1], *struct.unpack("<I4xI", self._got[4:16])
            start = 16 + fields + -fields % 8
            if len(self._got) < start + body:
                break
            head, text, self._got = self._got[16:start], self._got[start:start + body], self._got[start + body:]
            assert kind != 3, text
            if kind == 2:
                self._replies[struct.unpack_from("<I", head, head.index(b"\5\1u\0") + 4)[0]] = text
        return self._replies

    def reply(self, number):
        """The body of that one, which has been taken then."""
        wait_for(lambda: number in self.replies(), "the reply")
        return self._replies.pop(number)


class Case(unittest.TestCase):
    """One master with its items loaded, for all tests of a class; it ends cleanly."""

    @classmethod
    def setUpClass(cls):
        cls.service = cls.enterClassContext(Service(*FAST)).start_as("master")
        cls.addClassCleanup(cls.service.end)


class Background:
    """Runs a function again and again on its own thread until the block ends; its failure is raised there."""

    def __init__(self, function):
        self.rounds, self._function, self._failure = 0, function, None
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run)

    def _run(self):
        try:
            while not self._stop.is_set():
                self._function()
                self.rounds += 1
        except BaseException as failure:  # handed over to the test's thread
            self._failure = failure

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._stop.set()
        self._thread.join()
        if self._failure:
            raise self._failure


NETFN = 0x32
# Waits of the service ten times shorter, so that the load comes 50 ms after the start.
FAST = ("--time-scale", "10")

def _records():
    """(record, item, read command, write command, selector, bytes) of each that is read and written whole, as the list of
    the commands has it, which is compared with the module's table."""
    text = (CONFIG.parent.parent / "docs/ipmi-commands.md").read_text(encoding="utf-8")
    rows = {}  # by what a handler does, its record, and the head of its requests
    for cmd, head, handler, item, data in re.findall(
            r"^\| \d+ \| (\w+) \| ([\w ]+) \|(?: \d+ \|){3} `ipmi_cmd_(\w+)` \| (\w+) \| [^|]+ \| ([^|]+) \|", text, re.M):
        rows[(*handler.split("_", 1), head)] = int(cmd, 16), item, data
    return [(name, item, cmd, rows["set", name, head][0], int(head.split()[4].replace("any", "0"), 16), int(data.split()[0]))
            for (does, name, head), (cmd, item, data) in rows.items() if does == "get" and ("set", name, head) in rows]


RECORDS = _records()  # the two chips of the test record are written one by one
assert len(RECORDS) >= 13, RECORDS
PER_CHIP = "ASD_E2PWP"
BY_NAME = {row[0]: row for row in RECORDS}


def head(selector, chip=0):
    return 0x00, 0x00, 0x80, chip, selector


def get(service, record, chip=0, ask=Service.direct):
    _, _, command, _, selector, _ = BY_NAME[record]
    return ask(service, NETFN, command, *head(selector, chip))


def put(service, record, data, chip=0, ask=Service.direct):
    _, _, _, command, selector, _ = BY_NAME[record]
    return ask(service, NETFN, command, *head(selector, chip), *data)[0]


def pattern(size, seed):
    return bytes((seed * 41 + i + 77) & 0xFF for i in range(size))


def chips_of(service, item):
    row = next(i for i in service.enclosure["Items"] if i["Name"] == item)
    return [service.chip(row[key]) for key in ("AtomStorageDataDev0", "AtomStorageDataDev1") if key in row]

