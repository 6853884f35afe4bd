# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""asdctl against the real asd, the chips' images and the stock client; and against services that misbehave."""

import contextlib
import fcntl
import json
import os
import pathlib
import pty
import signal
import socket
import struct
import subprocess
import tempfile
import termios
import threading
import unittest

from harness import DEADLINE_S, Service, Wire, crc16

ASDCTL = pathlib.Path(os.environ["ASDCTL_BINARY"])
FAST = ("--time-scale", "10")
DONE, FAILED, WRONG_USAGE = 0, 1, 2
KEYS = {"frameboard": ("ASD5", ("ASDDev5a", "ASDDev5b")), "leftear": ("ASD7", ("ASDDev7",)),
        "power0": ("ASD1000", ("ASDDev1000",)), "power1": ("ASD1001", ("ASDDev1001",))}


def run(run_dir, *words, data=b"", **more):
    """asdctl on a pipe: (status, standard output, standard error)."""
    done = subprocess.run([ASDCTL, "--run-dir", run_dir, *words], input=data, capture_output=True, timeout=DEADLINE_S,
                          check=False, **more)
    return done.returncode, done.stdout, done.stderr.decode()


def on_terminal(run_dir, *words, columns=100, environment=None):
    """asdctl with standard output and error on a terminal: (status, what the terminal got)."""
    ours, theirs = pty.openpty()
    fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    process = subprocess.Popen([ASDCTL, "--run-dir", run_dir, *words], stdin=subprocess.DEVNULL, stdout=theirs,
                               stderr=theirs, env={**os.environ, "TERM": "xterm", **(environment or {})})
    os.close(theirs)
    got = b""
    with contextlib.suppress(OSError):  # the terminal's end is an error here
        while piece := os.read(ours, 65536):
            got += piece
    os.close(ours)
    return process.wait(DEADLINE_S), got.decode()


def pattern(size, seed):
    return bytes((seed * 41 + i * 7 + 77) & 0xFF for i in range(size))


def record(data):
    checksum = crc16(data)
    return data + bytes([checksum & 0xFF, checksum >> 8])


class Case(unittest.TestCase):
    """One master with its items loaded, for all tests of a class."""

    arguments = FAST

    @classmethod
    def setUpClass(cls):
        cls.service = cls.enterClassContext(Service(*cls.arguments)).start_as_master()
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(dir="/tmp")))

    def ctl(self, *words, data=b"", status=DONE):
        """Standard output of a command that ends with that status; of a refused one standard error."""
        code, out, errors = run(self.service.run_dir, *words, data=data)
        self.assertEqual(code, status, f"{words}: {out!r} {errors}\n{self.service.log()[-2000:]}")
        if status == DONE:
            return out
        self.assertTrue(errors.startswith("asdctl: "), errors)
        return errors

    def json(self, *words, **more):
        return json.loads(self.ctl("--json", *words, **more))

    def assert_on_chips(self, chips, data):
        for chip in chips:
            self.assertEqual(self.service.chip(chip).read(len(data) + 2), record(data), chip)


