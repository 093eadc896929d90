#!/usr/bin/env python3
"""Whole runs on the CPU against the same runs on the GPU, byte for byte but for times and the command line.
Regressions with --distinct, whose sums run in another order on a GPU, are compared within rounding.

    scripts/gpu_parity.py TAVO                  all runs
    scripts/gpu_parity.py TAVO --small          the small ones
    scripts/gpu_parity.py TAVO --cuda-program P the GPU's half by another program

Prints the times of both. The status is 1 when a run fails or a result differs. Needs nothing beyond Python.
"""
import argparse
import glob
import os
import random
import re
import struct
import subprocess
import sys
import tempfile
import time

# Lines of a result file that differ between two runs of the same analysis.
DIFFERING = re.compile(r"Total time,|Command,|[0-9]+\.gpu_count,")

MEASURES = ["ba", "accuracy", "homogeneity", "gamma", "tau-b", "tau-c", "somers_d1", "somers_d2", "nmi", "lr"]


def write_genotypes(path, n_samples, n_snps, missing, seed, quantitative=False):
    """A genotype file in the normal layout: random genotypes, classes with an interaction of the first two SNPs, or
    quantitative phenotypes."""
    draw = random.Random(seed)
    words = (n_snps + 15) // 16
    codes = [0] * 100 * 36
    for i in range(len(codes)):  # genotype frequencies 0.49, 0.42, 0.09
        codes[i] = 3 if draw.random() < missing else draw.choices((0, 1, 2), (49, 42, 9))[0]
    with open(path, "wb") as out:
        out.write(b"TAVO" + struct.pack("<iii", n_samples, n_snps, 8))
        for j in range(n_snps):
            out.write(("s%d" % (j + 1)).encode().ljust(8, b"\0"))
        for _ in range(n_samples):
            row = draw.choices(codes, k=n_snps)
            odds = 0.75 if n_snps > 1 and row[0] < 3 and row[1] < 3 and (row[0] + row[1]) % 2 == 1 else 0.4
            if quantitative:
                out.write(struct.pack("<f", draw.gauss(odds, 1)))
            else:
                out.write(struct.pack("<i", 1 if draw.random() < odds else 0))
            for w in range(words):
                word = 0
                for i, code in enumerate(row[16 * w:16 * w + 16]):
                    word |= code << (2 * i)
                out.write(struct.pack("<I", word))


def write_scores(path, n_samples, seed):
    """Scores whose sums depend on the order of the additions: large ones cancel and swallow small ones on the way."""
    draw = random.Random(seed)
    with open(path, "w") as out:
        out.write("score\n")
        for _ in range(n_samples):
            value = draw.choice((draw.gauss(0, 1), draw.gauss(0, 1), draw.gauss(0, 1) * 1e-6, 1e8, -1e8, 0))
            out.write("%.9g\n" % value)


def write_covariates(path, n_samples, n_covariates, seed):
    draw = random.Random(seed)
    with open(path, "w") as out:
        out.write("\t".join(["FID", "IID"] + ["c%d" % c for c in range(n_covariates)]) + "\n")
        for _ in range(n_samples):
            out.write("\t".join(["f", "i"] + ["%.6g" % draw.gauss(0, 1) for _ in range(n_covariates)]) + "\n")


class Case:
    def __init__(self, n_samples, n_snps, missing, options, scores=False, small=True, covariates=0):
        self.n_samples, self.n_snps, self.missing = n_samples, n_snps, missing
        self.options, self.scores, self.small, self.covariates = options, scores, small, covariates
        self.regression = "--regression" in options
        self.quantitative = "linear" in options
        self.distinct = "--distinct" in options

    def name(self):
        return "%d samples, %d SNPs%s: %s%s" % (self.n_samples, self.n_snps, ", missing" if self.missing else "",
                                                " ".join(self.options), ", scores" if self.scores else
                                                ", %d covariates" % self.covariates if self.covariates else "")


def cases():
    for i, measure in enumerate(MEASURES):
        missing = ("none", "mc", "complete", "available")[i % 4]
        yield Case(300 + i, 40, 0.03 * (i % 2), ["--order", "1-3", "--measure", measure, "--missing", missing,
                                                 "--tie", str(i % 3), "--cv", str(2 + i)])
    for missing in ("none", "mc", "complete", "available"):
        yield Case(257, 33, 0.01, ["--order", "1-3", "--measure", "ba", "--missing", missing], scores=True)
    yield Case(200, 12, 0.02, ["--order", "4-8", "--measure", "ba", "--cv", "5"])
    yield Case(200, 12, 0.02, ["--order", "4-8", "--measure", "ba", "--cv", "5"], scores=True)
    yield Case(150, 30, 0.02, ["--order", "2-3", "--measure", "ba", "--mode", "0", "--cv", "3"])
    yield Case(150, 30, 0.02, ["--order", "2", "--measure", "ba", "--cv", "4", "--cvfrom", "2", "--top", "400"])
    yield Case(40, 20, 0, ["--order", "2", "--measure", "accuracy", "--cv", "1"])
    yield Case(5, 10, 0.2, ["--order", "1-2", "--measure", "lr", "--cv", "7"])
    for precision in ("single", "double"):
        regression = ["--precision", precision, "--top", "1000", "--regression"]
        for covariates in (0, 2, 7):
            yield Case(301, 70, 0.02, regression + ["logistic"], covariates=covariates)
            yield Case(301, 70, 0.02, regression + ["linear"], covariates=covariates)
            yield Case(301, 13, 0.02 * (covariates > 0), regression + ["logistic", "--order", "2"], covariates=covariates)
        yield Case(301, 70, 0, regression + ["logistic", "--iter", "0"], covariates=1)
        yield Case(600, 9, 0.01, regression + ["logistic", "--order", "2", "--distinct", "1"], covariates=2)
        yield Case(2000, 20000, 0, regression + ["logistic"], covariates=2, small=False)
        yield Case(2000, 20000, 0, regression + ["linear"], covariates=2, small=False)
        yield Case(2000, 100, 0, regression + ["logistic", "--order", "2"], covariates=2, small=False)
        yield Case(20000, 12, 0, regression + ["logistic", "--order", "2", "--distinct", "1"], small=False)
    yield Case(2000, 3000, 0, ["--order", "2", "--measure", "ba"], small=False)
    yield Case(2000, 400, 0.01, ["--order", "3", "--measure", "ba"], small=False)
    yield Case(2000, 400, 0, ["--order", "3", "--measure", "nmi"], small=False)
    yield Case(20000, 500, 0, ["--order", "2", "--measure", "tau-b"], small=False)
    yield Case(2000, 600, 0, ["--order", "2", "--measure", "ba"], scores=True, small=False)
    yield Case(1000, 60, 0, ["--order", "4", "--measure", "ba"], small=False)


