#!/usr/bin/env python3
"""The measurements of compare.sh: CPU seconds (user and system) of whole processes, pinned to one core, in turn, the
median of 7. A ratio is that of two medians of one run of this script.

    bench/compare.py BUILD_FOLDER [search|scores|regression|scaling|growth|memory|permutations ...]
"""
import os
import statistics
import subprocess
import sys
import tempfile
import time

ROUNDS = 7
BUILD = os.path.abspath(sys.argv[1])
TAVO = os.path.join(BUILD, "src", "tavo")


def make_data(name, samples, snps, cases=50, missing=0, covariates=0, seed=1):
    """A data set as a genotype file and as PLINK 1 binary files: percent of cases, missing genotypes per mille."""
    words = [os.path.join(BUILD, "tools", "tavo-simulate"), "--out", name + ".tavo", "--make-bed", name, "--samples",
             str(samples), "--snps", str(snps), "--cases", "%.2f" % (cases / 100), "--missing", "%.3f" % (missing / 1000),
             "--seed", str(seed)]
    if covariates > 0:
        words += ["--covariates", str(covariates), "--covar-out", name + ".cov"]
    subprocess.run(words, check=True, stdout=subprocess.DEVNULL)
    return name


def run(words, cores):
    """CPU and wall seconds of one process on the given cores."""
    started = time.monotonic()
    child = subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                             preexec_fn=lambda: os.sched_setaffinity(0, cores))
    _, status, usage = os.wait4(child.pid, 0)
    wall = time.monotonic() - started
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        raise RuntimeError("status %d: %s" % (child.returncode, " ".join(words)))
    return usage.ru_utime + usage.ru_stime, wall


def medians(commands, cores=(0,)):
    """Median CPU seconds of each command, taken in turn."""
    times = [[] for _ in commands]
    for _ in range(ROUNDS):
        for i, words in enumerate(commands):
            times[i].append(run(words, set(cores))[0])
    return [statistics.median(t) for t in times]


def tavo(data, *options, workers=1, out="result.csv"):
    return [TAVO, "--in", data + ".tavo", "--out", out, "--thread", "256", "--block", "64", "--gpu",
            str(workers), "--device", "cpu"] + list(options)


def search(data, order="2", measure="ba"):
    return tavo(data, "--order", order, "--measure", measure)


def table(title, header, rows):
    print("\n### %s\n\n| %s |\n|%s" % (title, " | ".join(header), "---|" * len(header)))
    for row in rows:
        print("| %s |" % " | ".join(row))
    sys.stdout.flush()


def pairs(snps):
    return snps * (snps - 1) / 2


def compare_search():
    rows = []

    def compare(what, data, snps, measures=("ba",)):
        boost = ["plink1.9", "--bfile", data, "--fast-epistasis", "boost", "--threads", "1", "--out", "boost"]
        results = medians([boost] + [search(data, measure=m) for m in measures])
        for measure, seconds in zip(measures, results[1:]):
            rows.append((what, measure, "%.1f" % (pairs(snps) / seconds / 1e6), "%.1f" % (pairs(snps) / results[0] / 1e6),
                         "%.1f" % (results[0] / seconds)))

    compare("2,000 samples, 5,000 SNPs", make_data("a", 2000, 5000), 5000,
            ("ba", "accuracy", "homogeneity", "gamma", "tau-b", "tau-c", "somers_d1", "somers_d2", "nmi", "lr"))
    compare("the same, 30% cases", make_data("u", 2000, 5000, cases=30, seed=2), 5000)
    compare("the same, 1% missing", make_data("m", 2000, 5000, missing=10, seed=3), 5000)
    compare("10,000 samples, 5,000 SNPs", make_data("n", 10000, 5000, seed=4), 5000)
    table("Pairs, 10 folds, against a single pass of plink1.9 --fast-epistasis boost",
          ("data", "measure", "million pairs per CPU second", "of plink1.9", "ratio"), rows)
    data = make_data("t", 2000, 500, seed=6)
    seconds = medians([search(data, "3")])[0]
    table("Triples, 10 folds", ("data", "million triples per CPU second"),
          [("2,000 samples, 500 SNPs", "%.1f" % (500 * 499 * 498 / 6 / seconds / 1e6))])


