# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The D-Bus service of the real asd, with the stock clients gdbus and busctl."""

import os
import re
import subprocess
import tempfile
import unittest

from harness import Background, BusDaemon, Service, crc16, run, wait_for

FAST = ("--time-scale", "10")
ROOT = "/org/asd/Storage1"
ITEM, CHIP, BOARD = "org.asd.AtomStorageData1", "org.asd.AtomStorageDataDev1", "org.asd.Board1"
ARGUMENTS = "org.asd.Error.InvalidArguments"


def item(name):
    return f"{ROOT}/AtomStorageData/{name}"


def chip(name):
    return f"{ROOT}/AtomStorageDataDev/{name}"


class Bus:
    """The clients on the private socket of a service."""

    def __init__(self, service, name="org.asd.Storage1"):
        self.address = f"unix:path={service.run_dir}/slot{service.slot}/bus"
        self.name = name

    def gdbus(self, verb, path, *words):
        return run("gdbus", verb, "--address", self.address, "--dest", self.name, "--object-path", path, *words)

    def call(self, path, method, *arguments):
        """Through gdbus: (what it printed, "") or ("", the error's name)."""
        done = self.gdbus("call", path, "--method", method, *arguments)
        if done.returncode == 0:
            return done.stdout.strip(), ""
        error = re.search(r"GDBus\.Error:([\w.]+)", done.stderr)
        return "", error[1] if error else done.stderr

    def busctl(self, verb, *words):
        """What busctl printed; its error's text if it failed."""
        done = run("busctl", f"--address={self.address}", verb, self.name, *words)
        return done.stdout.strip() if done.returncode == 0 else "failed: " + done.stderr.strip()

    def property(self, path, interface, name):
        """As busctl shows it, without the type."""
        shown = self.busctl("get-property", path, interface, name)
        if shown.startswith("failed: "):
            raise AssertionError(f"{path} {name}: {shown}")
        return shown.partition(" ")[2]


def array(data):
    return "[" + ", ".join(f"byte {byte:#04x}" for byte in data) + "]"


def printed(text):
    """The bytes of an array that gdbus printed."""
    return bytes(int(byte, 16) for byte in re.findall(r"0x([0-9a-f]{2})", text))


class Objects(unittest.TestCase):
    def test_every_object_of_the_enclosure_is_there_and_described(self):
        with Service(*FAST) as service:
            bus = Bus(service.start_as_master())
            names = {item(one["Name"]) for one in service.enclosure["Items"]}
            names |= {chip(one["Name"]) for one in service.enclosure["Chips"]}
            names |= {f"{ROOT}/Board"}
            tree = set(bus.busctl("tree", "--list").split())
            self.assertLessEqual(names | {ROOT}, tree)
            managed = bus.gdbus("call", ROOT, "--method", "org.freedesktop.DBus.ObjectManager.GetManagedObjects").stdout
            self.assertEqual(set(re.findall(r"(?:objectpath )?'(/org/[\w/]+)': \{'org", managed)), names)

            for path, interface, methods, properties in (
                    (ROOT, "org.asd.Storage1", "", "Chips Enclosure Items Slot Tasks TimeScale Uptime Version"),
                    (item("ASD14"), ITEM,
                     "ClearMemData EqWriteAtomStorageData ReadAsdMemData ReadAtomStorageData UpdateMemProperty "
                     "WriteAtomStorageData",
                     "AtomStorageDataDev0 AtomStorageDataDev1 DevCount Length NeedSync Num Online Ready Value"),
                    (chip("ASDDev14a"), CHIP, "SetAsdDevErrCode",
                     "ErrorCode Health Offset PageCycles Part RetryNumber StgIsWp StgWp"),
                    (f"{ROOT}/Board", BOARD, "GetCpldBit GetCpldRam GetFlash SetCpldBit SetFault",
                     "BackplaneEeproms CpldUpgrading EquipmentMode Faults Kind PowerStandBy Role Slot "
                     "WriteProtectLines")):
                with self.subTest(path=path):
                    rows = [row.split() for row in bus.busctl("introspect", path, interface).splitlines()]
                    for kind, expected in (("method", methods), ("property", properties)):
                        self.assertEqual([row[0][1:] for row in rows if row[1] == kind], expected.split())

    def test_properties_are_those_of_the_enclosure_file(self):
        with Service(*FAST) as service:
            bus = Bus(service.start_as_master())
            for path, interface, name, expected in (
                    (ROOT, "org.asd.Storage1", "TimeScale", "10"),
                    (ROOT, "org.asd.Storage1", "Items", str(len(service.enclosure["Items"]))),
                    (item("ASD14"), ITEM, "Num", "14"),
                    (item("ASD14"), ITEM, "AtomStorageDataDev0", f'"{chip("ASDDev14a")}"'),
                    (item("ASD7"), ITEM, "AtomStorageDataDev1", '"/"'),
                    (chip("ASDDev14a"), CHIP, "Offset", str(service.chip("ASDDev14a").offset)),
                    (chip("ASDDev14a"), CHIP, "Part", f'"{service.chip("ASDDev14a").part}"'),
                    (f"{ROOT}/Board", BOARD, "Role", '"master"')):
                with self.subTest(name=name, path=path):
                    self.assertEqual(bus.property(path, interface, name), expected)
            self.assertIn("asd_master_check", bus.property(ROOT, "org.asd.Storage1", "Tasks"))


