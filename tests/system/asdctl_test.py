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
import unittest
from concurrent import futures

import harness
from harness import (ASDCTL, BOARD, BOARD_PATH, CHIP, DEADLINE_S, FAST, ITEM, Background, Service, Wire, asdctl, chip_path,
                     item_path, on_chip, pattern, wait_for)

DONE, FAILED, WRONG_USAGE = 0, 1, 2
KEYS = {"frameboard": ("ASD5", ("ASDDev5a", "ASDDev5b")), "leftear": ("ASD7", ("ASDDev7",)),
        "power0": ("ASD1000", ("ASDDev1000",)), "power1": ("ASD1001", ("ASDDev1001",))}


def on_terminal(run_dir, *words, columns=80, **environment):
    """asdctl with standard output and error on a terminal: (status, what the terminal got)."""
    ours, theirs = pty.openpty()
    fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    process = subprocess.Popen([ASDCTL, "--run-dir", run_dir, *words], stdin=subprocess.DEVNULL, stdout=theirs,
                               stderr=theirs, env={**os.environ, "TERM": "xterm", **environment})
    os.close(theirs)
    got = b""
    with contextlib.suppress(OSError):  # the terminal's end is an error here
        while piece := os.read(ours, 65536):
            got += piece
    os.close(ours)
    return process.wait(DEADLINE_S), got.decode()


def watching(run_dir, *words):
    """A watch on a pipe that has begun."""
    process = subprocess.Popen([ASDCTL, "--run-dir", run_dir, "watch", *words], stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    assert "master" in process.stdout.readline()  # the role comes first
    return process


class Case(harness.Case):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.run_dir = cls.service.run_dir
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(dir="/tmp")))

    def ctl(self, *words, data=b"", status=DONE):
        """Standard output of a command that ends with that status; of a refused one standard error."""
        code, out, errors = asdctl(self.run_dir, *words, data=data)
        self.assertEqual(code, status, f"{words}: {out!r} {errors}\n{self.service.log()[-2000:]}")
        if status == DONE:
            return out
        self.assertTrue(errors.startswith("asdctl: "), errors)
        return errors

    def json(self, *words, data=b""):
        return json.loads(self.ctl("--json", *words, data=data))

    def assert_on_chips(self, chips, data):
        for chip in chips:
            self.assertEqual(self.service.chip(chip).read(len(data) + 2), on_chip(data), chip)


