import os
import re
import subprocess
from pathlib import Path

from simulation import BUILD

PAGE = Path(__file__).parents[2] / "docs/ostrelsim.md"


def blocks():
    """The indented blocks of the page, as lists of lines."""
    found = [[]]
    for line in PAGE.read_text().splitlines():
        if line.startswith("    "):
            found[-1].append(line[4:])
        elif found[-1]:
            found.append([])
    return [block for block in found if block]


def test_the_configuration_of_the_page_is_read(start, tmp_path):
    block = next(block for block in blocks() if block[0].startswith("# kind"))
    image = tmp_path / "p.img"
    image.write_bytes(bytes(64 * 4096))
    config = tmp_path / "sim.conf"
    config.write_text("\n".join(block).replace("/srv/p.img", str(image)) + "\n")
    sim = start("--config", str(config))
    assert [line.split()[1] for line in sim.listed("pool")] == ["P", "Q"]
    assert sim.listed("volume V active")


def test_the_session_of_the_page_works(tmp_path):
    """Without its save, so that nobody refuses."""
    block = next(block for block in blocks() if block[0].startswith("truncate"))
    session = "\n".join(line for line in block if "ostrelscan" not in line and "wait %2" not in line)
    done = subprocess.run(
        ["unshare", "-m", "bash", "-ec", session], cwd=tmp_path, capture_output=True, text=True,
        timeout=60, env={**os.environ, "PATH": f"{BUILD}/bin:{os.environ['PATH']}",
                         "OSTRELSIM_SOCKET": str(tmp_path / "socket")})
    assert done.returncode == 0, done
    assert "pool P maintenance " in done.stdout
    assert done.stdout.count("pool P: now active after ") == 2


def test_the_page_names_no_option_or_command_that_does_not_exist():
    text = PAGE.read_text()
    usage = "".join(subprocess.run([BUILD / "bin" / program, "--help"], capture_output=True,
                                   text=True, check=True).stdout
                    for program in ("ostrelsim", "ostrelsimctl"))
    others = {"--automatic", "--find", "--show", "--detach", "--connect-timeout"}
    options = set(re.findall(r"--[a-z][a-z-]+", text)) - others
    assert options and all(option in usage for option in options), options
    commands = set(re.findall(r"ostrelsimctl ([a-z][a-z-]*)", text))
    assert commands and all(re.search(rf"^  {command}\b", usage, re.M) for command in commands)
