# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""Work that is counted instead of timed: system calls, syncs, bytes, instructions, allocations. The same on a busy machine."""

import collections
import json
import os
import pathlib
import re
import signal
import subprocess

import harness
import tools
from tools import ask, need, output

TABLE = tools.ROOT / "bench/counts.json"
SYNCS = ("fsync", "fdatasync", "sync_file_range", "msync", "syncfs")
FILES = ("rename", "renameat", "renameat2", "unlink", "unlinkat", "link", "linkat", "mkdir", "mkdirat")
WRITES = ("write", "pwrite64", "pwritev", "pwritev2", "writev")
READS = ("read", "pread64", "preadv", "preadv2", "readv")
MOVES = ("recvmsg", "sendmsg", "recvfrom", "sendto", "poll", "ppoll", "read", "write", "epoll_wait", "futex")
CALL = re.compile(r"^(\d+) +(\w+)\((.*)$")
# Instructions differ a little from one machine's libraries to another's; what is counted in whole calls does not.
# How often threads wake each other for a message differs with what else runs.
TOLERANCE = {"instructions": 0.10, "ReadAsdMemData": 0.30, "execute": 0.30}
SLACK = 0.5  # of a call, for what happens once


class Trace:
    """System calls, each with its arguments, as strace wrote them."""

    def __init__(self, file):
        self.calls = []  # (thread, name, arguments and result)
        begun = {}  # calls that another thread's lines cut in two
        for line in pathlib.Path(file).read_text(encoding="utf-8", errors="replace").splitlines():
            if cut := re.match(r"^(\d+) +<\.\.\. \w+ resumed>(.*)$", line):
                if cut[1] in begun:
                    self.calls[begun[cut[1]]] = (*self.calls[begun[cut[1]]][:2], self.calls[begun[cut[1]]][2] + cut[2])
            elif call := CALL.match(line):
                begun[call[1]] = len(self.calls)
                self.calls.append((call[1], call[2], call[3]))

    def between(self, first, last):
        """What the thread that wrote these two words to its standard error did between."""
        marks = {word: next(i for i, (_, name, text) in enumerate(self.calls) if name == "write" and f'"{word}\\n"' in text)
                 for word in (first, last)}
        thread = self.calls[marks[first]][0]
        self.calls = [call for call in self.calls[marks[first] + 1:marks[last]] if call[0] == thread]
        return self

    def busiest(self, marker):
        """The calls of the thread that made most of those calls."""
        thread = collections.Counter(call[0] for call in self.calls if call[1] in marker).most_common(1)[0][0]
        return [call for call in self.calls if call[0] == thread]

    def count(self, names):
        return sum(call[1] in names for call in self.calls)

    def bytes_of(self, names, where):
        """Bytes that went through files of which the path has that in it."""
        total = 0
        for _, name, text in self.calls:
            path = re.match(r"\d+<([^>]*)>", text)
            result = re.search(r"= (\d+)$", text)
            if name in names and path and result and where(path[1]):
                total += int(result[1])
        return total

    def created(self):
        return sum(name in ("open", "openat", "creat") and "O_CREAT" in text for _, name, text in self.calls)


def strace(file, *only):
    return (need("strace"), "-f", "-y", "-qq", "-s", "16", *only, "-o", str(file))


def may_not_trace():
    """Why no program can be traced here, such as in a container that forbids it; None: it can."""
    try:
        with tools.folder() as place:
            output(*strace(place / "trace"), "true")
    except RuntimeError as failure:
        return str(failure).splitlines()[-1]
    return None


def end(service):
    """Ends a service that is traced: a signal to strace would not reach it."""
    os.kill(int((service.run_dir / f"slot{service.slot}" / "instance.lock").read_text()), signal.SIGTERM)
    service.process.wait(harness.DEADLINE_S)


# ---- What is counted ----

def socket_request(times=400):
    """Calls of the thread that serves the client."""
    with tools.folder() as place:
        with tools.master(launcher=strace(place / "trace"), change=tools.without_cycles) as service:
            ask("dummy", service.socket, tools.GET_BRAND, times=times, launcher=())
            end(service)
        return {"socket request: calls": round(len(Trace(place / "trace").busiest(("sendto", "sendmsg"))) / times, 1)}


def bus_request(times=400):
    """Calls of all threads that move messages."""
    with tools.folder() as place:
        with tools.master(launcher=strace(place / "trace"), change=tools.without_cycles) as service:
            ask("bus", service.run_dir / "slot0" / "bus", tools.call_item("ASD14", "ReadAsdMemData"), times=times, launcher=())
            end(service)
        return {"ReadAsdMemData: calls": round(Trace(place / "trace").count(MOVES) / times, 1)}