class Items(Case):
    def test_set_fills_the_record_on_its_chips_and_get_and_read_return_it(self):
        (self.folder / "value").write_bytes(b"from a file")
        rows = [  # item, its chips, length, how it is given, the bytes
            ("ASD16", ("ASDDev16a", "ASDDev16b"), 64, ("--text", "ACME \u00b5"), "ACME \u00b5".encode()),
            ("ASD14", ("ASDDev14a", "ASDDev14b"), 32, ("--hex", "0x0041 ff:00 9"), b"\x00\x41\xff\x00\x09"),
            ("ASD26", ("ASDDev26a",), 16, ("--file", self.folder / "value"), b"from a file"),
            ("ASD11", ("ASDDev11a", "ASDDev11b"), 20, ("--equip", "--truncate", "--file", "-"), b"x" * 20),
        ]
        for item, chips, length, how, data in rows:
            with self.subTest(item=item):
                image = data.ljust(length, b"\xff")
                said = self.json("set", item, *how, data=b"x" * 25)
                self.assertEqual((said["written"], said["filled"]), (len(data), length - len(data)))
                self.assert_on_chips(chips, image)
                self.assertEqual(self.ctl("get", item, "--raw"), image)
        self.assertEqual(self.ctl("get", "ASD16", "--text").decode(), "ACME \u00b5\n")
        self.assertEqual(self.ctl("get", "ASD14", "--text"), b"\\x00A\\xff\\x00\\x09\n")
        self.assertEqual(self.ctl("get", "ASD26"), b"0000  66 72 6f 6d 20 61 20 66  69 6c 65 ff ff ff ff ff  from a file.....\n")
        self.assertEqual(self.ctl("read", "ASD16", "--hex"), "ACME \u00b5".encode().ljust(64, b"\xff").hex().encode() + b"\n")
        self.ctl("get", "ASD11", "-o", self.folder / "saved")
        self.assertEqual((self.folder / "saved").read_bytes(), b"x" * 20)

    def test_a_customer_block_that_was_set_outlives_the_next_write_of_the_pending_one(self):
        request = bytes((0, 0, 0x80, 0, 0x32)) + b"an older one".ljust(128, b"\0")
        self.assertEqual(self.service.direct(0x32, 0xBC, *request)[0], 0)
        self.ctl("set", "ASD_CCDB", "--text", "newer")
        block = b"newer".ljust(128, b"\xff")
        self.assert_on_chips(("ASD_CCDBa", "ASD_CCDBb"), block)
        standby = "Set CCDB data to e2prom when os enter standby!"
        self.service.set_board("PowerStandBy", 1)
        self.addCleanup(self.service.set_board, "PowerStandBy", 0)
        wait_for(lambda: "Set ccdb success." in self.service.log().partition(standby)[2], "the write")
        self.assert_on_chips(("ASD_CCDBa", "ASD_CCDBb"), block)

    def test_what_is_refused_changes_nothing(self):
        before = self.service.chip("ASDDev27a").read(34)
        rows = [
            (FAILED, ("set", "ASD27", "--text", "x" * 33), "takes 32 bytes"),
            (FAILED, ("set", "asd27", "--text", "x"), "Did you mean ASD27?"),
            (FAILED, ("set", "ASD27", "--file", self.folder / "missing"), "No such file"),
            (FAILED, ("read", "ASD15"), "check flag"),  # a pair without one
            (FAILED, ("get", "../../ASD27"), "there is no item"),
            (FAILED, ("get", "ASD52"), "asdctl read ASD52"),  # not ready
            (FAILED, ("errcode", "ASDDev0", "1"), "there is no chip"),
            (WRONG_USAGE, ("set", "ASD27", "--hex", "4g"), "not hexadecimal"),
            (WRONG_USAGE, ("set", "ASD27", "--hex", "123"), "whole bytes"),
            (WRONG_USAGE, ("set", "ASD27", "--text", ""), "nothing to write"),
            (WRONG_USAGE, ("set", "ASD27", "--text", "x", "--hex", "00"), "xactly 1"),
        ]
        for status, words, text in rows:
            with self.subTest(words=words):
                self.assertIn(text, self.ctl(*words, status=status))
        self.assertEqual(self.service.chip("ASDDev27a").read(34), before)

    def test_memory_alone_and_clear_leave_the_chips(self):
        before = self.service.chip("ASDDev27a").read(34)
        self.ctl("set", "ASD27", "--memory", "--text", "in memory")
        self.assertEqual(self.ctl("get", "ASD27", "--text"), b"in memory\n")
        self.ctl("clear", "ASD27")
        self.assertEqual(self.json("get", "ASD27")["value"], "00" * 32)
        self.assertEqual(self.service.chip("ASDDev27a").read(34), before)


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
        self.ctl("errcode", "ASDDev13b", "-3")
        self.assertEqual([item["name"] for item in self.json("list", "--unhealthy")], ["ASD13"])
        self.assertIn("ASDDev13b", {name for row in self.json("status")["attention"] for name in row["names"]})
        self.assertIn("ASDDev13b: -3", self.ctl("show", "ASD13").decode())

    def test_status_and_board(self):
        status = self.json("status")
        self.assertEqual((status["slot"], status["role"], status["time_scale"]), (0, "master", 10))
        self.assertEqual(status["enclosure"], self.service.enclosure["Name"])
        self.assertLessEqual({"asd_master_check", "asd_eeprom_sync"}, set(status["tasks"]))
        for words in (("equipment-mode", "1"), ("cpld-upgrading", "1"), ("power-standby", "1"),
                      ("cpld-bit", "0x200", "3", "1"), ("fault", "BSP_GetEquipMode", "-5")):
            self.ctl("board", "set", *words)
        board = self.json("board", "show")
        self.assertEqual((board["equipment_mode"], board["cpld_upgrading"], board["power_standby"]), (1, 1, 1))
        self.assertEqual(self.service.gdbus(BOARD_PATH, f"{BOARD}.GetCpldBit", 0x200, 3)[0], "(byte 0x01,)")
        self.assertIn("InvalidArguments", self.service.gdbus(BOARD_PATH, f"{BOARD}.SetCpldBit", 0x1000, 3, 1)[1])
        self.assertEqual(board["faults"], {"BSP_GetEquipMode": -5})
        self.assertIn("BSP_GetEquipMode", self.ctl("status").decode())
        for words in (("SetFault", "BSP_GetEquipMode", 0), ("EquipmentMode", 0), ("CpldUpgrading", 0), ("PowerStandBy", 0)):
            self.service.set_board(*words)

    def test_colour_and_width_are_the_terminals(self):
        self.assertNotIn(b"\033", self.ctl("list"))
        for words, environment, coloured in ((("list",), {}, True), (("list", "--no-colour"), {}, False),
                                             (("status",), {"NO_COLOR": "1"}, False),
                                             (("show", "ASD10"), {"TERM": "dumb"}, False)):
            status, text = on_terminal(self.run_dir, *words, **environment)
            self.assertEqual((status, "\033[" in text), (DONE, coloured), words)
            self.assertLessEqual(max(map(len, re.sub("\033\\[[0-9;]*m", "", text).splitlines())), 80, words)
        (self.folder / "key").write_bytes(pattern(1024, 1))
        self.assertIn("10/10", on_terminal(self.run_dir, "ekey", "put", "leftear", self.folder / "key")[1])

    def test_a_full_disk_is_a_failure(self):
        with open("/dev/full", "wb") as disk:
            done = subprocess.run([ASDCTL, "--run-dir", self.run_dir, "list"], stdout=disk, stderr=subprocess.DEVNULL,
                                  timeout=DEADLINE_S, check=False)
        self.assertEqual(done.returncode, FAILED)