class Items(Case):
    def test_set_fills_the_record_on_its_chips_and_get_and_read_return_it(self):
        (self.folder / "value").write_bytes(b"from a file")
        rows = [  # item, its chips, length, how it is given, the bytes
            ("ASD16", ("ASDDev16a", "ASDDev16b"), 64, ("--text", "ACME \u00b5"), "ACME \u00b5".encode()),
            ("ASD14", ("ASDDev14a", "ASDDev14b"), 32, ("--hex", "0x0041 ff:00 9"), b"\x00\x41\xff\x00\x09"),
            ("ASD26", ("ASDDev26a",), 16, ("--file", self.folder / "value"), b"from a file"),
            ("ASD21", ("ASDDev21a", "ASDDev21b"), 8, ("--equip", "--file", "-"), b"12345678"),
            ("ASD11", ("ASDDev11a", "ASDDev11b"), 20, ("--equip", "--truncate", "--text", "x" * 25), b"x" * 20),
            ("ASD_Bucklecard0Eeprom", ("ASD_Bucklecard0Eeproma",), 4, ("--hex", "01 02"), b"\x01\x02"),
        ]
        for item, chips, length, how, data in rows:
            with self.subTest(item=item):
                image = data + b"\xff" * (length - len(data))
                said = self.json("set", item, *how, data=b"12345678")
                self.assertEqual((said["written"], said["filled"]), (len(data), length - len(data)))
                self.assert_on_chips(chips, image)
                if len(chips) == 1 or item == "ASD16":  # no pair, or one with a check flag
                    self.assertEqual(self.ctl("read", item, "--raw"), image)
                if "Bucklecard" in item:
                    continue  # its write does not touch memory
                self.assertEqual(self.ctl("get", item, "--raw"), image)
                self.assertEqual(self.ctl("get", item, "--hex"), image.hex().encode() + b"\n")
                self.ctl("get", item, "-o", self.folder / "saved")
                self.assertEqual((self.folder / "saved").read_bytes(), image)
        self.assertEqual(self.ctl("get", "ASD16", "--text").decode(), "ACME \u00b5\n")
        self.assertEqual(self.ctl("get", "ASD14", "--text"), b"\\x00A\\xff\\x00\\x09\n")
        self.assertEqual(self.ctl("get", "ASD26"), b"0000  66 72 6f 6d 20 61 20 66  69 6c 65 ff ff ff ff ff  from a file.....\n")

    def test_what_is_refused_changes_nothing(self):
        self.ctl("set", "ASD26", "--text", "before")
        rows = [
            (FAILED, ("set", "ASD26", "--text", "x" * 17), "takes 16 bytes"),
            (FAILED, ("set", "asd26", "--text", "x"), "Did you mean ASD26?"),
            (FAILED, ("set", "ASD26", "--file", self.folder / "missing"), "No such file"),
            (FAILED, ("read", "ASD15"), "check flag"),  # a pair without one
            (FAILED, ("get", "../../ASD26"), "there is no item"),
            (FAILED, ("errcode", "ASDDev0", "1"), "there is no chip"),
            (WRONG_USAGE, ("board", "set", "fault", b"\xff", "1"), "letters"),
            (WRONG_USAGE, ("set", "ASD26", "--hex", "4g"), "not hexadecimal"),
            (WRONG_USAGE, ("set", "ASD26", "--hex", "123"), "whole bytes"),
            (WRONG_USAGE, ("set", "ASD26", "--text", ""), "nothing to write"),
            (WRONG_USAGE, ("set", "ASD26"), "required"),
            (WRONG_USAGE, ("set", "ASD26", "--text", "x", "--hex", "00"), "xactly 1"),
            (WRONG_USAGE, ("set", "ASD26", "--text", "x", "--memory", "--equip"), "excludes"),
        ]
        for status, words, text in rows:
            with self.subTest(words=words):
                self.assertIn(text, self.ctl(*words, status=status))
        self.assertEqual(self.ctl("read", "ASD26", "--text"), b"before\n")

    def test_memory_alone_and_clear_leave_the_chips(self):
        self.ctl("set", "ASD27", "--text", "on the chip")
        self.ctl("set", "ASD27", "--memory", "--text", "in memory")
        self.assertEqual(self.ctl("get", "ASD27", "--text"), b"in memory\n")
        self.ctl("clear", "ASD27")
        self.assertEqual(self.json("get", "ASD27")["value"], "00" * 32)
        self.assertEqual(self.ctl("read", "ASD27", "--text"), b"on the chip\n")

    def test_an_item_that_is_not_ready_says_how_to_read_it(self):
        self.assertFalse(self.json("show", "ASD52")["ready"])
        self.assertIn("asdctl read ASD52", self.ctl("get", "ASD52", status=FAILED))


