#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""Acceptance on the emulated BMC that scripts/bmc made: the kernel's drivers below asd, stock clients beside it."""

import binascii
import json
import pathlib
import re
import sys
import tempfile
import time
import unittest

import guest
import host
import machine

WORK = machine.CONFIG.parent.parent / "build" / "bmc"
LOG = WORK / "console.log"
HOST = WORK.parent / "guest"
ENCLOSURE = json.loads(machine.CONFIG.read_text(encoding="utf-8"))
PARTS = {part["Name"]: part for part in ENCLOSURE["Parts"]}
LINES = {line["Line"]: line["Offset"] for line in ENCLOSURE["GpioLines"]}

SERIAL = b"EMULATED-BMC-SN-0001"
BRAND, MC_INFO = "0x32 {} 0 0 0x80 0 0x14", "0x06 0x01"
GET, SET = "0x16", "0x17"
FAILED, ABSENT = 0x10000, 0x20000  # classes of a chip's error code, above an errno value
EIO, EACCES = 5, 13
CUTS = 2
LONG, LONG_CHIP = "ASD25", "ASDDev25a"  # the longest record: 33 pages
LENGTH = next(item["Length"] for item in ENCLOSURE["Items"] if item["Name"] == LONG)


def record(data):
    """The data and its checksum."""
    return data + (binascii.crc_hqx(data, 0) ^ 0xFFFF).to_bytes(2, "little")


def on_drive(drives, chip_name, length):
    """What the emulated EEPROM holds at a record's place, checksum included."""
    chip = next(chip for chip in ENCLOSURE["Chips"] if chip["Name"] == chip_name)
    at = int(str(chip["Offset"]), 0)
    return (drives / f"{chip['Part']}.bin").read_bytes()[at:at + length + 2]


def long_value(number):
    return (f"value {number} ".encode() * LENGTH)[:LENGTH]


def write_long(number):
    return f"(yes 'value {number} ' | tr -d '\\n' | head -c {LENGTH} >/tmp/value; asdctl set {LONG} --file /tmp/value)"


def wait_until_loaded(bmc):
    bmc.must("until grep -q 'asd enter master mode!' /var/log/asd.log; do usleep 100000; done")


def hex_words(data):
    return " ".join(f"{byte:#04x}" for byte in data)


class Case(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.drives = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(prefix="asd-bmc-")))

    @classmethod
    def boot(cls):
        machine.make_drives(cls.drives)
        bmc = guest.Guest(machine.command(WORK, cls.drives, "-no-reboot"), b"bmc# ", LOG)
        cls.addClassCleanup(bmc.kill)
        print(f"  booted, with asd up, in {bmc.boot_s:.1f} s", file=sys.stderr)
        wait_until_loaded(bmc)
        return bmc

    def ipmitool(self, request, code=0):
        """The data of an answer with that completion code."""
        status, output = self.bmc.run(f"ipmitool -I dummy raw {request}")
        found = re.search(r"rsp=(0x[0-9a-f]+)", output)
        self.assertEqual(int(found[1], 16) if found else status, code, output)
        return b"" if code else bytes.fromhex(output)

    def wait_until_within(self, new):
        """Until the chip holds the start of the long record; the pages behind it take longer than this notices."""
        end = time.monotonic() + guest.COMMAND_DEADLINE_S
        while on_drive(self.drives, LONG_CHIP, LENGTH)[:64] != new[:64]:
            self.assertLess(time.monotonic(), end, "the write did not begin")

    def chips(self, item):
        return json.loads(self.bmc.must(f"asdctl --json show {item}"))["chips"]


