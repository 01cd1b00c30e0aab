import subprocess

import pytest

from simulation import BUILD, POOL_GUID, SOON, VOLUME_GUID, pool_info


def test_the_list_tells_pools_and_volumes(start):
    sim = start("--pool", f"P,{POOL_GUID},maintenance,/dev/pool/P", "--volume",
                f"V,{VOLUME_GUID},active")
    assert sim.control("list").splitlines() == [
        f"pool P maintenance {POOL_GUID} /dev/pool/P", f"volume V active {VOLUME_GUID}"]


@pytest.mark.parametrize("forced", [[], ["--forced"]])
def test_a_change_that_nobody_watches_is_made_at_once(sim, forced):
    assert sim.control("state", "P", "active", *forced).startswith("pool P: now active after ")
    assert sim.control("volume-state", "V", "maintenance", *forced).startswith(
        "volume V: now maintenance after ")
    assert [line.split()[2] for line in sim.control("list").splitlines()] == [
        "active", "maintenance"]


@pytest.mark.parametrize("words", [
    ["nonsense"], ["state"], ["state", "P"], ["state", "P", "active", "now"],
    ["state", "NOSUCH", "active"], ["volume-state", "P", "active"], ["state", "P", "a<b"],
    ["state", "P", "active", "--timeout"], ["state", "P", "active", "--timeout", "soon"],
    ["state", "P", "active", "--hurry", "1"], ["rename", "NOSUCH", "Q"], ["rename", "P", "P"],
    ["rename", "P", "a/b"], ["volume-delete", "P"], ["volume-zid", "P"],
    ["event", "OSTREL.Nothing"], ["event", "OSTREL.PoolRename.Enter", "--guid", "x"],
    ["event", "OSTREL.PoolRename.Enter", "--from", "65536"], ["job", "1", "finish"],
    ["job", "1", "start"], ["bad", "P", "1"], ["list", "all"], ["trace", "all"],
], ids=" ".join)
def test_a_command_that_cannot_be_done_is_an_error_and_changes_nothing(sim, words):
    before = sim.control("list")
    assert sim.control(*words, status=2).startswith("ostrelsimctl: ")
    assert sim.control("list") == before


def test_without_a_service_the_command_fails(tmp_path):
    done = subprocess.run([BUILD / "bin/ostrelsimctl", "--socket", tmp_path / "none", "list"],
                          capture_output=True, text=True)
    assert done.returncode == 2 and "no service at " in done.stderr


def test_the_usage_goes_out_when_asked_for_and_to_the_errors_when_not():
    asked = subprocess.run([BUILD / "bin/ostrelsimctl", "--help"], capture_output=True, text=True)
    assert asked.returncode == 0 and asked.stdout.startswith("Usage: ostrelsimctl ")
    bare = subprocess.run([BUILD / "bin/ostrelsimctl"], capture_output=True, text=True)
    assert bare.returncode == 2 and bare.stderr == asked.stdout


def test_shutdown_ends_the_service(sim):
    sim.control("shutdown")
    assert sim.process.wait(timeout=SOON) == 0


def test_shutdown_ends_a_service_that_waits_for_an_answer_and_a_slow_reader(sim):
    consumer = sim.consumer()
    consumer.register()
    consumer.do(do="policy", hold=True)
    change = sim.start_control("state", "P", "active", "--forced")
    consumer.next_event()
    sim.control("fault", "slow", "60000")
    script = (f"import os; f = os.open('{sim.manage}', os.O_RDWR);"
              f"os.pwrite(f, b'<virtualIO><datastream name=\"command\"/></virtualIO>', 0);"
              f"os.pwrite(f, {pool_info('P')}, 0); os.pread(f, 10, 0)")
    reader = subprocess.Popen(["/usr/bin/python3", "-c", script])
    while not sim.traced("reply"):
        pass
    sim.control("shutdown")
    assert sim.process.wait(timeout=SOON) == 0
    reader.wait(timeout=SOON)
    change.communicate(timeout=SOON)
    assert change.returncode != 0