class Looks(Case):
    def test_list_and_show_are_the_enclosure_files(self):
        listed = {item["name"]: item for item in self.json("list")}
        self.assertEqual(len(listed), len(self.service.enclosure["Items"]))
        for item in self.service.enclosure["Items"]:
            chips = [item[key] for key in ("AtomStorageDataDev0", "AtomStorageDataDev1") if key in item]
            found = listed[item["Name"]]
            self.assertEqual((found["number"], found["length"], found["online"]), (item["Num"], item["Length"], True))
            self.assertEqual([chip["name"] for chip in found["chips"]], chips)
        part = self.json("show", "ASD10")["chips"][0]
        self.assertEqual((part["part"], part["offset"], part["retry_number"]), ("backplane_a", 0x440, 5))
        waiting = {item["name"] for item in self.json("list", "--not-ready")}
        self.assertEqual(waiting, {name for name, item in listed.items() if not item["ready"]})
        self.assertIn("ASD52", waiting)

    def test_a_failed_chip_shows_everywhere(self):
        self.assertEqual(self.json("list", "--unhealthy"), [])
        self.ctl("errcode", "ASDDev13b", "-3")
        self.assertEqual([item["name"] for item in self.json("list", "--unhealthy")], ["ASD13"])
        self.assertIn("ASDDev13b", {name for row in self.json("status")["attention"] for name in row["names"]})
        self.assertIn("ASDDev13b: -3", self.ctl("show", "ASD13").decode())
        self.ctl("errcode", "ASDDev13b", "0")
        self.assertEqual(self.json("list", "--unhealthy"), [])

    def test_status_and_board(self):
        status = self.json("status")
        self.assertEqual((status["slot"], status["role"], status["time_scale"]), (0, "master", 10))
        self.assertEqual(status["enclosure"], self.service.enclosure["Name"])
        self.assertEqual(set(status["tasks"]) & {"asd_master_check", "asd_eeprom_sync"}, {"asd_master_check", "asd_eeprom_sync"})
        rows = [("equipment-mode", "1", "equipment_mode", 1), ("cpld-upgrading", "1", "cpld_upgrading", 1),
                ("power-standby", "1", "power_standby", 1)]
        for key, value, shown, number in rows:
            self.ctl("board", "set", key, value)
            self.assertEqual(self.json("board", "show")[shown], number, key)
            self.ctl("board", "set", key, "0")
        self.ctl("board", "set", "cpld-bit", "0x200", "3", "1")
        self.ctl("board", "set", "fault", "BSP_GetEquipMode", "-5")
        self.assertEqual(self.json("board", "show")["faults"], {"BSP_GetEquipMode": -5})
        self.assertIn("BSP_GetEquipMode", self.ctl("status").decode())
        self.ctl("board", "set", "fault", "BSP_GetEquipMode", "0")
        self.assertEqual(self.json("board", "show")["faults"], {})
        self.assertIn("asdctl: ", self.ctl("board", "set", "fault", "no_such_operation", "1", status=FAILED))

    def test_colour_and_width_are_the_terminals(self):
        run_dir = self.service.run_dir
        self.assertNotIn(b"\033", self.ctl("status") + self.ctl("list") + self.ctl("show", "ASD10"))
        for words, environment, coloured in (((), {}, True), (("--no-colour",), {}, False), ((), {"NO_COLOR": "1"}, False),
                                             ((), {"TERM": "dumb"}, False)):
            status, text = on_terminal(run_dir, "list", *words, environment=environment)
            self.assertEqual((status, "\033[" in text), (DONE, coloured), (words, environment))
        for columns in (80, 100, 200):
            for command in (("list",), ("status",), ("show", "ASD10")):
                text = on_terminal(run_dir, *command, "--no-colour", columns=columns)[1]
                self.assertLessEqual(max(map(len, text.splitlines())), columns, (command, columns))
        (self.folder / "key").write_bytes(pattern(1024, 1))
        status, text = on_terminal(run_dir, "ekey", "put", "leftear", self.folder / "key")
        self.assertEqual((status, "10/10" in text), (DONE, True), text)
        self.assertEqual(run(run_dir, "ekey", "put", "leftear", self.folder / "key")[2], "")

    def test_a_reader_that_leaves_is_no_failure_and_a_full_disk_is(self):
        reader, writer = os.pipe()
        os.close(reader)
        for stdout, status in ((writer, DONE), (os.open("/dev/full", os.O_WRONLY), FAILED)):
            done = subprocess.run([ASDCTL, "--run-dir", self.service.run_dir, "list"], stdout=stdout,
                                  stderr=subprocess.DEVNULL, timeout=DEADLINE_S, check=False)
            os.close(stdout)
            self.assertEqual(done.returncode, status)


