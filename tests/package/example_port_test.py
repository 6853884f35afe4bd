#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""The installed module, moved to another prefix, as a board port uses it: with CMake and with pkg-config."""

import binascii
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
SANITIZE = [f"-fsanitize={os.environ['ASD_SANITIZE']}"] if os.environ["ASD_SANITIZE"] else []
WARNINGS = ["-Wall", "-Wextra", "-Wconversion", "-Werror"]
BRAND = bytes(range(0x41, 0x61))

# Line in, line out: a brand, the brand, a request cut short, a command that nobody has.
SESSION = [("32 17 00 00 80 00 14 " + BRAND.hex(" "), "00"),
           ("32 16 00 00 80 00 14", "00 " + BRAND.hex(" ")),
           ("32 16 00 00 80 00 14 00", "c7"),
           ("32 77", "c1")]


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False, timeout=240, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.returncode}\n{done.stdout}")
    return done.stdout


class ExamplePort(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="asd-port-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        run("cmake", "--install", os.environ["ASD_BUILD_DIR"], "--component", "libasd-dev", "--prefix",
            cls.folder / "installed")
        cls.prefix = (cls.folder / "installed").rename(cls.folder / "moved")
        libdir = cls.prefix / os.environ["ASD_LIBDIR"]
        cls.environment = {**os.environ, "PKG_CONFIG_PATH": str(libdir / "pkgconfig")}
        cls.example = cls.prefix / "share/doc/libasd-dev/examples/port"

    def check_session(self, program):
        done = subprocess.run([program], input="".join(f"{line}\n" for line, _ in SESSION), capture_output=True,
                              text=True, timeout=120, check=False)
        checksum = (binascii.crc_hqx(BRAND, 0) ^ 0xFFFF).to_bytes(2, "little")
        expected = [answer for _, answer in SESSION] + ["chip " + (BRAND + checksum).hex(" ")]
        self.assertEqual((done.returncode, done.stdout.splitlines()), (0, expected), done.stderr)

    def test_headers_are_c(self):
        cflags = run("pkg-config", "--cflags", "asd", env=self.environment).split()
        headers = sorted(path.name for path in (ROOT / "platform/include").glob("*.h"))
        self.assertGreater(len(headers), 9)
        for header in headers:
            with self.subTest(header):
                source = self.folder / "header.c"
                source.write_text(f"#include <{header}>\nint main(void) {{ return 0; }}\n", encoding="ascii")
                run(os.environ["CC"], "-std=c11", *WARNINGS, *cflags, "-fsyntax-only", source)

    def test_every_operation_is_documented(self):
        document = (ROOT / "docs/porting.md").read_text(encoding="utf-8")
        declared = {name for path in (ROOT / "platform/include").glob("*.h")
                    for name in re.findall(r"^\w[\w *]*?\b(\w+)\(", path.read_text(encoding="ascii"), re.MULTILINE)
                    if name != "typedef"}
        self.assertGreater(len(declared), 60)
        self.assertEqual({name for name in declared if not re.search(rf"\b{name}\b", document)}, set())

    def test_cmake(self):
        build = self.folder / "cmake"
        flags = " ".join(SANITIZE + WARNINGS)
        run("cmake", "-S", self.example, "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}",
            f"-DCMAKE_C_COMPILER={os.environ['CC']}", f"-DCMAKE_CXX_COMPILER={os.environ['CXX']}",
            f"-DCMAKE_C_FLAGS={flags}", f"-DCMAKE_CXX_FLAGS={flags}")
        run("cmake", "--build", build)
        self.check_session(build / "example-port")

    def test_pkg_config(self):
        folder = shutil.copytree(self.example, self.folder / "make")
        run("make", "-C", folder, f"CC={os.environ['CC']}", f"CFLAGS={' '.join(SANITIZE + WARNINGS)}",
            f"LDFLAGS={' '.join(SANITIZE)}", env=self.environment)
        self.check_session(folder / "example-port")


if __name__ == "__main__":
    unittest.main()
