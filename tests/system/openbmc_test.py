# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The IPMI door for OpenBMC's bridges, on a bus of the test's own."""

import collections
import os
import struct
import unittest

from harness import BOARD, BOARD_PATH, BusClient, BusDaemon, Service, aligned, run, wait_for

FAST = ("--time-scale", "10", "--ipmi-host", "system")
HOST = "xyz.openbmc_project.Ipmi.Host"
OBJECT = (HOST, "/xyz/openbmc_project/Ipmi", "xyz.openbmc_project.Ipmi.Server")
CHANNEL = "xyz.openbmc_project.Ipmi.Channel."
GET_BRAND = bytes((0, 0, 0x80, 0, 0x14))
MC_INFO = bytes.fromhex("20010001020a000000010000000000")

Response = collections.namedtuple("Response", "netfn lun cmd code data")


class Bridge(BusClient):
    """Its options are {name: (type, value)}."""

    def send(self, netfn, cmd, data=b"", options=(), lun=0):
        """Returns the request's number."""
        entries = b""
        for name, (kind, value) in dict(options).items():
            entries = aligned(entries, 8) + struct.pack("<I", len(name)) + name.encode() + b"\0\1" + kind.encode() + b"\0"
            entries = aligned(entries, 4) + struct.pack("<I" if kind == "u" else "<i", value)
        body = aligned(struct.pack("<BBBxI", netfn, lun, cmd, len(data)) + data, 4) + struct.pack("<I", len(entries))
        return self.call(*OBJECT, "execute", "yyyaya{sv}", aligned(body, 8) + entries)

    def response(self, number):
        return Response(*(body := self.reply(number))[:4], body[8:])

    def ask(self, *request, **more):
        return self.response(self.send(*request, **more))


def session(privilege):
    return {"privilege": privilege, "userId": ("i", 1), "currentSessionId": ("u", 7)}


def mc_info(bus):
    """Get Device ID by a client without a channel name: what busctl printed."""
    return run("busctl", bus, "call", *OBJECT, "execute", "yyyaya{sv}", "6", "3", "1", "0", "0").stdout.split()


class Requests(unittest.TestCase):
    def test_codes_data_and_privilege_by_channel(self):
        brand, io_card = b"Example".ljust(32), GET_BRAND[:4] + b"\x25"  # which is for administrators
        operator, user, admin = session(("i", 3)), session(("i", 2)), session(("i", 4))
        with BusDaemon("system") as bus, Bridge(bus, CHANNEL + "eth0") as early, Service(*FAST) as service:
            service.start_as("master")
            service.wait_for_log("served on the system bus as " + HOST)
            with Bridge(bus) as plain, Bridge(bus, CHANNEL + "ipmi_kcs3") as kcs, Bridge(bus, CHANNEL + "Ipmb") as ipmb, \
                    Bridge(bus, CHANNEL + "eth1") as late:
                for name, bridge, netfn, cmd, data, options, code, answer in (
                        ("brand set", kcs, 0x32, 0x17, GET_BRAND + brand, {}, 0, b""),
                        ("brand read", plain, 0x32, 0x16, GET_BRAND, {}, 0, brand),
                        ("brand over the network", early, 0x32, 0x16, GET_BRAND, admin, 0, brand),
                        ("unknown command", kcs, 0x32, 0xEE, b"", {}, 0xC1, b""),
                        ("unknown on the IPMB", ipmb, 0x32, 0xEE, b"", {}, 0xC1, b""),
                        ("no such record", kcs, 0x32, 0x16, b"\0\0\x80\0\xee", {}, 0xC1, b""),
                        ("no such record on the IPMB", ipmb, 0x32, 0x16, b"\0\0\x80\0\xee", {}, 0xCC, b""),
                        ("options of the IPMB", ipmb, 6, 1, b"", {"rqSA": ("i", 32), "hostId": ("i", 0)}, 0, MC_INFO),
                        ("longest request", kcs, 6, 1, bytes(255), {}, 0xC7, b""),
                        ("too long for any", kcs, 0x32, 0x16, bytes(256), {}, 0xC8, b""),
                        ("no channel, so the board's own", plain, 0x32, 0xBB, io_card, operator, 0, b"\xff" * 8),
                        ("operator", early, 0x32, 0xBB, io_card, operator, 0xD4, b""),
                        ("operator on a channel that came later", late, 0x32, 0xBB, io_card, operator, 0xD4, b""),
                        ("a row that asks for nothing", early, 0x32, 0x17, GET_BRAND + brand, operator, 0xD4, b""),
                        ("nor is it read", early, 0x32, 0x16, GET_BRAND, user, 0xD4, b""),
                        ("what is no command of the module's", early, 6, 1, b"", user, 0, MC_INFO),
                        ("administrator", late, 0x32, 0xBB, io_card, {**admin, "x": ("u", 1)}, 0, b"\xff" * 8),
                        ("FRU of a session that may do nothing", early, 0x0A, 0x10, b"\0", session(("i", 1)), 0xD4, b""),
                        ("FRU read by a user", early, 0x0A, 0x11, b"\0\0\0\1", user, 0, b"\1\1"),
                        ("FRU write by a user", early, 0x0A, 0x12, bytes(4), user, 0xD4, b""),
                        ("FRU write by an operator", early, 0x0A, 0x12, bytes(4), operator, 0x80, b""),
                        ("no privilege", late, 6, 1, b"", {}, 0xFF, b""),
                        ("options of a wrong type elsewhere", kcs, 6, 1, b"", session(("u", 4)), 0, MC_INFO)):
                    with self.subTest(name):
                        response = bridge.ask(netfn, cmd, data, options, lun=2)
                        self.assertEqual(response, (netfn | 1, 2, cmd, code, answer), service.log()[-2000:])
            service.end()


