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
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tarfile
import tempfile
import termios
import threading
import unittest
from concurrent import futures

import harness
from harness import (ASDCTL, DEADLINE_S, FAST, ITEM, Background, Service, Wire, asdctl, item_path, on_chip, pattern, wait_for)

sys.path.append("/usr/lib/python3/dist-packages")  # Debian's own, whichever Python this is
from prometheus_client import parser  # noqa: E402
from prometheus_client.openmetrics import parser as open_parser  # noqa: E402

DONE, FAILED = 0, 1
PATIENCE_S = 2 * DEADLINE_S  # with a browser


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

    def ctl(self, *words):
        code, out, errors = asdctl(self.run_dir, *words)
        self.assertEqual(code, DONE, f"{words}: {out!r} {errors}\n{self.service.log()[-2000:]}")
        return out


class Items(Case):
    def test_a_customer_block_that_was_set_outlives_the_next_write_of_the_pending_one(self):
        request = bytes((0, 0, 0x80, 0, 0x32)) + b"an older one".ljust(128, b"\0")
        self.assertEqual(self.service.direct(0x32, 0xBC, *request)[0], 0)
        self.ctl("set", "ASD_CCDB", "--text", "newer")
        block = [on_chip(b"newer".ljust(128, b"\xff"))] * 2

        def stored():
            return [self.service.chip(f"ASD_CCDB{which}").read(130) for which in "ab"]

        self.assertEqual(stored(), block)
        standby = "Set CCDB data to e2prom when os enter standby!"
        self.service.set_board("PowerStandBy", 1)
        self.addCleanup(self.service.set_board, "PowerStandBy", 0)
        wait_for(lambda: "Set ccdb success." in self.service.log().partition(standby)[2], "the write")
        self.assertEqual(stored(), block)

    def test_prometheus_reads_the_metrics(self):
        def figures(parse):
            families = parse(self.ctl("metrics").decode())
            return {(sample.name, *sorted(sample.labels.items())): sample.value for family in families for sample in family.samples}

        self.service.raw(0x32, 0x99)
        self.ctl("set", "brand", "Metered")
        open_metrics = figures(open_parser.text_string_to_metric_families)
        slot = ("slot", "0")
        self.assertEqual(open_metrics["asd_takeovers_total", slot], 1)
        self.assertGreaterEqual(open_metrics["asd_ipmi_requests_total", ("code", "0xc1"), ("door", "IPMI"), slot], 1)
        self.assertGreater(open_metrics["asd_page_writes_total", ("part", "backplane_b"), slot], 0)
        of_items = [value for key, value in open_metrics.items() if key[0] == "asd_items"]
        self.assertEqual((sum(of_items), len(of_items)), (len(self.service.enclosure["Items"]), 10))
        answered = sum(value for key, value in open_metrics.items() if key[0] == "asd_ipmi_requests_total" and ("door", "IPMI") in key)
        self.assertEqual(open_metrics["asd_ipmi_request_duration_seconds_count", ("door", "IPMI"), slot], answered)
        self.assertEqual(figures(parser.text_string_to_metric_families).keys(), open_metrics.keys())

    def test_the_history_tells_who_changed_what_and_nothing_of_keys(self):
        (self.folder / "key").write_bytes(key := pattern(1024, 9))
        self.ctl("ekey", "put", "leftear", self.folder / "key")
        for text in ("one", "two"):
            self.ctl("set", "vendor", text)
        changes = json.loads(self.ctl("history", "--json"))[-3:]
        self.assertEqual([(change["item"], change["door"], change["user"], change["where"], change["now"]["text"]) for change in changes],
                         [("ASD7", "IPMI", f"uid {os.geteuid()}", "stored", "1024 bytes, not shown"),
                          *(("ASD15", "D-Bus", f"uid {os.geteuid()}", "stored", text) for text in ("one", "two"))])
        self.assertEqual(changes[-1]["before"]["text"], "one")
        kept = (self.service.state_dir / "slot0/history").read_text(encoding="ascii") + self.service.log()
        self.assertNotIn(key[:8].hex(), kept)
        self.assertIn('ASD15 (vendor) changed by uid', kept)

    def test_list_and_show_are_the_enclosure_files(self):
        listed = {item["name"]: item for item in json.loads(self.ctl("list", "--json"))}
        self.assertEqual(len(listed), len(self.service.enclosure["Items"]))
        for item in self.service.enclosure["Items"]:
            chips = [item[key] for key in ("AtomStorageDataDev0", "AtomStorageDataDev1") if key in item]
            found = listed[item["Name"]]
            self.assertEqual((found["number"], found["length"], found["online"]), (item["Num"], item["Length"], True))
            self.assertEqual([chip["name"] for chip in found["chips"]], chips)

    def test_items_are_called_as_the_enclosure_file_says(self):
        items = [{"ASD14": item | {"Label": "marque"}, "ASD22": item | {"Label": "port", "Format": "text"}}.get(item["Name"], item)
                 for item in self.service.enclosure["Items"]]
        config = self.folder / "labelled.json"
        config.write_text(json.dumps(self.service.enclosure | {"Items": items}), encoding="utf-8")
        with Service(config=config) as service:
            service.start_as("master")
            for label, item in (("marque", "ASD14"), ("port", "ASD22")):
                self.assertEqual(asdctl(service.run_dir, "set", label, "R 7")[0], DONE)
                self.assertEqual(asdctl(service.run_dir, "get", label)[:2], (DONE, b"R 7\n"))
                identity = asdctl(service.run_dir, "identity", "--all")[1].decode()
                self.assertRegex(identity, rf"(?m)^{label} +{item} .*R 7$")
            self.assertIn("there is no item 'brand'", asdctl(service.run_dir, "get", "brand")[2])
            service.end()

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


