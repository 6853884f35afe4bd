# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The virtual PC with Debian that scripts/vm made: its drive, and QEMU's command."""

import os
import pathlib
import shutil
import sys



def make_drive(folder, drives):
    """A copy of the system where there is none yet."""
    drives.mkdir(parents=True, exist_ok=True)
    if not (drives / "system.ext4").exists():
        shutil.copyfile(folder / "system.ext4", drives / "system.ext4")


def command(folder, drives, packages, *options):
    """QEMU's command line: emulation, as not every machine's KVM runs a guest. The packages can be mounted as "packages"."""
    words = ["qemu-system-x86_64", "-M", "q35", "-accel", "tcg", "-cpu", "max", "-m", "768", "-smp", "2", "-nic", "none", "-no-reboot",
             "-kernel", folder / "vmlinuz", "-initrd", folder / "initrd.img",
             "-append", "root=/dev/vda rw console=ttyS0 quiet systemd.show_status=no",
             "-drive", f"if=virtio,format=raw,file={drives / 'system.ext4'}",
             "-virtfs", f"local,path={packages},mount_tag=packages,security_model=none,readonly=on", *options]
    return [str(word) for word in words]


def boot(folder, packages):
    """Runs QEMU on this terminal; the drives are kept in the folder."""
    folder = pathlib.Path(folder)
    make_drive(folder, folder / "drives")
    words = command(folder, folder / "drives", packages, "-nographic")
    os.execvp(words[0], words)


if __name__ == "__main__":
    boot(*sys.argv[1:])
