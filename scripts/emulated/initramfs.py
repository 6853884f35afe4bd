# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The initramfs of an emulated machine: programs, their libraries and drivers out of Debian packages that were unpacked."""

import pathlib
import re
import shutil
import subprocess

FOLDERS = ["dev", "proc", "sys", "run", "tmp", "root", "var/log", "usr/bin", "usr/sbin", "bin", "sbin", "lib/modules"]
BUSYBOX = "bin/busybox"


def run(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, **options)


def kernel(packages):
    """The one in the packages: (its file, its version)."""
    file = next((packages / "boot").glob("vmlinuz-*"))
    return file, file.name.removeprefix("vmlinuz-")


def begin(source, packages, programs, root):
    """The root anew: the files of source, the programs, and busybox as init and shell."""
    shutil.rmtree(root, ignore_errors=True)
    shutil.copytree(source, root)
    for folder in FOLDERS:
        (root / folder).mkdir(parents=True, exist_ok=True)
    for program in [BUSYBOX, *programs]:
        shutil.copy(packages / program, root / program)
    for link in ["init", "bin/sh"]:
        (root / link).symlink_to("/" + BUSYBOX)
    names = root / "usr/share/misc/enterprise-numbers.txt"  # ipmitool wants one; all names take it seconds
    names.parent.mkdir(parents=True)
    names.write_text("0\n  Reserved\n", encoding="utf-8")


def add_libraries(packages, folders, root):
    """Copies what the programs in the root need, and what that needs, out of these folders of the packages."""
    todo = [file for file in root.rglob("*") if file.is_file() and file.read_bytes()[:4] == b"\x7fELF"]
    while todo:
        dynamic = run("readelf", "-d", todo.pop(), capture_output=True, text=True).stdout
        for name in re.findall(r"\(NEEDED\)\s+Shared library: \[(.+)\]", dynamic):
            target = root / "lib" / name
            if target.exists():
                continue
            found = [packages / folder / name for folder in folders if (packages / folder / name).exists()]
            assert found, f"no package holds {name}"
            shutil.copyfile(found[0], target)
            target.chmod(0o755)
            todo.append(target)


def add_modules(packages, version, modules, root):
    """Copies the drivers and the list of them in the order in which they need each other."""
    names = []
    for module in modules:
        shown = run("modprobe", "-d", packages, "-S", version, "--show-depends", module, capture_output=True, text=True)
        for file in re.findall(r"^insmod (\S+)", shown.stdout, re.MULTILINE):
            if pathlib.Path(file).name not in names:
                names.append(pathlib.Path(file).name)
                shutil.copy(file, root / "lib" / "modules")
    (root / "etc" / "modules").write_text("\n".join(names) + "\n", encoding="utf-8")


def pack(root, archive):
    names = "\n".join(sorted(str(file.relative_to(root)) for file in root.rglob("*")))
    with open(archive, "wb") as packed:
        run("cpio", "--create", "--format=newc", "--owner=+0:+0", "--quiet", cwd=root, input=names.encode(), stdout=packed)
