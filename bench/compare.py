"""Measures whole runs of the updater beside other programs that do the same work. bench/compare
builds them, and runs this with the build directory.

Rows that begin with "Qt only" are programs of a few lines that make the same calls of Qt and
nothing else (bench/*_one_by_one.cpp, bench/fetch_in_application.cpp): they are the lower bound.

The programs of a table take turns, so that a slow minute of the machine slows them all, and each
turn begins with another program. "wall" and "CPU" (user and system time) are medians, "updater
takes" is the median of the ratios of each turn. The first turn warms the caches and shows the peak
of memory; it is timed only when it is the only one. Each run must end with the expected exit
status, and the updater's work is checked after each of its runs. The exit status says only whether
everything worked.

All files are in a new directory below TMPDIR, which needs 8 GB and is removed at the end.
"""

import atexit
import functools
import hashlib
import os
import re
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from statistics import median
from typing import NamedTuple

LONGEST_RUN = 300  # Seconds.
KIB, MIB = 1024, 1024 * 1024
SMALL, LARGE = ("small", 20, 100, 8 * KIB), ("large", 1, 20, 50 * MIB)  # What is published.
CHANGELOG = Path("place/tmp/velmora_cl_2.dat")  # What a check leaves.
APPLICATION = {"application object, QtNetwork loaded": "only_application"}
QT_ONLY = "Qt only: QApplication"

build_directory, before, *words = sys.argv[1:]
smoke = "--smoke" in words
with socket.create_server(("127.0.0.1", 0)) as free:
    port = free.getsockname()[1]
url = f"http://127.0.0.1:{port}/"  # Of nginx, which serves the directory "www".


def run(command: str, status: int = 0) -> tuple[float, float, float]:
    """Returns milliseconds, milliseconds of CPU time, and the peak of memory in MiB."""
    start = time.perf_counter()
    with open("output", "wb") as output:
        process = subprocess.Popen(shlex.split(command), stdout=output, stderr=output)
    signal.signal(signal.SIGALRM, lambda *_: process.kill())
    signal.alarm(LONGEST_RUN)
    _, ended, usage = os.wait4(process.pid, 0)
    wall = time.perf_counter() - start
    signal.alarm(0)
    process.returncode = os.waitstatus_to_exitcode(ended)
    if process.returncode != status:
        sys.exit(f"exit status {process.returncode}: {command}\n" + Path("output").read_text())
    return 1000 * wall, 1000 * (usage.ru_utime + usage.ru_stime), usage.ru_maxrss / 1024


def measure(title: str, runs: int, is_done, programs: dict[str, str], status: int = 0) -> None:
    """Prints a table. The updater is the first program."""
    updater = next(iter(programs))
    if before:
        programs = {**programs, "updater before": f"{before}/{programs[updater]}"}
    names = list(programs)
    turns: list[dict[str, tuple]] = []
    for turn in range(1 if smoke else runs + 1):
        # A process begins as a copy of this one, which counts for its peak. That copy is small
        # after fork(), which takes a few milliseconds longer than vfork().
        subprocess._USE_VFORK = turn > 0
        costs = {}
        first = turn % len(names)
        os.mkdir("earlier")
        for name in names[first:] + names[:first]:
            for directory in ("installed", "new", "saved", "tmp"):
                Path("place", directory).mkdir(parents=True)
            costs[name] = run(programs[name], status)
            if name.startswith("updater") and not is_done():
                sys.exit(f"its work is not done: {programs[name]}")
            # Where a file was deleted a moment ago, some file systems take long to make another.
            os.rename("place", f"earlier/{len(costs)}")
        shutil.rmtree("earlier")
        turns.append(costs)

    subprocess._USE_VFORK = False
    least = run("true")[2]  # The copy: smaller peaks are hidden.
    timed = turns[1:] or turns
    print(f"\n{title} (runs: {len(timed)})\n\n"
          "| program | wall, ms | CPU, ms | memory, MiB | updater takes, wall | CPU |\n"
          "|---|--:|--:|--:|--:|--:|")
    for name in names:
        wall, cpu = (median(costs[name][i] for costs in timed) for i in (0, 1))
        ratios = [median(costs[updater][i] / costs[name][i] for costs in timed) for i in (0, 1)]
        memory = turns[0][name][2]
        at_most = "at most " if memory < 1.1 * least else ""
        print(f"| {name} | {wall:.1f} | {cpu:.1f} | {at_most}{memory:.1f} |",
              f"{ratios[0]:.2f} times | {ratios[1]:.2f} times |", flush=True)


