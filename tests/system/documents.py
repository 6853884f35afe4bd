# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""Types what a document's console blocks show, at a real enclosure, and compares what is printed.

documents.py [--update] DOCUMENT...: --update writes what was printed into the document, for its writer to look at.

A line "$ COMMAND" is typed, the lines below it are printed; "..." stands for any lines, within a line for anything. What
goes on, such as scripts/run, gets a terminal of its own, whose later lines are in a block that begins without a command.
"<!-- $ COMMAND -->" is typed too: what has happened before, which prints nothing. "```console elsewhere" is not typed.
Two controllers run, slot 0 is master, but for a document that starts them itself.
"""

import contextlib
import dataclasses
import difflib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from harness import ASDCTL, BINARY, DEADLINE_S, BusDaemon, Service, wait_for

ROOT = pathlib.Path(__file__).resolve().parents[2]
PATIENCE_S = 4 * DEADLINE_S  # a hundred commands one after the other: on a busy machine one of them takes very long
SOON_S = 1  # for what does not match, once something else has not matched either
# What the documents call the checkout and the folders of an installed service.
PLACES = {"/opt/asd": "checkout", "/etc/asd": "etc", "/run/asd": "run", "/var/lib/asd": "state"}
VARYING = ((r"\d{4}-\d\d-\d\d[T ]\d\d:[\d:.]+Z?", "TIME"), (r"process \d+", "process N"), (r"(?m)^Running +.* s,", "Running N s,"))
GOES_ON = re.compile(r"scripts/run\b|^asd --|asdctl\b.* watch|gdbus monitor")
ENDS = re.compile(r"--check-config|--count|--help|--version|echo \$\?")
LOOKS = re.compile(r"\b(status|raw|get|cat|busctl)\b")  # these may find what takes its time, such as a takeover, not yet there


@dataclasses.dataclass
class Step:
    """A command, or None where a terminal's lines go on; the lines below it are lines[first:last] of the document."""

    command: str | None
    first: int
    last: int


def goes_on(step):
    return step.command is None or (GOES_ON.search(step.command) and not ENDS.search(step.command))


def steps(lines):
    found, inside = [], False
    for number, line in enumerate(lines):
        if line.startswith("```") or not inside:
            inside = line == "```console"
            if hidden := re.fullmatch(r"<!-- \$ (.*) -->", line):
                found.append(Step(hidden[1], number, number))
            elif inside and not lines[number + 1].startswith("$ "):
                found.append(Step(None, number + 1, number + 1))
        elif line.startswith("$ "):
            found.append(Step(line[2:], number + 1, number + 1))
        elif found[-1].first == number and (found[-1].command or "").endswith("\\"):
            found[-1] = Step(f"{found[-1].command}\n{line}", number + 1, number + 1)
        else:
            found[-1].last = number + 1
    return found


def normalised(text):
    for pattern, word in VARYING:
        text = re.sub(pattern, word, text)
    return text


def pattern_of(expected):
    return "".join("(?:.*\n)*?" if line == "..." else re.escape(normalised(line)).replace(r"\.\.\.", ".*") + "\n"
                   for line in expected)


class Terminal:
    """A shell in the checkout; each command's output goes to a file."""

    def __init__(self, folder):
        self.folder, self.goes_on, self.seen, self._typed = folder, [], [], 0
        self._shell = subprocess.Popen(["bash"], cwd=folder / "checkout", stdin=subprocess.PIPE, text=True)
        self._send("set -m")  # what goes on can be interrupted then
        self._send("trap 'for job in $(jobs -p); do kill -- -$job; done 2>/dev/null' EXIT")  # also when this script is killed

    def _send(self, line):
        self._shell.stdin.write(line + "\n")
        self._shell.stdin.flush()

    def _real(self, command):
        for shown, real in PLACES.items():
            command = command.replace(shown, str(self.folder / real))
        return command

    def _shown(self, log):
        text = log.read_text(encoding="utf-8", errors="backslashreplace")
        for shown, real in PLACES.items():
            text = text.replace(str(self.folder / real), shown)
        return "".join(f"{line.rstrip()}\n" for line in text.splitlines())

    def _begin(self, command, end):
        """Types it with the output in a file; what end says is in the other one when the shell is there again."""
        self._typed += 1
        log, done = (self.folder / f"{kind}{self._typed}" for kind in ("typed", "done"))
        self._send(f"{{ {self._real(command)}\n}} >{log} 2>&1 </dev/null {end} >{done}.new; mv {done}.new {done}")
        try:
            wait_for(lambda: done.exists() and log.exists(), f"the end of: {command}", PATIENCE_S)
        except AssertionError as late:
            for pid in pathlib.Path(f"/proc/{self._shell.pid}/task/{self._shell.pid}/children").read_text(encoding="ascii").split():
                os.kill(int(pid), signal.SIGKILL)
            raise AssertionError(f"{late}; it has printed:\n{self._shown(log)}") from None
        return log, int(done.read_text(encoding="ascii"))

    def run(self, command):
        return self._shown(self._begin(command, "; echo $?")[0])

    def start(self, command):
        self.goes_on.append((command, *self._begin(command, "& echo $!")))

    def printed(self):
        """By what was started last."""
        return self._shown(self.goes_on[-1][1])

    def close(self):
        """Interrupts what goes on, as its user does."""
        for command, log, pid in self.goes_on:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(pid, signal.SIGINT)
            self._typed += 1
            ended = self.folder / f"ended{self._typed}"
            self._send(f"wait {pid} 2>{ended}.new; echo $? >{ended}.new; mv {ended}.new {ended}")
            wait_for(ended.exists, f"the end of: {command}", PATIENCE_S)
            status = int(ended.read_text(encoding="ascii"))
            assert status in (0, 128 + signal.SIGINT), f"{command}: {status}\n{log.read_text(encoding='utf-8')}"
        self._shell.communicate()


