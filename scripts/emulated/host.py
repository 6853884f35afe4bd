# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The emulated host: a PC with Debian's kernel, made from the packages that scripts/guest unpacked, and the QEMU command that
runs it with asd as its controller."""

import os
import pathlib
import sys

import initramfs

HERE = pathlib.Path(__file__).resolve().parent

MODULES = ["ipmi_devintf", "ipmi_si"]
PROGRAMS = ["usr/bin/ipmitool", "usr/sbin/bmc-info", "usr/sbin/ipmi-fru"]
LIBRARY_FOLDERS = ["lib/x86_64-linux-gnu", "usr/lib/x86_64-linux-gnu", "lib64"]


def image(packages, folder):
    """Makes vmlinuz and initramfs.cpio in the folder."""
    packages, folder = pathlib.Path(packages), pathlib.Path(folder)
    kernel, version = initramfs.kernel(packages)
    root = folder / "root"
    initramfs.begin(HERE / "hostfs", packages, PROGRAMS, root)
    initramfs.add_libraries(packages, LIBRARY_FOLDERS, root)
    (root / "lib64").symlink_to("lib")  # where programs look for their loader
    initramfs.add_modules(packages, version, MODULES, root)
    initramfs.pack(root, folder / "initramfs.cpio")
    (folder / "vmlinuz").write_bytes(kernel.read_bytes())


def command(folder, door, *options):
    """QEMU's command line: emulation, as not every machine's KVM runs a guest. A controller that is away is looked for each
    second."""
    words = ["qemu-system-x86_64", "-M", "pc", "-accel", "tcg", "-cpu", "max", "-m", "256", "-nic", "none", "-no-reboot",
             "-kernel", folder / "vmlinuz", "-initrd", folder / "initramfs.cpio", "-append", "console=ttyS0 quiet",
             "-chardev", f"socket,id=controller,path={str(door).replace(',', ',,')},reconnect=1",
             "-device", "ipmi-bmc-extern,id=bmc,chardev=controller", "-device", "isa-ipmi-kcs,bmc=bmc", *options]
    return [str(word) for word in words]


def boot(folder, door):
    """Runs QEMU on this terminal."""
    words = command(pathlib.Path(folder), door, "-nographic")
    os.execvp(words[0], words)


if __name__ == "__main__":
    {"image": image, "boot": boot}[sys.argv[1]](*sys.argv[2:])