def write(name: str, lines) -> None:
    Path(name).write_text("".join(f"{line}\n" for line in lines))


class Files(NamedTuple):
    path: str
    title: str
    digests: dict[str, str]  # By the names of the files.


def make_tree(path: str, directories: int, files: int, size: int) -> Files:
    """Fills a new directory with files of random bytes."""
    if smoke:
        directories, files, size = min(directories, 2), min(files, 5), min(size, MIB)
    digests = {}
    for name in [f"d{d}/f{f:04}.dat" for d in range(directories) for f in range(files)]:
        file, contents = Path(path, name), os.urandom(size)
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(contents)
        digests[name] = hashlib.sha1(contents).hexdigest()
    unit = f"{size // MIB} MiB" if size >= MIB else f"{size // KIB} KiB"
    return Files(path, f"{len(digests):,} files of {unit}", digests)


@functools.cache
def publish(name: str, directories: int, files: int, size: int) -> Files:
    tree = make_tree(f"www/{name}", directories, files, size)
    run(f"updater -b -n Bench -v 2 -d {tree.path}")
    return tree


def publish_manifest(entries: int) -> None:
    """Publishes a version file alone."""
    files = (f"\t<file>\n\t\t<name>Contents/Resources/{i}.dat</name>\n\t\t<sha1>{i:040x}</sha1>\n"
             f"\t\t<size>{i}</size>\n\t</file>" for i in range(1, entries + 1))
    write("www/list.txt", ["<Bench>", "\t<version>2</version>", "\t<required>false</required>",
                           "\t<changelog>TmV3Cg==</changelog>", *files, "</Bench>"])
    write("names", ["list.txt"])


def startup() -> None:
    publish_manifest(1)
    get = {f"{QT_ONLY}, one GET": f"fetch_in_application {url} names"}
    measure("Start-up: an empty release tree", 40, Path("place/installed/index.txt").exists,
            {"updater -b": "updater -b -n Bench -v 2 -d place/installed", **APPLICATION})
    measure("Start-up: a version file with one entry, checked", 40, CHANGELOG.exists,
            {"updater -c": f"updater -c -n Bench -v 1 -s none -l {url}list.txt",
             **APPLICATION, **get})
    measure("Start-up: the same, in update mode with that version installed", 40, CHANGELOG.exists,
            {"updater -u": f"updater -u -n Bench -v 2 -d place/installed -l {url}list.txt",
             **APPLICATION, **get})
    measure("Start-up: no mode at all", 40, lambda: True,
            {"updater": "updater", **{name: f"{program} 1" for name, program in APPLICATION.items()}},
            status=1)


def build() -> None:
    index = Path("release/index.txt")
    for runs, *shape in (15, 100, 100, 4 * KIB), (5, 10, 100, MIB), (5, 1, 4, 256 * MIB):
        tree = make_tree("release", *shape)

        def is_done() -> bool:
            found = re.findall(r"<name>(.*)</name>\s*<sha1>(.*)</sha1>", index.read_text())
            index.unlink()
            return sorted(found) == sorted(tree.digests.items())

        measure(f"Build mode: {tree.title}, beside other programs that hash the same files", runs,
                is_done,
                {"updater -b": "updater -b -n Bench -v 2 -d release",
                 "find, sha1sum": "find release -type f -exec sha1sum {} +",
                 "find, openssl sha1": "find release -type f -exec openssl sha1 {} +",
                 f"{QT_ONLY}, QDir, QFile, QCryptographicHash": "hash_one_by_one release"})
        shutil.rmtree("release")


def check() -> None:
    for entries in (1, 100) if smoke else (100, 100000):
        publish_manifest(entries)
        measure(f"Check mode: a version file with {entries} entries, beside fetching it", 15,
                CHANGELOG.exists,
                {"updater -c": f"updater -c -n Bench -v 1 -s none -l {url}list.txt",
                 "curl": f"curl -sf -o place/received {url}list.txt",
                 f"{QT_ONLY}, one GET": f"fetch_in_application {url} names"})


