# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The D-Bus service of the real asd, with the stock clients gdbus and busctl."""

import os
import pathlib
import re
import subprocess
import unittest

from harness import (BOARD, BOARD_PATH, CHIP, FAST, ITEM, BusDaemon, Case, Service, chip_path, item_path, on_chip, run,
                     wait_for)

ROOT = "/org/asd/Storage1"
ARGUMENTS = "org.asd.Error.InvalidArguments"


def array(data):
    return "[" + ", ".join(f"byte {byte:#04x}" for byte in data) + "]"


def printed(answer):
    """The bytes of an array that gdbus printed."""
    text, error = answer
    assert not error, error
    return bytes(int(byte, 16) for byte in re.findall(r"0x([0-9a-f]{2})", text))


class Objects(Case):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.address = f"unix:path={cls.service.run_dir}/slot0/bus"

    def busctl(self, verb, *words):
        """What busctl printed, also when it failed."""
        done = run("busctl", f"--address={self.address}", verb, "org.asd.Storage1", *words)
        return (done.stdout or done.stderr).strip()

    def assert_property(self, path, interface, name, expected):
        """As busctl shows it, without the type."""
        self.assertEqual(self.busctl("get-property", path, interface, name).partition(" ")[2], expected, (path, name))

    def test_every_object_of_the_enclosure_is_there(self):
        enclosure = self.service.enclosure
        names = {item_path(row["Name"]) for row in enclosure["Items"]} | {chip_path(row["Name"]) for row in enclosure["Chips"]}
        names |= {BOARD_PATH}
        self.assertLessEqual(names | {ROOT}, set(self.busctl("tree", "--list").split()))
        managed = self.service.gdbus(ROOT, "org.freedesktop.DBus.ObjectManager.GetManagedObjects")[0]
        self.assertEqual(set(re.findall(r"(?:objectpath )?'(/org/[\w/]+)': \{'org", managed)), names)
        self.assertRegex(self.busctl("introspect", item_path("ASD14"), ITEM), r"\.EqWriteAtomStorageData +method +ay +i ")
        self.assert_property(item_path("ASD7"), ITEM, "AtomStorageDataDev0", f'"{chip_path("ASDDev7")}"')
        self.assert_property(item_path("ASD7"), ITEM, "AtomStorageDataDev1", '"/"')

    def test_each_method_does_its_work(self):
        call, path, first = self.service.gdbus, item_path("ASD26"), chip_path("ASDDev26a")
        stored = b"sixteen".ljust(16, b"\xff")
        self.assertEqual(call(path, f"{ITEM}.EqWriteAtomStorageData", array(b"sixteen")), ("(0,)", ""))
        self.assertEqual(self.service.chip("ASDDev26a").read(18), on_chip(stored))
        self.assertNotEqual(self.busctl("get-property", first, CHIP, "PageCycles"), "t 0")
        self.assertEqual(printed(call(path, f"{ITEM}.ReadAsdMemData")), stored)
        self.assertEqual(printed(call(item_path("ASD7"), f"{ITEM}.ReadAtomStorageData")), b"\xff" * 1024)
        self.assertEqual(call(path, f"{ITEM}.UpdateMemProperty", array(b"memory")), ("(0,)", ""))
        self.assertEqual(printed(call(path, f"{ITEM}.ReadAsdMemData"))[:6], b"memory")
        self.assertEqual(self.service.chip("ASDDev26a").read(16), stored)
        self.assertEqual(call(first, f"{CHIP}.SetAsdDevErrCode", "5"), ("()", ""))
        self.assert_property(first, CHIP, "ErrorCode", "5")
        self.assertEqual(call(path, f"{ITEM}.ClearMemData"), ("()", ""))
        self.assert_property(first, CHIP, "ErrorCode", "0")
        self.assert_property(path, ITEM, "Value", "16" + 16 * " 0")
        # A power supply's chip is opened by its own path alone: this write ran and failed, which is no refusal.
        self.assertEqual(call(item_path("ASD1000"), f"{ITEM}.WriteAtomStorageData", array(b"k")), ("(65541,)", ""))
        self.assert_property(chip_path("ASDDev1000"), CHIP, "ErrorCode", "65541")

    def test_refusals_have_names(self):
        write, brand = f"{ITEM}.WriteAtomStorageData", item_path("ASD14")
        for path, method, arguments, error in (
                (brand, write, (), ARGUMENTS),
                (brand, write, (array(bytes(8193)),), ARGUMENTS),
                (item_path("NONE"), write, (array(b"1"),), "org.asd.Error.NoSuchObject"),
                (brand, f"{ITEM}.Nothing", (), "org.freedesktop.DBus.Error.UnknownMethod"),
                (item_path("ASD52"), f"{ITEM}.ReadAsdMemData", (), "org.asd.Error.NotReady"),
                (BOARD_PATH, f"{BOARD}.GetCpldBit", ("1", "32"), ARGUMENTS),
                (BOARD_PATH, f"{BOARD}.GetFlash", ("99",), "org.asd.Error.Failed"),
                (BOARD_PATH, f"{BOARD}.SetFault", ("BSP_Nothing", "1"), ARGUMENTS)):
            with self.subTest(path=path, method=method):
                self.assertEqual(self.service.gdbus(path, method, *arguments), ("", error))
        self.assertIn("does not match expected type", self.busctl("call", brand, ITEM, "WriteAtomStorageData", "s", "x"))
        self.assertIn("not writable", self.busctl("set-property", BOARD_PATH, BOARD, "Slot", "y", "1"))

    def test_a_client_that_is_killed_leaves_a_whole_write(self):
        written, data = self.service.chip("ASDDev25a"), b"k" * 2052  # 33 pages
        client = subprocess.Popen(["gdbus", "call", "--address", self.address, "--dest", "org.asd.Storage1", "--object-path",
                                   item_path("ASD25"), "--method", f"{ITEM}.EqWriteAtomStorageData", array(data)])
        wait_for(lambda: written.has_begun_with(b"k"), "the write to begin")
        client.kill()
        client.wait()
        wait_for(lambda: written.read(2054) == on_chip(data), "the write to end all the same")

    def test_changes_are_told_and_the_board_can_be_set(self):
        seen = self.service.folder / "seen"
        with open(seen, "wb") as file:
            monitor = subprocess.Popen(["gdbus", "monitor", "--address", self.address, "--dest", "org.asd.Storage1"], stdout=file)
        try:
            wait_for(lambda: "is owned by" in seen.read_text(), "the monitor")
            self.service.gdbus(item_path("ASD26"), f"{ITEM}.EqWriteAtomStorageData", array(b"changed"))
            self.assertEqual(self.busctl("set-property", BOARD_PATH, BOARD, "EquipmentMode", "y", "1"), "")
            self.service.gdbus(BOARD_PATH, f"{BOARD}.SetFault", "BSP_GetBoardMasterOrSlaveState", "int32 -5")
            for line in (f"{item_path('ASD26')}: org.freedesktop.DBus.Properties.PropertiesChanged ('{ITEM}', {{",
                         "'Value': <[byte 0x63, 0x68, 0x61, 0x6e, 0x67, 0x65, 0x64,",
                         f"{BOARD_PATH}: org.freedesktop.DBus.Properties.PropertiesChanged ('{BOARD}', "
                         "{'EquipmentMode': <byte 0x01>}, @as [])",
                         "{'Faults': <{'BSP_GetBoardMasterOrSlaveState': -5}>}"):
                wait_for(lambda: line in seen.read_text(), f"the change {line}")
        finally:
            monitor.kill()
            monitor.wait()
        self.assert_property(BOARD_PATH, BOARD, "Role", '"error"')
        # The module meets the fault as soon as it asks for the role again, which it does not in equipment mode.
        self.busctl("set-property", BOARD_PATH, BOARD, "EquipmentMode", "y", "0")
        self.service.wait_for_log("Get Master Slave failed(-5)")
        self.service.gdbus(BOARD_PATH, f"{BOARD}.SetFault", "BSP_GetBoardMasterOrSlaveState", "0")
        self.assert_property(BOARD_PATH, BOARD, "Role", '"master"')