class Methods(unittest.TestCase):
    def test_each_method_does_its_work(self):
        with Service(*FAST) as service:
            bus = Bus(service.start_as_master())
            data = bytes(range(77, 77 + 16))
            self.assertEqual(bus.call(item("ASD26"), f"{ITEM}.EqWriteAtomStorageData", array(data)), ("(0,)", ""))
            length = int(bus.property(item("ASD26"), ITEM, "Length"))
            stored = data.ljust(length, b"\xff")
            checksum = crc16(stored)
            first = bus.property(item("ASD26"), ITEM, "AtomStorageDataDev0").strip('"').rpartition("/")[2]
            self.assertEqual(service.chip(first).read(length + 2), stored + bytes([checksum & 0xFF, checksum >> 8]))
            self.assertNotEqual(bus.property(chip(first), CHIP, "PageCycles"), "0")
            self.assertEqual(printed(bus.call(item("ASD26"), f"{ITEM}.ReadAsdMemData")[0]), stored)
            self.assertEqual(printed(bus.call(item("ASD7"), f"{ITEM}.ReadAtomStorageData")[0]), b"\xff" * 1024)

            self.assertEqual(bus.call(item("ASD26"), f"{ITEM}.UpdateMemProperty", array(b"memory")), ("(0,)", ""))
            self.assertEqual(printed(bus.call(item("ASD26"), f"{ITEM}.ReadAsdMemData")[0])[:6], b"memory")
            self.assertEqual(service.chip(first).read(16), data)  # no chip was touched

            self.assertEqual(bus.call(chip(first), f"{CHIP}.SetAsdDevErrCode", "5"), ("()", ""))
            self.assertEqual(bus.property(chip(first), CHIP, "ErrorCode"), "5")
            self.assertEqual(bus.call(item("ASD26"), f"{ITEM}.ClearMemData"), ("()", ""))
            self.assertEqual(bus.property(chip(first), CHIP, "ErrorCode"), "0")
            self.assertEqual(set(bus.property(item("ASD26"), ITEM, "Value").split()[1:]), {"0"})

    def test_items_with_a_path_of_their_own(self):
        with Service(*FAST) as service:
            bus = Bus(service.start_as_master())
            self.assertEqual(bus.call(item("ASD_Bucklecard0Eeprom"), f"{ITEM}.WriteAtomStorageData", array(b"\1\2\3\4")),
                             ("(0,)", ""))
            # A power supply's chip is opened by its own path alone: this write ran and failed, which is no refusal.
            self.assertEqual(bus.call(item("ASD1000"), f"{ITEM}.WriteAtomStorageData", array(b"k")), ("(65541,)", ""))
            power = bus.property(item("ASD1000"), ITEM, "AtomStorageDataDev0").strip('"')
            self.assertEqual(bus.property(power, CHIP, "StgWp"), "1")
            self.assertEqual(bus.property(power, CHIP, "ErrorCode"), "65541")

    def test_refusals_have_names(self):
        with Service(*FAST) as service:
            bus = Bus(service.start_as_master())
            write, brand = f"{ITEM}.WriteAtomStorageData", item("ASD14")
            for path, method, arguments, error in (
                    (brand, write, (), ARGUMENTS),
                    (brand, write, ("@ay []",), ARGUMENTS),
                    (brand, write, (array(bytes(8193)),), ARGUMENTS),
                    (chip("ASDDev14a"), f"{CHIP}.SetAsdDevErrCode", (), ARGUMENTS),
                    (item("NONE"), write, (array(b"1"),), "org.asd.Error.NoSuchObject"),
                    (brand, f"{ITEM}.Nothing", (), "org.freedesktop.DBus.Error.UnknownMethod"),
                    (item("ASD25"), f"{ITEM}.ReadAsdMemData", (), "org.asd.Error.NotReady"),
                    (f"{ROOT}/Board", f"{BOARD}.GetCpldBit", ("1", "32"), ARGUMENTS),
                    (f"{ROOT}/Board", f"{BOARD}.GetFlash", ("99",), "org.asd.Error.Failed"),
                    (f"{ROOT}/Board", f"{BOARD}.SetFault", ("BSP_Nothing", "1"), ARGUMENTS)):
                with self.subTest(path=path, method=method, arguments=arguments):
                    self.assertEqual(bus.call(path, method, *arguments), ("", error))
            self.assertIn("does not match expected type", bus.busctl("call", brand, ITEM, "WriteAtomStorageData", "s", "x"))

    def test_many_clients_at_once_and_one_that_is_killed(self):
        with Service(*FAST) as service:
            bus = Bus(service.start_as_master())
            word = ["gdbus", "call", "--address", bus.address, "--dest", bus.name, "--object-path", item("ASD25"),
                    "--method", f"{ITEM}.EqWriteAtomStorageData", array(b"k" * 2052)]
            written = service.chip(bus.property(item("ASD25"), ITEM, "AtomStorageDataDev0").strip('"').rpartition("/")[2])

            def read_other():
                self.assertEqual(bus.call(item("ASD26"), f"{ITEM}.EqWriteAtomStorageData", array(b"x")), ("(0,)", ""))

            with Background(read_other), Background(read_other):
                client = subprocess.Popen(word, stdout=subprocess.DEVNULL)
                wait_for(lambda: written.has_begun_with(b"k"), "the write to begin")
                client.kill()
                client.wait()
                wait_for(lambda: bus.property(item("ASD25"), ITEM, "Ready") == "1", "the write to end all the same")
            self.assertEqual(service.stop(), 0)
            self.assertEqual(written.read(2052), b"k" * 2052)
            self.assertNotIn("CRITICAL", service.log())


