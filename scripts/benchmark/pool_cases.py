"""What saves and restores are measured against: programs that read, write, pack and store no more than
they must."""

import contextlib
import dataclasses

import pool_samples
from case import Case

BEGIN = ("save", "restore")    # how the names of these cases begin
READ = 'dd if="$1" of=/dev/null bs=1M'


def shell(script, *words):
    return ["sh", "-c", f"({script}) 2>/dev/null", "sh", *words]


@contextlib.contextmanager
def all_cases(tool, mkpool, say):
    with pool_samples.attached(mkpool, say) as (pools, large, outputs):
        yield cases_of(tool, pools, large, outputs)


def cases_of(tool, pools, large, outputs):
    def run(*words):
        return ["env", "-C", outputs, "TERM=xterm-256color", tool, "--bypass-ostrel", "--automatic",
                *words]

    def save(pool, *options):
        return run(*options, "save", "POOL", getattr(pool, "device", pool))

    def restore(pool, folder):
        return run("--danger", "--validation-skip", "-P", folder, "restore", "POOL", pool.target)

    few, many = pools["5 %"], pools["50 %"]
    cases = [
        Case("save 5 % / read", save(few), {"cpu": 2.2}, anchor=shell(READ, few.device)),
        Case("save 5 % / read, write", save(few), {"cpu": 1.5},
             anchor=shell(READ + '; dd if="$2" of="$3" bs=1M', few.device, few.records,
                          outputs / "out")),
        Case("save 5 % / read, write by record", save(few), {"cpu": 1.25},
             anchor=shell(READ + '; dd if="$2" of="$3" bs=4104', few.device, few.records,
                          outputs / "out")),
        Case("save 50 % / read, write", save(many), {"cpu": 1.8},
             anchor=shell(READ + '; dd if="$2" of="$3" bs=1M', many.device, many.records,
                          outputs / "out")),
        Case("save 4 GiB / read", save(large), {"cpu": 2.2}, anchor=shell(READ, large)),
        Case("save -c 5 % / gzip", save(few, "-c"), {"cpu": 0.95},
             anchor=shell('gzip -6 <"$1" >"$2"', few.records, outputs / "out")),
        *(Case(f"restore {name} / write", restore(pool, pool.raw), {"cpu": 1.1},
               anchor=shell('dd if="$1" of="$2" bs=4K conv=fsync', pool.records, pool.target))
          for name, pool in pools.items()),
        Case("restore -c 5 % / gzip -d, write", restore(few, few.compressed), {"cpu": 0.6},
             anchor=shell('gzip -dc "$1" | dd of="$2" bs=4K iflag=fullblock conv=fsync', few.gzip,
                          few.target)),
    ]
    return [dataclasses.replace(case, outputs=outputs,
                                counted=pool_samples.LARGE if "4 GiB" in case.name else pool_samples.SMALL)
            for case in cases]
