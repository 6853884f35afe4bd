# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The service from outside: the real process, the stock client, the chips' images, kills and restarts."""

import contextlib
import os
import pathlib
import pty
import re
import resource
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest
from unittest import mock

from harness import (BINARY, CONFIG, DEADLINE_S, FAST, NETFN, PER_CHIP, RECORDS, Case, Service, chips_of, get, head, on_chip,
                     pattern, put, run, wait_for)


class Records(Case):
    def test_every_record_is_on_its_chips_and_outlives_a_kill(self):
        values = {}
        for seed, (record, item, _, _, _, size) in enumerate(RECORDS):
            chips = chips_of(self.service, item)
            for index, written in enumerate([[chip] for chip in chips] if item == PER_CHIP else [chips]):
                value = values[record, index] = pattern(size, seed + 100 * index)
                with self.subTest(record=record, index=index):
                    self.assertEqual(put(self.service, record, value, index, Service.raw), 0)
                    self.assertEqual([chip.read(size + 2) for chip in written], [on_chip(value)] * len(written))
        for line in (55, 56):
            self.assertEqual((self.service.run_dir / "slot0" / "gpio" / str(line)).read_text(), "0\n", "protected again")
        self.service.kill()
        self.service.start_as("master")
        for (record, index), value in values.items():
            with self.subTest(record=record, after="kill"):
                self.assertEqual(get(self.service, record, index, Service.raw), (0, value))


class Terminal(unittest.TestCase):
    def test_a_mistake_is_coloured_where_somebody_looks(self):
        for environment, coloured in (({"TERM": "xterm"}, True), ({"NO_COLOR": "1"}, False), ({"TERM": "dumb"}, False)):
            ours, theirs = pty.openpty()
            with mock.patch.dict(os.environ, {"NO_COLOR": "", **environment}):
                status = subprocess.run([BINARY, "--config", "/none", "--check-config"], stdin=theirs, stdout=theirs, stderr=theirs,
                                        timeout=DEADLINE_S, check=False).returncode
            said = os.read(ours, 65536)
            os.close(ours), os.close(theirs)
            self.assertEqual((status, b"\033[1;31merror:\033[0m " in said, b"error: " in said), (1, coloured, not coloured))


class Damage(unittest.TestCase):
    def test_a_damaged_copy_is_logged_and_only_a_strict_pair_does_not_deliver_it(self):
        brand, logo = pattern(32, 5), pattern(8, 5)
        flipped = brand[:7] + bytes([brand[7] ^ 0x10]) + brand[8:]
        with Service(*FAST) as service:
            service.start_as("master")
            self.assertEqual([put(service, "brand", brand), put(service, "logo", logo)], [0, 0])
            service.end()
            service.chip("ASDDev14a").write(flipped)
            service.chip("ASDDev21a").write(bytes(10))
            service.start_as("master")
            for chip, data, stored in (("ASDDev14a", flipped, on_chip(brand)[-2:]), ("ASDDev21a", bytes(8), bytes(2))):
                computed, found = (int.from_bytes(checksum, "little") for checksum in (on_chip(data)[-2:], stored))
                text = f"Read backBoard({chip}) eeprom ok but crc check failed(CrcRet={computed}, CrcReal={found})"
                self.assertEqual(service.log().count(text), 1, text)
            service.wait_for_log("2 with one copy left: brand (ASD14), copy on backplane_a damaged; logo (ASD21), copy on")
            self.assertNotIn("(ASDDev13a)", service.log())  # what was never written is in the summary alone
            self.assertEqual(get(service, "brand"), (0, flipped))
            self.assertEqual(get(service, "logo"), (0, logo))
            service.end()
            service.chip("ASDDev21b").write(bytes(10))
            service.start_as("master")
            self.assertEqual(get(service, "logo"), (0xCE, b""))
            self.assertEqual((put(service, "logo", logo), get(service, "logo")), (0, (0, logo)))
            said = ("is missing, though records were written", "files of no part in the enclosure: 1, such as old.intent.")
            self.assertFalse([text for text in said if text in service.log()])
            service.end()
            service.chip("ASDDev21a").image.unlink()
            (service.state_dir / "intents" / "old.intent").write_text("what is left of a part")
            service.start()
            self.assertEqual([service.log().count(text) for text in said], [1, 1])

    def test_dead_parts_do_not_keep_a_start_and_are_loaded_when_they_answer(self):
        with Service() as service:  # in real time, in which five attempts at every chip take longer than start_as waits
            service.start_as("master")
            self.assertEqual(put(service, "brand", pattern(32, 5)), 0)
            service.end()
            images = []
            for part in service.enclosure["Parts"]:
                part["Kind"] = "device"
                images.append(service.state_dir / ("" if part.get("Shared") else "slot0") / part["File"])
            service.use_changed_enclosure()
            for image in images:
                image.rename(f"{image}.gone")
            service.start_as("master")
            self.assertIsNone(service.ctl("get", "ASD14"))
            for image in images:
                os.rename(f"{image}.gone", image)
            loaded = wait_for(lambda: service.ctl("get", "ASD14"), "the late load")
            self.assertEqual(loaded["value"], pattern(32, 5).hex())
            self.assertIn("Part backplane_a answers again: ", service.log())
            service.end()


