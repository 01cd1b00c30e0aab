"""Sample pool images, made once in a build folder and shared by all tests and workers."""

import contextlib
import dataclasses
import fcntl
import json
import os
import pathlib
import subprocess

import ostrelscan


@dataclasses.dataclass(frozen=True)
class Pool:
    """A sample pool: never write to `path`, take a copy for that."""

    path: pathlib.Path
    size: int
    blocks: int
    seed: int
    superblock: str
    types: dict  # how many blocks of each type were planted

    @property
    def internal(self):
        return self.blocks - self.types["User"]

    def copy_to(self, path):
        """A sparse copy for a test of its own."""
        subprocess.run(["cp", "--sparse=always", "--reflink=auto", "--no-preserve=mode",
                        str(self.path), str(path)], check=True)
        return pathlib.Path(path)


@contextlib.contextmanager
def _locked(path):
    with open(path, "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def _make(mkpool, options, image, facts):
    """Makes both files under other names first: a killed run leaves nothing half done."""
    fresh = image.with_suffix(".new")
    made = subprocess.run([mkpool, *options, fresh], check=True, capture_output=True, text=True)
    fresh.chmod(0o444)
    fresh.replace(image)
    facts.with_suffix(".newjson").write_text(made.stdout, encoding="utf-8")
    facts.with_suffix(".newjson").replace(facts)


def pool(size="64M", seed=1, internal=0.35, superblock="SPB5"):
    """The pool that mkpool makes from these arguments."""
    mkpool = ostrelscan.helper("mkpool")
    folder = mkpool.parent / "pools"
    folder.mkdir(exist_ok=True)
    image = folder / f"{size}-{seed}-{internal}-{superblock}.img"
    facts = image.with_suffix(".json")
    options = ["--size", str(size), "--seed", str(seed), "--internal", str(internal),
               "--superblock", superblock]
    with _locked(image.with_suffix(".lock")):
        if not facts.exists() or os.path.getmtime(facts) < os.path.getmtime(mkpool):
            _make(mkpool, options, image, facts)
        return Pool(path=image, **json.loads(facts.read_text(encoding="utf-8")))
