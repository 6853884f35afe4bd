# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The service from outside: the real process, the stock client, the chips' images, kills and restarts."""

import os
import random
import signal
import socket
import subprocess
import unittest
from unittest import mock

from harness import (BINARY, BY_NAME, DEADLINE_S, FAST, NETFN, PER_CHIP, RECORDS, Background, Service, Wire, chips_of, crc16,
                     get, head, on_chip, pattern, put, wait_for)


class Records(unittest.TestCase):
    def test_every_record_is_on_its_chips_and_outlives_a_kill(self):
        with Service(*FAST) as service:
            service.start_as_master()
            values = {}
            for seed, (record, item, _, _, _, size) in enumerate(RECORDS):
                for chip_index, chip in enumerate(chips_of(service, item)):
                    index = chip_index if item == PER_CHIP else 0
                    values[record, index] = pattern(size, seed + 100 * index)
                    with self.subTest(record=record, chip=chip.name):
                        self.assertEqual(put(service, record, values[record, index], index), 0)
                        self.assertEqual(get(service, record, index), (0, values[record, index]))
                        self.assertEqual(chip.read(size + 2), on_chip(values[record, index]))
            for line in (55, 56):
                self.assertEqual((service.run_dir / "slot0" / "gpio" / str(line)).read_text(), "0\n", "protected again")

            service.kill()
            service.start_as_master()
            for (record, index), value in values.items():
                with self.subTest(record=record, after="kill"):
                    self.assertEqual(get(service, record, index), (0, value))

    def test_a_set_without_data_stores_a_whole_record(self):
        with Service(*FAST) as service:
            service.start_as_master()
            self.assertEqual(put(service, "brand", b"12345"), 0)
            expected = b"12345".ljust(32, b"\0")
            self.assertEqual(get(service, "brand"), (0, expected))
            self.assertEqual(chips_of(service, "ASD14")[0].read(34), on_chip(expected))
            self.assertEqual(put(service, "brand", b""), 0)
            self.assertEqual(get(service, "brand"), (0, bytes(32)))

    def test_configuration_records_are_the_masters(self):
        with Service(*FAST, "--role", "slave") as service:
            service.start()
            service.wait_for_log("asd enter slave mode!")
            value = pattern(16, 3)
            for record, answer in (("spec", bytes(16)), ("OEM model", value)):
                self.assertEqual(put(service, record, value), 0)
                self.assertEqual(get(service, record), (0, answer), record)

    def test_an_erased_record_is_not_returned(self):
        with Service(*FAST) as service:
            service.start_as_master()
            self.assertEqual(get(service, "brand"), (0xCE, b""))


class Damage(unittest.TestCase):
    @staticmethod
    def _text(chip, data, stored):
        return (f"Read backBoard({chip.name}) eeprom ok but crc check failed"
                f"(CrcRet={crc16(data)}, CrcReal={stored})")

    def _written(self, service, record):
        """Writes a value, stops the service, returns the value and its chips."""
        _, item, _, _, _, size = BY_NAME[record]
        value = pattern(size, 5)
        service.start_as_master()
        self.assertEqual(put(service, record, value), 0)
        self.assertEqual(service.stop(), 0)
        return value, chips_of(service, item)

    def test_a_flipped_byte_is_logged_and_delivered(self):
        with Service(*FAST) as service:
            value, chips = self._written(service, "brand")
            damaged = value[:7] + bytes([value[7] ^ 0x10]) + value[8:]
            chips[0].write(damaged[7:8], at=7)
            text = self._text(chips[0], damaged, crc16(value))
            self.assertNotIn(text, service.log())
            service.start_as_master()
            self.assertEqual(service.log().count(text), 1)
            self.assertEqual(get(service, "brand"), (0, damaged))

    def test_a_strict_pair_is_served_from_its_good_copy(self):
        for name, destroyed, logged in (("first", [0], True), ("second", [1], False)):
            with self.subTest(destroyed=name), Service(*FAST) as service:
                value, chips = self._written(service, "logo")
                self.assertEqual([chip.name for chip in chips], ["ASDDev21a", "ASDDev21b"])
                for index in destroyed:
                    chips[index].write(bytes(10))
                service.start_as_master()
                self.assertEqual(get(service, "logo"), (0, value))
                self.assertEqual(self._text(chips[0], bytes(8), 0) in service.log(), logged)

    def test_a_strict_pair_without_a_good_copy_is_not_served(self):
        with Service(*FAST) as service:
            _, chips = self._written(service, "logo")
            for chip in chips:
                chip.write(bytes(10))
            service.start_as_master()
            self.assertEqual(get(service, "logo"), (0xCE, b""))
            value = pattern(8, 6)
            self.assertEqual((put(service, "logo", value), get(service, "logo")), (0, (0, value)))


