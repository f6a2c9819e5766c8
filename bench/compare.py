"""Measures whole runs of the updater beside other programs that do the same work. bench/compare
builds them, and runs this with the build directory.

Rows that begin with "Qt only" are programs of a few lines that make the same calls of Qt and nothing
else (bench/*_one_by_one.cpp, bench/fetch_in_application.cpp): they are the lower bound.

The programs of a table take turns, so that a slow minute of the machine slows them all, and each
turn begins with another program. "wall" and "CPU" (user and system time) are medians of the runs;
"updater takes" is the median of the ratios of each turn; "memory" is the peak of a first run, which
warms the caches and is not timed. Each run must end with the expected exit status, and the updater's
work is checked after each of its runs. The exit status says only whether everything worked.

All files are in a new directory below TMPDIR, which needs 8 GB and is removed at the end.
"""

import hashlib
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from statistics import median

LONGEST_RUN = 300  # Seconds.
SOURCES = Path(__file__).resolve().parent.parent
QT_ONLY = "Qt only: QApplication"
QT_UPDATE = f"{QT_ONLY}, GET, QCryptographicHash, QFile, QProgressDialog"
APPLICATION = {"application object": "only_application"}

build_directory, *words = sys.argv[1:]
smoke = "--smoke" in words
work = Path(tempfile.mkdtemp(prefix="updater-bench."))
www, tmp, changelog = work / "www", work / "tmp", work / "tmp/velmora_cl_2.dat"
started: list[subprocess.Popen] = []
url = ""  # Of nginx.
releases: dict[str, dict[str, str]] = {}  # The digests of the files of each published release.


def fail(what: str) -> None:
    sys.exit(f"{what}\n{(work / 'output').read_text(errors='replace')[-2000:]}")


# --- Measuring -----------------------------------------------------------------------------------

def run(commands: str, status: int = 0, for_memory: bool = False) -> tuple[float, float, float]:
    """Runs commands, separated by " && ". Returns seconds, seconds of CPU time, the peak in MiB."""
    # A process begins as a copy of this one, which counts for its peak: all of it after vfork(), a
    # few MiB after the slower fork().
    subprocess._USE_VFORK = not for_memory
    wall = cpu = peak = 0.0
    with open(work / "output", "wb") as output:
        for command in commands.split(" && "):
            start = time.perf_counter()
            process = subprocess.Popen(command.split(), stdout=output, stderr=output)
            started.append(process)
            signal.alarm(LONGEST_RUN)
            _, ended, usage = os.wait4(process.pid, 0)
            wall += time.perf_counter() - start
            signal.alarm(0)
            cpu += usage.ru_utime + usage.ru_stime
            peak = max(peak, usage.ru_maxrss / 1024)
            process.returncode = os.waitstatus_to_exitcode(ended)
            started.remove(process)
            if process.returncode != status:
                fail(f"exit status {process.returncode}: {command}")
    return wall, cpu, peak


def measure(title: str, runs: int, prepare, is_done, programs: dict[str, str], status=0) -> None:
    """Prints a table. The updater is the first program. Without runs, the first run is timed."""
    print(f"\n{title} (runs: {runs or 1})\n\n"
          "| program | wall, ms | CPU, ms | memory, MiB | updater takes, wall | CPU |\n"
          "|---|--:|--:|--:|--:|--:|")
    names = list(programs)
    results: dict[str, list[tuple]] = {name: [] for name in names}
    for turn in range(runs + 1):
        for step in range(len(names)):
            name = names[(turn + step) % len(names)]
            prepare()
            results[name].append(run(programs[name], status, turn == 0))
            if name == names[0] and not is_done():
                fail(f"its work is not done: {programs[name]}")
    least = run("true", 0, True)[2]  # What is left of this program: smaller peaks are hidden.
    own = results[names[0]][min(runs, 1):]
    for name, every in results.items():
        timed = every[min(runs, 1):]
        times = [1000 * median(figures[i] for figures in timed) for i in (0, 1)]
        ratios = [median(a[i] / b[i] for a, b in zip(own, timed)) for i in (0, 1)]
        cells = [name, *(f"{t:.1f}" if t < 100 else f"{t:.0f}" for t in times),
                 ("at most " if every[0][2] < 1.1 * least else "") + f"{every[0][2]:.1f}",
                 *(f"{ratio:.2f} times" if name != names[0] else "" for ratio in ratios)]
        print("|", " | ".join(cells), "|", flush=True)


