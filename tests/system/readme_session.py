# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""Replays the first session of the README in what looks like a fresh checkout, and compares what is printed."""

import contextlib
import os
import pathlib
import re
import signal
import subprocess
import tempfile

from harness import DEADLINE_S, wait_for

ROOT = pathlib.Path(__file__).resolve().parents[2]
CHECKOUT = "/opt/asd"  # the checkout in the README
END = "@@ end of output @@"


def session():
    """The console blocks of the section, each a list of (command, expected lines)."""
    section = (ROOT / "README.md").read_text(encoding="utf-8").split("## A first session", 1)[1].split("\n## ", 1)[0]
    blocks = []
    for block in re.findall(r"^```console\n(.*?)^```", section, re.MULTILINE | re.DOTALL):
        commands = re.split(r"^\$ ", block, flags=re.MULTILINE)[1:]
        blocks.append([(command, output.splitlines()) for command, _, output in (c.partition("\n") for c in commands)])
    return blocks


def normalised(text):
    return re.sub(r"\d{4}-\d\d-\d\dT[\d:.]+Z", "TIME", text)


def as_pattern(lines):
    """Lines as they stand; a line "..." stands for any lines."""
    return re.compile("".join("(?:.*\n)*?" if line == "..." else re.escape(normalised(line)) + "\n" for line in lines))


class Shell:
    """The terminal that commands are typed into."""

    def __init__(self, checkout):
        self.checkout = str(checkout)
        self.process = subprocess.Popen(["bash"], cwd=checkout, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True)

    def run(self, command):
        self.process.stdin.write(f"{command}\necho '{END}'\n")
        self.process.stdin.flush()
        lines = []
        while (line := self.process.stdout.readline()) != END + "\n":
            assert line, f"$ {command}\nthe shell ended: {lines}"
            lines.append(line)
        return normalised("".join(lines).replace(self.checkout, CHECKOUT))

    def expect(self, command, expected):
        """Types the command until it prints what the README says: taking a role over, for one, takes its time."""
        said = None

        def matches():
            nonlocal said
            said = self.run(command)
            return as_pattern(expected).fullmatch(said)

        try:
            wait_for(matches, f"$ {command}")
        except AssertionError as late:
            raise AssertionError(f"{late}\nREADME says:\n" + "\n".join(expected) + f"\nprinted:\n{said}") from None

    def close(self):
        self.process.communicate()


class Running:
    """A terminal in which scripts/run goes on."""

    def __init__(self, command, checkout):
        self.checkout, self.log = str(checkout), checkout / f"log{len(list(checkout.glob('log*')))}"
        environment = {key: value for key, value in os.environ.items() if key not in ("ASD_RUN_DIR", "ASD_STATE_DIR")}
        with self.log.open("wb") as output:
            self.process = subprocess.Popen(command.split(), cwd=checkout, env=environment, stdin=subprocess.DEVNULL,
                                            stdout=output, stderr=output)

    def printed(self):
        return normalised(self.log.read_text(encoding="utf-8").replace(self.checkout, CHECKOUT))

    def expect(self, expected):
        wait_for(lambda: self.process.poll() is not None or as_pattern(expected).match(self.printed()), "the start")
        assert self.process.poll() is None, self.printed()

    def end(self):
        self.process.send_signal(signal.SIGINT)
        assert self.process.wait(DEADLINE_S) == 0, self.printed()

    def clean_up(self):
        if self.process.poll() is None:
            self.process.terminate()  # and it its controllers
            self.process.wait(DEADLINE_S)


def main():
    commands = [command for block in session() for command in block]
    assert len(commands) > 5 and commands[0][0] == "scripts/run", commands
    running = []
    with tempfile.TemporaryDirectory(prefix="asd-", dir="/tmp") as folder, contextlib.ExitStack() as cleaning:
        checkout = pathlib.Path(folder)
        for name in ("scripts", "config"):
            (checkout / name).symlink_to(ROOT / name)
        shell = Shell(checkout)
        cleaning.callback(shell.close)
        try:
            for command, expected in commands:
                if not command.startswith("scripts/run"):
                    shell.expect(command, expected)
                    continue
                running.append(Running(command, checkout))
                cleaning.callback(running[-1].clean_up)
                running[-1].expect(expected)
            for terminal in running:
                terminal.end()
        except BaseException:
            print("\n----\n".join(terminal.printed() for terminal in running))
            raise


main()
