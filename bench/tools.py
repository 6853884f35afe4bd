# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""What the rows of scripts/bench have in common: the programs that are measured, where they run, and what figures are."""

import contextlib
import json
import os
import pathlib
import shutil
import statistics
import struct
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = pathlib.Path(os.environ.get("ASD_BENCH_BUILD", ROOT / "build/release"))
os.environ.setdefault("ASD_BINARY", str(BUILD / "platform/host/asd"))
os.environ.setdefault("ASDCTL_BINARY", str(BUILD / "tools/asdctl/asdctl"))
os.environ.setdefault("ASD_CONFIG", str(ROOT / "config/enclosure.json"))
os.environ.setdefault("DBUS_FATAL_WARNINGS", "0")
sys.path.insert(0, str(ROOT / "tests/system"))
import harness  # pylint: disable=wrong-import-position

PROCESS, ITEMS, WIRE, BUS = (str(BUILD / f"bench/asd_bench_{name}") for name in ("process", "items", "wire", "bus"))
BRAND = bytes((0x00, 0x00, 0x80, 0x00, 0x14))
BRAND_SIZE = 32
CPU = str(max(os.sched_getaffinity(0)))
PINNED = ("taskset", "-c", CPU)


def say(text):
    print(f"bench: {text}", file=sys.stderr, flush=True)


class Missing(Exception):
    """A row cannot be measured here, and why."""


def need(program):
    if shutil.which(program) is None:
        raise Missing(f"{program} is not installed: scripts/setup bench")
    return program


def output(*words, **more):
    """What a program prints; one that fails is a mistake of the row."""
    done = subprocess.run([*map(str, words)], stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False, **more)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, words))[:200]}: status {done.returncode}\n{done.stderr[-2000:]}")
    return done.stdout


@contextlib.contextmanager
def folder():
    """On the disk that the build is on: what is synced there costs what it costs."""
    with tempfile.TemporaryDirectory(prefix="asd-bench-", dir=os.environ.get("TMPDIR", "/tmp")) as path:
        yield pathlib.Path(path)


def benchmarks(*flags, time="real_time", **more):
    """Google Benchmark's runs, (side, us); what the service says in the same process is not among them. Work that waits for
    nothing is measured in cpu_time, which a busy machine does not lengthen."""
    with folder() as place:
        output(*PINNED, PROCESS, f"--benchmark_out={place}/out", "--benchmark_out_format=json", *flags, **more)
        runs = json.loads((place / "out").read_text(encoding="utf-8"))["benchmarks"]
    factors = {"ns": 1e-3, "us": 1, "ms": 1e3}
    return [(run["name"].split("/")[1], run[time] * factors[run["time_unit"]]) for run in runs if run["run_type"] == "iteration"]


@contextlib.contextmanager
def running(*words, ready, **more):
    """A program in the background until the block ends."""
    with subprocess.Popen([*map(str, words)], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, **more) as process:
        try:
            harness.wait_for(lambda: ready() or process.poll() is not None, f"{words[0]} to be ready")
            if process.poll() is not None:
                raise RuntimeError(f"{words} ended with {process.returncode}")
            yield process
        finally:
            process.kill()


def echo(path, data=BRAND_SIZE, launcher=PINNED):
    return running(*launcher, WIRE, "echo", path, data, ready=path.exists)


def empty_bus(path, data=BRAND_SIZE, launcher=PINNED):
    return running(*launcher, BUS, "private", path, data, ready=path.exists)


@contextlib.contextmanager
def master(*arguments, launcher=PINNED, change=None):
    """asd as master with every item loaded and a brand stored; change may alter its enclosure before."""
    with harness.Service(*arguments) as service:
        service.launcher = launcher
        if change:
            change(service.enclosure)
            service.use_changed_enclosure()
        service.start_as("master")
        harness.wait_for(lambda: "load done" in service.log() or service.entered("master"), "the load")
        assert service.direct(harness.NETFN, 0x17, *BRAND, *b"B" * BRAND_SIZE) == (0, b""), service.log()
        yield service


def without_cycles(enclosure):
    for part in enclosure["Parts"]:
        part["WriteCycleUs"] = 0


def ask(kind, path, *requests, once=None, clients=1, times="300ms", launcher=PINNED):
    """Figures of asking a socket these in turn, after what each client says once."""
    words = [once.hex(), "/"] if once else []
    return json.loads(output(*launcher, WIRE, "ask", kind, path, clients, times, *words, *(request.hex() for request in requests)))


GET_BRAND = harness.Wire.request(harness.NETFN, 0x16, BRAND)


def call_item(item, member, data=None, destination="org.asd.Storage1"):
    """A method of an item, with its bytes or without, as the bus has it on the wire."""
    signature, body = ("ay", struct.pack("<I", len(data)) + data) if data is not None else ("", b"")
    return harness.bus_call(2, destination, harness.item_path(item), harness.ITEM, member, signature, body)


def call_empty(member, signature="", body=b"", destination="empty.Empty"):
    return harness.bus_call(2, destination, "/empty", "empty.Empty", member, signature, body)


BODY = harness.aligned(struct.pack("<BBBxI", harness.NETFN, 0, 0x16, len(BRAND)) + BRAND, 4) + struct.pack("<I", 0)
EXECUTE = "execute", "yyyaya{sv}", harness.aligned(BODY, 8)  # a bridge's request for the brand


def call_bridge():
    return harness.bus_call(2, "xyz.openbmc_project.Ipmi.Host", "/xyz/openbmc_project/Ipmi", "xyz.openbmc_project.Ipmi.Server", *EXECUTE)


HELLO = harness.bus_call(1, *harness.BusClient.DRIVER, "Hello")


class Figure:
    """Pairs of ours and the floor's, measured in turns."""

    def __init__(self, pairs, unit, note=""):
        self.pairs, self.unit, self.note = pairs, unit, note
        self.ours = statistics.median(ours for ours, _ in pairs)
        self.floor = statistics.median(floor for _, floor in pairs)
        self.ratio = statistics.median(ours / floor for ours, floor in pairs) if self.floor else None


def in_turns(rounds, ours, floor):
    """Who begins alternates, so that what the machine does meanwhile meets both."""
    pairs = []
    for number in range(rounds):
        if number % 2:
            b = floor()
            a = ours()
        else:
            a = ours()
            b = floor()
        pairs.append((a, b))
    return pairs