# --- What is measured with -----------------------------------------------------------------------

def write(name: str, lines) -> Path:
    (work / name).write_text("".join(f"{line}\n" for line in lines))
    return work / name


def tree(top: Path, directories: int, files: int, size: int) -> dict[str, str]:
    """Fills a new directory with files of random bytes. Returns their digests."""
    digests = {}
    for name in (f"d{d}/f{f:04}.dat" for d in range(directories) for f in range(files)):
        (top / name).parent.mkdir(parents=True, exist_ok=True)
        digest = hashlib.sha1()
        with open(top / name, "wb") as file:
            for begin in range(0, size, 1 << 20):
                block = os.urandom(min(1 << 20, size - begin))
                digest.update(block)
                file.write(block)
        digests[name] = digest.hexdigest()
    return digests


def publish(name: str, directories: int, files: int, size: int) -> None:
    serve()
    if name not in releases:
        releases[name] = tree(www / name, directories, files, size)
        run(f"updater -b -n Bench -v 2 -d {www}/{name}")


def publish_manifest(entries: int) -> None:
    """Publishes a version file alone. Its changelog is what a check leaves."""
    serve()
    files = (f"\t<file>\n\t\t<name>Contents/Resources/{i}.dat</name>\n\t\t<sha1>{i:040x}</sha1>\n"
             f"\t\t<size>{i}</size>\n\t</file>" for i in range(1, entries + 1))
    write("www/list.txt", ["<Bench>", "\t<version>2</version>", "\t<required>false</required>",
                           "\t<changelog>TmV3Cg==</changelog>", *files, "</Bench>"])


def answer_time(port: int) -> float:
    """Seconds for an answer over an open connection."""
    with socket.create_connection(("127.0.0.1", port), timeout=10) as connection:
        for _ in range(2):
            start = time.perf_counter()
            connection.sendall(b"HEAD / HTTP/1.1\r\nHost: bench\r\n\r\n")
            connection.recv(4096)
    return time.perf_counter() - start


def serve() -> None:
    """Starts nginx, once."""
    global url
    if url:
        return
    with socket.create_server(("127.0.0.1", 0)) as free:
        port = free.getsockname()[1]
    write("nginx.conf", [(SOURCES / "tests/support/nginx.conf.in").read_text().replace("@site@", (
        "access_log off; default_type application/octet-stream; sendfile on;"
        f"keepalive_requests 1000000; server {{ listen 127.0.0.1:{port}; root www; }}"))])
    nginx = shutil.which("nginx", path=os.environ["PATH"] + ":/usr/sbin")
    started.append(subprocess.Popen([nginx, "-p", work, "-e", "output", "-c", "nginx.conf"]))
    for _ in range(200):
        if started[-1].poll() is not None:
            fail("nginx does not start")
        try:
            answer_time(port)
            break
        except OSError:
            time.sleep(0.05)
    url = f"http://127.0.0.1:{port}/"


def forget() -> None:
    """Removes what a check or a build in the directory "empty" leaves."""
    tmp.mkdir(exist_ok=True)
    changelog.unlink(missing_ok=True)
    (work / "empty/index.txt").unlink(missing_ok=True)


# --- The measurements ----------------------------------------------------------------------------

