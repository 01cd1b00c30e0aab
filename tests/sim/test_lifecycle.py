import concurrent.futures
import contextlib
import fcntl
import os
import re
import resource
import signal
import socket
import stat
import subprocess
import time
from pathlib import Path

import pytest

from simulation import (BUILD, POOL_GUID, SOON, VOLUME_GUID, Simulation, field, pool_info,
                        wait_until)


def run(*words, **options):
    return subprocess.run([BUILD / "bin/ostrelsim", *words], capture_output=True, text=True,
                          timeout=30, **options)


def test_a_configuration_file_names_pools_volumes_and_bad_blocks(start, tmp_path):
    image = tmp_path / "p.img"
    image.write_bytes(bytes(16 * 4096))
    config = tmp_path / "sim.conf"
    config.write_text("# training pools\n\n"
                      f"pool P {POOL_GUID} maintenance {image}   # on a file\n"
                      "\tpool Q - active\n"
                      f"volume V {VOLUME_GUID} deactive\n"
                      "bad P 3,5-6 read\n")
    sim = start("--config", str(config))
    pools = sim.listed("pool")
    assert pools[0] == f"pool P maintenance {POOL_GUID} {image} (served)"
    assert pools[1].startswith("pool Q active ")
    assert sim.listed("volume") == [f"volume V deactive {VOLUME_GUID}"]
    device = os.open(sim.inside("/_admin/Devices/P"), os.O_RDONLY)
    with pytest.raises(OSError):
        os.pread(device, 4096, 3 * 4096)
    os.close(device)


def test_a_composed_guid_is_the_same_each_time_and_well_formed(start):
    first, second = start("--pool", "P,-,active"), start("--pool", "P,-,active")
    assert first.listed("pool") == second.listed("pool")
    guid = first.listed("pool")[0].split()[3]
    assert guid[14] == "0" and guid[19] in "89ab"


def test_a_guid_in_the_common_grouping_is_told_in_the_other(start):
    sim = start("--pool", "P,01234567-89AB-0CDE-8F10-112233445566,active")
    with sim.channel() as channel:
        assert field(channel.ask(pool_info("P")), "poolGUID") == POOL_GUID


@pytest.mark.parametrize("line, reason", [
    ("pool P", "needs name, GUID, state"),
    ("pool P - active /a b", "needs name, GUID, state"),
    ("pool P xyz active", "no GUID"),
    ("pool P 0123456789ab-0cde-8f-10-1122334455661 active", "no GUID"),
    ("pool P,Q - active", "can be no name"),
    ("disk P - active", "neither pool nor volume nor bad"),
    ("bad P", "bad blocks need"),
    ("bad P 9-5", "no list of blocks"),
    ("bad P 5 always", "bad blocks need"),
])
def test_a_wrong_line_is_named(tmp_path, line, reason):
    config = tmp_path / "sim.conf"
    config.write_text("pool A - active\n" + line + "\n")
    done = run("--config", config, "--private", "--socket", tmp_path / "s")
    assert done.returncode == 2
    assert done.stderr.startswith(f"ostrelsim: {config}:2: ") and reason in done.stderr


@pytest.mark.parametrize("words", [
    ["--colour", "red"], ["--pool"], ["--pool", "P"], ["--config", "/no/such/file"],
    ["--pool", "P,-,active", "--pool", "P,-,active"],
    ["--pool", "P,-,active", "--bad", "P,5"], ["--bad", "Q,5"],
    ["--volume", "V,zzz,active"],
], ids=" ".join)
def test_a_wrong_option_ends_the_start(tmp_path, words):
    done = run("--private", "--socket", tmp_path / "s", *words)
    assert done.returncode == 2 and done.stderr.startswith("ostrelsim: ")
    assert not os.path.exists(tmp_path / "s")


def test_help_is_printed():
    done = run("--help")
    assert done.returncode == 0 and done.stdout.startswith("Usage: ostrelsim ")


def test_a_command_runs_against_the_service_and_gives_its_status(tmp_path):
    script = (f"{BUILD}/bin/ostrelsimctl list && test -e /_admin/Manage_OSTREL/manage.cmd && exit 7")
    done = run("--private", "--socket", tmp_path / "s", "--pool", "P,-,active", "--", "sh", "-c",
               script)
    assert done.returncode == 7 and done.stdout.startswith("pool P active ")
    killed = run("--private", "--socket", tmp_path / "s", "--", "sh", "-c", "kill -9 $$")
    assert killed.returncode == 128 + 9
    missing = run("--private", "--socket", tmp_path / "s", "--", "/no/such/command")
    assert missing.returncode == 2 and "could not run /no/such/command" in missing.stderr


def record_of(folder):
    """What the services that use a mount point hold a lock on."""
    return Path("/run/ostrelsim" + str(folder).replace("/", "-") + ".made")


def test_a_mount_point_of_the_users_own_stays(start, tmp_path):
    folder = tmp_path / "admin"
    folder.mkdir()
    sim = start("--mount", str(folder), "--pool", "P,-,active", private=False)
    assert sorted(os.listdir(folder)) == ["Devices", "Manage_OSTREL"]
    assert record_of(folder).exists()
    sim.control("shutdown")
    assert sim.process.wait(timeout=SOON) == 0
    assert os.listdir(folder) == [] and not os.path.ismount(folder)
    assert not os.path.exists(sim.socket) and not record_of(folder).exists()