class Changes(unittest.TestCase):
    def test_a_write_is_told_and_the_board_can_be_set(self):
        with Service(*FAST) as service:
            bus = Bus(service.start_as_master())
            seen = service.folder / "seen"
            with open(seen, "wb") as file:
                monitor = subprocess.Popen(["gdbus", "monitor", "--address", bus.address, "--dest", bus.name], stdout=file)
            try:
                wait_for(lambda: "is owned by" in seen.read_text(), "the monitor")
                bus.call(item("ASD26"), f"{ITEM}.EqWriteAtomStorageData", array(b"changed"))
                self.assertEqual(bus.busctl("set-property", f"{ROOT}/Board", BOARD, "EquipmentMode", "y", "1"), "")
                bus.call(f"{ROOT}/Board", f"{BOARD}.SetFault", "BSP_GetBoardMasterOrSlaveState", "int32 -5")
                for line in (f"{item('ASD26')}: org.freedesktop.DBus.Properties.PropertiesChanged ('{ITEM}', {{",
                             "'Value': <[byte 0x63, 0x68, 0x61, 0x6e, 0x67, 0x65, 0x64,",
                             f"{ROOT}/Board: org.freedesktop.DBus.Properties.PropertiesChanged ('{BOARD}', "
                             "{'EquipmentMode': <byte 0x01>}, @as [])",
                             "{'Faults': <{'BSP_GetBoardMasterOrSlaveState': -5}>}"):
                    wait_for(lambda: line in seen.read_text(), f"the change {line}")
            finally:
                monitor.kill()
                monitor.wait()
            self.assertEqual(bus.property(f"{ROOT}/Board", BOARD, "EquipmentMode"), "1")
            self.assertEqual(bus.property(f"{ROOT}/Board", BOARD, "Role"), '"error"')
            # The module meets the fault as soon as it asks for the role again, which it does not in equipment mode.
            self.assertEqual(bus.busctl("set-property", f"{ROOT}/Board", BOARD, "EquipmentMode", "y", "0"), "")
            service.wait_for_log("Get Master Slave failed(-5)")
            self.assertIn("not writable", bus.busctl("set-property", f"{ROOT}/Board", BOARD, "Slot", "y", "1"))

    def test_cpld_bits_outlive_the_service(self):
        with Service(*FAST) as service:
            bus = Bus(service.start_as_master())
            for register, bit in ((3, 0), (3, 31), (4, 5)):
                self.assertEqual(bus.call(f"{ROOT}/Board", f"{BOARD}.SetCpldBit", str(register), str(bit), "1"), ("()", ""))
            bus.call(f"{ROOT}/Board", f"{BOARD}.SetCpldBit", "3", "0", "0")
            service.kill()
            service.start_as_master()
            for register, bit, value in ((3, 0, 0), (3, 31, 1), (4, 5, 1)):
                self.assertEqual(bus.call(f"{ROOT}/Board", f"{BOARD}.GetCpldBit", str(register), str(bit)),
                                 (f"(byte 0x{value:02x},)", ""))