def bridge_request(times=400):
    """The same for a request of a bridge, on a bus."""
    with tools.folder() as place, harness.BusDaemon("system") as bus:
        with tools.master("--ipmi-host", "system", launcher=strace(place / "trace"), change=tools.without_cycles) as service:
            service.wait_for_log("served on the system bus as")
            ask("bus", bus.address.removeprefix("unix:path="), tools.call_bridge(), once=tools.HELLO, times=times, launcher=())
            end(service)
        return {"execute: calls": round(Trace(place / "trace").count(MOVES) / times, 1)}


def part_write(length, times=20):
    """One chip write of the platform, in all its calls."""
    with tools.folder() as place:
        output(*strace(place / "trace"), tools.PROCESS, "--times", f"write-{length}/asd", times)
        trace = Trace(place / "trace").between("measured", "done")

    def on_part(path):
        return path.endswith("/part.bin")

    def beside_it(path):
        return "/asd-test-" in path and not on_part(path)
    return {f"write {length}: {what}": round(value / times, 1) for what, value in {
        "calls": len(trace.calls), "syncs": trace.count(SYNCS), "files made, renamed or removed": trace.count(FILES) + trace.created(),
        "bytes written to state storage": trace.bytes_of(WRITES, beside_it), "bytes written to the part": trace.bytes_of(WRITES, on_part),
        "bytes read from the part": trace.bytes_of(READS, on_part)}.items()}


def record_read(times=20):
    """A record from an image through the module."""
    with tools.folder() as place:
        output(*strace(place / "trace"), tools.PROCESS, "--times", "read-1024/asd", times)
        return {"read-1024: calls": round(len(Trace(place / "trace").between("measured", "done").calls) / times, 1)}


def item_writes(item, length, times):
    """Syncs, and files made, renamed or removed in the state folder, from the start to the end of a service."""
    with tools.folder() as place:
        with tools.master(launcher=strace(place / "trace", "-e", "trace=%desc,%file"), change=tools.without_cycles) as service:
            values = [tools.call_item(item, "EqWriteAtomStorageData", bytes([letter]) * length) for letter in b"AB"]
            ask("bus", service.run_dir / "slot0" / "bus", *values, times=times, launcher=())
            end(service)
        trace = Trace(place / "trace")
        trace.calls = [call for call in trace.calls if str(service.state_dir) in call[2]]
    return trace.count(SYNCS), trace.count(FILES) + trace.created()


def item_write(item, length):
    """A value through the service, with all that it keeps of it: what ten more of them take."""
    few, many = item_writes(item, length, 2), item_writes(item, length, 12)
    return {f"{item}, {length} bytes: {what}": (b - a) / 10 for what, a, b in zip(("syncs", "files made, renamed or removed"), few, many)}


def instructions(row, times):
    """Instructions and allocations of one time, in the thread that does it."""
    with tools.folder() as place:
        done = subprocess.run([need("valgrind"), "--tool=callgrind", "--toggle-collect=measured",
                               f"--callgrind-out-file={place}/out", tools.PROCESS, "--times", row, str(times)],
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    found = re.search(r"Collected : (\d+)", done.stderr)
    assert done.returncode == 0 and found, done.stderr[-2000:]
    allocated = json.loads(done.stdout.splitlines()[-1])["allocations"]
    name = row.removesuffix("/asd")
    return {f"{name}: instructions": round(int(found[1]) / times), f"{name}: allocations": round(allocated / times, 1)}


PROBES = [socket_request, bus_request, bridge_request, lambda: part_write(32), lambda: part_write(1024), lambda: item_write("ASD27", 32),
          lambda: item_write("ASD7", 1024), lambda: instructions("identity/asd", 1000), record_read, lambda: instructions("read-1024/asd", 200),
          lambda: instructions("write-32/asd", 20), lambda: instructions("write-1024/asd", 20)]


def measure():
    counts = {}
    for probe in PROBES:
        counts |= probe()
        tools.say(f"{len(counts)} figures counted")
    return counts


def update(counts):
    """Makes what is counted now the limit."""
    TABLE.write_text(json.dumps(counts, indent=1) + "\n", encoding="utf-8")


def compare(counts):
    """Prints the table; how many figures are over what they were, beyond the tolerance."""
    kept = json.loads(TABLE.read_text(encoding="utf-8"))
    over = 0
    print(f"{'':52} {'kept':>8} {'now':>8}")
    for name in [*kept, *(name for name in counts if name not in kept)]:
        was, now = kept.get(name), counts.get(name)
        tolerance = next((share for word, share in TOLERANCE.items() if word in name), 0)
        limit = None if was is None else was * (1 + tolerance) + SLACK
        verdict = "not counted any more: scripts/bench --counts --update" if now is None else "new: scripts/bench --counts --update" \
            if was is None else "more than before" if now > limit else "less" if now < was * (1 - tolerance) - SLACK else ""
        over += now is None or was is None or now > limit
        print(f"{name:52} {'-' if was is None else was:>8} {'-' if now is None else now:>8}  {verdict}".rstrip())
    return over
