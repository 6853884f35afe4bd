# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""Replays the first session of the README in what looks like a fresh checkout, and compares what is printed."""

import contextlib
import itertools
import os
import pathlib
import re
import signal
import subprocess
import tempfile

from harness import DEADLINE_S, wait_for

ROOT = pathlib.Path(__file__).resolve().parents[2]
CHECKOUT = "/opt/asd"  # the checkout in the README
END = "@@ end of output @@\n"


def session():
    """The commands of the section, each with the lines that it prints."""
    section = (ROOT / "README.md").read_text(encoding="utf-8").split("## A first session", 1)[1].split("\n## ", 1)[0]
    blocks = re.findall(r"^```console\n(.*?)^```", section, re.MULTILINE | re.DOTALL)
    typed = [command for block in blocks for command in re.split(r"^\$ ", block, flags=re.MULTILINE)[1:]]
    return [(command, output.splitlines()) for command, _, output in (text.partition("\n") for text in typed)]


def normalised(text, checkout=CHECKOUT):
    return re.sub(r"\d{4}-\d\d-\d\dT[\d:.]+Z", "TIME", text.replace(str(checkout), CHECKOUT))


def expect(command, expected, printed):
    """Polls printed() until it begins with what the README says; there a line "..." stands for any lines."""
    pattern = "".join("(?:.*\n)*?" if line == "..." else re.escape(normalised(line)) + "\n" for line in expected)
    said = ""

    def matches():
        nonlocal said
        said = printed()
        return re.match(pattern, said)

    try:
        wait_for(matches, f"$ {command}")
    except AssertionError as late:
        raise AssertionError(f"{late}\nREADME says:\n" + "\n".join(expected) + f"\nprinted:\n{said}") from None


class Shell:
    """The terminal that commands are typed into."""

    def __init__(self, checkout):
        self.checkout = checkout
        self.process = subprocess.Popen(["bash"], cwd=checkout, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True)

    def run(self, command):
        """What it prints, with the end of it marked."""
        self.process.stdin.write(f"{command}\necho '{END[:-1]}'\n")
        self.process.stdin.flush()
        lines = itertools.takewhile(lambda line: line != END, self.process.stdout)
        return normalised("".join(lines), self.checkout) + END


class Running:
    """A terminal in which scripts/run goes on."""

    def __init__(self, command, checkout):
        self.checkout, self.log = checkout, checkout / f"log{len(list(checkout.glob('log*')))}"
        with self.log.open("wb") as output:
            self.process = subprocess.Popen(command.split(), cwd=checkout, stdin=subprocess.DEVNULL, stdout=output, stderr=output)

    def printed(self):
        assert self.process.poll() is None, self.log.read_text(encoding="utf-8")
        return normalised(self.log.read_text(encoding="utf-8"), self.checkout)

    def end(self):
        """As its user ends it, and with it its controllers."""
        self.process.send_signal(signal.SIGINT)
        assert self.process.wait(DEADLINE_S) == 0, self.log.read_text(encoding="utf-8")


def main():
    commands = session()
    assert len(commands) > 5 and commands[0][0] == "scripts/run", commands
    for name in ("ASD_RUN_DIR", "ASD_STATE_DIR"):
        os.environ.pop(name, None)
    with tempfile.TemporaryDirectory(prefix="asd-", dir="/tmp") as folder, contextlib.ExitStack() as running:
        checkout = pathlib.Path(folder)
        for name in ("scripts", "config"):
            (checkout / name).symlink_to(ROOT / name)
        shell = Shell(checkout)
        running.callback(shell.process.communicate)
        for command, expected in commands:
            if command.startswith("scripts/run"):
                terminal = Running(command, checkout)
                running.callback(terminal.end)
                expect(command, expected, terminal.printed)
            else:  # again and again, as taking a role over, for one, takes its time
                expect(command, [*expected, END[:-1]], lambda: shell.run(command))


main()
