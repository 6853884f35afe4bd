# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The D-Bus service of the real asd, with the stock clients gdbus and busctl."""

import os
import pathlib
import re
import subprocess
import unittest

from harness import FAST, ITEM, BusDaemon, Case, Service, item_path, on_chip, run, wait_for

ROOT = "/org/asd/Storage1"


def array(data):
    return "[" + ", ".join(f"byte {byte:#04x}" for byte in data) + "]"


class Objects(Case):
    def test_a_client_that_is_killed_leaves_a_whole_write(self):
        written, data = self.service.chip("ASDDev25a"), b"k" * 2052  # 33 pages
        client = subprocess.Popen(["gdbus", "call", "--address", f"unix:path={self.service.run_dir}/slot0/bus", "--dest", "org.asd.Storage1", "--object-path",
                                   item_path("ASD25"), "--method", f"{ITEM}.EqWriteAtomStorageData", array(data)])
        wait_for(lambda: written.has_begun_with(b"k"), "the write to begin")
        client.kill()
        client.wait()
        wait_for(lambda: written.read(2054) == on_chip(data), "the write to end all the same")


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
            self.assertEqual(service.ctl("get", "ASD26")["text"], "shared")  # found without --bus
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
