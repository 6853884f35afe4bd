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
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
CONFIG = HERE.parent.parent / "config" / "bmc.json"
BUILT_IN = HERE.parent.parent / "build" / "armhf"

ABSENT = "power_supply_1"  # in the device tree, but nothing answers at its address
SILENT = "power_supply_0"  # its write-protect pin is tied: acknowledges writes and stores nothing
READ_ONLY = "ear_board"  # the kernel is told to refuse writes

MODULES = ["i2c-aspeed", "at24", "i2c-dev", "gpio-aspeed", "sdhci-of-aspeed", "ext4"]
PROGRAMS = ["bin/busybox", "usr/bin/ipmitool", "usr/bin/gpioinfo", "usr/bin/gpioget", "usr/bin/gpioset"]
BUILT = ["platform/host/asd", "tools/asdctl/asdctl"]
LIBRARY_FOLDERS = ["lib/arm-linux-gnueabihf", "usr/lib/arm-linux-gnueabihf", "lib"]
FOLDERS = ["dev", "proc", "sys", "run", "tmp", "root", "var/log", "var/lib/asd", "usr/bin", "usr/sbin", "bin", "sbin"]
STATE_BYTES = 64 * 1024 * 1024  # the SD card that holds asd's state; QEMU wants a power of two


Eeprom = collections.namedtuple("Eeprom", "name file bus address size page_size")


def eeproms():
    """The parts of config/bmc.json as the board has them."""
    for part in json.loads(CONFIG.read_text(encoding="utf-8"))["Parts"]:
        bus, address = re.fullmatch(r"/sys/bus/i2c/devices/(\d+)-([0-9a-f]{4})/eeprom", part["File"]).groups()
        yield Eeprom(part["Name"], part["File"], int(bus), int(address, 16), part["Size"], part["PageSize"])


def present_eeproms():
    return [eeprom for eeprom in eeproms() if eeprom.name != ABSENT]


def run(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, **options)


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


def add_libraries(packages, root):
    """Copies what the programs in the root need, and what that needs."""
    todo = [file for file in root.rglob("*") if file.is_file() and file.read_bytes()[:4] == b"\x7fELF"]
    while todo:
        dynamic = run("readelf", "-d", todo.pop(), capture_output=True, text=True).stdout
        for name in re.findall(r"\(NEEDED\)\s+Shared library: \[(.+)\]", dynamic):
            target = root / "lib" / name
            if target.exists():
                continue
            found = [packages / folder / name for folder in LIBRARY_FOLDERS if (packages / folder / name).exists()]
            assert found, f"no package holds {name}"
            shutil.copyfile(found[0], target)
            target.chmod(0o755)
            todo.append(target)


def add_modules(packages, version, root):
    """Copies the drivers and the list of them in the order in which they need each other."""
    names = []
    for module in MODULES:
        shown = run("modprobe", "-d", packages, "-S", version, "--show-depends", module, capture_output=True, text=True)
        for file in re.findall(r"^insmod (\S+)", shown.stdout, re.MULTILINE):
            if pathlib.Path(file).name not in names:
                names.append(pathlib.Path(file).name)
                shutil.copy(file, root / "lib" / "modules")
    (root / "etc" / "modules").write_text("\n".join(names) + "\n", encoding="utf-8")


def root_file_system(packages, version, root):
    shutil.rmtree(root, ignore_errors=True)
    shutil.copytree(HERE / "rootfs", root)
    for folder in [*FOLDERS, "lib/modules", "etc/asd"]:
        (root / folder).mkdir(parents=True, exist_ok=True)
    for program in PROGRAMS:
        shutil.copy(packages / program, root / program)
    for link in ["init", "bin/sh"]:
        (root / link).symlink_to("/bin/busybox")
    for program in BUILT:
        run("arm-linux-gnueabihf-strip", "-o", root / "usr/bin" / pathlib.Path(program).name, BUILT_IN / program)
    shutil.copy(CONFIG, root / "etc/asd/enclosure.json")
    names = root / "usr/share/misc/enterprise-numbers.txt"  # ipmitool wants one; all names take it seconds
    names.parent.mkdir(parents=True)
    names.write_text("0\n  Reserved\n", encoding="utf-8")
    add_libraries(packages, root)
    add_modules(packages, version, root)
    present = "".join(f"{eeprom.file}\n" for eeprom in present_eeproms())
    (root / "etc" / "eeproms").write_text(present, encoding="utf-8")


def image(packages, folder):
    """Makes vmlinuz, initramfs.cpio and bmc.dtb in the folder."""
    packages, folder = pathlib.Path(packages), pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    kernel = next((packages / "boot").glob("vmlinuz-*"))
    version = kernel.name.removeprefix("vmlinuz-")
    shutil.copyfile(kernel, folder / "vmlinuz")
    device_tree(packages / f"usr/lib/linux-image-{version}/aspeed-ast2600-evb.dtb", folder / "bmc.dtb")
    root = folder / "root"
    root_file_system(packages, version, root)
    names = "\n".join(sorted(str(file.relative_to(root)) for file in root.rglob("*")))
    with open(folder / "initramfs.cpio", "wb") as archive:
        run("cpio", "--create", "--format=newc", "--owner=+0:+0", "--quiet", cwd=root, input=names.encode(),
            stdout=archive)


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


def command(folder, drives, *options):
    """QEMU's command line; options: more of QEMU's."""
    words = ["qemu-system-arm", "-M", "ast2600-evb", "-kernel", folder / "vmlinuz", "-dtb", folder / "bmc.dtb",
             "-initrd", folder / "initramfs.cpio", "-append", "console=ttyS4,115200n8 quiet",
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
    words = command(folder, folder / "drives", "-nographic")
    os.execvp(words[0], words)


if __name__ == "__main__":
    {"image": image, "boot": boot}[sys.argv[1]](*sys.argv[2:])