class Requests(unittest.TestCase):
    def test_the_enclosure_file_rules(self):
        with Service(*FAST) as service:
            next(chip for chip in service.enclosure["Chips"] if chip["Name"] == "ASDDev14a")["StgWp"] = 1
            next(part for part in service.enclosure["Parts"] if part["Name"] == "ear_board")["WriteProtectLine"] = 39
            service.enclosure["IpmiPrivilege"] = 3
            service.enclosure["Device"] = {"DeviceId": 0x21, "DeviceRevision": 2, "FirmwareMajor": 3, "FirmwareMinor": 14,
                                           "ManufacturerId": 51234, "ProductId": 0x1234}
            service.use_changed_enclosure()
            service.start_as("master")
            self.assertEqual(put(service, "brand", pattern(32, 1)), 0xCE)  # protected by its chip
            self.assertEqual(get(service, "brand"), (0xCE, b""))
            self.assertIsNone(service.ctl("set", "ASD7", "--text", "x"))  # by a line that nothing lifts
            for chip in ("ASDDev14a", "ASDDev7"):
                self.assertEqual(service.chip(chip).read(34), b"\xff" * 34)
            self.assertEqual(service.raw(NETFN, 0xBB, *head(0x25)), (0xD4, b""))  # for administrators
            said = service.ipmitool("mc", "info").stdout
            for key, value in (("Device ID", "33"), ("Device Revision", "2"), ("Firmware Revision", r"3\.14"),
                               ("Manufacturer ID", "51234"), ("Product ID", r"4660 \(0x1234\)")):
                self.assertRegex(said, rf"(?m)^{key} +: {value}$")


def told(manager, count):
    """What the manager is told next, and the last status among it."""
    lines, status = [], ""
    while len(lines) < count:
        line = manager.recv(4096).decode()
        status, lines = (line, lines) if line.startswith("STATUS=") else (status, [*lines, line])
    return lines, status