class Transfers(Case):
    def test_ipmi_answers_as_the_stock_client(self):
        for request in ((0x06, 0x01), (0x32, 0x16, 0, 0, 0x80, 0, 0x1F), (0x32, 0x99), (0x32, 0x94, 0, 0, 0x80, 0, 0x70),
                        (0x32, 0x12, 0, 0, 0x80, 0, 0x1C, 5, 0, 6, 0)):
            code, data = self.service.raw(*request)
            status, out, _ = run(self.service.run_dir, "--json", "ipmi", *(f"{byte:02x}" for byte in request))
            said = json.loads(out)
            self.assertEqual((status, said["completion_code"], said["data"]), (FAILED if code else DONE, code, data.hex()))
        for words in (("33", "0"), ("40", "0"), ("32", "0", *["00"] * 256), ("32", "100"), ("32",), ("zz", "0")):
            self.ctl("ipmi", *words, status=WRONG_USAGE)

    def test_keys_reach_their_chips_and_come_back(self):
        for seed, (place, (item, chips)) in enumerate(KEYS.items()):
            with self.subTest(place=place):
                key = pattern(1024, seed)
                self.assertIn("read back", self.ctl("ekey", "put", place, "-", data=key).decode())
                self.assert_on_chips(chips, key)
                self.assertEqual(self.ctl("ekey", "get", place, "-"), key)
                self.assertEqual(self.ctl("ekey", "get", "--chip", place, "-"), key)
                said = self.json("ekey", "get", place, self.folder / "key")
                self.assertEqual((said["item"], said["length"]), (item, 1024))
                self.assertEqual((self.folder / "key").read_bytes(), key)
                self.assertEqual((self.folder / "key").stat().st_mode & 0o77, 0)
        for size in (0, 1023, 1025):
            self.ctl("ekey", "put", "power0", "-", data=bytes(size), status=FAILED)
        self.ctl("ekey", "put", "nowhere", "-", status=WRONG_USAGE)

    def test_bay_configurations_of_every_frame_count_come_back(self):
        self.ctl("baycfg", "erase")
        self.assertEqual(self.ctl("baycfg", "length"), b"erased\n")
        self.assertIn("there is no bay configuration", self.ctl("baycfg", "get", status=FAILED))
        chip = self.service.chip("ASDDev25a")
        for size in (0, 1, 215, 216, 217, 1024, 1976, 1977, 2048):
            with self.subTest(size=size):
                file = pattern(size, size)
                self.assertEqual(self.json("baycfg", "put", "-", data=file)["frames"], max(1, -(-(size + 4) // 220)))
                self.assertEqual(self.ctl("baycfg", "get"), file)
                self.assertEqual(self.json("baycfg", "length")["length"], size)
                self.assertEqual(chip.read(4 + size), size.to_bytes(4, "little") + file)
        self.ctl("baycfg", "put", "-", data=bytes(2049), status=FAILED)
        self.assertEqual(self.ctl("baycfg", "get"), pattern(2048, 2048))
        self.ctl("baycfg", "erase")
        self.assertEqual(chip.read(2054), record(b"\xff" * 2052))


class Slave(unittest.TestCase):
    def test_the_bay_configuration_is_the_masters_and_the_only_slot_is_found(self):
        with Service(*FAST, "--role", "slave", slot=2) as service:
            service.start()
            service.wait_for_log("asd enter slave mode!")
            for words in (("get",), ("length",), ("erase",), ("put", "-")):
                status, _, errors = run(service.run_dir, "baycfg", *words, data=b"x")
                self.assertEqual(status, FAILED)
                self.assertIn("0xC7", errors)
                self.assertIn("not the master", errors)
            status, out, _ = run(service.run_dir, "status", "--json")
            self.assertEqual((status, json.loads(out)["role"], json.loads(out)["slot"]), (DONE, "slave", 2))


class Misbehaviour(unittest.TestCase):
    """No service, one that hangs, and ones that answer wrongly."""

    @contextlib.contextmanager
    def ipmi_server(self, answer):
        """A socket that answers each request (command, data) with answer(command, data), bytes of the wire."""
        with tempfile.TemporaryDirectory(dir="/tmp") as folder, socket.socket(socket.AF_UNIX) as door:
            (pathlib.Path(folder) / "slot0").mkdir()
            door.bind(f"{folder}/slot0/ipmi.sock")
            door.listen()

            def serve():
                connection = door.accept()[0]
                with connection, contextlib.suppress(OSError):
                    while head := connection.recv(struct.calcsize(Wire.REQUEST), socket.MSG_WAITALL):
                        netfn, _, command, _, length = struct.unpack(Wire.REQUEST, head)
                        if netfn == 0x3F:
                            return
                        connection.sendall(answer(command, connection.recv(length, socket.MSG_WAITALL) if length else b""))

            server = threading.Thread(target=serve)
            server.start()
            yield folder
            server.join(DEADLINE_S)

    @staticmethod
    def response(command, code, data=b"", netfn=0x33, length=None):
        head = struct.pack(Wire.RESPONSE, netfn, command, 0, 0, code, len(data) if length is None else length)
        return head + data

    def test_a_key_that_comes_back_different_is_a_failure(self):
        def answer(command, _data):
            return self.response(command, 0, bytes(228) if command == 0x12 else b"")

        for key, expected in ((bytes(1024), DONE), (bytes(700) + b"\x01" + bytes(323), FAILED)):
            with self.ipmi_server(answer) as folder:
                status, _, errors = run(folder, "ekey", "put", "power1", "-", data=key)
                self.assertEqual(status, expected, errors)
        self.assertIn("from byte 700 on", errors)

    def test_wrong_answers_are_told_from_refusals(self):
        rows = [
            ("refusal", lambda c, _: self.response(c, 0x80), "0x80"),
            ("short frame", lambda c, _: self.response(c, 0, bytes(100)), "100 bytes instead of 228"),
            ("other command", lambda c, _: self.response(c + 1, 0, bytes(228)), "does not speak"),
            ("negative length", lambda c, _: self.response(c, 0, length=-1), "does not speak"),
            ("huge length", lambda c, _: self.response(c, 0, length=1 << 30), "does not speak"),
        ]
        for name, answer, text in rows:
            with self.subTest(name), self.ipmi_server(answer) as folder:
                status, out, errors = run(folder, "ekey", "get", "power0", "-")
                self.assertEqual((status, out), (FAILED, b""), errors)
                self.assertIn(text, errors)

    def test_no_service_says_which_socket_and_how_to_start_it(self):
        with tempfile.TemporaryDirectory(dir="/tmp") as folder:
            for words, name in ((("status",), "bus"), (("ipmi", "6", "1"), "ipmi.sock")):
                status, out, errors = run(folder, *words)
                self.assertEqual((status, out), (FAILED, b""))
                self.assertIn(f"{folder}/slot0/{name}", errors)
                self.assertIn("Start it with: asd ", errors)

    def test_a_service_that_hangs_is_not_waited_for_forever(self):
        with Service(*FAST) as service:
            service.start_as_master()
            service.process.send_signal(signal.SIGSTOP)
            for words in (("status",), ("ipmi", "6", "1")):
                status, _, errors = run(service.run_dir, *words)
                self.assertEqual(status, FAILED)
                self.assertIn("not answer", errors)
            service.process.send_signal(signal.SIGCONT)


if __name__ == "__main__":
    unittest.main()
