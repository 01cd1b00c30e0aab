"""The benchmark's frame: what it makes of values, and what it takes of a run. No figure is held here."""

import hashlib
import pathlib
import subprocess
import sys
import time

import pytest

import house
import loopdev
import scanset

sys.path.insert(0, str(house.ROOT / "scripts" / "benchmark"))

import cases  # noqa: E402
import kept  # noqa: E402
import measuring  # noqa: E402
import samples  # noqa: E402
import slow_cases  # noqa: E402
import table  # noqa: E402


def row(goal, values, anchored=True):
    return table.Row("work", "cpu", goal, values, anchored, 0.25)


@pytest.mark.parametrize("goal, values, verdict", [
    (0.5, [0.3, 0.4, 0.5], "met"),
    (0.5, [0.5, 0.5, 0.5], "met"),
    (0.5, [0.4, 0.55, 0.9], "within the spread"),
    (0.5, [0.6, 0.61, 0.62], "MISSED"),
    (0.5, [0.51], "MISSED"),
])
def test_a_goal_is_missed_by_more_than_the_spread(goal, values, verdict):
    assert (row(goal, values).verdict, row(goal, values).missed) == (verdict, verdict == "MISSED")


def test_a_single_disturbance_moves_neither_median_nor_spread():
    calm = row(0.5, [0.4, 0.41, 0.42, 0.43, 0.44, 0.45, 0.46])
    disturbed = row(0.5, [0.4, 0.41, 0.42, 0.43, 0.44, 0.45, 9.0])
    assert (calm.median, disturbed.median) == (0.43, 0.43)
    assert calm.spread == disturbed.spread == pytest.approx(0.015)


def test_the_table_is_one_that_documents_show():
    rows = [row(0.35, [0.1, 0.2, 0.3]), row(50e-6, [2e-6, 2e-6], anchored=False)]
    assert table.text(rows) == (
        "| case | measure | goal       | median | spread    | takes     |     |\n"
        "| ---- | ------- | ---------- | ------ | --------- | --------- | --- |\n"
        "| work | cpu     | <= 0.35    | 0.20   | +- 0.05   | 250.00 ms | met |\n"
        "| work | cpu     | <= 50.0 us | 2.0 us | +- 0.0 ns | 250.00 ms | met |\n")


def test_the_table_shows_calls_and_what_became_of_kept_figures():
    rows = [table.Row("work", "memory", None, [3 << 20], False, 3 << 20, "7 reads", 2 << 20),
            table.Row("work", "p99", None, [n / 100 for n in range(101)], False, 0.5)]
    assert table.text(rows) == (
        "| case | measure | goal | median    | spread       | takes     |  | kept    | change | calls for a GiB |\n"
        "| ---- | ------- | ---- | --------- | ------------ | --------- |  | ------- | ------ | --------------- |\n"
        "| work | memory  |      | 3.0 MiB   | +- 0.00 kB   | 3.0 MiB   |  | 2.0 MiB | +50 %  | 7 reads         |\n"
        "| work | p99     |      | 990.00 ms | +- 250.00 ms | 500.00 ms |  |         |        |                 |\n")
    assert not any(one.missed for one in rows)


def test_kept_figures_are_read_back_and_those_of_other_cases_stay(tmp_path, monkeypatch):
    monkeypatch.setattr(kept, "FILE", tmp_path / "kept.json")
    assert kept.read() == {}
    kept.write([row(0.5, [0.25])])
    kept.write([table.Row("other", "wall", 1.0, [0.123456], True, 0.1)])
    assert kept.read() == {"work, cpu": 0.25, "other, wall": 0.1235}


def test_calls_are_counted_for_each_gib(tmp_path):
    asked = cases.Case("work", ["dd", "if=/dev/zero", f"of={tmp_path / 'out'}", "bs=4K", "count=5"],
                       counted=1 << 29)
    reads, writes, advices = (int(text.split()[0]) for text in
                              measuring.count_calls(asked, None).split(", "))
    assert 10 <= reads < 40 and 10 <= writes < 40 and advices == 0


def test_a_measure_may_bring_many_values_of_a_round(tmp_path):
    turns = []
    def take():
        turns.append(1)
        return {"p50": [(1.0, None), (2.0, None)]}
    (found,) = measuring.measure([cases.Case("work", goals={"p50": None}, take=take)], 2, tmp_path,
                                 lambda text: None, {"work, p50": 3.0})
    assert (found.values, found.kept, len(turns)) == ([1.0, 2.0, 1.0, 2.0], 3.0, 2)