def deviances(table):
    """The deviances of a tidy table by pair."""
    head, *rows = [line.rstrip("\n").split("\t") for line in table]
    columns = [head.index(name) for name in ("snp1", "snp2", "status", "deviance")]
    return {tuple(row[c] for c in columns[:3]): float(row[columns[3]]) for row in rows}


def agree(case, cpu, cuda):
    """Whether two distinct runs found the same deviances, as far as both may be off."""
    a, b = deviances(cpu), deviances(cuda)
    tolerance = 1e-9 if "double" in case.options else 2 * case.n_samples * 6e-8
    return len(a) > 0 and a.keys() == b.keys() and all(abs(a[k] - b[k]) <= tolerance * a[k] for k in a)


def run(program, device, case, data, scores, covariates, folder):
    os.mkdir(folder)
    words = [program, "--in", data, "--out", "result.csv", "--thread", "256", "--block", "64", "--device", device]
    words += case.options
    if case.regression:
        words += ["--tidy", "tidy.tsv"] + (["--covariate", covariates] if case.covariates else [])
    else:
        words += ["--shuffling", "1", "--seed", "5"]
    if case.scores:
        words += ["--score", scores]
    started = time.monotonic()
    done = subprocess.run(words, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    seconds = time.monotonic() - started
    if done.returncode != 0:
        raise RuntimeError("%s ended with status %d:\n%s" % (" ".join(words), done.returncode,
                                                                    done.stdout[-300:] + done.stderr))
    expected = "tavo: CUDA," if device == "cuda" else "tavo: CPU,"
    if expected not in done.stderr:
        raise RuntimeError("%s did not run on %s:\n%s" % (" ".join(words), device, done.stderr))
    with open(os.path.join(folder, "result.csv")) as result:
        lines = [line for line in result if not DIFFERING.match(line)]
    if case.regression:
        with open(os.path.join(folder, "tidy.tsv")) as table:
            lines = table.readlines() if case.distinct else lines + table.readlines()
    # The folds' lists have a random number before their name.
    for path in sorted(glob.glob(os.path.join(glob.escape(folder), "*tmp_cv_*")), key=lambda p: p.split("tmp_cv_")[1]):
        with open(path) as part:
            lines += [path.split("tmp_cv_")[1] + "\n"] + part.readlines()
    return lines, seconds


def main():
    arguments = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    arguments.add_argument("program")
    arguments.add_argument("--cuda-program")
    arguments.add_argument("--small", action="store_true")
    given = arguments.parse_args()
    cpu_program = os.path.abspath(given.program)
    cuda_program = os.path.abspath(given.cuda_program or given.program)
    failures = 0
    n_cases = 0
    with tempfile.TemporaryDirectory() as work:
        for i, case in enumerate(cases()):
            if given.small and not case.small:
                continue
            n_cases += 1
            inputs = [os.path.join(work, name) for name in ("data", "scores", "covariates")]
            write_genotypes(inputs[0], case.n_samples, case.n_snps, case.missing, 100 + i, case.quantitative)
            write_scores(inputs[1], case.n_samples, 200 + i)
            write_covariates(inputs[2], case.n_samples, case.covariates, 300 + i)
            try:
                cpu, cpu_seconds = run(cpu_program, "cpu", case, *inputs, os.path.join(work, "cpu%d" % i))
                cuda, cuda_seconds = run(cuda_program, "cuda", case, *inputs, os.path.join(work, "cuda%d" % i))
            except RuntimeError as error:
                print("FAILED  %s\n%s" % (case.name(), error))
                failures += 1
                continue
            if cpu == cuda or (case.distinct and agree(case, cpu, cuda)):
                print("same    CPU %7.2f s, CUDA %7.2f s  %s" % (cpu_seconds, cuda_seconds, case.name()))
                continue
            failures += 1
            print("DIFFER  %s" % case.name())
            for a, b in [(a, b) for a, b in zip(cpu, cuda) if a != b][:3]:
                print("  CPU:  %s  CUDA: %s" % (a, b), end="")
            if len(cpu) != len(cuda):
                print("  %d and %d lines" % (len(cpu), len(cuda)))
    print("%d whole runs, %d without the same result" % (n_cases, failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