def startup() -> None:
    publish_manifest(1)
    runs, empty = 1 if smoke else 40, work / "empty"
    empty.mkdir()
    get = {f"{QT_ONLY}, one GET": f"fetch_in_application {url} {write('names', ['list.txt'])}"}
    measure("Start-up: an empty release tree", runs, forget, (empty / "index.txt").exists,
            {"updater -b": f"updater -b -n Bench -v 2 -d {empty}", **APPLICATION})
    measure("Start-up: a version file with one entry, checked", runs, forget, changelog.exists,
            {"updater -c": f"updater -c -n Bench -v 1 -s none -l {url}list.txt",
             **APPLICATION, **get})
    measure("Start-up: the same, in update mode with that version installed", runs, forget,
            changelog.exists,
            {"updater -u": f"updater -u -n Bench -v 2 -d {empty} -l {url}list.txt",
             **APPLICATION, **get})
    measure("Start-up: no mode at all", runs, forget, lambda: True,
            {"updater": "updater", "application object": "only_application 1"}, status=1)


def build() -> None:
    release, index = work / "release", work / "release/index.txt"
    trees = [("10,000 files of 4 KiB", 15, 100, 100, 4096),
             ("1,000 files of 1 MiB", 5, 10, 100, 1 << 20),
             ("4 files of 256 MiB", 5, 1, 4, 256 << 20)]
    if smoke:
        trees = [("100 files of 4 KiB", 1, 10, 10, 4096), ("4 files of 1 MiB", 1, 1, 4, 1 << 20)]
    for title, runs, *shape in trees:
        digests = tree(release, *shape)

        def is_done() -> bool:
            found = re.findall(r"<name>(.*)</name>\s*<sha1>(.*)</sha1>", index.read_text())
            return sorted(found) == sorted(digests.items())

        measure(f"Build mode: {title}, beside other programs that hash the same files", runs,
                lambda: index.unlink(missing_ok=True), is_done,
                {"updater -b": f"updater -b -n Bench -v 2 -d {release}",
                 "find, sha1sum": f"find {release} -type f -exec sha1sum {{}} +",
                 "find, openssl sha1": f"find {release} -type f -exec openssl sha1 {{}} +",
                 f"{QT_ONLY}, QDir, QFile, QCryptographicHash": f"hash_one_by_one {release}"})
        shutil.rmtree(release)


def check() -> None:
    for entries in (1, 100) if smoke else (100, 100000):
        publish_manifest(entries)
        names = write("names", ["list.txt"])
        measure(f"Check mode: a version file with {entries} entries, beside fetching it",
                1 if smoke else 15, forget, changelog.exists,
                {"updater -c": f"updater -c -n Bench -v 1 -s none -l {url}list.txt",
                 "curl": f"curl -sf -o {work}/received {url}list.txt",
                 f"{QT_ONLY}, one GET": f"fetch_in_application {url} {names}"})


def measure_update(title: str, runs: int, name: str, source: str, rows: tuple[str, ...]) -> None:
    """An update from nothing to a published release."""
    installed, new, saved, old = (work / place for place in ("installed", "new", "saved", "old"))
    digests, source = releases[name], f"{source}{name}/"
    tops = " ".join(sorted({f"{new}/{file.split('/')[0]}" for file in digests}))
    names = write("names", digests)
    sums = write("sums", (f"{digest}  {new}/{file}" for file, digest in digests.items()))
    curl = write("curl", (f'url = "{source}{file}"\noutput = "{new}/{file}"' for file in digests))

    def prepare() -> None:
        # Small files are moved away and deleted at the end: where one was deleted a moment ago,
        # some file systems take long to make another.
        old.mkdir(exist_ok=True)
        for place in (installed, new, saved, tmp):
            if place.exists():
                place.rename(tempfile.mkdtemp(dir=old))
            place.mkdir()
        if name != "small":
            shutil.rmtree(old)

    def is_done() -> bool:
        compared = ["diff", "-rq", "-x", "index.txt", www / name, installed]
        return subprocess.run(compared).returncode == 0

    programs = {
        "updater -u": f"updater -u -n Bench -v 1 -d {installed} -l {source}index.txt",
        "curl, sha1sum -c, mv": f"curl -sf --create-dirs -K {curl} && sha1sum -c --quiet {sums}"
                                f" && mv -t {installed} {tops}",
        "QNetworkAccessManager alone": f"fetch_one_by_one {source} {names}",
        QT_UPDATE: f"fetch_in_application {source} {names} {len(digests)} {saved}"}
    measure(title, runs, prepare, is_done,
            {row: programs[row] for row in ("updater -u", "curl, sha1sum -c, mv", *rows)})
    shutil.rmtree(old, ignore_errors=True)