class Life(unittest.TestCase):
    def test_signals_end_it_cleanly_and_its_manager_is_told(self):
        # a path and an abstract name, as the manager may give it
        others = {"WATCHDOG_USEC": "100000", "WATCHDOG_PID": "1"}  # meant for another process
        for how, prefix, variables in ((signal.SIGTERM, "", {}), (signal.SIGINT, "\0", others)):
            with self.subTest(how.name), Service() as service, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
                manager.settimeout(DEADLINE_S)
                address = prefix + str(service.folder / "notify")
                manager.bind(address)
                with mock.patch.dict(os.environ, NOTIFY_SOCKET=address.replace("\0", "@"), **variables):
                    service.start()
                self.assertEqual(manager.recv(64), b"READY=1")
                state = re.compile("STATUS=master; 49 items: (1 good, 48|49) never written")
                wait_for(lambda: state.fullmatch(manager.recv(4096).decode()), "its state")
                with service.connect():
                    self.assertEqual(service.stop(how), 0)
                self.assertEqual(told(manager, 1)[0], ["STOPPING=1"])
                self.assertNotIn("Sanitizer", service.log())

    def test_its_manager_is_told_that_it_works_unless_it_is_stopped(self):
        with Service() as service, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind(address := str(service.folder / "notify"))
            manager.settimeout(DEADLINE_S)
            with mock.patch.dict(os.environ, NOTIFY_SOCKET=address, WATCHDOG_USEC="200000"):
                service.start()
            self.assertEqual(told(manager, 4)[0], ["READY=1"] + 3 * ["WATCHDOG=1"])
            service.process.send_signal(signal.SIGSTOP)
            os.waitid(os.P_PID, service.process.pid, os.WSTOPPED)
            manager.settimeout(1)
            with self.assertRaises(TimeoutError):
                while manager.recv(4096) != b"STOPPING=1":  # from before
                    pass
            service.process.send_signal(signal.SIGCONT)
            manager.settimeout(DEADLINE_S)
            self.assertEqual(told(manager, 1)[0], ["WATCHDOG=1"])
            service.end()
            self.assertNotIn(" hangs", service.log())

    def test_closed_descriptors_and_stray_signals_harm_nothing(self):
        with Service(*FAST) as service:
            service.launcher = ("sh", "-c", 'exec 0<&- 1>&- 2>&-; exec "$@"', "sh")
            pid = service.start().process.pid
            for fd in range(3):
                self.assertEqual(os.readlink(f"/proc/{pid}/fd/{fd}"), "/dev/null")
            self.assertEqual((service.run_dir / "slot0/instance.lock").read_text(encoding="ascii"), f"{pid}\n")
            wait_for(lambda: put(service, "brand", pattern(32, 1)) == 0, "a write")
            service.process.send_signal(signal.SIGHUP)
            unlimited = resource.prlimit(pid, resource.RLIMIT_FSIZE, (0, resource.RLIM_INFINITY))
            self.assertNotEqual(put(service, "brand", pattern(32, 2)), 0)  # as on a full disk
            resource.prlimit(pid, resource.RLIMIT_FSIZE, unlimited)
            self.assertEqual(get(service, "brand"), (0, pattern(32, 1)))
            service.end()

    def test_a_folder_that_others_could_plant_files_in_is_refused(self):
        with Service(*FAST) as service, tempfile.TemporaryDirectory() as victims:
            victim = pathlib.Path(victims) / "victim"
            victim.write_text("precious", encoding="ascii")
            slot = service.run_dir / "slot0"
            strange = [("others may write", lambda: service.run_dir.chmod(0o777), "chmod go-w"),
                       ("the group may write", lambda: slot.chmod(0o770), "chmod go-w"),
                       ("a file in its place", lambda: (slot.rmdir(), slot.touch()), "slot0"),
                       ("a planted lock", lambda: (slot / "instance.lock").symlink_to(victim), "instance.lock"),
                       ("a planted line", lambda: ((slot / "gpio").mkdir(), (slot / "gpio/39").symlink_to(victim)), "gpio/39"),
                       ("a planted role", lambda: (service.run_dir / "master.lock").symlink_to(victim), "master.lock")]
            if os.geteuid() == 0:
                strange.append(("another user's", lambda: os.chown(service.run_dir, 65534, -1), "user 65534"))
            for name, plant, said in strange:
                with self.subTest(name):
                    shutil.rmtree(service.run_dir, ignore_errors=True)
                    slot.mkdir(parents=True)
                    for folder in (service.run_dir, slot):
                        folder.chmod(0o750)
                    plant()
                    done = run(*service.command())
                    self.assertEqual((done.returncode, done.stderr.count("error: ")), (1, 1), done.stderr)
                    self.assertIn(said, done.stderr)
                    self.assertEqual(victim.read_text(encoding="ascii"), "precious")

    def test_a_lock_that_is_taken_away_is_made_anew_and_a_lost_folder_ends_it(self):
        with Service(*FAST) as service:
            service.start_as("master")
            for lock in (service.run_dir / "slot0/instance.lock", service.state_dir / "slot0/state.lock"):
                with self.subTest(lock.name):
                    lock.rename(lock.with_suffix(".away"))
                    wait_for(lambda: lock.exists() and lock.read_text(encoding="ascii") == f"{service.process.pid}\n",
                             "the lock anew")
                    second = run(*service.command())
                    self.assertEqual(second.returncode, 1)
                    self.assertIn(f"is already served by process {service.process.pid};", second.stderr)
            other = Service(folder=service.folder)
            other.run_dir = service.folder / "elsewhere"  # but the same state
            self.assertIn(f"is already served by process {service.process.pid};", run(*other.command()).stderr)
            shutil.rmtree(service.run_dir)
            self.assertEqual(service.process.wait(DEADLINE_S), 1)
            self.assertIn("the run folder has been removed", service.log())
            service.start_as("master")
            service.end()

    def test_output_that_nobody_reads_stops_neither_requests_nor_the_end(self):
        reading, writing = os.pipe()
        os.set_blocking(writing, False)
        with Service(*FAST, "--log-level", "debug") as service, os.fdopen(reading, "rb") as nobody:
            with contextlib.suppress(BlockingIOError):
                while True:
                    os.write(writing, bytes(1 << 16))
            os.set_blocking(writing, True)
            service.log_file = f"/proc/self/fd/{writing}"
            service.start()
            wait_for(lambda: put(service, "brand", pattern(32, 1)) == 0, "a write")
            before = time.monotonic()
            for _ in range(20):
                get(service, "baycfg")  # each logs at this level, whatever it answers
            service.process.send_signal(signal.SIGTERM)
            self.assertEqual(service.process.wait(DEADLINE_S), 0)
            self.assertLess(time.monotonic() - before, 10)
            os.close(writing)
            self.assertTrue(nobody.read(1))

    def test_a_line_again_and_again_is_rationed(self):
        with Service(*FAST) as service:
            service.start_as("master")
            for _ in range(2000):
                self.assertNotEqual(get(service, "baycfg")[0], 0)
            service.end()
            self.assertLess(service.log_file.stat().st_size, 200_000)
            self.assertRegex(service.log(), "[0-9]+ more lines from this place were left out")

    def test_a_start_in_a_folder_that_is_gone_is_refused_in_a_sentence(self):
        with tempfile.TemporaryDirectory() as gone:
            done = run("sh", "-c", 'cd $0 && rmdir $0 && exec "$@"', gone, BINARY, "--config", CONFIG, "--run-dir", "run", "--state-dir", "/tmp/unused")
            os.mkdir(gone)
        self.assertEqual((done.returncode, done.stderr.count("\n")), (2, 2))
        self.assertRegex(done.stderr, "^asd: --run-dir: run .*working folder")


if __name__ == "__main__":
    unittest.main()
