#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""A host operating system whose controller is asd: Debian's kernel and clients in the virtual PC that scripts/guest made."""

import re
import sys
import time
import unittest

import guest
import harness
import host

WORK = host.HERE.parent.parent / "build/guest"
LOG = WORK / "console.log"
NODES = b"\x32\xbc\0\0\x80\0\x43"


def words(data):
    return " ".join(f"{byte:#04x}" for byte in data)


class Host(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.asd = cls.enterClassContext(harness.Service("--host-door")).start_as("master")
        cls.host = guest.Guest(host.command(WORK, cls.asd.run_dir / "slot0/host.sock"), b"host# ", LOG)
        cls.addClassCleanup(cls.host.kill)
        print(f"  booted in {cls.host.boot_s:.1f} s", file=sys.stderr)

    def raw(self, data):
        """The data of an answer that says 0."""
        return bytes.fromhex(self.host.must(f"ipmitool raw {words(data)}"))

    def refused(self, data):
        """The completion code of one that does not."""
        status, said = self.host.run(f"ipmitool raw {words(data)}")
        self.assertEqual(status, 1, said)
        return int(re.search(r"rsp=(0x[0-9a-f]+)", said)[1], 16)

    def test_1_its_clients_see_what_others_see(self):
        self.assertIsNotNone(self.asd.ctl("set", "mac", "02:00:5e:10:20:30"))
        for serial in ("SN-0042", "SN-0043"):
            self.assertIsNotNone(self.asd.ctl("set", "serial", serial))
            for request in ("mc info", "mc guid", "mc selftest", "fru print", "sdr elist all"):
                there = self.asd.ipmitool(*request.split())
                self.assertEqual(self.host.run(f"ipmitool {request}"), (0, there.stdout))
            self.assertRegex(self.host.must("ipmitool fru print 0"), f"Product Serial +: {serial}\n")
            self.assertRegex(self.host.must("ipmi-fru"), f"Product Serial Number: {serial}\n")
        self.assertRegex(self.host.must("bmc-info --get-device-id"), "IPMI Version +: 2.0")
        self.assertEqual(self.raw(b"\x06\x42\x0e"), bytes.fromhex("0f0c0500f21b00ffff"))

    def test_2_the_longest_frames_pass_byte_for_byte(self):
        key = harness.pattern(1024, 7)
        for number in range(5):
            part = key[220 * number:220 * (number + 1)] if number < 4 else key[880:]
            self.assertEqual(self.raw(b"\x32\x13\0\0\x80\0\x1b\5\0" + bytes((number + 1, 0)) + part), b"")
        for selector in (b"\x1b", b"\x1c"):  # from memory, from the part
            read = b"".join(self.raw(b"\x32\x12\0\0\x80\0" + selector + b"\5\0" + bytes((number + 1, 0)))
                            for number in range(5))
            self.assertEqual(read, key.ljust(5 * 228, b"\xff"))
        self.assertEqual(self.asd.chip("ASDDev5a").read(1026), harness.on_chip(key))
        self.assertEqual(self.asd.ctl("history", "ASD5")[-1]["door"], "the host's IPMI")

    def test_3_answers_come_with_interrupts(self):
        def count():
            return int(self.host.must("awk '/ipmi_si/ { print $2 }' /proc/interrupts"))
        before = count()
        self.host.must("ipmitool mc info")
        self.assertGreater(count(), before)

    def test_4_a_controller_that_dies_is_found_again(self):
        self.asd.kill()
        for part in self.asd.enclosure["Parts"]:
            if part["Name"].startswith("backplane"):  # for the next test: 100 ms a byte
                part.update(PageSize=1, WriteCycleUs=100_000)
        self.asd.use_changed_enclosure()
        self.assertGreater(self.refused(b"\x06\x01"), 0)
        self.asd.start_as("master")
        self.host.must("tries=0; until ipmitool mc info; do tries=$((tries + 1)); [ $tries -lt 20 ] || exit; sleep 0.5; done")

    def test_5_a_part_that_hangs_costs_one_answer(self):
        began = time.monotonic()
        self.assertEqual(self.refused(NODES + b"N" * 64), 0xC3)
        print(f"  C3 after {time.monotonic() - began:.1f} s", file=sys.stderr)
        self.host.must("ipmitool mc info")
        self.asd.wait_for_log("answered before it is done: C3")  # QEMU would have said so later by itself
        harness.wait_for(lambda: self.asd.chip("ASD_NODE_VIEWb").read(64) == b"N" * 64, "the write to go on")
        self.host.must("ipmitool mc info")
        self.asd.end()


if __name__ == "__main__":
    LOG.unlink(missing_ok=True)
    print(f"The console's log is {LOG}.", file=sys.stderr)
    unittest.main(verbosity=2, failfast=True)