class Transfers(Case):
    def test_ipmi_answers_as_the_stock_client(self):
        for request in ((0x06, 0x01), (0x32, 0x16, 0, 0, 0x80, 0, 0x1F), (0x32, 0x99)):
            code, data = self.service.raw(*request)
            status, out, _ = asdctl(self.run_dir, "--json", "ipmi", *(f"{byte:02x}" for byte in request))
            said = json.loads(out)
            self.assertEqual((status, said["completion_code"], said["data"]), (FAILED if code else DONE, code, data.hex()))
        for words in (("40", "0"), ("32", "0", *["00"] * 256), ("32", "100"), ("32",), ("zz", "0")):
            self.ctl("ipmi", *words, status=WRONG_USAGE)

    def test_keys_reach_their_chips_and_come_back(self):
        for seed, (place, (item, chips)) in enumerate(KEYS.items()):
            with self.subTest(place=place):
                key = pattern(1024, seed)
                self.assertIn("read back", self.ctl("ekey", "put", place, "-", data=key).decode())
                self.assert_on_chips(chips, key)
                said = self.json("ekey", "get", place, self.folder / place)
                self.assertEqual((said["item"], said["length"]), (item, 1024))
                self.assertEqual((self.folder / place).read_bytes(), key)
                for words in (("show", item), ("--json", "show", item), ("--json", "list")):
                    self.assertNotIn(key[:8].hex(), self.ctl(*words).decode().replace(" ", ""))
                self.assertEqual(self.json("get", item)["value"], key.hex())
        self.assertEqual((self.folder / "power1").stat().st_mode & 0o77, 0)
        self.service.gdbus(item_path("ASD7"), f"{ITEM}.UpdateMemProperty", "[byte 1]")
        self.assertEqual(self.ctl("ekey", "get", "--chip", "leftear", "-"), pattern(1024, 1))
        for place, size, status in (("power0", 1023, FAILED), ("power0", 1025, FAILED), ("nowhere", 1024, WRONG_USAGE)):
            self.ctl("ekey", "put", place, "-", data=bytes(size), status=status)

    def test_bay_configurations_come_back(self):
        self.ctl("baycfg", "erase")
        self.assertEqual(self.ctl("baycfg", "length"), b"erased\n")
        self.assertIn("there is no bay configuration", self.ctl("baycfg", "get", status=FAILED))
        chip = self.service.chip("ASDDev25a")
        for size, frames in ((0, 1), (216, 1), (217, 2), (2048, 10)):
            with self.subTest(size=size):
                file = pattern(size, size)
                self.assertEqual(self.json("baycfg", "put", "-", data=file)["frames"], frames)
                self.assertEqual(self.ctl("baycfg", "get"), file)
                self.assertEqual(chip.read(4 + size), size.to_bytes(4, "little") + file)
        self.assertEqual(self.json("baycfg", "length")["length"], 2048)
        self.ctl("baycfg", "put", "-", data=bytes(2049), status=FAILED)
        self.assertEqual(chip.read(2052)[4:], pattern(2048, 2048))
        self.ctl("baycfg", "erase")
        self.assertEqual(chip.read(2054), on_chip(b"\xff" * 2052))


