"""The script that the operator's guide gives to cron, systemd and ansible, run as cron runs it: with
next to no environment, without a terminal, and with what it prints caught."""

import os
import re
import subprocess

import pytest
import yaml

import house
import loopdev

SECTION = (house.ROOT / "docs/operators.md").read_text(encoding="utf-8").split(
    "\n## Where nobody watches\n")[1].split("\n## ")[0]
BLOCKS = [re.sub(r"^    ", "", block, flags=re.MULTILINE)
          for block in re.findall(r"(?:^    .*\n)+", SECTION, re.MULTILINE)]
SCRIPT, CRONTAB, UNIT, TASK = BLOCKS
COMMAND = "/usr/local/sbin/scan-pool DATA"

# In the shell of a training. Every run is on a day of its own, but for the one that comes a second time.
SESSION = r"""
ln -s "$DEVICE" pools/SAMPLE
as_cron() {
    echo "== $1"
    env -i HOME=/root LOGNAME=root SHELL=/bin/sh DAY="$1" PATH="$PWD/bin:$PATH" $SANITIZERS \
        OSTRELSIM_SOCKET="$OSTRELSIM_SOCKET" LD_LIBRARY_PATH="$LD_LIBRARY_PATH" \
        /bin/sh -c "$PWD/bin/scan-pool SAMPLE" </dev/null 2>&1
    echo "status $?"
}
as_cron active
ostrelsimctl state SAMPLE maintenance >/dev/null
as_cron good
as_cron good
tool=$(command -v ostrelscan)
printf '#!/bin/sh\nkill -TERM $PPID\nexec %s "$@"\n' "$tool" >bin/ostrelscan
chmod 755 bin/ostrelscan
as_cron asked-to-end
rm bin/ostrelscan
ostrelsimctl bad SAMPLE 200-207 read
as_cron failing
"""


@pytest.fixture
def ran(build, tmp_path):
    """{day: what each of its runs printed}, and the folder of the scans."""
    for answer in (loopdev.have_loop(), loopdev.have_service()):
        if not answer:
            pytest.skip(answer.why)
    (tmp_path / "scans").mkdir()
    training = tmp_path / "training"
    for name, text in {
            "scan-pool": SCRIPT.replace("/srv/scan/", f"{tmp_path}/scans/").replace(
                "/dev/pool/", f"{training}/pools/"),
            "date": '#!/bin/sh\necho "$DAY"\n'}.items():
        path = tmp_path / "bin" / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(text, encoding="utf-8")
        path.chmod(0o755)
    session = f"cp -r {tmp_path}/bin . && mkdir pools\n{SESSION}"
    done = subprocess.run([house.ROOT / "scripts/training", training, "bash", "-c", session],
                          capture_output=True, text=True, timeout=300, check=False,
                          env={**os.environ, "OSTREL_BUILD": str(build), "SANITIZERS": " ".join(
                              f"{name}={value}" for name, value in os.environ.items()
                              if name.endswith("SAN_OPTIONS"))})
    assert done.returncode == 0, done
    found = {}
    for day, printed in re.findall(r"^== ([\w-]+)\n(.*?)(?=^== |\Z)", done.stdout,
                                   re.MULTILINE | re.DOTALL):
        found.setdefault(day, []).append(printed)
    return found, tmp_path / "scans"


def test_the_script_tells_what_somebody_must_look_at_and_nothing_else(ran):
    printed, scans = ran
    assert "Pool is not in MAINTENANCE state" in printed["active"][0]
    assert printed["active"][0].endswith("\nstatus 1\n")
    good, again = printed["good"]
    assert good == "status 0\n"
    assert {path.name for path in (scans / "SAMPLE-good").iterdir()} == {
        "C0000000.ZSB", "ostrelscan.log", "check.txt", "bad-blocks.txt"}
    assert (scans / "SAMPLE-good/check.txt").read_text(encoding="utf-8").endswith("\nrestorable\n")
    assert "File exists" in again and again.endswith("\nstatus 1\n")
    assert (scans / "SAMPLE-good/ostrelscan.log").read_text(encoding="utf-8").count(
        "<ostrelscan>") == 1
    assert printed["asked-to-end"] == ["status 0\n"]
    assert printed["failing"][0].endswith("207\n8 unreadable blocks\nstatus 1\n")


def test_cron_systemd_and_ansible_run_the_script():
    assert re.fullmatch(r"0 3 \* \* \* root (.*)\n", CRONTAB)[1] == COMMAND
    assert re.fullmatch(r"systemd-run --collect --unit=\S+ -p TimeoutStopSec=10min (.*)\n", UNIT)[1] == COMMAND
    [task] = yaml.safe_load(TASK)
    assert task["ansible.builtin.command"] == COMMAND


def test_the_script_is_one_for_every_shell(tmp_path):
    (tmp_path / "scan-pool").write_text(SCRIPT, encoding="utf-8")
    done = subprocess.run(["shellcheck", tmp_path / "scan-pool"], capture_output=True, text=True,
                          check=False)
    assert (done.returncode, done.stdout) == (0, "")
