# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""One changed record here, and with what else Debian 12 has for a value that survives a power cut, in the same run."""

import itertools
import json
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import time

import counts
import rows
import tools
from tools import ask, need, output

SIZES = (32, 1024)
ENVIRONMENT = 0x2000  # bytes of each of U-Boot's two copies

# Changes one row of a table again and again; prints the microseconds of each.
SQLITE = """
import json, sqlite3, sys, time
file, size, times, journal = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), sys.argv[4]
base = sqlite3.connect(file, isolation_level=None)
base.execute("PRAGMA journal_mode=" + journal)
base.execute("PRAGMA synchronous=FULL")
base.execute("CREATE TABLE IF NOT EXISTS record (name TEXT PRIMARY KEY, data BLOB)")
base.execute("INSERT OR REPLACE INTO record VALUES ('brand', ?)", (bytes(size),))
took = []
sys.stderr.write("measured\\n")
for number in range(times):
    began = time.perf_counter()
    base.execute("UPDATE record SET data = ? WHERE name = 'brand'", (bytes([number % 255 + 1]) * size,))
    took.append((time.perf_counter() - began) * 1e6)
sys.stderr.write("done\\n")
print(json.dumps(took))
"""


class Peer:
    """How one record of that size is changed, how long it takes, and which calls it makes."""

    name = guarantee = ""
    program = None  # what is installed for it: its size is told

    def times(self, place, size, count):
        """Microseconds of each change."""

    def trace(self, place, size):
        """(the calls of one change, in how many of them)"""

    def peak(self, place, size):
        """KiB resident at most; None: nobody would compare it."""

    def is_part(self, path):
        raise NotImplementedError


class InProcess(Peer):
    def __init__(self, kind, name, guarantee):
        self.kind, self.name, self.guarantee = kind, name, guarantee
        self.program = tools.BUILD / "platform/host/asd" if kind == "asd" else None

    def times(self, place, size, count):
        return [took for _, took in tools.benchmarks(f"--benchmark_filter=^write-{size}/{self.kind}/", "--benchmark_min_time=0.05",
                                                     env={**os.environ, "TMPDIR": str(place)})]

    def trace(self, place, size):
        output(*counts.strace(place / "trace"), tools.PROCESS, "--times", f"write-{size}/{self.kind}", 10,
               env={**os.environ, "TMPDIR": str(place)})
        return counts.Trace(place / "trace").between("measured", "done"), 10

    def is_part(self, path):
        return path.endswith(("/part.bin", "/image"))


class Service(Peer):
    name = "asd, through its D-Bus socket"
    guarantee = "old or new record after a cut at any moment; read back; checksum on the part; memory, history and clients told"
    items = {32: "ASD27", 1024: "ASD7"}

    def __init__(self):
        self.program = tools.BUILD / "platform/host/asd"

    def times(self, place, size, count):
        with tools.master(change=tools.without_cycles) as service:
            values = [tools.call_item(self.items[size], "EqWriteAtomStorageData", bytes([letter]) * size) for letter in b"AB"]
            return [ask("bus", service.run_dir / "slot0" / "bus", *values, times=count)["median_ns"] / 1e3]

    def trace(self, place, size):
        return None, 0  # bench/counts.json has its syncs

    def peak(self, place, size):
        with tools.master(change=tools.without_cycles) as service:
            return rows.memory_of(service.process.pid)[0]


class Command(Peer):
    """A command that changes it, as a process of its own."""

    def prepare(self, place):
        pass

    def command(self, place, size, number):
        raise NotImplementedError

    def times(self, place, size, count):
        self.prepare(place)
        took = []
        for number in range(count):
            began = time.perf_counter()
            output(*tools.PINNED, *self.command(place, size, number))
            took.append((time.perf_counter() - began) * 1e6)
        return took

    def trace(self, place, size):
        self.prepare(place)
        output(*self.command(place, size, 0))
        output(*counts.strace(place / "trace"), *self.command(place, size, 1))
        return counts.Trace(place / "trace"), 1

    def peak(self, place, size):
        self.prepare(place)
        output("/usr/bin/time", "-f", "%M", "-o", place / "peak", *self.command(place, size, 0))
        return int((place / "peak").read_text(encoding="ascii"))


class Environment(Command):
    name = "U-Boot's redundant environment, fw_setenv"
    guarantee = "old or new environment after a cut, by its checksum; nothing is read back; all of a copy is written"
    program = "fw_setenv"

    def prepare(self, place):
        need(self.program)
        image = place / "environment"
        image.write_bytes(b"\xff" * (2 * ENVIRONMENT))
        (place / "fw.config").write_text(f"{image} 0x0 {ENVIRONMENT:#x}\n{image} {ENVIRONMENT:#x} {ENVIRONMENT:#x}\n", encoding="ascii")
        (place / "defaults").write_text("bootdelay=0\n", encoding="ascii")

    def command(self, place, size, number):
        return "fw_setenv", "-c", place / "fw.config", "-f", place / "defaults", "brand", "AB"[number % 2] * size

    def is_part(self, path):
        return path.endswith("/environment")