class SharedBus(unittest.TestCase):
    def test_a_shared_bus_that_goes_and_comes_back_and_a_name_that_is_taken(self):
        for kind in ("session", "system"):
            with self.subTest(kind), BusDaemon(kind) as daemon, Service(*FAST, "--bus", kind) as service:
                service.start_as_master()
                flag = "--user" if kind == "session" else "--system"

                def write(text):
                    return run("gdbus", "call", f"--{kind}", "--dest", "org.asd.Storage1.Slot0", "--object-path",
                               item("ASD26"), "--method", f"{ITEM}.EqWriteAtomStorageData", array(text)).stdout.strip()

                self.assertEqual(write(b"shared"), "(0,)")
                self.assertFalse((service.run_dir / "slot0" / "bus").exists())
                with tempfile.TemporaryDirectory(prefix="asd-other-", dir="/tmp") as folder:
                    other = run(os.environ["ASD_BINARY"], "--config", service.config, "--run-dir", f"{folder}/run",
                                "--state-dir", f"{folder}/state", "--bus", kind)
                    self.assertEqual(other.returncode, 1)
                    self.assertIn(f"error: the name org.asd.Storage1.Slot0 is taken on the {kind} bus", other.stderr)
                    daemon.stop()
                    service.wait_for_log(f"the {kind} bus has closed the connection")
                    other = run(*other.args)
                    self.assertEqual(other.returncode, 1)
                    self.assertIn(f"error: cannot reach the {kind} bus", other.stderr)
                self.assertEqual(service.ipmitool("mc", "info").returncode, 0)  # the rest goes on
                daemon.start()
                wait_for(lambda: write(b"again") == "(0,)", "the bus to be joined again")
                value = run("busctl", flag, "get-property", "org.asd.Storage1.Slot0", item("ASD26"), ITEM, "Value")
                self.assertIn("97 103 97 105 110 255", value.stdout)
                self.assertEqual(service.stop(), 0)

    def test_no_bus(self):
        with Service(*FAST, "--bus", "none") as service:
            service.start_as_master()
            self.assertFalse((service.run_dir / "slot0" / "bus").exists())
            self.assertEqual(service.stop(), 0)


if __name__ == "__main__":
    unittest.main()
