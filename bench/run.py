#!/usr/bin/env python3
"""Measures Quarvel side by side with its peers and writes docs/benchmarks.md with its plots.

Every round runs ours and each peer once, one after the other, so that a slow minute of the machine hits them all; what
is compared is the ratio within a round. Inputs are made below build/bench/inputs on the first run.
"""
import argparse
import itertools
import json
import os
import random
import resource
import shutil
import statistics
import subprocess
import sys
import time
import typing
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "bench"
INPUTS = BUILD / "inputs"
BIN = BUILD / "bin"


# --- inputs ----------------------------------------------------------------------------------------------------------

def manifest(groups):
    """update.xml for {folder: [file name, ...]}; every file is an application."""
    lines = ['<?xml version="1.0" encoding="UTF-8" standalone="yes" ?>', "<UPDATE>", "  <GroupList>"]
    for folder, files in groups.items():
        lines += ["    <Group>", f"      <Name>{folder}</Name>", "      <Version>1.0</Version>",
                  f"      <Folder>{folder}</Folder>", "      <PenTypes>0</PenTypes>", "      <FileList>"]
        for order, name in enumerate(files):
            lines += ["        <Package>", f"          <Name>{name} &amp; more</Name>",
                      f"          <FileName>{name}</FileName>", f"          <GUID>{name[:15]}</GUID>",
                      "          <Version>1.0</Version>", "          <FileType>PenApp</FileType>",
                      f"          <TransferOrder>{order}</TransferOrder>", "        </Package>"]
        lines += ["      </FileList>", "    </Group>"]
    lines += ["  </GroupList>", "</UPDATE>", ""]
    return "\n".join(lines)


def content(rng, size):
    """Bytes of which about 60 % stay after deflate: random blocks between runs of a repeated text."""
    block = 4096
    parts = []
    for start in range(0, size, block):
        n = min(block, size - start)
        noise = int(n * 0.6)
        parts.append(rng.randbytes(noise) + b"pen application " * ((n - noise) // 16 + 1))
        parts[-1] = parts[-1][:n]
    return b"".join(parts)


def make_bundle(name, folders, files_per_folder, size):
    """Packs a signed bundle unless it is there already; returns its path."""
    bundle = INPUTS / f"{name}.zip"
    if bundle.exists():
        return bundle
    print(f"making {bundle.name}", flush=True)
    source = INPUTS / name
    shutil.rmtree(source, ignore_errors=True)
    rng = random.Random(name)
    groups = {}
    for f in range(folders):
        folder = f"G{f:03}"
        (source / folder).mkdir(parents=True)
        groups[folder] = [f"f{i:05}.app" for i in range(files_per_folder)]
        for file in groups[folder]:
            (source / folder / file).write_bytes(content(rng, size))
    (source / "update.xml").write_text(manifest(groups))
    subprocess.run([BIN / "quarvel-bundle", "pack", source, "-o", bundle, "--key", INPUTS / "key.pem", "--cert",
                    INPUTS / "cert.pem"], check=True, stdout=subprocess.DEVNULL)
    return bundle


def make_key():
    INPUTS.mkdir(parents=True, exist_ok=True)
    if not (INPUTS / "cert.pem").exists():
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "3650", "-subj",
                        "/C=SE/O=Example/CN=Bench", "-keyout", INPUTS / "key.pem", "-out", INPUTS / "cert.pem"],
                       check=True, stderr=subprocess.DEVNULL)


# --- measuring -------------------------------------------------------------------------------------------------------

def extraction_folder(bundle):
    """Where the library unpacks this bundle."""
    status = bundle.stat()
    return Path("/tmp") / f"{status.st_size & 0xFFFFFFFF}_{(int(status.st_mtime) << 32) + (status.st_size >> 32)}"


class Run(typing.NamedTuple):
    """One run of a program."""
    seconds: float  # wall clock
    cpu: float  # seconds of all cores
    memory: float  # peak, in MB
    step: float  # seconds that the program printed for its own last step, without its start; else as `seconds`


