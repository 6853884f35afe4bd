# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""asdctl against the real asd, the chips' images and the stock client; and against services that misbehave."""

import contextlib
import fcntl
import json
import os
import pathlib
import pty
import re
import signal
import socket
import struct
import subprocess
import tempfile
import termios
import threading
import time
import unittest

from harness import DEADLINE_S, Background, Service, Wire, crc16

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


class Watching(Case):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.service.wait_for_log("Init cccb value is not ready!")  # the last step of becoming master: no more changes

    def watching(self, *words):
        """A watch on a pipe that has begun."""
        process = self.enterContext(subprocess.Popen([ASDCTL, "--run-dir", self.service.run_dir, "watch", *words],
                                                     stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True))
        self.addCleanup(process.kill)
        self.assertIn("master", process.stdout.readline())  # the role comes first
        return process

    def test_changes_come_as_lines(self):
        changed = [json.loads(line) for line in self.watched_while_changing("--json", "--count", "3")]
        self.assertTrue(all(re.fullmatch(r"\d{4}-\d\d-\d\dT[\d:.]{12}Z", change.pop("time")) for change in changed))
        self.assertEqual([tuple(change.values()) for change in changed],
                         [("ASD26", "Value", b"seen".ljust(16, b"\xff").hex()), ("ASDDev26a", "ErrorCode", 7),
                          ("Board", "EquipmentMode", 1)])
        self.assertEqual([line.split(" ", 1)[1] for line in self.watched_while_changing("--count", "3")],
                         [" ASD26  Value  16 bytes: seen\n", " ASDDev26a  ErrorCode  7\n", " Board  EquipmentMode  1\n"])

    def watched_while_changing(self, *words):
        """What a watch prints that ends by itself, line by line."""
        for text, code, mode in (("before", "0", "0"), ("seen", "7", "1")):
            self.ctl("set", "ASD26", "--memory", "--text", text)
            self.ctl("errcode", "ASDDev26a", code)
            self.ctl("board", "set", "equipment-mode", mode)
            if code == "0":
                watch = self.watching(*words, "--for", str(DEADLINE_S))
        lines = watch.stdout.readlines()
        self.assertEqual(watch.wait(DEADLINE_S), DONE, lines)
        return lines

    def test_it_ends_when_it_should(self):
        for words, how, status in ((("--for", "0.2"), None, DONE), (("--for", "0.2", "--count", "1"), None, FAILED),
                                   ((), signal.SIGINT, DONE), ((), signal.SIGTERM, DONE)):
            with self.subTest(words=words, how=how):
                watch = self.watching(*words)
                if how:
                    watch.send_signal(how)
                self.assertEqual(watch.wait(DEADLINE_S), status)
        watch = self.watching()
        watch.stdout.close()  # the reader leaves; the next change finds out
        self.ctl("board", "set", "cpld-upgrading", "1")
        self.assertEqual(watch.wait(DEADLINE_S), DONE)
        with Service(*FAST) as other:
            other.start_as_master()
            watch = subprocess.Popen([ASDCTL, "--run-dir", other.run_dir, "watch"], stdin=subprocess.DEVNULL,
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            watch.stdout.readline()
            other.kill()
            self.assertIn(b"asdctl: ", watch.communicate(timeout=DEADLINE_S)[1])
            self.assertEqual(watch.returncode, FAILED)

    def test_a_terminal_shows_the_status_with_the_changes_below(self):
        with Background(lambda: self.ctl("set", "ASD27", "--memory", "--text", str(time.monotonic()))):
            status, text = on_terminal(self.service.run_dir, "watch", "--for", "2")
        self.assertEqual(status, DONE)
        last = text.split("\033[H")[-1]
        self.assertLess(last.index("4U enclosure"), last.index("ASD27  Value"))
        self.assertLessEqual(last.count("\n"), 24)
        self.assertTrue(text.startswith("\033[?1049h") and text.endswith("\033[?1049l"), text)


class Chips(unittest.TestCase):
    """Parts without a service: an enclosure of three items on three parts."""

    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(dir="/tmp")))
        parts = [{"Name": name, "File": f"{name}.bin", "Size": "0x100", "PageSize": 32, "Shared": name != "own"}
                 for name in ("one", "two", "own")]
        chips = [("ASDDev52a", "one", "0x10"), ("ASDDev52b", "two", 0), ("ASDDev16", "one", 0x80), ("ASDDev26a", "own", 4)]
        items = [("ASD52", 16, "ASDDev52a", "ASDDev52b"), ("ASD16", 4, "ASDDev16"), ("ASD26", 300 - 200, "ASDDev26a")]
        self.enclosure = {"Name": "small", "Parts": parts,
                          "Chips": [dict(zip(("Name", "Part", "Offset"), chip, strict=True)) for chip in chips],
                          "Items": [{"Name": item, "Num": i, "Length": length, **{f"AtomStorageDataDev{k}": chip
                                     for k, chip in enumerate(names)}} for i, (item, length, *names) in enumerate(items)]}
        self.write_enclosure()
        self.images = {}
        good = {"one": {0x10: record(b"a" * 16), 0x80: record(b"four")}, "two": {0: record(b"a" * 16)}, "own": {}}
        for name, records in good.items():
            self.images[name] = self.folder / ("slot1" if name == "own" else "") / f"{name}.bin"
            self.images[name].parent.mkdir(exist_ok=True)
            self.images[name].write_bytes(b"\xff" * 256)
            for offset, data in records.items():
                self.put(name, offset, data)

    def write_enclosure(self):
        (self.folder / "enclosure.json").write_text(json.dumps(self.enclosure), encoding="utf-8")

    def put(self, name, offset, data):
        with self.images[name].open("r+b") as image:
            image.seek(offset)
            image.write(data)

    def chip(self, *words, status=DONE):
        code, out, errors = run(self.folder, "chip", *words)
        self.assertEqual(code, status, f"{words}: {out} {errors}")
        return out.decode() if status == DONE or out else errors

    def inspect(self, *words, status=DONE):
        found = json.loads(self.chip("inspect", "--json", "--config", self.folder / "enclosure.json", *words, status=status))
        return found, {entry["chip"]: entry for entry in found["records"]}

    def test_records_are_judged(self):
        whole = ("--state-dir", self.folder)
        found, records = self.inspect(*whole)
        self.assertEqual((found["good"], found["blank"], found["bad"], found["differing"]), (3, 1, 0, []))
        self.assertEqual(records["ASDDev16"], {"item": "ASD16", "chip": "ASDDev16", "part": "one", "slot": None, "offset": 128,
                                               "length": 4, "stored": crc16(b"four"), "computed": crc16(b"four"),
                                               "state": "good", "strict": False, "differs_from": None})
        self.assertEqual((records["ASDDev26a"]["slot"], records["ASDDev26a"]["state"]), (1, "blank"))
        rows = [  # where a byte changes, the state of what record, the numbers of bad and unnoticed ones, pairs that differ
            ("one", 0x10, b"b", "ASDDev52a", (1, 0), ["ASD52"]),  # data of a strict chip
            ("two", 16, b"\0", "ASDDev52b", (1, 0), []),  # its checksum alone
            ("one", 0x83, b"R", "ASDDev16", (1, 1), []),  # not strict
            ("own", 4 + 101, b"\0", "ASDDev26a", (1, 0), []),  # nearly blank
        ]
        for name, offset, data, chip, counts, differing in rows:
            with self.subTest(chip=chip):
                before = self.images[name].read_bytes()
                self.put(name, offset, data)
                found, records = self.inspect(*whole, status=FAILED)
                self.assertEqual([c for c, entry in records.items() if entry["state"] == "bad"], [chip])
                self.assertEqual(((found["bad"], found["bad_unnoticed"]), found["differing"]), (counts, differing))
                said = self.chip("inspect", "--config", self.folder / "enclosure.json", *whole, status=FAILED)
                self.assertEqual("not strict" in said, counts[1] > 0)
                self.images[name].write_bytes(before)
        self.put("two", 0, record(b"b" * 16))  # two good copies that differ
        found, records = self.inspect(self.images["one"], self.images["two"], status=FAILED)
        self.assertEqual((found["bad"], found["differing"], records["ASDDev52b"]["differs_from"]), (0, ["ASD52"], "ASDDev52a"))
        self.inspect(self.images["two"])  # alone it is sound
        self.assertEqual(list(self.inspect(*whole, "--item", "ASD16")[1]), ["ASDDev16"])
        self.assertEqual(list(self.inspect(*whole, "--part", "one")[1]), ["ASDDev52a", "ASDDev16"])
        sysfs = self.images["own"].rename(self.folder / "eeprom")
        self.assertEqual(list(self.inspect(sysfs, "--part", "own")[1]), ["ASDDev26a"])

    def test_strict_chips_are_those_of_the_record_format(self):
        text = (pathlib.Path(__file__).parents[2] / "docs/record-format.md").read_text(encoding="utf-8")
        lists = [re.findall(r"`(\w+)`", text.split(f"**{kind}** (")[1].split("\n\n")[0]) for kind in ("Strict", "Blank-tolerant")]
        self.assertEqual(list(map(len, lists)), [18, 12])
        names = lists[0] + lists[1]
        self.enclosure["Chips"] = [{"Name": name, "Part": "one", "Offset": 5 * i} for i, name in enumerate(names)]
        self.enclosure["Items"] = [{"Name": f"I{i}", "Num": i, "Length": 3, "AtomStorageDataDev0": name}
                                   for i, name in enumerate(names)]
        self.write_enclosure()
        records = self.inspect(self.images["one"], status=FAILED)[1]
        self.assertEqual([name for name in names if records[name]["strict"]], lists[0])

    def test_a_dump_names_what_it_shows(self):
        config = ("--config", self.folder / "enclosure.json")
        text = self.chip("dump", self.images["one"], *config, "--offset", "0x7e", "--length", "8")
        self.assertEqual(text, "-- free\n007e  ff ff" + " " * 45 + "..\n-- ASD16 (ASDDev16), 4 bytes and the checksum: good\n"
                         "0080  66 6f 75 72 " + record(b"four")[4:].hex(" ") + " " * 33 + "four" +
                         "".join(chr(byte) if 32 <= byte < 127 else "." for byte in record(b"four")[4:]) + "\n")
        said = json.loads(self.chip("dump", "--json", self.images["one"], "--offset", "0x80", "--length", "6"))
        self.assertEqual((said["bytes"], said["records"]), (record(b"four").hex(), []))
        self.assertEqual(self.chip("dump", self.images["two"]).splitlines()[-2:], ["*", "00f0  " + "ff ff ff ff ff ff ff ff  " * 2 + "." * 16])

    def test_what_cannot_be_looked_at_is_said(self):
        config = ("--config", self.folder / "enclosure.json")
        self.images["two"].write_bytes(bytes(255))
        rows = [
            (FAILED, ("inspect", self.images["two"], *config), "255 bytes"),
            (FAILED, ("inspect", self.folder / "none.bin", *config, "--part", "one"), "No such file"),
            (FAILED, ("inspect", self.images["one"], *config, "--item", "ASD99"), "no record"),
            (FAILED, ("inspect", self.images["one"], "--config", self.images["one"]), "no JSON object"),
            (FAILED, ("dump", self.images["one"], "--offset", "256"), "none at 0x0100"),
            (WRONG_USAGE, ("inspect", self.folder / "other", *config), "which part"),
            (WRONG_USAGE, ("inspect", self.images["one"], *config, "--part", "three"), "one, two, own"),
            (WRONG_USAGE, ("inspect", *config), "--state-dir"),
            (WRONG_USAGE, ("dump", self.images["one"], "--part", "one"), "--config"),
        ]
        for mistake, place in (({"Length": 250}, "/Items/1/AtomStorageDataDev0"), ({"Length": "x"}, "/Items/1/Length"),
                               ({"AtomStorageDataDev0": "no"}, "/Items/1/AtomStorageDataDev0")):
            wrong = self.folder / f"wrong{len(rows)}.json"
            items = self.enclosure["Items"]
            wrong.write_text(json.dumps({**self.enclosure, "Items": [items[0], {**items[1], **mistake}]}), encoding="utf-8")
            rows.append((FAILED, ("inspect", self.images["one"], "--config", wrong), place))
        for status, words, text in rows:
            with self.subTest(words=words):
                self.assertIn(text, self.chip(*words, status=status))

    def test_every_help_has_an_example(self):
        def commands_below(*words):
            status, out, _ = run(self.folder, *words, "--help")
            self.assertEqual(status, DONE)
            self.assertRegex(out.decode(), r"Examples?:\n  asdctl " + " ".join(words), words)
            below = out.decode().partition("Subcommands:\n")[2].partition("\n\n")[0]
            names = re.findall(r"^  (\S+)", below, re.MULTILINE)
            return 1 + sum(commands_below(*words, name) for name in names)

        self.assertGreater(commands_below(), 25)


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