def publish_both() -> tuple[str, str]:
    publish("small", *((2, 5, 8192) if smoke else (20, 100, 8192)))
    publish("large", *((1, 2, 1 << 20) if smoke else (1, 20, 50 << 20)))
    return (("10 files of 8 KiB", "2 files of 1 MiB") if smoke
            else ("2,000 files of 8 KiB", "20 files of 50 MiB"))


def update() -> None:
    small, large = publish_both()
    rows = ("QNetworkAccessManager alone", QT_UPDATE)
    measure_update(f"Update: {small}, from nothing", 1 if smoke else 7, "small", url, rows)
    measure_update(f"Update: {large}, from nothing", 1 if smoke else 5, "large", url, rows)


def distant() -> None:
    small, large = publish_both()
    proxy = ["delaying_proxy", url.rpartition(":")[2].strip("/"), "20"]
    started.append(subprocess.Popen(proxy, stdout=subprocess.PIPE, text=True))
    port = int(started[-1].stdout.readline())
    title = f"Update with 20 ms of round trip ({1000 * answer_time(port):.1f} ms measured)"
    source = f"http://127.0.0.1:{port}/"
    measure_update(f"{title}: {small}", 1 if smoke else 0, "small", source, ())
    measure_update(f"{title}: {large}", 1 if smoke else 3, "large", source, (QT_UPDATE,))


def inplace() -> None:
    publish("inplace", *((2, 5, 4096) if smoke else (100, 100, 4096)))
    digests = {f"{www}/inplace/{name}": digest for name, digest in releases["inplace"].items()}
    sums = write("sums", (f"{digest}  {path}" for path, digest in digests.items()))

    def prepare() -> None:
        shutil.rmtree(tmp, ignore_errors=True)
        tmp.mkdir()

    # The directory is made when the version file was read. The first file that is moved removes it.
    measure(f"Update: all {len(digests):,} files of 4 KiB are in place", 1 if smoke else 15,
            prepare, lambda: os.listdir(tmp / "wUpBench2") == [],
            {"updater -u": f"updater -u -n Bench -v 1 -d {www}/inplace -l {url}inplace/index.txt",
             "sha1sum -c": f"sha1sum -c --quiet {sums}",
             f"{QT_ONLY}, QFile, QCryptographicHash": f"hash_one_by_one {write('paths', digests)}"})


SECTIONS = {"startup": startup, "build": build, "check": check, "update": update,
            "distant": distant, "inplace": inplace}


def main() -> None:
    wanted = [word for word in words if word != "--smoke"] or list(SECTIONS)
    if not SECTIONS.keys() >= set(wanted):
        sys.exit(f"usage: bench/compare [--qt 5|6] [--smoke] [{'|'.join(SECTIONS)}]...")
    if not re.fullmatch("[-A-Za-z0-9./_]+", f"{work}{build_directory}"):
        sys.exit(f"a path may not have such characters here: {work}, {build_directory}")
    for directory in (www, tmp, work / "runtime"):
        directory.mkdir(mode=0o700)
    # Proxies of the surroundings would be measured as well.
    for name in [name for name in os.environ if name.lower().endswith("_proxy")]:
        del os.environ[name]
    os.environ.update(PATH=f"{build_directory}:{build_directory}/bench:{os.environ['PATH']}",
                      LC_ALL="C.UTF-8", QT_QPA_PLATFORM="offscreen", TMPDIR=str(tmp),
                      XDG_RUNTIME_DIR=str(work / "runtime"))
    start = time.monotonic()
    for word in wanted:
        SECTIONS[word]()
    print(f"\nMeasured in {time.monotonic() - start:.0f} seconds.")


try:
    for number in (signal.SIGALRM, signal.SIGTERM):
        signal.signal(number, lambda number, _: fail(signal.Signals(number).name))
    main()
finally:
    for process in started:
        process.kill()
    shutil.rmtree(work)
