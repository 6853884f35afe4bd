# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""A machine that runs in QEMU, driven over its console."""

import os
import re
import signal
import subprocess
import threading
import time

BOOT_DEADLINE_S = 900  # on a busy machine; a free one takes some seconds
COMMAND_DEADLINE_S = 300


class Guest:
    """Booted by QEMU's words when it is made, and gone when that fails. kill() ends it in any case; the log stays."""

    CONSOLE = "-display", "none", "-monitor", "none", "-serial", "stdio"  # before any other serial line

    def __init__(self, words, prompt, log):
        self.log = log
        self._console, self._arrived, self._number = b"", threading.Condition(), 0
        began = time.monotonic()
        self._qemu = subprocess.Popen([words[0], *self.CONSOLE, *words[1:]], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self._reader = threading.Thread(target=self._read)
        self._reader.start()
        try:
            self._wait(lambda: prompt in self._console, "the shell's prompt", BOOT_DEADLINE_S)
            self.boot_s = time.monotonic() - began
            # From here on a loop reads the commands: no prompt, no echo, no line editor. The editor reads ahead, so the
            # next line waits for the loop's own word, which the editor's echo does not contain.
            self._send("export NO_COLOR=1; stty -echo -onlcr; echo @re''ady; "
                       "while IFS= read -r line; do eval \"$line\"; done")
            self._wait(lambda: b"@ready" in self._console, "a plain shell", COMMAND_DEADLINE_S)
            self.run("true")
        except BaseException:
            self.kill()
            raise

    def _read(self):
        with open(self.log, "ab") as log:
            while piece := os.read(self._qemu.stdout.fileno(), 65536):
                log.write(piece)
                log.flush()
                with self._arrived:
                    self._console += piece
                    self._arrived.notify()
        with self._arrived:
            self._arrived.notify()

    def _wait(self, condition, what, deadline_s):
        with self._arrived:
            end = time.monotonic() + deadline_s
            while not (value := condition()):
                left = end - time.monotonic()
                if left < 0 or not self._reader.is_alive():
                    why = "the guest ended" if left >= 0 else f"not within {deadline_s} s"
                    raise AssertionError(f"{what}: {why}; console: {self.log}\n"
                                         + self._console[-1500:].decode(errors="replace"))
                self._arrived.wait(min(left, 1))
            return value

    def _send(self, line):
        self._qemu.stdin.write(line.encode() + b"\n")
        self._qemu.stdin.flush()

    def run(self, command):
        """A shell command inside: (status, what it wrote to both outputs). One line below 4000 bytes."""
        self._number += 1
        mark = f"@{self._number}"
        self._send(f'( {command} ) </dev/null 2>&1; echo "{mark}:$?"')
        pattern = re.compile(rf"(?s)(.*?){mark}:(\d+)\n".encode())
        found = self._wait(lambda: pattern.search(self._console), command, COMMAND_DEADLINE_S)
        with self._arrived:
            self._console = self._console[found.end():]
        return int(found[2]), found[1].decode(errors="replace")

    def must(self, command):
        """The output of a command that succeeds."""
        status, output = self.run(command)
        assert status == 0, f"{command}: status {status}\n{output}"
        return output

    def start(self, command):
        """Starts a command inside and does not wait for it."""
        self._send(f"{command} </dev/null >/dev/null 2>&1 &")

    def shut_down(self):
        """Ends the guest as its operator would, and returns when QEMU is gone."""
        self._send("reboot")
        self._qemu.wait(COMMAND_DEADLINE_S)
        self._reader.join()

    def kill(self):
        """Power cut."""
        if self._qemu.poll() is None:
            self._qemu.send_signal(signal.SIGKILL)
            self._qemu.wait(COMMAND_DEADLINE_S)
        self._reader.join()
        self._qemu.stdin.close()
        self._qemu.stdout.close()