class Copy(Command):
    name = "dd conv=notrunc,fsync"
    guarantee = "none: a cut leaves a mixture; nothing is read back, no checksum"
    program = "dd"

    def prepare(self, place):
        (place / "image").write_bytes(b"\xff" * 32768)
        for letter, size in itertools.product("AB", (32, 128, 512, 1024, 4096)):
            (place / f"{letter}{size}").write_text(letter * size, encoding="ascii")

    def command(self, place, size, number):
        return "dd", f"if={place}/{'AB'[number % 2]}{size}", f"of={place}/image", f"bs={size}", "conv=notrunc,fsync", "status=none"

    def is_part(self, path):
        return path.endswith("/image")


class Sqlite(Peer):
    program = "/usr/lib/x86_64-linux-gnu/libsqlite3.so.0"

    def __init__(self, journal):
        self.journal = journal
        self.name = f"SQLite, synchronous=FULL, journal {journal}"
        self.guarantee = "old or new row after a cut, by its journal; nothing is read back, no checksum on the data"

    def run(self, place, size, count, launcher):
        return json.loads(output(*launcher, sys.executable, "-c", SQLITE, place / "base", size, count, self.journal))

    def times(self, place, size, count):
        return self.run(place, size, count, tools.PINNED)

    def trace(self, place, size):
        self.run(place, size, 10, counts.strace(place / "trace"))
        return counts.Trace(place / "trace").between("measured", "done"), 10

    def is_part(self, path):
        return path.endswith("/base")


PEERS = [
    InProcess("floor", "floor: note, sync, pages, sync", "old or new record after a cut; nothing is read back, no checksum"),
    InProcess("asd", "asd, its part alone", "old or new record after a cut at any moment; read back; checksum on the part"),
    Service(), Environment(), Copy(), Sqlite("DELETE"), Sqlite("WAL")]


def measure(peer, size, rounds):
    took = []
    for _ in range(rounds):
        with tools.folder() as place:
            took.append(statistics.median(peer.times(place, size, 30)))
    figures = {"us": statistics.median(took)}
    with tools.folder() as place:
        figures["memory"] = peer.peak(place, size)
        trace, count = peer.trace(place, size)
        if trace:
            def ours(path):
                return str(place) in path
            written = trace.bytes_of(counts.WRITES, ours)
            part = trace.bytes_of(counts.WRITES, lambda path: ours(path) and peer.is_part(path))
            figures |= {name: round(value / count, 1) for name, value in {
                "calls": len(trace.calls), "syncs": trace.count(counts.SYNCS), "part": part, "beside": written - part}.items()}
    return figures


def size_of(program):
    path = program and (shutil.which(program) or program)
    if not path or not pathlib.Path(path).exists():
        return None
    with tools.folder() as place:
        subprocess.run([need("strip"), "-o", place / "stripped", path], check=True)
        return (place / "stripped").stat().st_size // 1024


def table(rounds):
    """Prints it; {name: {size: figures}}. Bytes are those handed to the kernel."""
    if reason := counts.may_not_trace():
        raise tools.Missing(f"no system calls can be counted here: {reason}")
    kept = {}
    print(f"{'one changed record of':46} {'bytes':>5} {'us':>8} {'calls':>6} {'syncs':>5} {'to part':>8} {'beside':>7} {'size':>6} {'memory':>6}")
    for size in SIZES:
        for peer in PEERS:
            tools.say(f"{peer.name}, {size} bytes")
            try:
                figures = measure(peer, size, max(rounds // 3, 1)) | {"KiB": size_of(peer.program)}
            except tools.Missing as reason:
                print(f"{peer.name:46} {size:5} not measured: {reason}", flush=True)
                continue
            kept.setdefault(peer.name, {"guarantee": peer.guarantee})[size] = figures
            cells = [figures.get(name) for name in ("calls", "syncs", "part", "beside", "KiB", "memory")]
            texts = [f"{'-' if cell is None else cell:>{width}}" for cell, width in zip(cells, (6, 5, 8, 7, 6, 6))]
            print(f"{peer.name:46} {size:5} {figures['us']:8,.0f} {' '.join(texts)}", flush=True)
    print("What each promises:")
    for peer in PEERS:
        print(f"  {peer.name}: {peer.guarantee}")
    return kept