class Watching(Case):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.service.wait_for_log("Init cccb value is not ready!")  # the last step of becoming master: no more changes

    def watching(self, *words):
        process = self.enterContext(watching(self.run_dir, *words))
        self.addCleanup(process.kill)
        return process

    def test_changes_come_as_lines(self):
        item = (item_path("ASD26"), f"{ITEM}.UpdateMemProperty")
        self.service.gdbus(*item, "[byte 1]")
        as_json, as_text = (self.watching("--count", "3", *words) for words in (("--json",), ()))
        self.service.gdbus(*item, "[byte 0x73, 0x65, 0x65]")
        self.service.gdbus(chip_path("ASDDev26a"), f"{CHIP}.SetAsdDevErrCode", 7)
        self.service.set_board("EquipmentMode", 1)
        changed = [json.loads(line) for line in as_json.communicate(timeout=DEADLINE_S)[0].splitlines()]
        self.assertTrue(all(re.fullmatch(r"\d{4}-\d\d-\d\dT[\d:.]{12}Z", change.pop("time")) for change in changed))
        self.assertEqual([tuple(change.values()) for change in changed],
                         [("ASD26", "Value", b"see".ljust(16, b"\xff").hex()), ("ASDDev26a", "ErrorCode", 7),
                          ("Board", "EquipmentMode", 1)])
        self.assertEqual([line.split(" ", 1)[1] for line in as_text.communicate(timeout=DEADLINE_S)[0].splitlines()],
                         [" ASD26  Value  16 bytes: see", " ASDDev26a  ErrorCode  7", " Board  EquipmentMode  1"])
        self.assertEqual([as_json.returncode, as_text.returncode], [DONE, DONE])
        self.service.set_board("EquipmentMode", 0)

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
        self.service.set_board("CpldUpgrading", 1)
        self.assertEqual(watch.wait(DEADLINE_S), DONE)

    def test_a_terminal_shows_the_status_with_the_changes_below(self):
        values = iter(range(10**6))
        change = (item_path("ASD27"), f"{ITEM}.UpdateMemProperty")
        with Background(lambda: self.service.gdbus(*change, f"[byte {next(values) % 256}]")):
            status, text = on_terminal(self.run_dir, "watch", "--for", "1", columns=100)
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
        self.enclosure = {
            "Name": "small", "Parts": parts,
            "Chips": [{"Name": "ASDDev52a", "Part": "one", "Offset": "0x10"}, {"Name": "ASDDev52b", "Part": "two", "Offset": 0},
                      {"Name": "ASDDev16", "Part": "one", "Offset": 0x80}, {"Name": "ASDDev26a", "Part": "own", "Offset": 4}],
            "Items": [{"Name": "ASD52", "Num": 0, "Length": 16, "AtomStorageDataDev0": "ASDDev52a",
                       "AtomStorageDataDev1": "ASDDev52b"},
                      {"Name": "ASD16", "Num": 1, "Length": 4, "AtomStorageDataDev0": "ASDDev16"},
                      {"Name": "ASD26", "Num": 2, "Length": 100, "AtomStorageDataDev0": "ASDDev26a"}]}
        self.config = ("--config", self.write_enclosure("enclosure", self.enclosure))
        self.images = {name: self.folder / ("slot1" if name == "own" else "") / f"{name}.bin" for name in ("one", "two", "own")}
        for image in self.images.values():
            image.parent.mkdir(exist_ok=True)
            image.write_bytes(b"\xff" * 256)
        for name, offset, data in (("one", 0x10, b"a" * 16), ("one", 0x80, b"four"), ("two", 0, b"a" * 16)):
            self.put(name, offset, on_chip(data))

    def write_enclosure(self, name, enclosure):
        file = self.folder / f"{name}.json"
        file.write_text(json.dumps(enclosure), encoding="utf-8")
        return file

    def put(self, name, offset, data):
        with self.images[name].open("r+b") as image:
            image.seek(offset)
            image.write(data)

    def chip(self, *words, status=DONE):
        code, out, errors = asdctl(self.folder, "chip", *words)
        self.assertEqual(code, status, f"{words}: {out} {errors}")
        return out.decode() or errors

    def inspect(self, *words, status=DONE):
        found = json.loads(self.chip("inspect", "--json", *self.config, *words, status=status))
        return found, {entry["chip"]: entry for entry in found["records"]}

    def test_records_are_judged(self):
        whole = ("--state-dir", self.folder)
        found, records = self.inspect(*whole)
        self.assertEqual((found["good"], found["blank"], found["bad"], found["differing"]), (3, 1, 0, []))
        checksum = int.from_bytes(on_chip(b"four")[4:], "little")
        self.assertEqual(records["ASDDev16"], {"item": "ASD16", "chip": "ASDDev16", "part": "one", "slot": None, "offset": 128,
                                               "length": 4, "stored": checksum, "computed": checksum,
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
                if counts[1]:
                    self.assertIn("not strict", self.chip("inspect", *self.config, *whole, status=FAILED))
                self.images[name].write_bytes(before)
        self.put("two", 0, on_chip(b"b" * 16))  # two good copies that differ
        found, records = self.inspect(self.images["one"], self.images["two"], status=FAILED)
        self.assertEqual((found["bad"], found["differing"], records["ASDDev52b"]["differs_from"]), (0, ["ASD52"], "ASDDev52a"))
        self.inspect(self.images["two"])  # alone it is sound
        self.assertEqual(list(self.inspect(*whole, "--item", "ASD16", "--part", "one")[1]), ["ASDDev16"])
        sysfs = self.images["own"].rename(self.folder / "eeprom")
        self.assertEqual(list(self.inspect(sysfs, "--part", "own")[1]), ["ASDDev26a"])

    def test_strict_chips_are_those_of_the_record_format(self):
        text = (pathlib.Path(__file__).parents[2] / "docs/record-format.md").read_text(encoding="utf-8")
        strict, tolerant = (re.findall(r"`(\w+)`", text.split(f"**{kind}** (")[1].split("\n\n")[0])
                            for kind in ("Strict", "Blank-tolerant"))
        self.assertEqual((len(strict), len(tolerant)), (18, 12))
        names = strict + tolerant
        self.enclosure["Chips"] = [{"Name": name, "Part": "one", "Offset": 5 * i} for i, name in enumerate(names)]
        self.enclosure["Items"] = [{"Name": f"I{i}", "Num": i, "Length": 3, "AtomStorageDataDev0": name}
                                   for i, name in enumerate(names)]
        self.write_enclosure("enclosure", self.enclosure)
        records = self.inspect(self.images["one"], status=FAILED)[1]
        self.assertEqual([name for name in names if records[name]["strict"]], strict)

    def test_a_dump_names_what_it_shows(self):
        self.put("one", 0x80, b"four\0!")
        text = self.chip("dump", self.images["one"], *self.config, "--offset", "0x7e", "--length", "8")
        self.assertEqual(text, "-- free\n007e  ff ff" + " " * 45 + "..\n-- ASD16 (ASDDev16), 4 bytes and the checksum: bad\n"
                         "0080  66 6f 75 72 00 21" + " " * 33 + "four.!\n")
        said = json.loads(self.chip("dump", "--json", self.images["one"], "--offset", "0x80", "--length", "6"))
        self.assertEqual((said["bytes"], said["records"]), (b"four\0!".hex(), []))
        self.assertEqual(self.chip("dump", self.images["two"]).splitlines()[-2:], ["*", "00f0  " + "ff ff ff ff ff ff ff ff  " * 2 + "." * 16])

    def test_what_cannot_be_looked_at_is_said(self):
        self.images["two"].write_bytes(bytes(255))
        self.enclosure["Items"][1]["Length"] = 250
        wrong = self.write_enclosure("wrong", self.enclosure)
        os.mkfifo(self.folder / "pipe")
        rows = [
            (FAILED, ("dump", self.folder / "pipe"), "is no file with a part's bytes"),
            (FAILED, ("inspect", self.images["two"], *self.config), "255 bytes"),
            (FAILED, ("inspect", self.images["one"], *self.config, "--item", "ASD99"), "no record"),
            (FAILED, ("inspect", self.images["one"], "--config", self.images["one"]), "no JSON object"),
            (FAILED, ("inspect", self.images["one"], "--config", wrong), "/Items/1/AtomStorageDataDev0"),
            (FAILED, ("dump", self.images["one"], "--offset", "256"), "none at 0x0100"),
            (WRONG_USAGE, ("inspect", self.folder / "other", *self.config), "which part"),
            (WRONG_USAGE, ("inspect", self.images["one"], *self.config, "--part", "three"), "one, two, own"),
        ]
        for status, words, text in rows:
            with self.subTest(words=words):
                self.assertIn(text, self.chip(*words, status=status))


class Misbehaviour(unittest.TestCase):
    """No service, one that hangs, and ones that answer wrongly."""

    @contextlib.contextmanager
    def ipmi_server(self, answer):
        """The only socket there, which answers each command with answer(command), bytes of the wire."""
        with tempfile.TemporaryDirectory(dir="/tmp") as folder, socket.socket(socket.AF_UNIX) as door:
            (pathlib.Path(folder) / "slot2").mkdir()
            door.bind(f"{folder}/slot2/ipmi.sock")
            door.listen()

            def serve():
                with door.accept()[0] as connection, contextlib.suppress(OSError):
                    while head := connection.recv(struct.calcsize(Wire.REQUEST), socket.MSG_WAITALL):
                        netfn, _, command, _, length = struct.unpack(Wire.REQUEST, head)
                        if netfn == 0x3F:
                            return
                        if length:
                            connection.recv(length, socket.MSG_WAITALL)
                        connection.sendall(answer(command))

            server = threading.Thread(target=serve)
            server.start()
            yield folder
            server.join(DEADLINE_S)

    @staticmethod
    def response(command, code, data=b"", length=None):
        return struct.pack(Wire.RESPONSE, 0x33, command, 0, 0, code, len(data) if length is None else length) + data

    def test_wrong_answers_are_told_from_refusals(self):
        get, put = ("ekey", "get", "power0", "-"), ("ekey", "put", "power1", "-")
        rows = [
            ("refusal", get, lambda c: self.response(c, 0x80), "0x80"),
            ("refusal of a slave", ("baycfg", "get"), lambda c: self.response(c, 0xC7), "not the master"),
            ("short frame", get, lambda c: self.response(c, 0, bytes(100)), "100 bytes instead of 228"),
            ("other command", get, lambda c: self.response(c + 1, 0, bytes(228)), "does not speak"),
            ("negative length", get, lambda c: self.response(c, 0, length=-1), "does not speak"),
            ("huge length", get, lambda c: self.response(c, 0, length=1 << 30), "does not speak"),
            ("another key comes back", put, lambda c: self.response(c, 0, bytes(228) if c == 0x12 else b""), "from byte 700 on"),
        ]
        for name, words, answer, text in rows:
            with self.subTest(name), self.ipmi_server(answer) as folder:
                status, out, errors = asdctl(folder, *words, data=bytes(700) + b"\x01" + bytes(323))
                self.assertEqual((status, out), (FAILED, b""), errors)
                self.assertIn(text, errors)

    def test_no_service_says_which_socket_and_how_to_start_it(self):
        with tempfile.TemporaryDirectory(dir="/tmp") as folder:
            for words, name in ((("status",), "bus"), (("ipmi", "6", "1"), "ipmi.sock")):
                status, out, errors = asdctl(folder, *words)
                self.assertEqual((status, out), (FAILED, b""))
                self.assertIn(f"{folder}/slot0/{name}", errors)
                self.assertIn("Start it with: asd ", errors)

    def test_a_service_that_hangs_is_not_waited_for_and_a_watch_ends_with_it(self):
        with Service(*FAST) as service, futures.ThreadPoolExecutor() as both:
            service.start_as("master")
            watch = watching(service.run_dir)
            service.process.send_signal(signal.SIGSTOP)
            for status, _, errors in both.map(lambda words: asdctl(service.run_dir, *words), (["status"], ["ipmi", "6", "1"])):
                self.assertEqual(status, FAILED)
                self.assertIn("not answer", errors)
            self.assertIsNone(watch.poll())
            service.kill()
            self.assertIn("asdctl: ", watch.communicate(timeout=DEADLINE_S)[1])
            self.assertEqual(watch.returncode, FAILED)


if __name__ == "__main__":
    unittest.main()