@contextlib.contextmanager
def world(running):
    """A terminal in what looks like a fresh checkout; two controllers run, or none."""
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="asd-", dir="/tmp")))
        (folder / "checkout/bin").mkdir(parents=True)
        (folder / "checkout/scripts").symlink_to(ROOT / "scripts")
        (folder / "checkout/bin/asd").symlink_to(BINARY)
        (folder / "checkout/bin/asdctl").symlink_to("../scripts/asdctl")
        for name in ("checkout/config", "etc"):
            shutil.copytree(ROOT / "config", folder / name)
        os.environ.update(PATH=f"{folder}/checkout/bin:{os.environ['PATH']}", ASDCTL_BINARY=ASDCTL, LC_ALL="C.UTF-8")
        for name in ("ASD_RUN_DIR", "ASD_STATE_DIR"):
            os.environ.pop(name, None)
        if running:
            os.environ["ASD_RUN_DIR"] = str(folder / "run")
            stack.enter_context(BusDaemon("system"))
            for slot, role, options in ((0, "master", ("--ipmi-host", "system", "--inventory", "system")), (1, "slave", ())):
                service = stack.enter_context(Service(*options, config=folder / "etc/enclosure.json", slot=slot, folder=folder))
                service.start_as(role)
                stack.callback(lambda service=service: service.process.poll() is None and service.end())
        terminal = Terminal(folder)
        stack.callback(terminal.close)
        yield terminal


def typed(terminal, step, expected, once):
    """What is printed, and whether it is what is expected; who looks does so until it is, unless it is said to look once."""
    if step.command and goes_on(step):
        terminal.start(step.command)
    pattern = re.compile(pattern_of(expected) + ("" if goes_on(step) else r"\Z"))
    end = time.monotonic() + (SOON_S if once else PATIENCE_S)
    while True:
        printed = terminal.printed() if goes_on(step) else terminal.run(step.command)
        same = pattern.match(normalised(printed))
        if same or time.monotonic() > end or not (goes_on(step) or LOOKS.search(step.command)):
            return printed.splitlines(), same
        time.sleep(0.05)


def replay(document, update):
    """Returns how many commands print something else."""
    lines = document.read_text(encoding="utf-8").splitlines()
    found, changed, name = steps(lines), [], document.relative_to(ROOT)
    with world(not any(step.command and step.command.startswith("scripts/run") for step in found)) as terminal:
        for step in found:
            before = [] if step.command else terminal.seen
            expected = before + lines[step.first:step.last]
            printed, same = typed(terminal, step, expected, changed or update)
            if not same:
                changed.append((step, printed[len(before):]))
                sys.stderr.writelines(f"{line}\n" for line in difflib.unified_diff(
                    expected, printed, f"{name}:{step.first}: $ {step.command}", "printed", lineterm=""))
            if goes_on(step):
                terminal.seen = expected if same else printed
    for step, printed in reversed(changed if update else []):
        lines[step.first:step.last] = printed
        document.write_text("\n".join(lines) + "\n", encoding="utf-8")
    print(f"{name}: {len(found)} commands, {len(changed)} print something else")
    return len(changed)


def main(words):
    update = words[:1] == ["--update"]
    sys.exit(1 if sum([replay(pathlib.Path(word).resolve(), update) for word in words[update:]]) else 0)


if __name__ == "__main__":
    main(sys.argv[1:])