class SharedBus(unittest.TestCase):
    def test_a_shared_bus_that_goes_and_comes_back_and_a_name_that_is_taken(self):
        with BusDaemon("system") as daemon, Service(*FAST, "--bus", "system") as service, \
                Service("--bus", "system") as second, Service("--bus", "session") as without_bus, BusDaemon("session", False):
            service.start_as("master")

            def write(text):
                return run("gdbus", "call", "--system", "--dest", "org.asd.Storage1.Slot0", "--object-path", item_path("ASD26"),
                           "--method", f"{ITEM}.EqWriteAtomStorageData", array(text)).stdout.strip()

            self.assertEqual(write(b"shared"), "(0,)")
            self.assertFalse((service.run_dir / "slot0" / "bus").exists())
            for other, mistake in ((second, "the name org.asd.Storage1.Slot0 is taken on the system bus"),
                                   (without_bus, "cannot reach the session bus")):
                done = run(*other.command())
                self.assertEqual(done.returncode, 1)
                self.assertIn(f"error: {mistake}", done.stderr)
            daemon.stop()
            service.wait_for_log("the system bus has closed the connection")
            self.assertEqual(service.raw(6, 1)[0], 0)  # the rest goes on
            daemon.start()
            wait_for(lambda: write(b"again") == "(0,)", "the bus to be joined again")
            value = run("busctl", "--system", "get-property", "org.asd.Storage1.Slot0", item_path("ASD26"), ITEM, "Value")
            self.assertIn("97 103 97 105 110 255", value.stdout)
            service.end()

    @unittest.skipUnless(os.geteuid() == 0, "becoming another user needs root")
    def test_strangers_hear_nothing_and_members_no_key(self):
        group, key = "games", b"a secret".ljust(1024, b"k")
        packaged = (pathlib.Path(__file__).parents[2] / "packaging/org.asd.Storage1.conf").read_text(encoding="utf-8")
        packaged = packaged.replace('user="asd"', 'user="0"').replace('group="asd"', f'group="{group}"')
        debian = pathlib.Path("/usr/share/dbus-1/system.conf").read_text(encoding="utf-8")
        policies = "".join("".join(re.findall("<policy.*?</policy>", text, re.DOTALL)) for text in (debian, packaged))
        with BusDaemon("system", policies=policies) as daemon, Service(*FAST, "--bus", "system") as service:

            def listen(name, user):
                with open(service.folder / name, "wb") as file:
                    listener = subprocess.Popen(["setpriv", f"--reuid={user}", "--init-groups", "gdbus", "monitor",
                                                 "--address", daemon.address, "--dest", "org.asd.Storage1.Slot0"], stdout=file)
                self.addCleanup(listener.wait)
                self.addCleanup(listener.kill)
                wait_for(lambda: "does not have an owner" in (service.folder / name).read_text(), f"the {name}")
                return lambda: (service.folder / name).read_text()

            def call(path, method, *words):
                return run("gdbus", "call", "--system", "--dest", "org.asd.Storage1.Slot0", "--object-path", path, "--method",
                           method, *words).stdout.strip()

            stranger, member = listen("stranger", "nobody"), listen("member", "games")  # a user of that group's
            service.start_as("master")  # with it all items are loaded
            for item in ("ASD5", "ASD26"):
                self.assertEqual(call(item_path(item), f"{ITEM}.EqWriteAtomStorageData", array(key)), "(0,)")
            heard, secret = "PropertiesChanged", ", ".join(f"{byte:#04x}" for byte in key[:8])
            unsaid = rf"{item_path('ASD5')}: .*{heard} \('{ITEM}', .*, \['Value'\]\)"
            wait_for(lambda: re.search(unsaid, member()) and secret in member(), "the member to hear of both")
            self.assertEqual(len(re.findall(f".*{secret}", member())), 1)  # ASD26's, which is no key
            properties = "org.freedesktop.DBus.Properties"
            shown = call(ROOT, "org.freedesktop.DBus.ObjectManager.GetManagedObjects")
            self.assertIn(item_path("ASD5"), shown)
            self.assertEqual(shown.count(secret), 1)
            self.assertNotIn("'Value'", call(item_path("ASD5"), f"{properties}.GetAll", ITEM))
            self.assertIn(secret, call(item_path("ASD5"), f"{properties}.Get", ITEM, "Value"))
            service.end()
            wait_for(lambda: stranger().count("does not have an owner") == 2, "the stranger to see the end")
            self.assertNotIn(heard, stranger())


if __name__ == "__main__":
    unittest.main()
