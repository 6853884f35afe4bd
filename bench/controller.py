# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""Rows on the emulated 32-bit ARM controller of scripts/bmc: its processor is emulated, so ratios and counts tell, times do not."""

import json
import os
import shutil
import struct
import subprocess
import sys

import harness
import tools
from tools import Figure, Missing, in_turns

sys.path[:0] = [str(tools.ROOT / "scripts/emulated"), str(tools.ROOT / "tests/target")]
WORK, BUILD = tools.ROOT / "build/bmc", tools.ROOT / "build/armhf"
ITEM, CHIP, LENGTH = "ASD27", "ASDDev27a", 32
IDLE_S = 20


def words_of_32_bit(netfn, cmd, data):
    return struct.pack("<BBBBH2x4x", netfn, 0, cmd, 0, len(data)) + data


def image(place):
    """What scripts/bmc boots, with the client of sockets beside it: the kernel takes one archive behind the other."""
    import machine  # pylint: disable=import-outside-toplevel,import-error # which is there with scripts/bmc's packages
    if not (WORK / "packages").exists():
        raise Missing("there is no emulated controller yet: run scripts/bmc")
    subprocess.run(["cmake", "--preset", "armhf", "-DASD_BUILD_BENCH=ON"], cwd=tools.ROOT, check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", BUILD, "--target", "asd", "asdctl", "asd_bench_wire"], check=True, stdout=sys.stderr)
    os.environ["PATH"] += ":/usr/sbin:/sbin"  # depmod, mke2fs
    machine.image(WORK / "packages", place)
    extra = place / "extra/usr/bin"
    extra.mkdir(parents=True)
    shutil.copy(BUILD / "bench/asd_bench_wire", extra)
    with open(place / "initramfs.cpio", "ab") as archive:
        subprocess.run(["cpio", "--create", "--format=newc", "--owner=+0:+0", "--quiet"], cwd=place / "extra", check=True, stdout=archive,
                       input=b"usr\nusr/bin\nusr/bin/asd_bench_wire")
    machine.make_drives(place / "drives")
    return machine


class Controller:
    """One that has booted, with asd as master."""

    def __init__(self, bmc, config):
        self.bmc, self.enclosure = bmc, json.loads(config.read_text(encoding="utf-8"))
        bmc.must("until grep -q 'load done' /var/log/asd.log; do usleep 100000; done")
        bmc.must("asdctl set brand ACME")
        bmc.start(f"asd_bench_wire echo /tmp/echo {tools.BRAND_SIZE}")
        bmc.must("until [ -S /tmp/echo ]; do usleep 100000; done")

    def ask(self, words):
        return json.loads(self.bmc.must(f"asd_bench_wire {words}").splitlines()[-1])["median_ns"] / 1e6

    def request(self, rounds):
        hexadecimal = words_of_32_bit(harness.NETFN, 0x16, tools.BRAND).hex()
        return Figure(in_turns(rounds, lambda: self.ask(f"ask dummy /run/asd/slot0/ipmi.sock 1 200 {hexadecimal}"),
                               lambda: self.ask(f"ask dummy /tmp/echo 1 200 {hexadecimal}")), "ms")

    def write(self, rounds):
        values = " ".join(tools.call_item(ITEM, "EqWriteAtomStorageData", bytes([letter]) * LENGTH).hex() for letter in b"AB")
        chip = next(chip for chip in self.enclosure["Chips"] if chip["Name"] == CHIP)
        part = next(part for part in self.enclosure["Parts"] if part["Name"] == chip["Part"])
        free = part["Size"] - 2 * part["PageSize"]  # of records
        return Figure(in_turns(rounds, lambda: self.ask(f"ask bus /run/asd/slot0/bus 1 10 {values}"),
                               lambda: self.ask(f"put {part['File']} {free} {LENGTH + 2} 10")), "ms")

    def look(self):
        """({thread: voluntary switches}, ticks of the processor)"""
        lines = self.bmc.must("grep ^voluntary_ctxt_switches: /proc/$(pidof asd)/task/*/status")
        switches = {line.split(":")[0]: int(line.split()[-1]) for line in lines.splitlines() if line}
        ticks = self.bmc.must("sed 's/.*) //' /proc/$(pidof asd)/stat").split()
        return switches, int(ticks[11]) + int(ticks[12])

    def idle(self):
        self.bmc.must("sleep 2")  # what the requests began is over
        before = self.look()
        self.bmc.must(f"sleep {IDLE_S}")
        after = self.look()
        woken = sum(count - before[0].get(thread, 0) for thread, count in after[0].items())
        return woken / IDLE_S, (after[1] - before[1]) / IDLE_S  # a tick is a hundredth of a second

    def memory(self):
        text = self.bmc.must("cat /proc/$(pidof asd)/smaps_rollup")
        sizes = {line.split(":")[0]: int(line.split()[1]) for line in text.splitlines() if line.endswith("kB")}
        return sizes["Rss"], sizes["Private_Clean"] + sizes["Private_Dirty"]


def table(rounds):
    """Prints it; {row: text}."""
    with tools.folder() as place:
        machine = image(place)
        import guest  # pylint: disable=import-outside-toplevel,import-error
        tools.say("booting the emulated controller")
        bmc = guest.Guest(machine.command(place, place / "drives", "-no-reboot"), b"bmc# ", place / "console.log")
        try:
            controller = Controller(bmc, machine.CONFIG)
            request, write = controller.request(rounds), controller.write(rounds)
            wakes, processor = controller.idle()
            resident, private = controller.memory()
        finally:
            bmc.kill()
    kept = {
        "request through the IPMI socket, beside the echo server": f"{request.ours:.2f} ms, {request.floor:.2f} ms, {request.ratio:.2f} times",
        "record of 32 bytes written through D-Bus, beside the pages alone":
            f"{write.ours:.0f} ms, {write.floor:.0f} ms, {write.ratio:.2f} times",
        "wake-ups of all its threads, the module's tasks among them": f"{wakes:.1f} a second",
        "processor while idle": f"{processor:.2f} % of a core",
        "resident, private": f"{resident:,} KiB, {private:,} KiB"}
    for what, text in kept.items():
        print(f"{what:66} {text}")
    return kept
