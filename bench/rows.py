# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The rows of scripts/bench: what is timed, the floor beside it in the same run, and the aim."""

import contextlib
import functools
import json
import os
import pathlib
import re
import resource
import socket
import struct
import subprocess
import time
import types

import harness
import tools
from tools import Figure, Missing, ask, in_turns, need, output

REQUESTS = 500_000  # before memory is looked at again


# ---- Requests from outside ----

def socket_one(rounds):
    with tools.folder() as place, tools.master() as service, tools.echo(place / "echo"):
        def figure(path):
            return ask("dummy", path, tools.GET_BRAND)["median_ns"] / 1e3
        return Figure(in_turns(rounds, lambda: figure(service.socket), lambda: figure(place / "echo")), "us")


def socket_many(rounds, clients=64):
    share = []
    with tools.folder() as place, tools.master() as service, tools.echo(place / "echo"):
        def figure(path):
            got = ask("dummy", path, tools.GET_BRAND, clients=clients, times="600ms")
            if path == service.socket:
                share.append(got["least"] / got["middle"])
            return got["wall_ns"] / got["requests"] / 1e3
        pairs = in_turns(rounds, lambda: figure(service.socket), lambda: figure(place / "echo"))
    return Figure(pairs, "us", f"who got least had {min(share):.0%} of the middle one's answers")


def bus_method(rounds):
    with tools.folder() as place, tools.master() as service, tools.empty_bus(place / "bus"):
        ours = service.run_dir / "slot0" / "bus"
        read, nothing = tools.call_item("ASD14", "ReadAsdMemData"), tools.call_empty("ReadAsdMemData")
        return Figure(in_turns(rounds, lambda: ask("bus", ours, read)["median_ns"] / 1e3,
                               lambda: ask("bus", place / "bus", nothing)["median_ns"] / 1e3), "us")


def bus_execute(rounds):
    with harness.BusDaemon("system") as bus, tools.master("--ipmi-host", "system") as service:
        service.wait_for_log("served on the system bus as")
        path = bus.address.removeprefix("unix:path=")
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = bus.address
        name = "empty.Empty"

        def named():
            return name in output("gdbus", "call", "--address", bus.address, "--dest", "org.freedesktop.DBus", "--object-path", "/",
                                  "--method", "org.freedesktop.DBus.ListNames")
        with tools.running(*tools.PINNED, tools.BUS, "bus", name, tools.BRAND_SIZE, ready=named):
            return Figure(in_turns(rounds, lambda: ask("bus", path, tools.call_bridge(), once=tools.HELLO)["median_ns"] / 1e3,
                                   lambda: ask("bus", path, tools.call_empty(*tools.EXECUTE), once=tools.HELLO)["median_ns"] / 1e3), "us")


SIMULATOR = """name "bmc"
set_working_mc 0x20
serial 15 127.0.0.1 {port} codec VM
"""
CONTROLLER = """mc_setbmc 0x20
mc_add 0x20 0 no-device-sdrs 0x23 9 8 0x9f 0x1291 0xf02
mc_enable 0x20
"""


def simulator(rounds):
    """Get Device ID, which both know."""
    with socket.create_server(("127.0.0.1", 0)) as free:
        port = free.getsockname()[1]
    app, device_id = 0x06, 0x01
    serial = bytes((1, app << 2, device_id))
    serial += bytes((-sum(serial) & 0xFF, 0xA0))
    with tools.folder() as place, tools.master() as service:
        (place / "lan.conf").write_text(SIMULATOR.format(port=port), encoding="ascii")
        (place / "bmc.emu").write_text(CONTROLLER, encoding="ascii")

        def listens():  # connecting would take the place of the client
            return f"0100007F:{port:04X} 00000000:0000 0A" in pathlib.Path("/proc/net/tcp").read_text(encoding="ascii")
        words = need("ipmi_sim"), "-c", place / "lan.conf", "-f", place / "bmc.emu", "-s", place, "-n"
        with tools.running(*tools.PINNED, *words, ready=listens, stderr=subprocess.DEVNULL):
            return Figure(in_turns(rounds, lambda: ask("dummy", service.socket, harness.Wire.request(app, device_id))["median_ns"] / 1e3,
                                   lambda: ask("serial", port, serial)["median_ns"] / 1e3), "us", "a unix socket here, TCP there")