def test_a_service_that_comes_as_the_last_one_leaves_makes_the_mount_point_anew(start, tmp_path):
    """The one that leaves is the test: it holds the lock that the last user takes to clean up."""
    folder = tmp_path / "made"
    folder.mkdir()
    record = record_of(folder)
    with concurrent.futures.ThreadPoolExecutor() as starting, \
            open(record, "w", encoding="ascii") as leaving:
        leaving.write("-")
        leaving.flush()
        fcntl.flock(leaving, fcntl.LOCK_EX)
        inode = os.fstat(leaving.fileno()).st_ino
        coming = starting.submit(start, "--mount", str(folder), private=False)
        assert wait_until(lambda: re.search(rf"-> FLOCK .*:{inode} ",
                                            Path("/proc/locks").read_text(encoding="ascii")))
        folder.rmdir()
        record.unlink()
        fcntl.flock(leaving, fcntl.LOCK_UN)
        sim = coming.result()
    assert os.listdir(folder) == ["Devices", "Manage_OSTREL"]
    sim.stop()
    assert not folder.exists() and not record.exists()


def test_a_service_ends_in_order_though_a_directory_of_its_mount_is_open(start):
    sim = start()
    directory = os.open(sim.inside("/_admin"), os.O_RDONLY | os.O_DIRECTORY)
    try:
        assert os.listdir(directory) == ["Devices", "Manage_OSTREL"]
        assert sim.stop() == 0 and sim.errors == ""
    finally:
        os.close(directory)


def test_a_mount_point_that_was_missing_is_made_and_removed_by_the_last_user(start, tmp_path):
    folder = str(tmp_path / "made")
    one, two = start("--mount", folder), start("--mount", folder)
    assert stat.S_ISDIR(os.stat(folder).st_mode)
    assert one.stop() == 0
    # Removing the folder would have taken the other one's mount away.
    assert os.listdir(two.inside(folder)) == ["Devices", "Manage_OSTREL"]
    two.control("shutdown")
    assert two.process.wait(timeout=SOON) == 0
    assert not os.path.exists(folder)


def test_a_mount_point_below_nothing_is_an_error(tmp_path):
    done = run("--mount", tmp_path / "no/such", "--socket", tmp_path / "s", "--private")
    assert done.returncode == 2 and "could not make" in done.stderr


def test_what_a_killed_service_left_is_taken_over(start, tmp_path):
    folder = str(tmp_path / "made")
    first = start("--mount", folder, private=False)
    first.kill()
    with pytest.raises(OSError):
        os.listdir(folder)
    second = start("--mount", folder, private=False, socket=first.socket)
    assert os.listdir(folder) == ["Devices", "Manage_OSTREL"]
    second.control("shutdown")
    assert second.process.wait(timeout=SOON) == 0
    assert not os.path.exists(folder)


def test_two_services_do_not_share_a_socket(start, tmp_path):
    sim = start()
    done = run("--private", "--socket", sim.socket)
    assert done.returncode == 2 and "another service listens" in done.stderr
    assert sim.control("list") == ""


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_a_signal_ends_the_service_with_open_files(start, tmp_path, number):
    folder = str(tmp_path / "made")
    sim = start("--mount", folder, "--pool", "P,-,active", private=False)
    descriptor = os.open(folder + "/Manage_OSTREL/manage.cmd", os.O_RDWR)
    sim.process.send_signal(number)
    assert sim.process.wait(timeout=SOON) == 0
    assert not os.path.exists(folder)
    with pytest.raises(OSError):
        os.pread(descriptor, 10, 0)
    with contextlib.suppress(OSError):  # the close tells a service that is gone
        os.close(descriptor)


def test_several_services_run_side_by_side(start):
    sims = [start("--pool", f"P,-,{state}") for state in ("active", "deactive", "maintenance")]
    states = []
    for sim in sims:
        with sim.channel() as channel:
            states.append(field(channel.ask(pool_info("P")), "poolState"))
    assert states == ["active", "deactive", "maintenance"]
    assert wait_until(lambda: not sims[0].listed("open management file"))


def test_a_helper_that_does_not_start_says_why(tmp_path):
    broken = Simulation("--pool", "P")
    assert not broken.started and "needs name, GUID, state" in broken.ready
    assert broken.stop() == 2


def processor_seconds(process):
    words = open(f"/proc/{process.pid}/stat", encoding="ascii").read().rpartition(")")[2].split()
    return (int(words[11]) + int(words[12])) / os.sysconf("SC_CLK_TCK")


def checks_its_objects_through_pipes():
    """The sanitizer of undefined behaviour looks at memory through a pipe: where no descriptor is
    left it takes every object for a broken one."""
    linked = subprocess.run(["ldd", BUILD / "bin/ostrelsim"], capture_output=True, text=True,
                            check=True).stdout
    return "libubsan" in linked


@pytest.mark.skipif(checks_its_objects_through_pipes(),
                    reason="the sanitizer needs the descriptors itself")
@pytest.mark.parametrize("freed", [True, False], ids=["freed", "kept"])
def test_a_service_without_a_free_descriptor_waits_for_one_and_can_be_ended(sim, freed):
    limit = len(os.listdir(f"/proc/{sim.process.pid}/fd")) + 2
    resource.prlimit(sim.process.pid, resource.RLIMIT_NOFILE, (limit, limit))
    with contextlib.ExitStack() as clients:
        for _ in range(6):
            client = clients.enter_context(socket.socket(socket.AF_UNIX))
            client.connect(sim.socket)
        before = processor_seconds(sim.process)
        time.sleep(1)
        assert processor_seconds(sim.process) - before < 0.5
        if not freed:
            sim.process.terminate()
            assert sim.process.wait(timeout=SOON) == 0
    if freed:
        assert sim.listed("pool P")