class Watching(Case):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.service.wait_for_log("Init cccb value is not ready!")  # the last step of becoming master: no more changes

    def watching(self, *words):
        process = self.enterContext(watching(self.run_dir, *words))
        self.addCleanup(process.kill)
        return process

    def test_it_ends_when_it_should(self):
        for words, how, status in ((("--for", "0.2"), None, DONE), (("--for", "0.2", "--count", "9"), None, FAILED),
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

    def test_a_terminal_keeps_the_lines(self):
        values = iter(range(10**6))
        change = (item_path("ASD27"), f"{ITEM}.UpdateMemProperty")
        with Background(lambda: self.service.gdbus(*change, f"[byte {next(values) % 256}]")):
            status, text = on_terminal(self.run_dir, "watch", "--for", "1")
        self.assertEqual(status, DONE)
        self.assertRegex(text, r"^\S+Z  slot 0  Board  Role  master\r\n(.*\r\n)*\S+Z  slot 0  ASD27  Value  ")
        self.assertNotIn("\033", text)


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

    def test_a_repair_writes_from_good_copies_and_never_over_the_only_one(self):
        pair = {"Num": 3, "Length": 1, "AtomStorageDataDev0": "ASDDev53a", "AtomStorageDataDev1": "ASDDev53b"}
        for chip, part in (("ASDDev53a", "one"), ("ASDDev53b", "two")):
            self.enclosure["Chips"].append({"Name": chip, "Part": part, "Offset": 0x60})
        self.enclosure["Items"].append({"Name": "ASD53"} | pair)
        self.write_enclosure("enclosure", self.enclosure)
        new, old, bad, blank = on_chip(b"n" * 16), on_chip(b"o" * 16), b"x" * 18, b"\xff" * 18
        both, alone, torn, none = on_chip(b"\1"), on_chip(b"\2"), b"abc", b"\xff" * 3
        places = {"ASDDev52a": ("one", 0x10), "ASDDev52b": ("two", 0), "ASDDev53a": ("one", 0x60), "ASDDev53b": ("two", 0x60)}
        rows = [  # the copies, their flags, --from; what is written from what, and the item that cannot be mended
            ((new, new, both, both), "", {}, None),
            ((bad, new, both, both), "", {"ASDDev52a": new}, None),
            ((new, blank, none, none), "", {"ASDDev52b": new, "ASDDev53a": both, "ASDDev53b": both}, None),
            ((bad, new, torn, alone), "b", {"ASDDev52a": new, "ASDDev53a": both, "ASDDev53b": both}, None),
            ((bad, new, both, both), "a", {}, "ASD52"),
            ((old, new, both, both), "", {}, "ASD52"),
            ((old, new, both, both), "b", {"ASDDev52a": new}, None),
            ((old, new, both, alone), "", {"ASDDev52a": new, "ASDDev53b": both}, None),
            ((new, old, alone, none), "", {"ASDDev52b": new, "ASDDev53a": both, "ASDDev53b": both}, None),
            ((new, old, alone, alone), "", {}, "ASD52"),
            ((new, old, alone, torn), "", {}, "ASD52"),
            ((new, new, torn, both), "", {"ASDDev53a": both}, None),
            ((bad, blank, torn, none), "", {}, "ASD52"),
        ]
        words = ("repair", *self.config, "--state-dir", self.folder, "--json", "ASD53")
        for number, (states, side, written, hopeless) in enumerate(rows):
            for (name, offset), state in zip(places.values(), states):
                self.put(name, offset, state)
            before = {name: image.read_bytes() for name, image in self.images.items()}
            words_here = (*words, *(("--from", side) if side else ()))
            with self.subTest(row=number):
                for dry in (("--dry-run",), ()):
                    self.assertEqual({name: image.read_bytes() for name, image in self.images.items()}, before)
                    status, out, errors = asdctl(self.folder, *words_here, *dry)
                    found = json.loads(out)
                    self.assertEqual([one["chip"] for one in found["writes"]], list(written), errors)
                    self.assertEqual(status, FAILED if hopeless else DONE)
                    self.assertEqual([one["item"] for one in found["hopeless"]][:1], [hopeless] if hopeless else [])
                for chip, record in written.items():
                    image = bytearray(before[places[chip][0]])
                    image[places[chip][1]:places[chip][1] + len(record)] = record
                    before[places[chip][0]] = bytes(image)
                self.assertEqual({name: image.read_bytes() for name, image in self.images.items()}, before)
        lock = self.folder / "slot1/state.lock"
        with lock.open("w", encoding="ascii") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            status, _, errors = asdctl(self.folder, *words)
        self.assertEqual(status, FAILED)
        self.assertIn("slot 1 of", errors)
        self.images["two"].unlink()
        status, out, _ = asdctl(self.folder, *words)
        self.assertEqual((status, [part["part"] for part in json.loads(out)["unread"]]), (FAILED, ["two"]))
        self.assertFalse(self.images["two"].exists())

    def test_a_report_shows_everything_but_keys(self):
        self.enclosure["Items"][1]["Confidential"] = True
        self.enclosure["Name"] = "<small> & \"quoted\""
        self.write_enclosure("enclosure", self.enclosure)
        self.put("two", 3, b"R")
        page, bundle = self.folder / "page.html", self.folder / "bundle.tar.gz"
        self.put("one", 0xC0, b"an old key")
        words = ("report", bundle, "--html", page, *self.config, "--state-dir", self.folder, "--log", self.config[1])
        status, _, errors = asdctl(self.folder, *words)
        self.assertEqual(status, DONE, errors)
        with tarfile.open(bundle) as archive:
            held = {name.split("/", 1)[1]: archive.extractfile(name).read() for name in archive.getnames()}
        self.assertEqual(held["report.html"].decode(), page.read_text(encoding="utf-8"))
        self.assertEqual(json.loads(held["inspection.json"])["differing"], ["ASD52"])
        self.assertIn("no service runs there", json.loads(held["status.json"])["error"])
        self.assertIn(str(self.images["one"]), held["permissions.txt"].decode())
        self.assertEqual((held["enclosure.json"], held["log.txt"]), (self.config[1].read_bytes(),) * 2)
        dumped = self.images["one"].read_bytes()
        self.assertEqual(held["parts/one.bin"][:0x80], dumped[:0x80])
        self.assertEqual(held["parts/one.bin"][0x80:0x86] + held["parts/one.bin"][0xC0:], bytes(16) + dumped[0xCA:])
        self.assertEqual(b"".join(held.values()).count(b"four") + b"".join(held.values()).count(b"an old key"), 0)
        chromium = shutil.which("chromium")
        if not chromium:
            self.skipTest("chromium, which is to show the page, is missing: scripts/setup test")
        words = (chromium, "--headless=new", "--no-sandbox", "--disable-gpu", f"--user-data-dir={self.folder}/browser",
                 "--enable-logging=stderr", f"--screenshot={self.folder}/page.png", "--dump-dom", f"{page.as_uri()}#r1-0")
        shown = subprocess.run(words, capture_output=True, text=True, timeout=PATIENCE_S, check=True)
        self.assertNotIn("CONSOLE", shown.stderr)
        self.assertGreater((self.folder / "page.png").stat().st_size, 20000)
        dom = shown.stdout
        self.assertEqual((dom.count("<svg"), dom.count('<a href="#r'), dom.count('class="tip"')), (3, 4, 4))
        self.assertEqual(re.findall('<li class="(.*?)"><p>(.*?)</p>', dom), [("atrisk", "1 item has one good copy of two: ASD52.")])
        self.assertIn("<h1>&lt;small&gt; &amp; \"quoted\"</h1>", dom)
        self.assertIn('<p class="tip" id="r1-0"><span>ASD52: damaged (ASDDev52b, 16 bytes at 0x0000)', dom)

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

    def test_a_folder_in_tmp_is_trusted_when_it_is_this_users_alone(self):
        rows = [  # mode, whether it belongs to the user who asks, what is said
            (0o700, True, "no service runs there"),
            (0o750, True, "not a folder of yours alone"),
            (0o700, False, "not a folder of yours alone"),
        ]
        # Root asks as a user whom nobody is, everybody else with his own folder.
        root = os.geteuid() == 0
        user = 100_000 + os.getpid() if root else os.geteuid()
        folder = pathlib.Path(f"/tmp/asd-{user}")
        try:
            folder.mkdir()
        except FileExistsError:
            self.skipTest(f"{folder} is in use")
        self.addCleanup(folder.rmdir)
        program = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(dir="/tmp"))) / "asdctl"
        shutil.copy(ASDCTL, program)  # where that user may start it
        program.parent.chmod(0o755)
        for mode, own, text in rows if root else rows[:2]:
            with self.subTest(mode=oct(mode), own=own):
                folder.chmod(mode)
                if root:
                    os.chown(folder, user if own else 0, -1)
                done = subprocess.run([program, "--run-dir", folder, "status"], user=user if root else None,
                                      capture_output=True, timeout=DEADLINE_S, check=False)
                self.assertEqual(done.returncode, FAILED)
                self.assertIn(text, done.stderr.decode())

    def test_a_service_that_hangs_is_not_waited_for_and_a_watch_survives_its_restart(self):
        with Service(*FAST) as service, futures.ThreadPoolExecutor() as both:
            service.start_as("master")
            watch = watching(service.run_dir)
            service.process.send_signal(signal.SIGSTOP)
            for status, _, errors in both.map(lambda words: asdctl(service.run_dir, *words), (["status"], ["ipmi", "6", "1"])):
                self.assertEqual(status, FAILED)
                self.assertIn("not answer", errors)
            self.assertIsNone(watch.poll())
            service.kill()
            service.start_as("master")
            part = service.chip("ASDDev14b").image
            for text, act in (("slot 0  Storage1  Service  has ended", None), ("slot 0  Storage1  Service  runs again", None),
                              ("slot 0  Board  Role  master", lambda: part.rename(part.with_suffix(".away"))),
                              ("slot 0  backplane_b  Part  does not answer (No such file or directory)",
                               lambda: part.with_suffix(".away").rename(part)), ("slot 0  backplane_b  Part  answers", watch.kill)):
                while (line := watch.stdout.readline()) and text not in line:
                    pass
                self.assertIn(text, line)
                if act:
                    act()
            watch.communicate()


if __name__ == "__main__":
    unittest.main()
