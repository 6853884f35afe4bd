# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

"""Replays the first session of the README in what looks like a fresh checkout, and compares what is printed."""

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


def run_in_shell(commands, checkout):
    script = "\n".join(f"{command}\necho '{END}'" for command, _ in commands)
    done = subprocess.run(["bash", "-c", "exec 2>&1\n" + script], cwd=checkout, stdin=subprocess.DEVNULL, text=True,
                          stdout=subprocess.PIPE, timeout=DEADLINE_S, check=False)
    printed = normalised(done.stdout.replace(str(checkout), CHECKOUT)).split(END + "\n")
    for (command, expected), output in zip(commands, printed, strict=False):
        if not as_pattern(expected).fullmatch(output):
            raise AssertionError(f"$ {command}\nREADME says:\n" + "\n".join(expected) + f"\nprinted:\n{output}")
    assert len(printed) == len(commands) + 1, done.stdout


def main():
    (((start, greeting),), *others) = session()
    second_terminal = [command for block in others for command in block]
    assert start == "scripts/run" and second_terminal, "scripts/run, then a second terminal"
    with tempfile.TemporaryDirectory(prefix="asd-", dir="/tmp") as folder:
        checkout = pathlib.Path(folder)
        for name in ("scripts", "config"):
            (checkout / name).symlink_to(ROOT / name)
        log = checkout / "log"
        environment = {key: value for key, value in os.environ.items() if key not in ("ASD_RUN_DIR", "ASD_STATE_DIR")}
        with log.open("wb") as output:
            service = subprocess.Popen([checkout / start], cwd=checkout, env=environment, stdin=subprocess.DEVNULL,
                                       stdout=output, stderr=output)

        def printed():
            return normalised(log.read_text(encoding="utf-8").replace(folder, CHECKOUT))

        try:
            wait_for(lambda: service.poll() is not None or as_pattern(greeting).match(printed()), "the greeting")
            run_in_shell(second_terminal, checkout)
            service.send_signal(signal.SIGINT)
            assert service.wait(DEADLINE_S) == 0, printed()
        except BaseException:
            print(printed())
            raise
        finally:
            if service.poll() is None:
                service.kill()
                service.wait()


main()