class SlowChips(unittest.TestCase):
    NODES, MODEL = b"\0\0\x80\0\x43", b"\0\0\x80\0\x19"

    def test_slow_requests_hinder_nobody_and_are_answered_in_time(self):
        with BusDaemon("system") as bus, Service("--time-scale", "2", *FAST[2:]) as service, Bridge(bus) as bridge:
            for part in service.enclosure["Parts"]:
                if part["Name"].startswith("backplane"):  # 40 ms a byte
                    part.update(PageSize=1, WriteCycleUs=80_000)
            service.enclosure["SessionPrivilege"] = 2
            service.use_changed_enclosure()
            service.start_as("master")
            service.wait_for_log("served on the system bus as " + HOST)
            with Bridge(bus, CHANNEL + "eth0") as network:  # the floor is lowered, and the row asks for nothing
                levels = [network.ask(0x32, 0x16, GET_BRAND, session(("i", level))).code for level in (1, 2)]
            self.assertEqual(levels, [0xD4, 0xCE])  # never written
            copies = [service.chip(f"ASD_NODE_VIEW{which}") for which in "ab"]
            slow = bridge.send(0x32, 0xBC, self.NODES + b"1" * 64)
            wait_for(lambda: copies[0].has_begun_with(b"1"), "the write to begin")
            other = bridge.send(0x32, 0xBB, b"\0\0\x80\0\x44")  # reads the same chips
            self.assertEqual(bridge.ask(6, 1).code, 0)
            self.assertIn(bridge.ask(0x32, 0x16, GET_BRAND).code, (0, 0xCE))  # never written
            self.assertTrue(service.gdbus(BOARD_PATH, f"{BOARD}.GetCpldBit", 3, 0)[0])
            self.assertNotIn(slow, bridge.replies())

            waiting = [bridge.send(0x32, 0xBC, self.NODES + b"3" * 64) for _ in range(70)]
            wait_for(lambda: len(bridge.replies()) == 72, "all responses")
            codes = {number: body[3] for number, body in bridge.replies().items()}
            self.assertEqual([one for one in codes if one in waiting][:6], waiting[64:])  # the queue was full
            self.assertEqual((codes[slow], {codes[one] for one in waiting}), (0xC3, {0xC0}))
            self.assertIn(codes[other], (0, 0xC3, 0xCE))  # the module waits only so long for the lock of the chips
            bridge.close()

            with Bridge(bus, CHANNEL + "ipmi_ssif") as last:
                self.assertEqual(last.ask(6, 1).code, 0)
                wait_for(lambda: [copy.read(64) for copy in copies] == [b"1" * 64] * 2, "the slow write", 60)
                under_way = last.send(0x32, 0x17, self.MODEL + b"4" * 16)
                wait_for(lambda: service.chip("ASDDev13a").has_begun_with(b"4"), "the last write to begin")
                service.end()
                self.assertEqual(last.response(under_way).code, 0)
            self.assertEqual(service.chip("ASDDev13b").read(16), b"4" * 16)
            self.assertEqual(copies[0].read(64), b"1" * 64)  # C0 has meant: not carried out


class TheName(unittest.TestCase):
    def test_a_taken_name_is_left_to_its_owner_and_had_when_it_stays_free(self):
        def owned_by(pid):
            return run("busctl", "--system", "call", *BusClient.DRIVER, "GetConnectionUnixProcessID", "s", HOST).stdout == f"u {pid}\n"

        with BusDaemon("system") as bus, Service(*FAST) as service:
            with Bridge(bus, HOST) as first:
                service.start_as("master")
                service.wait_for_log(f"the name {HOST} is taken on the system bus")
                first.close()
                with Bridge(bus, HOST):  # a service that was restarted
                    self.assertEqual(service.raw(6, 1), (0, MC_INFO))
                    self.assertTrue(owned_by(os.getpid()))
            wait_for(lambda: owned_by(service.process.pid), "the name")  # 30 s, ten times as fast
            self.assertEqual(service.log().count("is taken"), 1)
            service.end()

    def test_without_a_bus_the_service_goes_on_and_joins_it_when_it_comes(self):
        with BusDaemon("session", running=False) as bus, Service("--bus", "none", "--ipmi-host", "session", *FAST[:2]) as service:
            service.start_as("master")
            service.wait_for_log("cannot reach the session bus")
            self.assertFalse((service.run_dir / "slot0" / "bus").exists())  # nor other methods
            for _ in range(2):
                bus.start()
                wait_for(lambda: mc_info("--user"), "the bus to be joined")
                bus.stop()
                self.assertEqual(service.raw(6, 1), (0, MC_INFO))
                service.wait_for_log("the session bus has closed the connection")
            self.assertEqual(service.log().count("cannot reach"), 1)
            service.end()


if __name__ == "__main__":
    unittest.main()