def measure_update(title: str, runs: int, server: str, tree: Files, rows: int) -> None:
    """Measures the first programs at an update from nothing, as many as there are rows."""
    source = f"{server}{Path(tree.path).name}/"
    write("names", tree.digests)
    write("sums", (f"{sha1}  place/new/{name}" for name, sha1 in tree.digests.items()))
    write("curl", (f'url = "{source}{n}"\noutput = "place/new/{n}"' for n in tree.digests))
    programs = {
        "updater -u": f"updater -u -n Bench -v 1 -d place/installed -l {source}index.txt",
        "curl, sha1sum -c, mv": "sh -c 'curl -sf --create-dirs -K curl && sha1sum -c --quiet sums"
                                " && mv -t place/installed place/new/*'",
        f"{QT_ONLY}, GET, QCryptographicHash, QFile, QProgressDialog":
            f"fetch_in_application {source} names {len(tree.digests)} place/saved",
        "QNetworkAccessManager alone": f"fetch_one_by_one {source} names"}
    compared = ["diff", "-rq", "-x", "index.txt", tree.path, "place/installed"]
    measure(f"{title}: {tree.title}", runs, lambda: subprocess.run(compared).returncode == 0,
            dict(list(programs.items())[:rows]))


def update() -> None:
    measure_update("Update from nothing", 7, url, publish(*SMALL), rows=4)
    measure_update("Update from nothing", 5, url, publish(*LARGE), rows=4)


def distant() -> None:
    server = f"http://127.0.0.1:{int(serve('delaying_proxy', str(port), '20').readline())}/"
    # Twice, because opening the connection takes longer.
    run(f"curl -sI -o headers -o headers -w '%{{time_total}} ' {server} {server}")
    seconds = float(Path("output").read_text().split()[1])
    title = f"Update with 20 ms of round trip ({1000 * seconds:.1f} ms measured)"
    measure_update(title, 0, server, publish(*SMALL), rows=2)  # One turn takes a minute and a half.
    measure_update(title, 3, server, publish(*LARGE), rows=3)


def inplace() -> None:
    tree = publish("inplace", 100, 100, 4 * KIB)
    write("paths", (f"{tree.path}/{name}" for name in tree.digests))
    write("sums", (f"{sha1}  {tree.path}/{name}" for name, sha1 in tree.digests.items()))
    # The directory is made when the version file was read. The first file that is moved removes it.
    downloads = Path("place/tmp/wUpBench2")
    measure(f"Update: all {tree.title} are in place", 15, lambda: list(downloads.iterdir()) == [],
            {"updater -u": f"updater -u -n Bench -v 1 -d {tree.path} -l {url}inplace/index.txt",
             "sha1sum -c": "sha1sum -c --quiet sums",
             f"{QT_ONLY}, QFile, QCryptographicHash": "hash_one_by_one paths"})


SECTIONS = {"startup": startup, "build": build, "check": check, "update": update,
            "distant": distant, "inplace": inplace}


def serve(*command: str):
    """Starts a server. Returns what it prints."""
    process = subprocess.Popen(command, stdout=subprocess.PIPE)
    atexit.register(process.kill)
    return process.stdout


def main() -> None:
    wanted = [word for word in words if word != "--smoke"] or list(SECTIONS)
    if not SECTIONS.keys() >= set(wanted):
        sys.exit(f"usage: bench/compare [--qt 5|6] [--smoke] [{'|'.join(SECTIONS)}]...")

    configuration = Path("tests/support/nginx.conf.in").read_text().replace("@site@", (
        "access_log off; default_type application/octet-stream; sendfile on;"
        f"keepalive_requests 1000000; server {{ listen 127.0.0.1:{port}; root www; }}"))
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("terminated"))  # After cleaning up.
    work = tempfile.mkdtemp(prefix="updater-bench.")
    atexit.register(shutil.rmtree, work)
    os.chdir(work)
    os.mkdir("www")
    # No others: a proxy would be measured as well.
    path = f"{build_directory}:{build_directory}/bench:{os.environ['PATH']}:/usr/sbin"
    os.environ.clear()
    os.environ.update(PATH=path, HOME=work, LC_ALL="C.UTF-8", QT_QPA_PLATFORM="offscreen",
                      TMPDIR=f"{work}/place/tmp", XDG_RUNTIME_DIR=work)

    write("nginx.conf", [configuration])
    serve("nginx", "-p", work, "-e", "error.log", "-c", "nginx.conf")
    run(f"curl -s --retry 10 --retry-delay 1 --retry-connrefused {url}")
    start = time.monotonic()
    for word in wanted:
        SECTIONS[word]()
    print(f"\nMeasured in {time.monotonic() - start:.0f} seconds.")


main()