def run_once(command, prepare=None):
    if prepare:
        prepare()
    peak = BUILD / "peak"
    used, before = resource.getrusage(resource.RUSAGE_CHILDREN), time.perf_counter()
    # A program inherits the peak of the process that starts it: time's is small, Python's is not.
    process = subprocess.run(["time", "-f", "%M", "-o", peak, *map(str, command)], stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE)
    seconds, after = time.perf_counter() - before, resource.getrusage(resource.RUSAGE_CHILDREN)
    if process.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))} failed: {process.stderr.decode()[:500]}")
    cpu = after.ru_utime + after.ru_stime - used.ru_utime - used.ru_stime
    step = float(process.stdout) if Path(command[0]).name.startswith("bench_") else seconds
    return Run(seconds, cpu, int(peak.read_text()) / 1024, step)


class Contest:
    """Ours against peers on one input: rounds of one run each. With `alone`, ours counts without its process's start
    and the steps before the last; a peer always counts whole."""

    def __init__(self, title, goal, ours, peers, prepare=None, alone=False):
        self.title, self.goal, self.prepare, self.alone = title, goal, prepare, alone
        self.commands = {"quarvel": ours, **peers}
        self.runs = {name: [] for name in self.commands}

    def run(self, rounds):
        for command in self.commands.values():  # warm the page cache
            run_once(command, self.prepare)
        for _ in range(rounds):
            for name, command in self.commands.items():
                self.runs[name].append(run_once(command, self.prepare))
        return self

    def seconds(self, name):
        return [run.step if self.alone else run.seconds for run in self.runs[name]]

    def best_peer(self):
        return min((n for n in self.commands if n != "quarvel"), key=lambda n: statistics.median(self.seconds(n)))

    def ratios(self):
        return [o / p for o, p in zip(self.seconds("quarvel"), self.seconds(self.best_peer()))]

    def row(self):
        ratios, peer = self.ratios(), self.best_peer()
        median = statistics.median(ratios)
        ours, theirs = (statistics.median(self.seconds(n)) for n in ("quarvel", peer))
        cpu = [f"{statistics.median(run.cpu for run in self.runs[n]):.3f} s" for n in ("quarvel", peer)]
        peak = [f"{max(run.memory for run in self.runs[n]):.0f} MB" for n in ("quarvel", peer)]
        return " | ".join((f"| {self.title}", f"{ours:.4f} s", f"{peer} {theirs:.4f} s",
                           f"{median:.2f} ({min(ratios):.2f} to {max(ratios):.2f})", f"{self.goal}",
                           "met" if median <= self.goal else "missed",
                           "" if self.alone else f"{cpu[0]}, {cpu[1]}", f"{peak[0]}, {peak[1]} |"))


def load_contests(big, small):
    scratch = BUILD / "scratch"

    def clean(bundle):
        def prepare():
            shutil.rmtree(scratch, ignore_errors=True)
            scratch.mkdir()
            shutil.rmtree(extraction_folder(bundle), ignore_errors=True)
        return prepare

    def extractors(bundle):
        return {"unzip": ["unzip", "-qq", "-o", bundle, "-d", scratch],
                "bsdtar": ["bsdtar", "-xf", bundle, "-C", scratch],
                "7z": ["7zz", "x", "-y", "-bd", f"-o{scratch}", bundle],
                "python zipfile": ["python3", "-m", "zipfile", "-e", bundle, scratch]}

    def unpacked(bundle):
        folder = BUILD / f"unpacked-{bundle.stem}"
        if not folder.exists():
            subprocess.run(["unzip", "-qq", "-o", bundle, "-d", folder], check=True)
        return folder

    def cold(title, bundle):
        return Contest(title, 0.6, [BIN / "bench_bundle", "load", bundle], extractors(bundle), clean(bundle))

    def bench(work, bundle, *more):
        return [BIN / "bench_bundle", work, bundle, *more]

    inputs = (("8 files of 64 MB", big), ("20,000 files of 4 KB", small))
    yield cold("load, 8 files of 64 MB", big)
    for title, bundle in inputs:
        peers = {"unzip -n": ["unzip", "-qq", "-n", bundle, "-d", unpacked(bundle)]}
        yield Contest(f"load again, whole process, {title}", 0.1, bench("load", bundle), peers)
        yield Contest(f"load again, in a running host, {title}", 0.1, bench("again", bundle), peers, alone=True)
    for (title, bundle), goal, peer in zip(inputs, (0.6, 1.0), (["openssl", "dgst", "-sha1"], ["sha1sum"])):
        files = sorted(str(f) for f in unpacked(bundle).rglob("*") if f.is_file())
        peers = {" ".join(peer): ["xargs", "-a", write_list(files, bundle), *peer]}
        ours = bench("verify", bundle, INPUTS / "cert.pem")
        yield Contest(f"load again and verify, whole process, {title}", goal, ours, peers)
        yield Contest(f"verify, in a running host, {title}", goal, ours, peers, alone=True)
    yield cold("load, 20,000 files of 4 KB", small)