# ---- Within the process ----

def in_process(name, time_of="real_time", scale=1.0, unit="us"):
    def row(rounds):
        sides = {"asd": [], "floor": []}
        for side, microseconds in tools.benchmarks(f"--benchmark_filter=^{name}/", f"--benchmark_repetitions={rounds}",
                                                   "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.1",
                                                   time=time_of):
            sides[side].append(microseconds * scale)
        return Figure(list(zip(sides["asd"], sides["floor"])), unit)
    return row


# ---- While a long record is written ----

LONG, LONG_SIZE = "LONG", 8192


def add_long(enclosure):
    enclosure["Parts"].append({"Name": "long", "Kind": "image", "File": "long.bin", "Size": 16384, "PageSize": 32, "WriteCycleUs": 5000,
                               "Shared": False})
    enclosure["Chips"].append({"Name": "LONGa", "Part": "long", "Offset": "0x0000", "RetryNumber": 5})
    enclosure["Items"].append({"Name": LONG, "Num": 250, "Length": LONG_SIZE, "AtomStorageDataDev0": "LONGa"})


def reads_while_written(rounds):
    with tools.master(change=add_long) as service:
        address = types.SimpleNamespace(address=f"unix:path={service.run_dir}/slot0/bus")
        written = []

        def write():
            with harness.BusClient(address) as client:
                value = struct.pack("<I", LONG_SIZE) + bytes((len(written) + i) & 0xFF for i in range(LONG_SIZE))
                body = client.reply(client.call("org.asd.Storage1", harness.item_path(LONG), harness.ITEM, "EqWriteAtomStorageData",
                                                "ay", value))
                assert body == bytes(4), body
                written.append(body)

        def busy():
            with harness.Background(write):
                return ask("dummy", service.socket, tools.GET_BRAND, times="1500ms")["p99_ns"] / 1e3
        pairs = in_turns(rounds, busy, lambda: ask("dummy", service.socket, tools.GET_BRAND, times="1500ms")["p99_ns"] / 1e3)
        # What else runs on the machine only adds to a hundredth of the reads: the best round has least of it.
        figure = Figure([tuple(min(side) for side in zip(*pairs))], "us")
        figure.note = f"{len(written)} long writes meanwhile"
        return figure


# ---- The number of items ----

COUNTS = (10, 100, 1000, 10000)


def many_items(_rounds=1):
    """{what: {items: ns an item}}"""
    got = [json.loads(output(*tools.PINNED, tools.ITEMS, count)) for count in COUNTS]
    return {what: {row["items"]: row[what] for row in got} for what in ("start", "find", "walk", "look", "tell")}


@functools.cache
def few_and_many(rounds):
    """What each item costs among many and among few, in turns."""
    return in_turns(rounds, *(lambda count=count: json.loads(output(*tools.PINNED, tools.ITEMS, count)) for count in (COUNTS[-1], COUNTS[1])))