class Protection(unittest.TestCase):
    def test_a_part_that_stays_protected_refuses_the_write(self):
        for name, change in (("chip", {"StgWp": 1}), ("line", {"WriteProtectLine": 39})):
            with self.subTest(protected_by=name), Service(*FAST) as service:
                chip = chips_of(service, "ASD14")[0]
                rows, key = (("Chips", chip.name) if name == "chip" else ("Parts", chip.part))
                next(row for row in service.enclosure[rows] if row["Name"] == key).update(change)
                service.use_changed_enclosure()
                service.start_as_master()
                self.assertEqual(put(service, "brand", pattern(32, 1)), 0xCE)
                self.assertEqual(chip.read(34), b"\xff" * 34)
                self.assertEqual(get(service, "brand"), (0xCE, b""))


class Requests(unittest.TestCase):
    def test_each_refusal_has_its_code(self):
        # fmt: off
        rows = [
            ("unknown network function", 0xC1, (0x2E, 0x16, *head(0x14))),
            ("unknown command",          0xC1, (NETFN, 0x77, *head(0x14))),
            ("unknown selector",         0xC1, (NETFN, 0x16, *head(0x7F))),
            ("wrong FRU type",           0xC1, (NETFN, 0x16, 0x00, 0x01, 0x80, 0x00, 0x14)),
            ("empty",                    0xC7, (NETFN, 0x16)),
            ("selector missing",         0xC7, (NETFN, 0x16, 0x00, 0x00, 0x80, 0x00)),
            ("one byte too long",        0xC7, (NETFN, 0x16, *head(0x14), 0x00)),
            ("MAC one byte short",       0xC7, (NETFN, 0x17, *head(0x10), *range(5))),
            ("MAC one byte long",        0xC7, (NETFN, 0x17, *head(0x10), *range(7))),
            ("brand one byte long",      0xC7, (NETFN, 0x17, *head(0x14), *range(33))),
        ]
        # fmt: on
        with Service(*FAST) as service:
            service.start_as_master()
            for name, code, request in rows:
                with self.subTest(name):
                    self.assertEqual(service.raw(*request), (code, b""))
            self.assertEqual(chips_of(service, "ASD14")[0].read(34), b"\xff" * 34)

    def test_commands_of_administrators_need_their_privilege(self):
        for privilege, refused in ((3, True), (4, False)):
            with self.subTest(privilege=privilege), Service(*FAST) as service:
                service.enclosure["IpmiPrivilege"] = privilege
                service.use_changed_enclosure()
                service.start_as_master()
                self.assertEqual(service.raw(NETFN, 0xBB, *head(0x25))[0] == 0xD4, refused)
                self.assertEqual(put(service, "brand", pattern(32, 4)), 0)  # anyone's

    def test_mc_info_names_the_device(self):
        with Service() as service:
            service.enclosure["Device"] = {
                "DeviceId": 0x21, "DeviceRevision": 2, "FirmwareMajor": 3, "FirmwareMinor": 14,
                "ManufacturerId": 51234, "ProductId": 0x1234}  # fmt: skip
            service.use_changed_enclosure()
            service.start()
            done = service.ipmitool("mc", "info")
            self.assertEqual(done.returncode, 0, done.stderr)
            fields = dict(line.split(":", 1) for line in done.stdout.splitlines() if ":" in line)
            fields = {key.strip(): value.strip() for key, value in fields.items()}
            for key, value in (("Device ID", "33"), ("Device Revision", "2"), ("Firmware Revision", "3.14"),
                               ("IPMI Version", "2.0"), ("Manufacturer ID", "51234"), ("Product ID", "4660 (0x1234)")):
                self.assertEqual(fields.get(key), value, key)


