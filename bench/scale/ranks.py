#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Whole runs of tavo with 1, 2 and 4 ranks on this machine, one worker each: wall and processor time.

    bench/scale/ranks.py [--build build/release] [--rounds 7] [--ranks 1,2,4] [--samples N] [--pairs-of N] [--triples-of N]

Simulates data (tavo-simulate), then runs in turn, each round once: the program without a launcher, and by mpirun
with each number of ranks; the same without anything to search (two SNPs), which is the start. Prints medians: the
time on the clock and the processor time of all processes, mpirun's own included.
"""
import argparse
import os
import pathlib
import resource
import statistics
import subprocess
import sys
import tempfile
import time

# More ranks than processors, and root in containers.
ANYWHERE = {
    "OMPI_ALLOW_RUN_AS_ROOT": "1",
    "OMPI_ALLOW_RUN_AS_ROOT_CONFIRM": "1",
    "OMPI_MCA_rmaps_base_oversubscribe": "1",
}


def processor_seconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def run(command, folder):
    before, begin = processor_seconds(), time.monotonic()
    done = subprocess.run(command, cwd=folder, env=os.environ | ANYWHERE, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True, timeout=600)
    if done.returncode != 0:
        sys.exit(f"ranks.py: {' '.join(command)}: status {done.returncode}\n{done.stderr}")
    return time.monotonic() - begin, processor_seconds() - before


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build/release")
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--ranks", default="1,2,4")
    parser.add_argument("--samples", type=int, default=5000)
    parser.add_argument("--pairs-of", type=int, default=20000, help="SNPs of the pairs")
    parser.add_argument("--triples-of", type=int, default=500, help="SNPs of the triples")
    options = parser.parse_args()
    build = pathlib.Path(options.build).resolve()
    with tempfile.TemporaryDirectory() as folder:
        jobs = {}
        for name, snps, order in (("start", 2, 2), ("pairs", options.pairs_of, 2), ("triples", options.triples_of, 3)):
            subprocess.run([build / "tools/tavo-simulate", "--out", f"{name}.tavo", "--samples", str(options.samples),
                            "--snps", str(snps), "--seed", "1"], cwd=folder, check=True, stderr=subprocess.DEVNULL)
            program = [str(build / "src/tavo"), "--in", f"{name}.tavo", "--out", "r.csv", "--order", str(order),
                       "--measure", "ba", "--thread", "256", "--block", "64", "--device", "cpu", "--gpu", "1"]
            jobs[name, "alone"] = program
            for ranks in options.ranks.split(","):
                jobs[name, ranks] = ["mpirun", "--bind-to", "none", "-n", ranks, *program]
        times = {job: [] for job in jobs}
        for _ in range(options.rounds):
            for job, command in jobs.items():
                times[job].append(run(command, folder))
    print("run      ranks   seconds   CPU seconds")
    for (name, ranks), measured in times.items():
        wall, processor = (statistics.median(column) for column in zip(*measured))
        print(f"{name:7s}  {ranks:5s}  {wall:8.3f}  {processor:12.3f}")


if __name__ == "__main__":
    main()