def compare_regression():
    rows = []
    for covariates in (0, 3):
        data = make_data("r%d" % covariates, 2000, 10000, covariates=max(covariates, 1), seed=7)
        mine, theirs = [], ["allow-no-covars"]
        if covariates > 0:
            mine, theirs = ["--covariate", data + ".cov"], []
        glm = ["plink2", "--bfile", data, "--threads", "1", "--glm", "genotypic"] + theirs + ["--out", "glm"]
        if covariates > 0:
            glm += ["--covar", data + ".cov"]
        commands = [glm, tavo(data, "--regression", "logistic", *mine),
                    tavo(data, "--regression", "logistic", "--precision", "double", *mine),
                    tavo(data, "--regression", "linear", *mine),
                    tavo(data, "--regression", "linear", "--precision", "double", *mine)]
        results = medians(commands)
        names = ["plink2 --glm genotypic (logistic)", "logistic, single precision", "logistic, double precision",
                 "linear, single precision", "linear, double precision"]
        for name, seconds in zip(names, results):
            rows.append((name, str(covariates), "%.0f" % (10000 / seconds), "%.1f" % (results[0] / seconds)))
    table("Regressions of 10,000 SNPs, 2,000 samples",
          ("fit", "covariates", "SNPs per CPU second", "ratio to plink2 logistic"), rows)


# Pairs of 1,000 SNPs in 2,000 samples with a score of one covariate.
def scored_search():
    data = make_data("q", 2000, 1000, covariates=1, seed=9)
    subprocess.run([os.path.join(BUILD, "tools", "tavo-score"), "--in", data + ".tavo", "--covariate", data + ".cov",
                    "--out", data + ".score"], check=True)
    return search(data) + ["--score", data + ".score"]


def compare_scores():
    scored = scored_search()
    ten, one = medians([scored, scored + ["--cvfrom", "9"]])
    table("Score-based, 2,000 samples, 1,000 SNPs", ("million pairs per CPU second, ten folds", "the last fold alone",
                                                     "ten folds, of ten scans of one"),
          [("%.2f" % (pairs(1000) / ten / 1e6), "%.2f" % (pairs(1000) / one / 1e6), "1/%.1f" % (10 * one / ten))])


def compare_permutations():
    rows = []
    permutations = 20
    kinds = [(snps, order, measure, search(make_data("p%d" % snps, 2000, snps, seed=11), order, measure))
             for snps, order, measure in ((300, "2", "ba"), (1000, "2", "ba"), (1000, "2", "gamma"), (5000, "2", "ba"),
                                          (100, "3", "ba"))]
    for snps, order, measure, plain in kinds + [(1000, "2", "ba, of scores", scored_search())]:
        once, permuted = medians([plain, plain + ["--permutations", str(permutations)]])
        one = (permuted - once) / permutations
        rows.append(("%d" % snps, order, measure, "%.1f" % (once * 1e3), "%.1f" % (one * 1e3), "%.2f" % (one / once)))
    table("Permuted runs, 2,000 samples, one worker",
          ("SNPs", "order", "measure", "CPU ms of a run", "of a permutation", "of a run"), rows)


def run_together(commands):
    """Wall seconds until all commands have ended, command i on core i."""
    started = time.monotonic()
    children = [subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                 preexec_fn=lambda core=core: os.sched_setaffinity(0, {core}))
                for core, words in enumerate(commands)]
    statuses = [child.wait() for child in children]
    wall = time.monotonic() - started
    if any(statuses):
        raise RuntimeError("statuses %s: %s" % (statuses, " ".join(commands[0])))
    return wall


