#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The Debian packages that scripts/package made: checked, then installed, used, removed and purged in a clean system."""

import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
PACKAGES = ROOT / "build/release/packages"
CACHE = ROOT / "build/package-roots"
UNIT = "/usr/lib/systemd/system/asd.service"
# Who maintains the packages is set by who builds them (ASD_PACKAGE_CONTACT).
LINTIAN_KNOWN = "bogus-mail-host,bogus-mail-host-in-debian-changelog"
# Bookkeeping of the system, and the mark of the root that installs.
NOT_OURS = re.compile(r"/(var/(lib/dpkg|cache|log)|etc/(passwd|group|shadow|gshadow|subuid|subgid)-?$|dev|proc|packages)")

# A bus that runs when the package comes, as on a running system, without the triggers that come after the service's
# start; on it asd as the unit starts it; then who may own and call what.
ON_THE_BUS = """
set -eu
deadline() { i=0; until "$@" >/dev/null 2>&1; do i=$((i + 1)); [ $i -lt 300 ] || return 1; sleep 0.1; done; }
as() { user=$1; shift; setpriv --reuid="$user" --regid="$(id -g "$user")" --init-groups "$@"; }
bus() { busctl --address="$DBUS_SYSTEM_BUS_ADDRESS" "$@" 2>&1 || true; }
export -f bus
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=/run/dbus/system_bus_socket
mkdir -p /run/dbus
dbus-daemon --config-file=/usr/share/dbus-1/system.conf --nofork --nopidfile &
deadline test -S /run/dbus/system_bus_socket
dpkg --no-triggers -i /packages/asd.deb
for user in asd nobody root; do
    for name in org.asd.Storage1.Slot3 xyz.openbmc_project.Ipmi.Host xyz.openbmc_project.Inventory.Enclosure; do
        echo "own $user $name: $(as $user bash -c "bus call org.freedesktop.DBus / org.freedesktop.DBus RequestName su $name 4")"
    done
done
. /etc/default/asd
command=$(sed -n 's,%t,/run,; s,%S,/var/lib,; s/^ExecStart=\\(.*\\) $ASD_OPTIONS$/\\1/p' {unit})
setpriv --reuid=asd --regid=asd --init-groups $command $ASD_OPTIONS >/dev/null &
asd=$!
deadline asdctl --bus system status
useradd --system --gid asd --no-create-home member
for user in root asd member nobody; do
    as $user test -w /run/asd/slot0/ipmi.sock && socket=yes || socket=no
    echo "call $user: socket $socket, $(as $user bash -c 'bus get-property org.asd.Storage1.Slot0 /org/asd/Storage1 org.asd.Storage1 Slot')"
done
kill $asd
wait $asd && echo ended well
find /run/asd /var/lib/asd -not -user asd
"""


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False, timeout=500, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.returncode}\n{done.stdout}")
    return done.stdout


def package(name):
    (file,) = PACKAGES.glob(f"{name}_*.deb")
    return file


def base_root():
    """A system with just what the package depends on; made once for each list of dependencies."""
    depends = run("dpkg-deb", "-f", package("asd"), "Depends")
    names = [re.match(r"[\w.+-]+", dependency.strip())[0] for dependency in depends.split(",")]
    tar = CACHE / f"{hashlib.sha256(','.join(names).encode()).hexdigest()[:16]}.tar"
    if not tar.exists():
        CACHE.mkdir(parents=True, exist_ok=True)
        half = tar.with_suffix(".half.tar")
        run("mmdebstrap", "--variant=minbase", f"--include={','.join(names)}", "bookworm", half)
        half.rename(tar)
    return tar


class System:
    """A clean system in a folder, until the end of the test."""

    def __init__(self, case):
        folder = tempfile.TemporaryDirectory(prefix="asd-root-")
        case.addClassCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        run("tar", "-C", self.folder, "-xf", base_root(), "--exclude=./dev/*", "--exclude=./usr/share/locale")
        (self.folder / "packages").mkdir()
        run("cp", package("asd"), self.folder / "packages/asd.deb")

    def run(self, *command):
        """Runs a command there, with processes of its own: none of them outlives it."""
        environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "DEBIAN_FRONTEND": "noninteractive"}
        enter = 'mount --rbind /dev "$0/dev" && mount -t proc proc "$0/proc" && exec chroot "$0" "$@"'
        return run("unshare", "--mount", "--pid", "--fork", "--kill-child", "sh", "-c", enter, self.folder, *command,
                   env=environment)

    def files(self):
        found = {"/" + os.path.relpath(os.path.join(folder, name), self.folder)
                 for folder, folders, files in os.walk(self.folder) for name in folders + files}
        return {file for file in found if not NOT_OURS.match(file)}


