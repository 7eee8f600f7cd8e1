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


def noise(rng, size):
    """Bytes of which about 60 % stay after deflate, which stores nearly all of those: random blocks between runs of a
    repeated text."""
    block = 4096
    parts = []
    for start in range(0, size, block):
        n = min(block, size - start)
        random_bytes = int(n * 0.6)
        parts.append(rng.randbytes(random_bytes) + b"pen application " * ((n - random_bytes) // 16 + 1))
        parts[-1] = parts[-1][:n]
    return b"".join(parts)


def tokens(rng, size):
    """Bytes that deflate packs 1.7 to 1: words of a small vocabulary between random bytes. They come again at distances
    that deflate does not see."""
    words = [rng.randbytes(rng.randint(4, 12)) for _ in range(256)]
    block = bytearray()
    while len(block) < min(size, 1 << 20):
        block += rng.choice(words) + rng.randbytes(rng.randint(3, 7))
    return (bytes(block) * (size // len(block) + 1))[:size]


def make_bundle(name, folders, files_per_folder, size, content=noise):
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

class Others:
    """How busy the machine is with other work: the share of its cores' time while this program waits."""

    def __init__(self):
        self.shares = []

    def look(self, seconds=0.5):
        def times():
            values = [int(v) for v in Path("/proc/stat").read_text().splitlines()[0].split()[1:9]]
            return sum(values), values[3] + values[4]
        (total, idle), _ = times(), time.sleep(seconds)
        total_after, idle_after = times()
        self.shares.append(1 - (idle_after - idle) / max(1, total_after - total))

    def __call__(self):
        return f"{statistics.mean(self.shares):.0%} of its cores' time" if self.shares else "not looked at"


others = Others()


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
        others.look()
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


def load_contests(big, words, small):
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

    def cold(title, goal, bundle):
        return Contest(title, goal, [BIN / "bench_bundle", "load", bundle], extractors(bundle), clean(bundle))

    def bench(work, bundle, *more):
        return [BIN / "bench_bundle", work, bundle, *more]

    inputs = (("8 files of 64 MB", big), ("20,000 files of 4 KB", small))
    yield cold("load, 8 files of 64 MB, noise", 0.3, big)
    yield cold("load, 8 files of 64 MB, words", 0.3, words)
    for (title, bundle), goal in zip(inputs, (0.1, 0.5)):
        peers = {"unzip -n": ["unzip", "-qq", "-n", bundle, "-d", unpacked(bundle)]}
        yield Contest(f"load again, whole process, {title}", goal, bench("load", bundle), peers)
        yield Contest(f"load again, in a running host, {title}", goal, bench("again", bundle), peers, alone=True)
    for (title, bundle), goal, peer in zip(inputs, (0.6, 1.0), (["openssl", "dgst", "-sha1"], ["sha1sum"])):
        files = sorted(str(f) for f in unpacked(bundle).rglob("*") if f.is_file())
        peers = {" ".join(peer): ["xargs", "-a", write_list(files, bundle), *peer]}
        ours = bench("verify", bundle, INPUTS / "cert.pem")
        yield Contest(f"load again and verify, whole process, {title}", goal, ours, peers)
        yield Contest(f"verify, in a running host, {title}", goal, ours, peers, alone=True)
    yield cold("load, 20,000 files of 4 KB", 0.35, small)


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
        peak = {n: max(run.memory for run in runs) for n, runs in self.runs.items()}
        first, last = min(seconds), max(seconds)
        return [f"{self.title}:", "", "| | seconds | times the first | CPU seconds | times the first | peak |",
                "|---|---|---|---|---|---|",
                *[f"| {n:,} | {seconds[n]:.4f} | {seconds[n] / seconds[first]:.1f} | {cpu[n]:.3f} | "
                  f"{cpu[n] / cpu[first]:.1f} | {peak[n]:.0f} MB |" for n in seconds], "",
                f"Each further one takes {1024 * (peak[last] - peak[first]) / (last - first):.2f} KB at the peak.", ""]


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


class Install:
    """An install on a simulated pen at full speed: what its steps take, and what of it is the library's own."""
    PACKAGES = 100
    STEPS = ("loading the bundle from cold", "verifying it", "the install as a whole", "pen calls of the install",
             "the library's own time in the install")

    def __init__(self, rounds):
        out = subprocess.run([BIN / "bench_install", str(self.PACKAGES), str(rounds)], check=True,
                             capture_output=True, text=True)
        self.steps = list(zip(*([float(v) for v in line.split()] for line in out.stdout.splitlines())))

    def table(self):
        rows = [f"| {title} | {statistics.median(values):.4f} | {min(values):.4f} to {max(values):.4f} |"
                for title, values in zip(self.STEPS, self.steps)]
        whole, own = (statistics.median(self.steps[i]) for i in (2, 4))
        return [f"An install of {self.PACKAGES} packages of 1 MB on a simulated pen at full speed; the library's own",
                f"time is everything but the pen calls, {own / whole:.0%} of it:", "",
                "| | seconds | range |", "|---|---|---|", *rows, ""]


def google_benchmark(program):
    """{name: nanoseconds} of a Google Benchmark program, medians of its repetitions."""
    out = subprocess.run([BIN / program, "--benchmark_format=json", "--benchmark_repetitions=5",
                          "--benchmark_enable_random_interleaving=true",
                          "--benchmark_report_aggregates_only=true"], check=True, capture_output=True, text=True)
    return {b["run_name"]: b["real_time"] for b in json.loads(out.stdout)["benchmarks"]
            if b.get("aggregate_name") == "median"}


# --- report ----------------------------------------------------------------------------------------------------------

def plot(contests, path):
    """One row for each work: the ratio to the best peer with its range, and the goal."""
    import matplotlib
    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "quarvel"
    import matplotlib.pyplot as plt
    figure, axis = plt.subplots(figsize=(10, 1.2 + 0.34 * len(contests)))
    for row, contest in enumerate(contests):
        ratios = contest.ratios()
        median = statistics.median(ratios)
        colour = "#3465a4" if median <= contest.goal else "#c4501b"
        axis.plot([min(ratios), max(ratios)], [row, row], color=colour, linewidth=5, alpha=0.35,
                  solid_capstyle="round")
        axis.plot([median], [row], "o", color=colour, markersize=7)
        axis.plot([contest.goal], [row], "|", color="#222222", markersize=15, markeredgewidth=1.8)
        axis.annotate(f"{median:.2f} of {contest.best_peer()}", (1.01, row), xycoords=("axes fraction", "data"),
                      va="center", fontsize=8.5, color=colour)
    axis.set_yticks(range(len(contests)), [c.title for c in contests], fontsize=8.5)
    axis.set_ylim(len(contests) - 0.4, -0.6)
    axis.set_xscale("log")
    lows = [min(c.ratios() + [c.goal]) for c in contests]
    highs = [max(c.ratios() + [c.goal]) for c in contests]
    axis.set_xlim(min(lows) / 1.25, max(highs + [1.0]) * 1.25)
    ticks = [t for t in (0.05, 0.1, 0.2, 0.3, 0.5, 0.7, 1, 1.5, 2, 3, 5) if axis.get_xlim()[0] <= t <= axis.get_xlim()[1]]
    axis.set_xticks(ticks, [f"{t:g}" for t in ticks], fontsize=8.5)
    axis.minorticks_off()
    axis.axvline(1, color="#888888", linewidth=1)
    axis.grid(axis="x", color="#e4e4e4", linewidth=0.8)
    axis.set_axisbelow(True)
    for side in ("top", "right", "left"):
        axis.spines[side].set_visible(False)
    axis.tick_params(axis="y", length=0)
    axis.set_xlabel("time of the library / time of the best peer; dot: median, bar: all rounds, stroke: the goal "
                    "(blue: met)", fontsize=8.5)
    figure.savefig(path, bbox_inches="tight", metadata={"Date": None})
    plt.close(figure)


def report(contests, tables, micro, rounds, path):
    text = ["# Benchmarks", "", "![Time beside the best peer, by work](benchmarks.svg)", "",
            "Written by `scripts/bench`. Every round runs the library and each peer once, one after the other; the",
            f"ratio is taken within a round. Medians of {rounds} rounds on {os.cpu_count()} cores, with the lowest and",
            f"highest ratio; other work of the machine: {others()}. Peers count as whole processes. So does the library, except where it says \"in a running",
            "host\": there the start of a process and the steps before are left out, as a host calls the library. CPU",
            "seconds are those of all cores, memory is the highest peak of a process; both give the library first, then",
            "the peer.", "",
            "| work | quarvel | best peer | ratio | goal | | CPU | peak |", "|---|---|---|---|---|---|---|---|",
            *[c.row() for c in contests], ""]
    for table in tables:
        text += table.table()
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

    page, started = options.output / "benchmarks.md", time.monotonic()
    contests, tables, micro = [], [], []

    def write():
        report(contests, tables, micro, options.rounds, page)
        plot(contests, options.output / "benchmarks.svg")

    make_key()
    for contest in itertools.chain(
            xml_contests(),
            load_contests(make_bundle("big", 1, 8, 64 << 20), make_bundle("words", 1, 8, 64 << 20, tokens),
                          make_bundle("small", 100, 200, 4096))):
        contests.append(contest.run(options.rounds))
        print(contest.row(), flush=True)
        write()
    tables.append(Install(options.rounds))
    print("\n".join(tables[-1].table()), flush=True)
    for growth in [] if options.no_growth else growths():
        tables.append(growth.run(options.rounds))
        print("\n".join(growth.table()), flush=True)
        write()
    for title, program in (("A log line:", "bench_log"), ("A progress call:", "bench_progress")):
        micro.append((title, google_benchmark(program)))
        print(*micro[-1], flush=True)
        write()
    print(f"written: {page}; it took {(time.monotonic() - started) / 60:.0f} minutes")


if __name__ == "__main__":
    main()
