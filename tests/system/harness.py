# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""A real asd in a folder of its own, and the clients that talk to it."""

import contextlib
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

BINARY = pathlib.Path(os.environ["ASD_BINARY"])
CONFIG = pathlib.Path(os.environ["ASD_CONFIG"])
DEADLINE_S = 30  # for anything that must come; generous, because sanitizers and busy machines are slow


def wait_for(condition, what, deadline_s=DEADLINE_S):
    """Polls until the condition holds and returns its value."""
    end = time.monotonic() + deadline_s
    while not (value := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"{what}: not within {deadline_s} s")
        time.sleep(0.01)
    return value


def crc16(data):
    """The record checksum, bit by bit: polynomial 0x1021, start 0, not reflected, inverted."""
    register = 0
    for byte in data:
        for bit in range(7, -1, -1):
            carry = (register >> 15) ^ ((byte >> bit) & 1)
            register = ((register << 1) & 0xFFFF) ^ (0x1021 if carry else 0)
    return register ^ 0xFFFF


class Chip:
    """Where one record is, as the enclosure file says."""

    def __init__(self, enclosure, name, state_dir, slot):
        chip = next(c for c in enclosure["Chips"] if c["Name"] == name)
        part = next(p for p in enclosure["Parts"] if p["Name"] == chip["Part"])
        self.name = name
        self.offset = int(str(chip["Offset"]), 0)
        self.line = part.get("WriteProtectLine")
        self.part = part["Name"]
        self.image = state_dir / ("" if part.get("Shared") else f"slot{slot}") / part["File"]

    def read(self, length):
        with open(self.image, "rb") as image:
            image.seek(self.offset)
            return image.read(length)

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
        return [BINARY, "--config", self.config, "--slot", str(self.slot), "--run-dir", self.run_dir,
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

    def start_as_master(self):
        """Starts and returns when the items are loaded."""
        before = self.log().count("asd enter master mode!")
        self.start()
        wait_for(lambda: self.log().count("asd enter master mode!") > before, "the master role")
        return self

    def stop(self, how=signal.SIGTERM):
        """Asks the service to end and returns its status."""
        self.process.send_signal(how)
        return self.process.wait(DEADLINE_S)

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
        connection.settimeout(DEADLINE_S)
        try:
            connection.connect(str(self.socket))
        except OSError:
            connection.close()
            raise
        return connection

    def ipmitool(self, *words):
        """Runs the stock client; its CompletedProcess."""
        environment = {**os.environ, "IPMI_DUMMY_SOCK": str(self.socket)}
        return subprocess.run(["ipmitool", "-I", "dummy", *words], env=environment,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=DEADLINE_S, check=False)

    def raw(self, *request):
        """One request through ipmitool, network function first: (completion code, data)."""
        done = self.ipmitool("raw", *(f"{byte:#04x}" for byte in request))
        if done.returncode == 0:
            return 0, bytes.fromhex(done.stdout)
        code = re.search(r"rsp=(0x[0-9a-f]+)", done.stderr)
        if not code:
            raise AssertionError(f"ipmitool: {done.returncode} {done.stdout} {done.stderr}\n{self.log()}")
        return int(code[1], 16), b""


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
        """(network function, command, completion code, data), or None when the service closed cleanly first."""
        head = cls._receive(connection, struct.calcsize(cls.RESPONSE))
        if head is None:
            return None
        netfn, cmd, _, _, code, length = struct.unpack(cls.RESPONSE, head)
        return netfn, cmd, code, cls._receive(connection, length) or b""

    @staticmethod
    def _receive(connection, count):
        got = b""
        while len(got) < count:
            piece = connection.recv(count - len(got))
            if not piece:
                assert not got, f"closed in the middle of an answer: {got.hex()}"
                return None
            got += piece
        return got


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