class Life(Case):
    """A serial number is set, the BMC goes down and comes up again; then what can go wrong with lines and chips."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        bmc = cls.boot()
        bmc.must(f"ipmitool -I dummy raw 0x32 0x17 0 0 0x80 0 0x11 {hex_words(SERIAL)}")
        bmc.shut_down()
        cls.held_after = {name: on_drive(cls.drives, name, len(SERIAL)) for name in ("ASDDev11a", "ASDDev11b")}
        cls.bmc = cls.boot()

    def test_serial_number_is_on_both_chips_and_comes_back(self):
        for name, held in self.held_after.items():
            self.assertEqual(held, record(SERIAL), name)
        self.assertEqual(self.ipmitool("0x32 0x16 0 0 0x80 0 0x11"), SERIAL)

    def trace(self, request):
        """What the kernel did for a request: ("line", offset, level) and ("write", part, address, bytes), in order."""
        tracing = "/sys/kernel/tracing"
        base = int(self.bmc.must("cd /sys/class/gpio; cat $(dirname $(grep -l '^1e780000.gpio' */label))/base"))
        self.bmc.must(f"cd {tracing}; echo >trace; for event in gpio/gpio_value i2c/i2c_write; do "
                      "echo 1 >events/$event/enable; done")
        self.ipmitool(request)
        text = self.bmc.must(f"cd {tracing}; echo 0 >events/enable; cat trace")
        parts = {(eeprom.bus, eeprom.address): eeprom.name for eeprom in machine.eeproms()}
        events = []
        for line in text.splitlines():
            if found := re.search(r"gpio_value: (\d+) set ([01])", line):
                events.append(("line", int(found[1]) - base, int(found[2])))
            elif found := re.search(r"i2c_write: i2c-(\d+) #0 a=([0-9a-f]{3}) .*\[([0-9a-f-]+)\]", line):
                part, sent = parts[int(found[1]), int(found[2], 16)], bytes.fromhex(found[3].replace("-", ""))
                events.append(("write", part, int.from_bytes(sent[:2], "big"), sent[2:]))
        return events

    def test_lines_are_open_around_the_pages_and_only_then(self):
        events = self.trace(BRAND.format(SET) + " " + hex_words(b"traced".ljust(32)))
        said = "\n".join(map(str, events))
        level, written = {offset: 0 for offset in LINES.values()}, {}
        for event in events:
            if event[0] == "line":
                level[event[1]] = event[2]
                continue
            _, part, address, data = event
            if not data:
                continue  # sets the address of a read
            written[part] = written.get(part, b"") + data
            size = PARTS[part]["PageSize"]
            self.assertEqual(level[LINES[PARTS[part]["WriteProtectLine"]]], 1, f"{event} while protected:\n{said}")
            self.assertLessEqual(address % size + len(data), size, f"{event} goes past its page:\n{said}")
        # Unchanged pages are skipped, so what was written is an end of the record.
        self.assertEqual(sorted(written), ["backplane_a", "backplane_b"], said)
        for part, data in written.items():
            self.assertTrue(data and record(b"traced".ljust(32)).endswith(data), f"{part}: {data.hex()}\n{said}")
        self.assertEqual(set(level.values()), {0}, f"left open:\n{said}")

    def test_parts_that_cannot_be_written_say_so(self):
        for item, why, mask, code, health in (("ASD1001", "absent", ~0xFFFF, ABSENT, 1),
                                              ("ASD1000", "acknowledges and stores nothing", ~0, FAILED | EIO, 1),
                                              ("ASD7", "read-only for the kernel", ~0, FAILED | EACCES, 0)):
            with self.subTest(why):
                status, output = self.bmc.run(f"asdctl set {item} --text abc")
                self.assertEqual(status, 1, output)
                chip = self.chips(item)[0]
                self.assertEqual((chip["error_code"] & mask, chip["health"]), (code, health), chip)

    def test_driver_comes_and_goes(self):
        driver = "echo 3-0051 >/sys/bus/i2c/drivers/at24/"
        old, new = (f"brand {which}".encode().ljust(32) for which in ("old", "new"))
        self.bmc.must(driver + "unbind")
        self.addCleanup(self.bmc.run, driver + "bind")
        self.ipmitool(BRAND.format(SET) + " " + hex_words(old), code=0xCE)  # which says that a copy is missing
        self.assertEqual(on_drive(self.drives, "ASDDev14a", 32), record(old))
        first, second = self.chips("ASD14")
        self.assertEqual((first["error_code"], second["error_code"] & ABSENT), (0, ABSENT), (first, second))
        self.assertTrue(self.ipmitool(MC_INFO))
        self.bmc.must(driver + "bind")
        self.ipmitool(BRAND.format(SET) + " " + hex_words(new))
        self.assertEqual(self.ipmitool(BRAND.format(GET)), new)
        self.assertEqual([on_drive(self.drives, name, 32) for name in ("ASDDev14a", "ASDDev14b")], [record(new)] * 2)
        self.assertEqual([chip["error_code"] for chip in self.chips("ASD14")], [0, 0])

    def test_driver_goes_within_a_write(self):
        driver, new = "echo 3-0050 >/sys/bus/i2c/drivers/at24/", long_value(9)
        self.bmc.start(f"({write_long(9)}; echo ended $? >/tmp/ended)")
        self.wait_until_within(new)
        self.bmc.must(driver + "unbind")
        self.addCleanup(self.bmc.run, driver + "bind")
        self.assertTrue(self.ipmitool(MC_INFO))
        ended = self.bmc.must("until grep ended /tmp/ended; do usleep 100000; done")
        between = on_drive(self.drives, LONG_CHIP, LENGTH)
        if ended.split()[1] == "0":  # all pages may be there and reading them back may have failed
            self.assertEqual(between, record(new), "done and not whole")
        self.bmc.must(driver + "bind")
        self.assertEqual(bytes.fromhex(self.bmc.must(f"asdctl read {LONG} --hex")), new)
        self.assertEqual(on_drive(self.drives, LONG_CHIP, LENGTH), record(new))

    def test_lines_that_cannot_be_had_keep_it_from_starting(self):
        end = "while pidof {0} >/dev/null; do killall {0}; usleep 100000; done"
        self.bmc.must(end.format("asd"))
        self.bmc.must("sed s,/dev/gpiochip0,/dev/gpiochip7, /etc/asd/enclosure.json >/tmp/no-chip.json")
        self.bmc.must("gpioset --mode=signal --background gpiochip0 56=0")
        self.bmc.must("until gpioinfo gpiochip0 | grep -q gpioset; do usleep 100000; done")
        for options, sentence in (
                ("", 'write-protect line 56: line 56 of the GPIO chip "/dev/gpiochip0" is held by "gpioset"'),
                ("--config /tmp/no-chip.json", 'write-protect line 55: the GPIO chip "/dev/gpiochip7" cannot be '
                                               "opened: No such file or directory")):
            with self.subTest(sentence):
                status, output = self.bmc.run(f"/etc/asd.start {options}")
                self.assertEqual(status, 1, output)
                self.assertIn(sentence, output)
        self.bmc.must(end.format("gpioset"))
        self.bmc.must("rm /var/log/asd.log; /etc/asd.start")
        wait_until_loaded(self.bmc)

    def test_size(self):
        """Prints what asd takes; a controller has few MiB to give."""
        file = int(self.bmc.must("stat -c %s /usr/bin/asd"))
        status = self.bmc.must("cat /proc/$(pidof asd)/status")
        memory = {name: int(re.search(rf"{name}:\s+(\d+) kB", status)[1]) for name in ("VmRSS", "RssAnon")}
        print(f"  asd: file {file} bytes, VmRSS {memory['VmRSS']} KiB, RssAnon {memory['RssAnon']} KiB", file=sys.stderr)
        self.assertLess(file, 1_000_000)
        self.assertLess(memory["VmRSS"], 16_384)

    def test_the_host_on_its_line_writes_to_the_chips(self):
        there = guest.Guest(host.command(HOST, machine.host_line(self.drives)), b"host# ", HOST / "console.log")
        self.addCleanup(there.kill)
        self.addCleanup(self.ipmitool, f"0x32 0x17 0 0 0x80 0 0x11 {hex_words(SERIAL)}")
        serial = b"WRITTEN-BY-ITS-HOST!"
        there.must(f"ipmitool raw 0x32 0x17 0 0 0x80 0 0x11 {hex_words(serial)}")
        self.assertEqual(there.must("ipmitool raw 0x32 0x16 0 0 0x80 0 0x11").split(), serial.hex(" ").split())
        for name in ("ASDDev11a", "ASDDev11b"):
            self.assertEqual(on_drive(self.drives, name, len(serial)), record(serial), name)


class PowerCut(Case):
    """QEMU is killed within a write; the next boot finds the old value or the new one."""

    def test_old_or_new(self):
        values, mixtures = [long_value(0)], 0
        self.bmc = self.boot()
        self.bmc.must(write_long(0))
        for number in range(1, CUTS + 1):
            old, new = values[-1], long_value(number)
            self.bmc.start(write_long(number))
            self.wait_until_within(new)
            self.bmc.kill()
            mixtures += on_drive(self.drives, LONG_CHIP, LENGTH) not in (record(old), record(new))
            self.bmc = self.boot()
            got = bytes.fromhex(self.bmc.must(f"asdctl read {LONG} --hex"))
            self.assertIn(got, (old, new), "neither the old value nor the new one")
            self.assertEqual(on_drive(self.drives, LONG_CHIP, LENGTH), record(got))
            print(f"  cut {number}: {'old' if got == old else 'new'} value", file=sys.stderr)
            values.append(got)
        self.assertGreater(mixtures, 0, "no cut was within a write, so this has shown nothing")


if __name__ == "__main__":
    LOG.unlink(missing_ok=True)
    print(f"The console's log is {LOG}.", file=sys.stderr)
    unittest.main(verbosity=2)