def make_manifest(packages):
    """An update.xml of its own, in the shape that bench_xml gives it; returns its path."""
    path = INPUTS / f"manifest-{packages}.xml"
    if not path.exists():
        subprocess.run([BIN / "bench_xml", "make", str(packages), path], check=True)
    return path


def xml_contests():
    """Parsing alone, and parsing with reading all groups and packages; small documents many times in one process."""
    for packages, times in ((100_000, 1), (1_000, 200)):
        path = make_manifest(packages)
        title = f"{packages:,} packages" + (f", {times} times" if times > 1 else "")

        def command(work, parser):
            return [BIN / "bench_xml", work, parser, path, times]
        peers = ("pugixml", "expat", "libxml2", "tinyxml2")
        yield Contest(f"parse a manifest of {title}", 1.0 if times == 1 else 1.2, command("parse", "quarvel"),
                      {p: command("parse", p) for p in peers})
        yield Contest(f"read the records of {title}", 1.5, command("records", "quarvel"),
                      {"pugixml": command("records", "pugixml")})


def write_list(files, bundle):
    path = BUILD / f"files-{bundle.stem}.txt"
    path.write_text("\n".join(files) + "\n")
    return path


class Growth:
    """The same work on ever more of the same; a round runs each size once."""

    def __init__(self, title, commands, prepare=None, repeats=1):
        self.title, self.commands, self.prepare, self.repeats = title, commands, prepare or {}, repeats
        self.runs = {count: [] for count in commands}

    def run(self, rounds):
        for _ in range(rounds * self.repeats):
            for count, command in self.commands.items():
                self.runs[count].append(run_once(command, self.prepare.get(count)))
        return self

    def table(self):
        seconds = {n: statistics.median(run.step for run in runs) for n, runs in self.runs.items()}
        cpu = {n: statistics.median(run.cpu for run in runs) for n, runs in self.runs.items()}
        first = next(iter(seconds))
        return [f"{self.title}:", "", "| | seconds | times the first | CPU seconds | times the first | peak |",
                "|---|---|---|---|---|---|",
                *[f"| {n:,} | {seconds[n]:.4f} | {seconds[n] / seconds[first]:.1f} | {cpu[n]:.3f} | "
                  f"{cpu[n] / cpu[first]:.1f} | {max(run.memory for run in self.runs[n]):.0f} MB |" for n in seconds],
                ""]