def compare_scaling():
    data = make_data("a", 2000, 20000)

    def command(workers, out):
        return tavo(data, "--order", "2", "--measure", "ba", workers=workers, out=out)

    times = {"one": [], "two": [], "copies": []}
    for _ in range(ROUNDS):
        times["one"].append(run(command(1, "one.csv"), {0})[1])
        times["two"].append(run(command(2, "two.csv"), {0, 1})[1])
        times["copies"].append(run_together([command(1, "one.csv"), command(1, "other.csv")]))
    one, two, copies = (statistics.median(times[what]) for what in ("one", "two", "copies"))
    # What two cores give at most: two runs at once that share nothing but the machine.
    table("Two workers, 2,000 samples, 20,000 SNPs",
          ("wall seconds of one", "of two", "ratio", "of two runs of one worker at once", "ratio that this leaves"),
          [("%.2f" % one, "%.2f" % two, "%.2f" % (one / two), "%.2f" % copies, "%.2f" % (2 * one / copies))])


def peak_memory(words):
    """Largest resident set of a process in MiB."""
    child = subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        raise RuntimeError("status %d: %s" % (child.returncode, " ".join(words)))
    return usage.ru_maxrss / 1024


def early_peak_memory(words, seconds=15):
    """The same of a process that is ended after so many seconds, long after it has all that it needs."""
    child = subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    time.sleep(seconds)
    with open("/proc/%d/status" % child.pid) as status:
        peak = next(int(line.split()[1]) for line in status if line.startswith("VmHWM"))
    child.terminate()
    child.wait()
    return peak / 1024


def compare_memory():
    rows = []
    for samples, snps, order, measure, missing in ((2000, 20000, "2", "ba", 0), (2000, 20000, "2", "gamma", 0),
                                                   (2000, 20000, "2", "gamma", 10), (10000, 5000, "2", "ba", 10),
                                                   (2000, 500, "3", "ba", 0), (2000, 500000, "2", "ba", 10),
                                                   (2000, 500000, "2", "nmi", 10)):
        data = make_data("h", samples, snps, missing=missing, seed=10)
        file = os.path.getsize(data + ".tavo") / 2**20
        measured = early_peak_memory if snps > 100000 else peak_memory
        peak = measured(search(data, order, measure))
        rows.append(("%d" % samples, "%d" % snps, order, measure, "%.0f%%" % (missing / 10), "%.1f" % file, "%.1f" % peak,
                     "%.1f" % ((peak - 200) / file) if peak > 200 else "below 200 MiB"))
    table("Memory of a search, one worker", ("samples", "SNPs", "order", "measure", "missing", "file, MiB", "peak, MiB",
                                 "beyond 200 MiB, of the file"), rows)


def compare_growth():
    rows = []
    for samples, snps in ((2000, 1000), (2000, 5000), (2000, 20000), (500, 5000), (10000, 2000), (50000, 1000)):
        data = make_data("g", samples, snps, seed=8)
        seconds = medians([search(data)])[0]
        rows.append(("%d" % samples, "%d" % snps, "%.2f" % (seconds / pairs(snps) * 1e9),
                     "%.2f" % (seconds / pairs(snps) / samples * 1e12)))
    table("Cost of a pair, 10 folds", ("samples", "SNPs", "ns per pair", "ps per pair and sample"), rows)


def processor():
    with open("/proc/cpuinfo") as info:
        for line in info:
            if line.startswith("model name"):
                return line.split(":", 1)[1].strip()
    return "unknown processor"


def main():
    kinds = {"search": compare_search, "scores": compare_scores, "regression": compare_regression, "scaling": compare_scaling,
             "growth": compare_growth, "memory": compare_memory, "permutations": compare_permutations}
    wanted = sys.argv[2:] or list(kinds)
    with tempfile.TemporaryDirectory() as work:
        os.chdir(work)
        print("%s, %d cores, %s" % (processor(), os.cpu_count(), time.strftime("%Y-%m-%d")))
        for kind in wanted:
            kinds[kind]()


if __name__ == "__main__":
    main()