class Socket(unittest.TestCase):
    def setUp(self):
        self.service = self.enterContext(Service(*FAST)).start_as_master()
        self.value = pattern(32, 9)
        self.assertEqual(put(self.service, "brand", self.value), 0)

    def _serves(self, connection):
        connection.sendall(Wire.request(NETFN, 0x16, bytes(head(0x14))))
        self.assertEqual(Wire.response(connection), (NETFN | 1, 0x16, 0, self.value))

    def test_garbage_ends_in_a_code_or_a_close_while_others_are_served(self):
        seeded = random.Random(77)
        # fmt: off
        rows = [
            ("nothing",            b""),
            ("half a header",      Wire.request(NETFN, 0x16)[:7]),
            ("data missing",       Wire.request(NETFN, 0x16, b"", length=5)),
            ("largest, data missing", Wire.request(NETFN, 0x16, b"", length=0xFFFF)),
            ("largest",            Wire.request(NETFN, 0x16, bytes(0xFFFF))),
            ("256 bytes",          Wire.request(NETFN, 0x17, bytes(head(0x14)) + bytes(251))),
            ("no such function",   Wire.request(0xFF, 0xFF, b"x")),
            *((f"random {i}", seeded.randbytes(seeded.randrange(1, 4000))) for i in range(20)),
        ]
        # fmt: on
        with Background(lambda: self.assertEqual(get(self.service, "brand"), (0, self.value))) as others:
            for name, sent in rows:
                with self.subTest(name), self.service.connect() as connection:
                    connection.sendall(sent)
                    connection.shutdown(1)
                    while (answer := Wire.response(connection)) is not None:
                        self.assertNotEqual(answer[2], 0)
            served = others.rounds
            wait_for(lambda: others.rounds > served, "another client to be served")
        self.assertIsNone(self.service.process.poll())

    def test_a_request_in_pieces_and_an_oversized_one_leave_the_connection_usable(self):
        with self.service.connect() as connection:
            for byte in Wire.request(NETFN, 0x16, bytes(head(0x14))):
                connection.sendall(bytes([byte]))
            self.assertEqual(Wire.response(connection)[2:], (0, self.value))
            connection.sendall(Wire.request(NETFN, 0x16, bytes(0xFFFF)))
            self.assertIn(Wire.response(connection)[2], (0xC7, 0xC8))
            self._serves(connection)

    def test_a_crowd_of_connections_is_answered_and_harms_nobody(self):
        with self.service.connect() as early:
            self._serves(early)  # has its place now
            crowd = [self.enterContext(self.service.connect()) for _ in range(150)]
            codes = set()
            for connection in crowd:
                connection.sendall(Wire.request(NETFN, 0x16, bytes(head(0x14))))
            for connection in crowd:
                codes.add(Wire.response(connection)[2])
                self._serves(early)
            self.assertLessEqual(codes, {0x00, 0xC0})
            self.assertIn(0x00, codes)
            for connection in crowd:
                connection.close()
        wait_for(lambda: get(self.service, "brand") == (0, self.value), "a place for new clients")

    def test_a_client_that_does_not_read_blocks_nobody(self):
        with self.service.connect() as deaf:
            deaf.setblocking(False)
            request = Wire.request(NETFN, 0x16, bytes(head(0x14)))
            with self.assertRaises(BlockingIOError):
                for _ in range(1_000_000):
                    deaf.send(request)
            self.assertEqual(get(self.service, "brand"), (0, self.value))


