# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The emulated BMC: its root file system, its device tree and its drives, made from config/bmc.json and from the
packages that scripts/bmc unpacked; and the QEMU command that runs it."""

import collections
import json
import os
import pathlib
import re
import shutil
import sys

import initramfs
from initramfs import run

HERE = pathlib.Path(__file__).resolve().parent
CONFIG = HERE.parent.parent / "config" / "bmc.json"
BUILT_IN = HERE.parent.parent / "build" / "armhf"

ABSENT = "power_supply_1"  # in the device tree, but nothing answers at its address
SILENT = "power_supply_0"  # its write-protect pin is tied: acknowledges writes and stores nothing
READ_ONLY = "ear_board"  # the kernel is told to refuse writes

HOST_LINE = "serial0"  # the UART on which the board's host is: QEMU's second one, the console is its first
MODULES = ["i2c-aspeed", "at24", "i2c-dev", "gpio-aspeed", "sdhci-of-aspeed", "ext4"]
PROGRAMS = ["usr/bin/ipmitool", "usr/bin/socat", "usr/bin/gpioinfo", "usr/bin/gpioget", "usr/bin/gpioset"]
BUILT = ["platform/host/asd", "tools/asdctl/asdctl"]
LIBRARY_FOLDERS = ["lib/arm-linux-gnueabihf", "usr/lib/arm-linux-gnueabihf", "lib"]
SOCKET_PATH_LIMIT = 107  # bytes
STATE_BYTES = 64 * 1024 * 1024  # the SD card that holds asd's state; QEMU wants a power of two


Eeprom = collections.namedtuple("Eeprom", "name file bus address size page_size")


def eeproms():
    """The parts of config/bmc.json as the board has them."""
    for part in json.loads(CONFIG.read_text(encoding="utf-8"))["Parts"]:
        bus, address = re.fullmatch(r"/sys/bus/i2c/devices/(\d+)-([0-9a-f]{4})/eeprom", part["File"]).groups()
        yield Eeprom(part["Name"], part["File"], int(bus), int(address, 16), part["Size"], part["PageSize"])


def present_eeproms():
    return [eeprom for eeprom in eeproms() if eeprom.name != ABSENT]


# --- what is made once ---


def device_tree(base, target):
    """The evaluation board's tree with the EEPROMs in it, as a board's own tree would name them."""
    shutil.copyfile(base, target)
    for eeprom in eeproms():
        bus = run("fdtget", target, "/aliases", f"i2c{eeprom.bus}", capture_output=True, text=True).stdout.strip()
        node = f"{bus}/eeprom@{eeprom.address:x}"
        run("fdtput", "-c", target, node)
        run("fdtput", "-t", "s", target, node, "compatible", f"atmel,24c{eeprom.size // 128}")
        run("fdtput", "-t", "i", target, node, "reg", eeprom.address)
        run("fdtput", "-t", "i", target, node, "pagesize", eeprom.page_size)
        if eeprom.name == READ_ONLY:
            run("fdtput", target, node, "read-only")
    line = run("fdtget", target, "/aliases", HOST_LINE, capture_output=True, text=True).stdout.strip()
    run("fdtput", "-t", "s", target, line, "status", "okay")


def root_file_system(packages, version, root):
    initramfs.begin(HERE / "rootfs", packages, PROGRAMS, root)
    for folder in ["etc/asd", "var/lib/asd"]:
        (root / folder).mkdir(parents=True)
    for program in BUILT:
        run("arm-linux-gnueabihf-strip", "-o", root / "usr/bin" / pathlib.Path(program).name, BUILT_IN / program)
    shutil.copy(CONFIG, root / "etc/asd/enclosure.json")
    initramfs.add_libraries(packages, LIBRARY_FOLDERS, root)
    initramfs.add_modules(packages, version, MODULES, root)
    present = "".join(f"{eeprom.file}\n" for eeprom in present_eeproms())
    (root / "etc" / "eeproms").write_text(present, encoding="utf-8")


def image(packages, folder):
    """Makes vmlinuz, initramfs.cpio and bmc.dtb in the folder."""
    packages, folder = pathlib.Path(packages), pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    kernel, version = initramfs.kernel(packages)
    shutil.copyfile(kernel, folder / "vmlinuz")
    device_tree(packages / f"usr/lib/linux-image-{version}/aspeed-ast2600-evb.dtb", folder / "bmc.dtb")
    root = folder / "root"
    root_file_system(packages, version, root)
    initramfs.pack(root, folder / "initramfs.cpio")


# --- what runs ---


def make_drives(drives):
    """Erased EEPROMs and an empty disk for state, where there are none yet."""
    drives.mkdir(parents=True, exist_ok=True)
    for eeprom in present_eeproms():
        file = drives / f"{eeprom.name}.bin"
        if not file.exists():
            file.write_bytes(b"\xFF" * eeprom.size)
    state = drives / "state.ext4"
    if not state.exists():
        with open(state, "wb") as disk:
            disk.truncate(STATE_BYTES)
        run("mke2fs", "-q", "-t", "ext4", "-F", state, env={**os.environ, "PATH": os.environ["PATH"] + ":/usr/sbin"})


def host_line(drives):
    """Where the host's end of the line is: a machine of host.py finds its controller there."""
    return drives / "host.sock"


def host_end(drives):
    """QEMU's words for the line's other end; nobody hears the controller where the path is too long for a socket."""
    line = host_line(drives)
    if len(os.fsencode(line)) > SOCKET_PATH_LIMIT:
        return ["-serial", "null"]
    return ["-chardev", f"socket,id=host,path={line},server=on,wait=off", "-serial", "chardev:host"]


def command(folder, drives, *options):
    """QEMU's command line, to which the console is still missing, in front of all; options: more of QEMU's."""
    words = ["qemu-system-arm", "-M", "ast2600-evb", "-kernel", folder / "vmlinuz", "-dtb", folder / "bmc.dtb",
             "-initrd", folder / "initramfs.cpio", "-append", "console=ttyS4,115200n8 quiet",
             *host_end(drives),
             "-nic", "none", "-drive", f"if=sd,index=2,format=raw,file={drives / 'state.ext4'}", *options]
    for eeprom in present_eeproms():
        words += ["-drive", f"if=none,id={eeprom.name},format=raw,file={drives / (eeprom.name + '.bin')}",
                  "-device", f"at24c-eeprom,bus=aspeed.i2c.bus.{eeprom.bus},address={eeprom.address:#x},"
                  f"rom-size={eeprom.size},writable={'off' if eeprom.name == SILENT else 'on'},drive={eeprom.name}"]
    return [str(word) for word in words]


def boot(folder):
    """Runs QEMU on this terminal; the drives are kept in the folder."""
    folder = pathlib.Path(folder)
    make_drives(folder / "drives")
    words = command(folder, folder / "drives")
    words[1:1] = ["-display", "none", "-serial", "mon:stdio"]
    os.execvp(words[0], words)


if __name__ == "__main__":
    {"image": image, "boot": boot}[sys.argv[1]](*sys.argv[2:])