def growths():
    """1,000, 10,000 and 100,000 small files and packages. Files are loaded from cold, loaded again and verified."""
    counts = (1000, 10000, 100000)
    yield Growth("Growth, packages parsed", {n: [BIN / "bench_xml", "parse", "quarvel", make_manifest(n), 1]
                                             for n in counts}, repeats=5)
    bundles = {n: make_bundle(f"growth-{n}", n // 200, 200, 512) for n in counts}

    def clean(bundle):
        return lambda: shutil.rmtree(extraction_folder(bundle), ignore_errors=True)

    yield Growth("Growth, files loaded from cold", {n: [BIN / "bench_bundle", "load", b] for n, b in bundles.items()},
                 {n: clean(b) for n, b in bundles.items()})
    yield Growth("Growth, files loaded again", {n: [BIN / "bench_bundle", "again", b] for n, b in bundles.items()})
    yield Growth("Growth, files verified",
                 {n: [BIN / "bench_bundle", "verify", b, INPUTS / "cert.pem"] for n, b in bundles.items()})


def google_benchmark(program):
    """{name: nanoseconds} of a Google Benchmark program, medians of its repetitions."""
    out = subprocess.run([BIN / program, "--benchmark_format=json", "--benchmark_repetitions=5",
                          "--benchmark_enable_random_interleaving=true",
                          "--benchmark_report_aggregates_only=true"], check=True, capture_output=True, text=True)
    return {b["run_name"]: b["real_time"] for b in json.loads(out.stdout)["benchmarks"]
            if b.get("aggregate_name") == "median"}


# --- report ----------------------------------------------------------------------------------------------------------

def plot(contests, path):
    import matplotlib
    matplotlib.use("svg")
    import matplotlib.pyplot as plt
    figure, axes = plt.subplots(len(contests), 1, figsize=(7.5, 1.5 * len(contests)), squeeze=False)
    for axis, contest in zip(axes[:, 0], contests):
        names = list(contest.commands)[::-1]
        medians = [statistics.median(contest.seconds(n)) for n in names]
        spread = [[m - min(contest.seconds(n)) for m, n in zip(medians, names)],
                  [max(contest.seconds(n)) - m for m, n in zip(medians, names)]]
        axis.barh(names, medians, xerr=spread, color=["#c8c8c8" if n != "quarvel" else "#3465a4" for n in names])
        goal = contest.goal * statistics.median(contest.seconds(contest.best_peer()))
        axis.axvline(goal, color="#c00", linestyle="--", linewidth=1)
        axis.set_title(contest.title, loc="left", fontsize=9)
        axis.tick_params(labelsize=8)
    axes[-1, 0].set_xlabel("seconds, median with the range of all rounds; dashed: the goal", fontsize=8)
    figure.tight_layout()
    figure.savefig(path)


def report(contests, tables, micro, rounds, path):
    text = ["# Benchmarks", "",
            "Written by `scripts/bench`. Every round runs the library and each peer once, one after the other; the",
            f"ratio is taken within a round. Medians of {rounds} rounds on {os.cpu_count()} cores, with the lowest and",
            "highest ratio. Peers count as whole processes. So does the library, except where it says \"in a running",
            "host\": there the start of a process and the steps before are left out, as a host calls the library. CPU",
            "seconds are those of all cores, memory is the highest peak of a process; both give the library first, then",
            "the peer.", "",
            "| work | quarvel | best peer | ratio | goal | | CPU | peak |", "|---|---|---|---|---|---|---|---|",
            *[c.row() for c in contests], "", "![Seconds for each program](benchmarks.svg)", ""]
    for growth in tables:
        text += growth.table()
    for title, rows in micro:
        text += [title, "", "| | nanoseconds |", "|---|---|", *[f"| {n} | {v:,.1f} |" for n, v in rows.items()], ""]
    path.write_text("\n".join(text))


def main():
    parser = argparse.ArgumentParser(prog="scripts/bench", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--no-growth", action="store_true", help="leave out the run over 100,000 files")
    parser.add_argument("--output", type=Path, default=ROOT / "docs", help="folder of benchmarks.md and benchmarks.svg")
    options = parser.parse_args()

    page = options.output / "benchmarks.md"
    contests, tables, micro = [], [], []

    def write():
        report(contests, tables, micro, options.rounds, page)
        plot(contests, options.output / "benchmarks.svg")

    make_key()
    for contest in itertools.chain(
            xml_contests(), load_contests(make_bundle("big", 1, 8, 64 << 20), make_bundle("small", 100, 200, 4096))):
        contests.append(contest.run(options.rounds))
        print(contest.row(), flush=True)
        write()
    for growth in [] if options.no_growth else growths():
        tables.append(growth.run(options.rounds))
        print("\n".join(growth.table()), flush=True)
        write()
    for title, program in (("A log line:", "bench_log"), ("A progress call:", "bench_progress")):
        micro.append((title, google_benchmark(program)))
        print(*micro[-1], flush=True)
        write()
    print(f"written: {page}")


if __name__ == "__main__":
    main()