def linear(what):
    def row(rounds):
        pairs = [(many[what] / 1e3, few[what] / 1e3) for many, few in few_and_many(max(rounds // 3, 1))]
        return Figure(pairs, "us", f"an item of {COUNTS[-1]:,}, beside one of {COUNTS[1]}")
    return row


SLOT_BYTES = 64


def fill(enclosure):
    """Gives it as many items as an enclosure can have."""
    free = sorted(set(range(256)) - {item["Num"] for item in enclosure["Items"]})
    enclosure["Parts"].append({"Name": "many", "Kind": "image", "File": "many.bin", "Size": 256 * SLOT_BYTES, "PageSize": 32,
                               "WriteCycleUs": 0, "Shared": False})
    for number in free:
        enclosure["Chips"].append({"Name": f"MANY{number}a", "Part": "many", "Offset": f"0x{number * SLOT_BYTES:04x}", "RetryNumber": 1})
        enclosure["Items"].append({"Name": f"MANY{number}", "Num": number, "Length": 32, "AtomStorageDataDev0": f"MANY{number}a"})


@functools.cache
def enclosures(rounds):
    """{what: pairs of us an item among many and among few}: everything read over D-Bus, and what asdctl makes of it."""
    everything = harness.bus_call(2, "org.asd.Storage1", "/org/asd/Storage1", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects")
    with contextlib.ExitStack() as stack:
        counted = []
        for change in (fill, None):
            service = stack.enter_context(tools.master(change=change))
            counted.append((service, len(service.enclosure["Items"])))

        def read(service, items):
            return ask("bus", service.run_dir / "slot0" / "bus", everything, times="600ms")["median_ns"] / 1e3 / items

        def command(word):
            def timed(service, items):
                before = resource.getrusage(resource.RUSAGE_CHILDREN)
                output(*tools.PINNED, os.environ["ASDCTL_BINARY"], "--run-dir", service.run_dir, *word.split())
                after = resource.getrusage(resource.RUSAGE_CHILDREN)
                return (after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime) * 1e6 / items
            return timed
        figures = {"read": read, "status": command("status --json"), "metrics": command("metrics")}
        return {what: in_turns(rounds, *(functools.partial(figure, *one) for one in counted)) for what, figure in figures.items()}


def told(what):
    return lambda rounds: Figure(enclosures(max(rounds // 3, 1))[what], "us", "an item of a full enclosure, beside one of the example's")


# ---- Start, idle, memory, size ----

def since(began, condition):
    """Milliseconds until it holds, looked at every half of one."""
    end = time.monotonic() + harness.DEADLINE_S
    while not condition():
        assert time.monotonic() < end, "not within the deadline"
        time.sleep(0.0005)
    return (time.monotonic() - began) * 1e3


def answers(path):
    with contextlib.suppress(OSError), socket.socket(socket.AF_UNIX) as client:
        client.connect(str(path))
        return True
    return False


def start(rounds):
    """Parts with records, which a first start has made. What the module waits for is scaled away."""
    chips = json.loads(harness.CONFIG.read_text(encoding="utf-8"))["Chips"]
    with harness.Service("--role", "master", "--time-scale", "1000") as service, tools.folder() as place:
        service.launcher = tools.PINNED
        for number, chip in enumerate(chips):
            (place / f"record{number}").write_bytes(bytes(66))

        def loads():
            return service.log().count("load done")

        def ours():
            before, began = loads(), time.monotonic()
            with open(service.log_file, "ab") as log:
                service.process = subprocess.Popen(service.command(), stdin=subprocess.DEVNULL, stdout=log, stderr=log)
            took = since(began, lambda: loads() > before)
            service.end()
            return took

        def floor():
            began = time.monotonic()
            with subprocess.Popen([*tools.PINNED, tools.BUS, "private", place / "bus", "32"]) as empty:
                for number in range(len(chips)):
                    (place / f"record{number}").read_bytes()
                took = since(began, lambda: answers(place / "bus"))
                empty.kill()
            (place / "bus").unlink()
            return took
        ours()  # makes the parts
        return Figure(in_turns(rounds, ours, floor), "ms", "the module's own waits are a thousandth of what they are")


def threads_of(pid):
    """{thread's name: (voluntary switches, seconds of processor time)}"""
    threads = {}
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        try:
            status, comm, schedule = ((task / file).read_text() for file in ("status", "comm", "schedstat"))
        except FileNotFoundError:  # it has ended meanwhile
            continue
        switches = int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", status, re.M)[1])
        threads[f"{comm.strip()}/{task.name}"] = switches, int(schedule.split()[0]) / 1e9
    return threads


def requests_of_peers(service):
    """How many requests of other controllers it has answered."""
    text, _ = service.gdbus("/org/asd/Storage1", "org.asd.Storage1.Metrics")
    samples = re.findall(r'asd_ipmi_requests_total\{[^}]*door="the link"[^}]*\} (\d+)', text.replace('\\"', '"'))
    return sum(map(int, samples))


@functools.cache
def idle(role, peers, seconds=20):
    """(wake-ups a second, share of a core, what is said of them), beside the module's tasks. The master's module pushes its items
    one by one and waits for each answer: a wake-up for each of these is the module's."""
    with harness.Service("--role", "master") as first, harness.Service("--role", "slave", slot=1, folder=first.folder) as second:
        first.start_as("master")
        if peers or role == "slave":
            second.start()
        if role == "slave" and not peers:
            first.end()
        service = first if role == "master" else second
        time.sleep(2)  # what follows a start is over
        pushed, began = requests_of_peers(service), time.monotonic()
        time.sleep(1)
        before = threads_of(service.process.pid)
        time.sleep(seconds)
        after = threads_of(service.process.pid)
        pushes = (requests_of_peers(service) - pushed) / (time.monotonic() - began)
    each, cost = ({name: (after[name][of] - before.get(name, (0, 0))[of]) / seconds for name in after} for of in (0, 1))
    modules = {name for name in after if name.startswith(MODULES_TASKS)}
    most = ", ".join(f"{name.split('/')[0]} {rate:.1f}" for name, rate in sorted(each.items(), key=lambda e: -e[1])[:4])
    note = (f"beside {sum(each[name] for name in modules):.1f} /s of the module's tasks and {pushes:.1f} /s of pushes, all "
            f"{sum(cost.values()):.3%} of a core; most: {most}")
    return sum(each[name] for name in after.keys() - modules) - pushes, sum(cost[name] for name in after.keys() - modules), note


def wakes(role, peers):
    def row(_rounds):
        figure, _, note = idle(role, peers)
        return Figure([(figure, 5)], "/s", note)
    return row


def idle_processor(role, peers):
    return lambda _rounds: Figure([(100 * idle(role, peers)[1], 0.05)], "%")


MODULES_TASKS = ("ASD", "asd_", "Asd")


def memory_of(pid):
    """Resident and private, in KiB."""
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    sizes = {name: int(size) for name, size in re.findall(r"^(\w+):\s+(\d+) kB", text, re.M)}
    return sizes["Rss"], sizes["Private_Clean"] + sizes["Private_Dirty"]


@functools.cache
def memories():
    """Resident and private: (after a tenth, after all requests, of the empty service)."""
    with tools.folder() as place, tools.master() as service, tools.empty_bus(place / "bus") as empty:
        bus, read = service.run_dir / "slot0" / "bus", tools.call_item("ASD14", "ReadAsdMemData")

        def use(times):
            ask("dummy", service.socket, tools.GET_BRAND, clients=8, times=times * 9 // 10 // 8)
            ask("bus", bus, read, clients=8, times=times // 10 // 8)
        ask("bus", place / "bus", tools.call_empty("ReadAsdMemData"), clients=8, times=REQUESTS // 100 // 8)
        use(REQUESTS // 10)
        early = memory_of(service.process.pid)
        use(REQUESTS)
        return list(zip(early, memory_of(service.process.pid), memory_of(empty.pid)))


def memory(which):
    def row(_rounds):
        early, late, empty = memories()[which]
        return Figure([(late, empty)], "KiB", f"{early} KiB after a tenth of {REQUESTS:,} requests, one in ten on D-Bus")
    return row


def stripped(program, strip="strip"):
    """KiB of it without its symbols."""
    if not program.exists():
        raise Missing(f"there is no {program.relative_to(tools.ROOT) if program.is_relative_to(tools.ROOT) else program}")
    with tools.folder() as place:
        output(need(strip), "-o", place / "stripped", program)
        return (place / "stripped").stat().st_size / 1024


def size(_rounds):
    return Figure([(stripped(tools.BUILD / "platform/host/asd"), stripped(pathlib.Path(tools.BUS)))], "KiB")


def size_of_controllers(_rounds):
    return Figure([(stripped(tools.ROOT / "build/armhf/platform/host/asd", "arm-linux-gnueabihf-strip"), 400)], "KiB")


def size_of_module(_rounds):
    archive = tools.ROOT / "build/armhf/src/libasd.a"
    if not archive.exists():
        raise Missing(f"there is no {archive.relative_to(tools.ROOT)}")
    total = output(need("arm-linux-gnueabihf-size"), "-t", archive).splitlines()[-1]
    return Figure([(int(total.split()[0]) / 1024, 96)], "KiB")


class Row:
    """What a line of the table says, and how it is measured; aim: the ratio, or with absolute, ours."""

    def __init__(self, name, what, floor, aim, measure, absolute=False):
        self.name, self.what, self.floor, self.aim, self.measure, self.absolute = name, what, floor, aim, measure, absolute

    def met(self, figure):
        """None: the figure is for the reader."""
        if self.aim is None:
            return None
        return (figure.ours if self.absolute else figure.ratio) <= self.aim


ECHO = "plain echo server, three calls a request"
EMPTY = "empty GDBus service"
ROWS = [
    Row("identity", "identity read in process", "copy and hash look-up", 10, in_process("identity", "cpu_time")),
    Row("identity-time", "the same, as a time", "1 us", 1, lambda rounds: Figure(
        [(ours, 1) for ours, _ in in_process("identity", "cpu_time")(rounds).pairs], "us"), absolute=True),
    Row("socket-1", "request through the IPMI socket", ECHO, 1.0, socket_one),
    Row("socket-64", "the same by 64 clients at once", ECHO, 1.2, socket_many),
    Row("simulator", "Get Device ID through the IPMI socket", "ipmi_sim, by its serial port's socket", None, simulator),
    Row("bus-method", "ReadAsdMemData on the private socket", EMPTY, 0.8, bus_method),
    Row("bus-execute", "execute through a bus", EMPTY, 1.1, bus_execute),
    Row("read-1024", "record read from an image, 1024 bytes", "pread and checksum", 1.3, in_process("read-1024", "cpu_time")),
    Row("write-32", "record write, 32 bytes, read back", "note, sync, pages, sync", 1.2, in_process("write-32")),
    Row("write-1024", "record write, 1024 bytes, read back", "note, sync, pages, sync", 1.2, in_process("write-1024")),
    Row("chip-time", "record write, 1024 bytes, 5 ms a page", "33 waits of 5 ms", 1.02, in_process("chip-time", scale=1e-3, unit="ms")),
    Row("reads-p99", "99 % of reads while 8192 bytes are written", "the same with no write", 1.5, reads_while_written),
    Row("items-start", "start", "a hundredth as many items", 1.2, linear("start")),
    Row("items-find", "item found by name", "a hundredth as many items", 1.2, linear("find")),
    Row("items-walk", "every record read", "a hundredth as many items", 1.2, linear("walk")),
    Row("items-look", "state of every item", "a hundredth as many items", 1.2, linear("look")),
    Row("items-tell", "what is said of it", "a hundredth as many items", 1.2, linear("tell")),
    Row("items-read", "all items read over D-Bus", "the example's items", 1.2, told("read")),
    Row("items-status", "asdctl status --json", "the example's items", 1.2, told("status")),
    Row("items-metrics", "asdctl metrics", "the example's items", 1.2, told("metrics")),
    Row("start", "start until every item is loaded", "records read, GDBus started", 1.5, start),
    Row("idle-master", "wake-ups of a master, no peers", "5 /s", 1, wakes("master", False)),
    Row("idle-master-peers", "wake-ups of a master with a peer", "5 /s", 1, wakes("master", True)),
    Row("idle-slave", "wake-ups of a slave with its master", "5 /s", 1, wakes("slave", True)),
    Row("idle-processor", "processor of an idle master with a peer", "0.05 % of a core", 1, idle_processor("master", True)),
    Row("memory-resident", "resident after 500,000 requests", EMPTY, 1.3, memory(0)),
    Row("memory-private", "private after 500,000 requests", EMPTY, 1.3, memory(1)),
    Row("size", "asd, stripped", EMPTY, None, size),
    Row("size-armhf", "asd for 32-bit ARM, stripped", "400 KB", 1, size_of_controllers),
    Row("size-module", "code of libasd.a for 32-bit ARM", "96 KiB", 0.65, size_of_module),
]
