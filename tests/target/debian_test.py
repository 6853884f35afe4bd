#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The Debian package on a running Debian 12 that scripts/vm made: installed as an administrator does, used as a group's
member does, on two EEPROMs that the kernel's driver had before."""

import json
import pathlib
import re
import sys
import tempfile
import unittest

import debian
import guest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
WORK, PACKAGES = ROOT / "build/vm", ROOT / "build/release/packages"
LOG = WORK / "console.log"
CONFIG = "/etc/asd/enclosure.json"
DRIVER = "/sys/bus/i2c/drivers/at24"
FILES = {"backplane_a": "/sys/bus/i2c/devices/0-0050/eeprom", "backplane_b": "/sys/bus/i2c/devices/0-0054/eeprom"}
BRAND = b"Virtual Brand, thirty-two bytes!"
BRAND_AT = {chip["Part"]: int(chip["Offset"], 0)
            for chip in json.loads((ROOT / "config/repair.json").read_text(encoding="utf-8"))["Chips"]
            if chip["Name"] in ("ASDDev14a", "ASDDev14b")}


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.drives = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(prefix="asd-vm-")))
        debian.make_drive(WORK, cls.drives)
        cls.vm = guest.Guest(debian.command(WORK, cls.drives, PACKAGES), b"vm# ", LOG)
        cls.addClassCleanup(cls.vm.kill)
        print(f"  booted in {cls.vm.boot_s:.1f} s", file=sys.stderr)
        cls.modes = cls.vm.must(f"stat -c '%U:%G %a' {' '.join(FILES.values())}")
        cls.said = cls.vm.must("DEBIAN_FRONTEND=noninteractive apt-get install -qqy /packages/asd_*.deb")

    def member(self, command):
        """As a user who is in the group and nothing else."""
        return self.vm.must(f"id member >/dev/null 2>&1 || useradd --groups asd member; runuser -u member -- {command}")

    def test_1_the_first_installation_starts_it(self):
        self.assertEqual(self.modes, "root:root 600\n" * 2)  # the driver had them before there was a rule
        self.assertNotRegex(self.said, "(?i)fail|error|denied", self.said)
        self.assertEqual(self.vm.must("systemctl is-active asd"), "active\n")
        self.assertEqual(self.vm.must("systemctl show --value --property NRestarts asd"), "0\n")
        journal = self.vm.must("journalctl --no-pager --output cat --unit asd")
        self.assertNotRegex(journal, "Failed|refused|not allowed", journal)
        self.assertEqual(self.vm.must("busctl get-property org.asd.Storage1.Slot0 /org/asd/Storage1 org.asd.Storage1 Slot"),
                         "y 0\n")

    def test_2_parts_that_the_driver_had_are_the_groups(self):
        self.assertEqual(self.vm.must(f"stat -c '%U:%G %a' {' '.join(FILES.values())}"), "root:asd 660\n" * 2)

    def test_3_two_lines_for_two_parts(self):
        self.vm.must(f"cp /usr/share/doc/asd/examples/repair.json {CONFIG}")
        for name, file in FILES.items():
            self.vm.must(f"""sed -i '/"Name": "{name}"/s,"Kind".*"Shared","Kind": "device"\\, "File": "{file}"\\, """
                         f""""Size": 1024\\, "PageSize": 16\\, "Shared",' {CONFIG}""")
        self.vm.must(f"asd --config {CONFIG} --check-config && systemctl restart asd")
        self.member(f"asdctl set ASD14 --text '{BRAND.decode()}'")
        self.assertEqual(self.member("asdctl get ASD14 --hex"), BRAND.hex() + "\n")
        for name, file in FILES.items():
            on_part = self.vm.must(f"od -A n -v -t x1 -j {BRAND_AT[name]} -N 32 {file}")
            self.assertEqual(bytes.fromhex(on_part), BRAND, name)

    def test_4_a_part_that_goes_and_comes(self):
        self.vm.must(f"echo 0-0054 >{DRIVER}/unbind")
        status, said = self.vm.run("runuser -u member -- asdctl set ASD14 --text absent")
        self.assertEqual(status, 1, said)
        self.assertIn("the part does not answer", said)
        lost = "backplane_b does not answer"
        for teller in ("runuser -u member -- asdctl status", "systemctl --no-pager status asd"):
            self.vm.must(f"until {teller} | grep '{lost}'; do sleep 0.2; done")  # parts are looked at each second
        self.vm.must(f"echo 0-0054 >{DRIVER}/bind; udevadm settle")
        self.assertEqual(self.vm.must(f"stat -c '%U:%G %a' {FILES['backplane_b']}"), "root:asd 660\n")
        self.member("asdctl set ASD14 --text present")

    def test_5_what_is_damaged_or_wiped_is_mended(self):
        self.vm.must(f"printf X | dd of={FILES['backplane_b']} bs=1 seek={BRAND_AT['backplane_b']} conv=notrunc status=none")
        self.assertIn("1 record written and read back", self.member("asdctl repair brand"))
        self.assertIn("all is well", self.member("asdctl repair brand"))
        self.member("asdctl set serial SN-0042")
        self.member("asdctl export /tmp/before.json")
        for file in FILES.values():
            self.vm.must(f"tr '\\0' '\\377' </dev/zero | dd of={file} bs=1024 count=1 iflag=fullblock conv=notrunc status=none")
        self.vm.must("systemctl restart asd")
        self.assertNotIn("SN-0042", self.member("asdctl identity"))
        self.member("asdctl import /tmp/before.json")
        self.vm.must("systemctl restart asd")
        self.member("asdctl export /tmp/after.json")
        items = [json.loads(self.vm.must(f"cat /tmp/{when}.json"))["items"] for when in ("before", "after")]
        self.assertEqual(*items)

    def test_6_it_is_there_after_a_boot(self):
        self.vm.shut_down()
        type(self).vm = guest.Guest(debian.command(WORK, self.drives, PACKAGES), b"vm# ", LOG)
        self.addClassCleanup(self.vm.kill)
        self.vm.must("until systemctl is-active asd; do sleep 0.2; done")
        self.assertEqual(self.vm.must(f"stat -c %G {' '.join(FILES.values())}"), "asd\n" * 2)
        self.member("asdctl status")


if __name__ == "__main__":
    LOG.unlink(missing_ok=True)
    print(f"The console's log is {LOG}.", file=sys.stderr)
    unittest.main(verbosity=2, failfast=True)
