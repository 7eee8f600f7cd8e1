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
import shutil
import statistics
import subprocess
import sys
import time
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


def run_once(command, prepare):
    """Seconds of wall clock and peak memory in MB of one run."""
    if prepare:
        prepare()
    peak = BUILD / "peak"
    before = time.perf_counter()
    # A program inherits the peak of the process that starts it: time's is small, Python's is not.
    process = subprocess.run(["time", "-f", "%M", "-o", peak, *map(str, command)], stdout=subprocess.DEVNULL,
                             stderr=subprocess.PIPE)
    seconds = time.perf_counter() - before
    if process.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))} failed: {process.stderr.decode()[:500]}")
    return seconds, int(peak.read_text()) / 1024


class Contest:
    """Ours against peers on one input: rounds of one run each."""

    def __init__(self, title, goal, ours, peers, prepare=None):
        self.title, self.goal, self.prepare = title, goal, prepare
        self.commands = {"quarvel": ours, **peers}
        self.seconds = {name: [] for name in self.commands}
        self.memory = dict.fromkeys(self.commands, 0.0)

    def run(self, rounds):
        for command in self.commands.values():  # warm the page cache
            run_once(command, self.prepare)
        for _ in range(rounds):
            for name, command in self.commands.items():
                seconds, memory = run_once(command, self.prepare)
                self.seconds[name].append(seconds)
                self.memory[name] = max(self.memory[name], memory)
        return self

    def best_peer(self):
        return min((n for n in self.commands if n != "quarvel"), key=lambda n: statistics.median(self.seconds[n]))

    def ratios(self):
        return [o / p for o, p in zip(self.seconds["quarvel"], self.seconds[self.best_peer()])]

    def row(self):
        ratios = self.ratios()
        median = statistics.median(ratios)
        verdict = "met" if median <= self.goal else "missed"
        peer = self.best_peer()
        return (f"| {self.title} | {statistics.median(self.seconds['quarvel']):.3f} s | {peer} "
                f"{statistics.median(self.seconds[peer]):.3f} s | {median:.2f} ({min(ratios):.2f} to "
                f"{max(ratios):.2f}) | {self.goal} | {verdict} | {self.memory['quarvel']:.0f} MB | "
                f"{self.memory[peer]:.0f} MB |")


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

    yield cold("load, 8 files of 64 MB", big)
    for title, bundle in (("load again, 8 files of 64 MB", big), ("load again, 20,000 files of 4 KB", small)):
        yield Contest(title, 0.1, [BIN / "bench_bundle", "load", bundle],
                      {"unzip -n": ["unzip", "-qq", "-n", bundle, "-d", unpacked(bundle)]})
    for title, goal, bundle, peer in (
            ("verify, 8 files of 64 MB", 0.6, big, ["openssl", "dgst", "-sha1"]),
            ("verify, 20,000 files of 4 KB", 1.0, small, ["sha1sum"])):
        files = sorted(str(f) for f in unpacked(bundle).rglob("*") if f.is_file())
        yield Contest(title, goal, [BIN / "bench_bundle", "verify", bundle, INPUTS / "cert.pem"],
                      {" ".join(peer): ["xargs", "-a", write_list(files, bundle), *peer]})
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


def growth(rounds):
    """Seconds to load (cold) and verify 1,000, 10,000 and 100,000 small files."""
    points = []
    for count in (1000, 10000, 100000):
        bundle = make_bundle(f"growth-{count}", count // 200, 200, 512)
        times = []
        for _ in range(max(1, rounds // 2)):
            shutil.rmtree(extraction_folder(bundle), ignore_errors=True)
            times.append(run_once([BIN / "bench_bundle", "verify", bundle, INPUTS / "cert.pem"], None)[0])
        points.append((count, statistics.median(times)))
        shutil.rmtree(extraction_folder(bundle), ignore_errors=True)
    return points


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
        medians = [statistics.median(contest.seconds[n]) for n in names]
        spread = [[m - min(contest.seconds[n]) for m, n in zip(medians, names)],
                  [max(contest.seconds[n]) - m for m, n in zip(medians, names)]]
        axis.barh(names, medians, xerr=spread, color=["#c8c8c8" if n != "quarvel" else "#3465a4" for n in names])
        goal = contest.goal * statistics.median(contest.seconds[contest.best_peer()])
        axis.axvline(goal, color="#c00", linestyle="--", linewidth=1)
        axis.set_title(contest.title, loc="left", fontsize=9)
        axis.tick_params(labelsize=8)
    axes[-1, 0].set_xlabel("seconds, median with the range of all rounds; dashed: the goal", fontsize=8)
    figure.tight_layout()
    figure.savefig(path)


def report(contests, points, micro, rounds, path):
    text = ["# Benchmarks", "",
            "Written by `scripts/bench`. Every round runs the library and each peer once, one after the other; the ratio",
            f"is taken within a round. Medians of {rounds} rounds on {os.cpu_count()} cores, with the lowest and highest",
            "ratio. Memory is the highest peak of a process.", "",
            "| work | quarvel | best peer | ratio | goal | | peak | peer's peak |", "|---|---|---|---|---|---|---|---|",
            *[c.row() for c in contests], "", "![Seconds for each program](benchmarks.svg)", ""]
    if points:
        base = points[0]
        text += ["Growth, load from cold and verify:", "", "| files | seconds | times the first |", "|---|---|---|",
                 *[f"| {n:,} | {s:.3f} | {s / base[1]:.1f} |" for n, s in points], ""]
    for title, rows in micro:
        text += [title, "", "| | nanoseconds |", "|---|---|", *[f"| {n} | {v:,.1f} |" for n, v in rows.items()], ""]
    path.write_text("\n".join(text))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--no-growth", action="store_true", help="leave out the run over 100,000 files")
    parser.add_argument("--output", type=Path, default=ROOT / "docs", help="folder of benchmarks.md and benchmarks.svg")
    options = parser.parse_args()

    make_key()
    contests = []
    for contest in itertools.chain(
            xml_contests(), load_contests(make_bundle("big", 1, 8, 64 << 20), make_bundle("small", 100, 200, 4096))):
        contests.append(contest.run(options.rounds))
        print(contest.row(), flush=True)
        report(contests, [], [], options.rounds, options.output / "benchmarks.md")
        plot(contests, options.output / "benchmarks.svg")
    points = [] if options.no_growth else growth(options.rounds)
    micro = [(title, google_benchmark(program)) for title, program in
             (("A log line:", "bench_log"), ("A progress call:", "bench_progress")) if (BIN / program).exists()]
    for title, rows in micro:
        print(title, rows, flush=True)
    plot(contests, options.output / "benchmarks.svg")
    report(contests, points, micro, options.rounds, options.output / "benchmarks.md")
    print(f"written: {options.output / 'benchmarks.md'}")


if __name__ == "__main__":
    main()