class Files(unittest.TestCase):
    def test_lintian(self):
        found = run("lintian", "--allow-root", "--fail-on=error", f"--suppress-tags={LINTIAN_KNOWN}",
                    *PACKAGES.glob("*.deb"))
        print(found, end="")

    def test_manual_pages(self):
        found = subprocess.run(["mandoc", "-Tlint", *(ROOT / "docs/man").iterdir()], capture_output=True, text=True, check=False)
        self.assertEqual([line for line in found.stdout.splitlines() if "referenced manual not found" not in line], [])


@unittest.skipUnless(os.geteuid() == 0, "installing in a clean system needs root")
class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.system = System(cls)
        cls.said = cls.system.run("bash", "-c", ON_THE_BUS.replace("{unit}", UNIT))

    def test_programs(self):
        self.assertRegex(self.system.run("asd", "--check-config"), r"^/etc/asd/enclosure.json: ok, \d+ items")
        self.assertIn("status", self.system.run("asdctl", "--help"))
        schema = json.loads((self.system.folder / "etc/asd/enclosure.json").read_text(encoding="utf-8"))["$schema"]
        self.assertTrue((self.system.folder / schema[1:]).is_file(), schema)

    def test_unit(self):
        self.assertEqual(self.system.run("systemd-analyze", "verify", "--man=no", UNIT), "")
        print(self.system.run("systemd-analyze", "security", "--offline=true", "--threshold=15", "--no-pager",
                              UNIT).splitlines()[-1])
        wanted = self.system.folder / "etc/systemd/system/multi-user.target.wants/asd.service"
        self.assertTrue(wanted.is_symlink())

    def test_user_and_folders(self):
        self.assertRegex(self.system.run("getent", "passwd", "asd"),
                         r"^asd:x:\d+:\d+:Storage service:/var/lib/asd:/usr/sbin/nologin$")
        self.assertEqual(self.system.run("stat", "-c", "%U:%G %a", "/run/asd", "/var/lib/asd").splitlines(),
                         ["asd:asd 750", "asd:asd 700"])

    def test_bus(self):
        said = self.said
        lines = [line for line in said.splitlines() if line.startswith(("own ", "call ", "ended "))]
        names = ("org.asd.Storage1.Slot3", "xyz.openbmc_project.Ipmi.Host", "xyz.openbmc_project.Inventory.Enclosure")
        for user, answer in (("asd", "u 1"), ("nobody", "Access denied"), ("root", "Access denied")):
            for name in names:
                self.assertRegex(lines.pop(0), f"^own {user} {name}: .*{answer}", said)
        for user, socket, answer in (("root", "yes", "y 0"), ("asd", "yes", "y 0"), ("member", "yes", "y 0"),
                                     ("nobody", "no", "Access denied")):
            self.assertRegex(lines.pop(0), f"^call {user}: socket {socket}, .*({answer})", said)
        self.assertEqual(lines, ["ended well"], said)
        self.assertNotIn("\n/", said)  # a file there that is not asd's


@unittest.skipUnless(os.geteuid() == 0, "installing in a clean system needs root")
class Removed(unittest.TestCase):
    def test_what_stays(self):
        system = System(type(self))
        before = system.files()
        system.run("dpkg", "-i", "/packages/asd.deb")
        key = system.folder / "var/lib/asd/slot0/key.bin"
        key.parent.mkdir()
        key.touch()
        state = {"/var/lib/asd", "/var/lib/asd/slot0", "/var/lib/asd/slot0/key.bin"}
        system.run("dpkg", "-r", "asd")
        left = {file for file in system.files() - before if "/systemd/" not in file}  # whether it is enabled
        self.assertEqual(left, state | {"/etc/asd", "/etc/asd/enclosure.json", "/etc/default/asd"})
        system.run("dpkg", "-P", "asd")
        self.assertEqual(system.files() - before, state)
        self.assertEqual(before - system.files(), set())


if __name__ == "__main__":
    sys.exit(unittest.main())