class Life(unittest.TestCase):
    @staticmethod
    def _run(*arguments):
        """Runs asd where it is expected to end by itself."""
        return subprocess.run([BINARY, *arguments], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=DEADLINE_S, check=False)

    def test_signals_end_it_cleanly(self):
        for how in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(how.name), Service() as service, service.start().connect():
                self.assertEqual(service.stop(how), 0)
                self.assertNotIn("Sanitizer", service.log())
                self.assertEqual(service.start().stop(how), 0)  # and it starts again

    def test_the_service_manager_is_told(self):
        for prefix in ("", "\0"):  # a path, an abstract name
            with self.subTest(prefix=prefix), Service() as service, \
                    socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
                manager.settimeout(DEADLINE_S)
                address = prefix + str(service.folder / "notify")
                manager.bind(address)
                with mock.patch.dict(os.environ, NOTIFY_SOCKET=address.replace("\0", "@")):
                    service.start()
                self.assertEqual(manager.recv(64), b"READY=1")
                self.assertEqual(service.stop(), 0)
                self.assertEqual(manager.recv(64), b"STOPPING=1")

    def test_a_second_instance_is_refused(self):
        with Service(*FAST) as service, Service(*FAST, folder=service.folder) as second:
            service.start_as_master()
            done = self._run(*second.command()[1:])
            self.assertEqual(done.returncode, 1)
            self.assertIn(str(service.process.pid), done.stderr)
            self.assertEqual(put(service, "brand", pattern(32, 2)), 0)

    def test_an_image_of_another_size_is_refused_and_left_alone(self):
        with Service(*FAST) as service:
            self.assertEqual(service.start().stop(), 0)
            image = chips_of(service, "ASD14")[0].image
            content = image.read_bytes()[:-1]
            image.write_bytes(content)
            done = self._run(*service.command()[1:])
            self.assertEqual(done.returncode, 1)
            self.assertIn(str(image), done.stderr)
            self.assertEqual(image.read_bytes(), content)

    def test_check_config_names_every_mistake(self):
        with Service() as service:
            good = self._run("--config", service.config, "--check-config")
            self.assertEqual((good.returncode, good.stderr), (0, ""))
            self.assertIn("ok", good.stdout)

            items = service.enclosure["Items"]
            items[0]["Lenght"] = items[0].pop("Length")
            items[1]["AtomStorageDataDev0"] = "NoSuchChip"
            del items[4]["Num"]
            items[2]["Length"] = 8193
            service.enclosure["Chips"][3]["RetryNumber"] = 0
            service.use_changed_enclosure()
            bad = self._run("--config", service.config, "--check-config")
            self.assertEqual(bad.returncode, 1)
            for mistake in ('/Items/0/Lenght: .*"Length"', '/Items/1/AtomStorageDataDev0: .*"NoSuchChip"',
                            "/Items/2/Length: .*8193.*8192", '/Items/4: .*"Num"', "/Chips/3/RetryNumber: is 0"):
                self.assertRegex(bad.stderr, rf"{service.config}:\d+: {mistake}")

    def test_wrong_usage_ends_with_2(self):
        rows = ((["--no-such-option"], 2), (["--slot", "4"], 2), (["--log-level", "loud"], 2), (["stray"], 2),
                (["--help"], 0), (["--version"], 0))  # fmt: skip
        for arguments, status in rows:
            with self.subTest(arguments=arguments):
                done = self._run(*arguments)
                self.assertEqual(done.returncode, status)
                self.assertTrue(done.stderr if status else done.stdout)


if __name__ == "__main__":
    unittest.main()