def test_a_run_counts_what_its_children_took(tmp_path):
    burn = "import subprocess, sys; subprocess.run([sys.executable, '-c', 'sum(range(10**7))'])"
    cost, printed = measuring.run([sys.executable, "-c", burn + "; print('done')"])
    idle, _ = measuring.run([sys.executable, "-c", "pass"])
    assert printed == b"done\n"
    assert 0 < idle["cpu"] < cost["cpu"]


def test_a_run_that_fails_ends_the_measuring():
    with pytest.raises(measuring.Failed, match="sh -c ended with 3"):
        measuring.run(["sh", "-c", "exit 3"])


def test_every_run_finds_its_outputs_gone(tmp_path):
    (tmp_path / "file").touch()
    (tmp_path / "folder").mkdir()
    (tmp_path / "folder/file").touch()
    assert measuring.run(["ls", "-A", tmp_path], tmp_path)[1] == b""


def test_cases_take_turns_next_to_their_anchors(tmp_path):
    record = tmp_path / "record"
    def note(word):
        return ["sh", "-c", f"echo {word} >> {record}"]
    asked = [cases.Case("one", note("own1"), {"cpu": 1.0, "wall": 1.0}, anchor=note("anchor1")),
             cases.Case("two", ["sh", "-c", f"echo own2 >> {record}; echo '{{\"cold\": 0.5}}'"],
                        {"cold": 1.0})]
    (tmp_path / "outputs").mkdir()
    rows = measuring.measure(asked, 2, tmp_path / "outputs", lambda text: None)
    assert record.read_text(encoding="ascii").split() == 3 * ["anchor1", "own1", "own2"]
    assert [(row.case, row.measure, len(row.values)) for row in rows] == [
        ("one", "cpu", 2), ("one", "wall", 2), ("two", "cold", 2)]
    assert (rows[2].values, rows[2].anchored, rows[2].verdict) == ([0.5, 0.5], False, "met")


def test_samples_hold_the_same_records_in_every_form(tmp_path, build):
    sample = samples.prepare(tmp_path / "sample", 11, lambda text: None)
    records = scanset.set_records(sample.raw)
    assert len(records) == 11 * 256 and len(sample.raw_files) == 2
    assert scanset.set_records(sample.compressed) == records
    image = sample.image.read_bytes()
    assert len(image) == sample.pool_blocks * 4096
    assert [image[4096 * block:4096 * (block + 1)] for block, _ in records] == [
        content for _, content in records]
    unzipped = subprocess.run(["gzip", "-dc", sample.gzip], capture_output=True, check=True).stdout
    assert hashlib.sha256(unzipped).digest() == hashlib.sha256(scanset.pack_records(records)).digest()
    for folder in (sample.raw, sample.compressed):
        subprocess.run([build / "bin/zsbtool", "check", folder], check=True, capture_output=True)


def test_a_device_gets_its_queue_back(loop, tmp_path):
    with loop(loopdev.sparse_image(tmp_path / "image", 1 << 20)) as device:
        queue = pathlib.Path("/sys/block", pathlib.Path(device).name, "queue")
        def values():
            return [(queue / name).read_text(encoding="ascii").strip()
                    for name in ("max_sectors_kb", "read_ahead_kb")]
        before = values()
        with slow_cases.queue_set(device, max_sectors_kb=64, read_ahead_kb=32):
            assert values() == ["64", "32"]
        assert values() == before


def test_what_stands_in_the_page_cache_of_a_device_is_seen(loop, tmp_path):
    with loop(loopdev.sparse_image(tmp_path / "image", 4 << 20)) as device:
        loopdev.drop_caches(device)
        with slow_cases.CacheWatch(device, 4 << 20) as cache, open(device, "rb") as file:
            file.read()
            while cache.most < 4 << 20:    # it may look while the file is read
                time.sleep(0.01)
        assert cache.most == 4 << 20


def test_the_cases_name_what_they_need(tmp_path):
    sample = samples.prepare(tmp_path / "sample", 1, lambda text: None)
    found = cases.all_cases(cases.Place(tmp_path / "bin", tmp_path / "out", sample, sample))
    assert len({case.name for case in found}) == len(found) >= 5
    for case in found:
        assert case.goals and set(case.goals) <= ({"cpu", "wall"} if case.anchor else
                                                  {"cold", "warm"})
        assert case.zsbtool in case.name
