"""What the programs that measure whole processes have in common: an installation to run in, the host, the local cloud,
and what the kernel counts of a process."""

import contextlib
import json
import os
import pathlib
import re
import secrets
import shutil
import signal
import subprocess
import sys
import tempfile
import textwrap
import threading
import time
from collections.abc import Iterator

SECONDS_TO_START = 30
SECONDS_TO_END = 90
LONGEST_REPORT = 1  # seconds; far less than what is between two runs
EVERYWHERE = ("libc.", "libm.", "libstdc++.", "libgcc_s.", "ld-linux")
INSTALLED_SUITE = pathlib.Path("/etc/pelorin.conf")


class Programs:
    """The built programs, all below one build directory."""

    def __init__(self, build: pathlib.Path):
        self.plugin = build / "pelcloud.so"
        self.suite = build / "devkit/suite/upscli.so"
        self.host = build / "devkit/host/pelhost"
        self.cloud = build / "devkit/cloud/pelcloud-localcloud"
        self.loadtime = build / "bench/loadtime"
        self.bare, self.empty, self.sleeping = (
            build / f"bench/{name}plugin.so" for name in ("bare", "empty", "sleeping"))


def build_argument(text: str) -> Programs:
    """For argparse: the build directory, with the programs in it."""
    build = pathlib.Path(text).resolve()
    if not (build / "pelcloud.so").is_file():
        raise ValueError
    return Programs(build)


def prepare() -> None:
    """Lets a polite end come through the blocks that clean up, and refuses a machine with a suite of its own."""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))
    if INSTALLED_SUITE.exists():
        sys.exit(f"{INSTALLED_SUITE} tells of a suite that is installed here; the plug-in would report that one.")


def needed_libraries(module: pathlib.Path) -> list[pathlib.Path]:
    """What a module needs, but for the runtime libraries that every process has anyway."""
    printed = subprocess.run(["ldd", module], check=True, capture_output=True, text=True).stdout
    found = re.findall(r"^\s+(\S+) => (/\S+)", printed, re.M)
    return [pathlib.Path(path) for name, path in found if not name.startswith(EVERYWHERE)]


def installation(parent: pathlib.Path, name: str, programs: Programs, scenario: str,
                 config: dict[str, str] | None = None) -> pathlib.Path:
    """A directory that holds the host and all that belongs to it, the libraries too: whoever else uses Qt or libcurl on
    this machine would halve what they seem to take."""
    directory = parent / name
    directory.mkdir(mode=0o700)
    for file in (programs.plugin, programs.suite, programs.host, programs.loadtime,
                 programs.bare, programs.empty, programs.sleeping):
        shutil.copy(file, directory)
    for library in needed_libraries(programs.plugin):
        shutil.copy(library, directory / library.name)
    (directory / "scenario.ini").write_text(scenario)
    (directory / "pelcloud.json").write_text(json.dumps(config or {"home": "http://127.0.0.1:9", "log": "fatal"}))
    return directory


@contextlib.contextmanager
def ended(process: subprocess.Popen) -> Iterator[subprocess.Popen]:
    """Ends a process at the end of the block, together with the group that it leads, if it leads one."""
    try:
        yield process
    finally:
        if process.poll() is None:
            if os.getpgid(process.pid) == process.pid:
                os.killpg(process.pid, signal.SIGTERM)
            process.terminate()
            try:
                process.wait(SECONDS_TO_END)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        if process.stdout:
            process.stdout.close()


@contextlib.contextmanager
def host(directory: pathlib.Path, plugin: str = "pelcloud.so", proxy: str | None = None) -> Iterator[subprocess.Popen]:
    """A host whose plug-in has been started."""
    environment = {name: value for name, value in os.environ.items() if not name.lower().endswith("_proxy")}
    environment["LD_LIBRARY_PATH"] = str(directory)
    if proxy:
        environment["HTTPS_PROXY"] = proxy
    with ended(subprocess.Popen([directory / "pelhost", directory / plugin], cwd=directory, env=environment,
                                stdout=subprocess.PIPE, stdin=subprocess.DEVNULL, text=True)) as process:
        for line in process.stdout:
            if line.startswith("SrvStart: 1"):
                break
        else:
            sys.exit(f"{plugin} does not start")
        yield process


class Cloud:
    """The local cloud, with one refresh token that is known to it; counts the reports that it takes in."""

    def __init__(self, parent: pathlib.Path, programs: Programs, *options: str):
        self.client, self.refresh_token = secrets.token_hex(16), secrets.token_hex(24)
        seed = parent / f"seed-{secrets.token_hex(4)}.json"
        seed.touch(0o600)
        seed.write_text(json.dumps({
            "clients": [{"client_id": "bench", "client_secret": self.client}],
            "refresh_tokens": [{"refresh_token": self.refresh_token, "client_id": "bench"}]}))
        self.process = subprocess.Popen([programs.cloud, "--seed", seed, "--keep", "1", *options],
                                        stdout=subprocess.PIPE, stdin=subprocess.DEVNULL, text=True)
        addresses = dict(self.process.stdout.readline().split() for _ in range(4))
        self.api, self.proxy = addresses["api"], addresses["proxy"]
        self.reports = {"PUT": 0, "POST": 0}
        self.reporting = 0.0  # seconds from a run's first report to its last, of all runs
        self.reader = threading.Thread(target=self._count, daemon=True)
        self.reader.start()

    def _count(self) -> None:
        last = 0.0
        for line in self.process.stdout:
            now = time.monotonic()
            self.reporting += now - last if now - last < LONGEST_REPORT else 0.0
            last = now
            self.reports[line.split(maxsplit=1)[0]] += 1

    def __enter__(self) -> "Cloud":
        return self

    def __exit__(self, *_) -> None:
        self.process.terminate()
        self.process.wait(SECONDS_TO_END)
        self.reader.join(SECONDS_TO_END)
        self.process.stdout.close()

    def config(self, home: str | None = None) -> dict[str, str]:
        return {"home": home or self.api, "cpid": "bench", "cid": "bench", "csec": self.client,
                "rtk": self.refresh_token, "log": "fatal"}


def cpu(pid: int) -> float:
    """Seconds of processor time that all threads of a process have taken, also those that have ended."""
    return time.clock_gettime((~pid << 3) | 2)  # the kernel's name for the CPU clock of another process


def wakeups(pid: int) -> int:
    """How often its threads have waited for something and were woken up."""
    total = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):  # a thread that ends meanwhile
            total += int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", (task / "status").read_text(), re.M)[1])
    return total


def memory(pid: int) -> dict[str, int]:
    """The fields of smaps_rollup, in KiB: Pss, Pss_Anon, Pss_File, Private_Dirty, ..."""
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    return {name: int(value) for name, value in re.findall(r"^(\w+):\s+(\d+) kB$", text, re.M)}


def memory_in(pid: int, file: str) -> int:
    """The part of the PSS, in KiB, that lies in pages of files whose names begin so."""
    total, counts = 0, False
    for line in pathlib.Path(f"/proc/{pid}/smaps").read_text().splitlines():
        if re.match("[0-9a-f]+-[0-9a-f]+ ", line):
            counts = line.rpartition("/")[2].startswith(file)
        elif counts and line.startswith("Pss:"):
            total += int(line.split()[1])
    return total


def stop(process: subprocess.Popen, seconds: float = SECONDS_TO_END) -> float | None:
    """Seconds from SIGTERM to the end of the process; none if it has to be killed."""
    began = time.monotonic()
    process.send_signal(signal.SIGTERM)
    try:
        process.wait(seconds)
        return time.monotonic() - began
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        return None


def table(head: list[str], rows: list[list[str]]) -> str:
    lines = [head, [":---" if column == 0 else "---:" for column in range(len(head))], *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def paragraphs(text: str) -> str:
    """Paragraphs, parted by empty lines, in lines of even length whatever numbers went into them."""
    return "\n\n".join(textwrap.fill(paragraph, 120, break_long_words=False, break_on_hyphens=False)
                       for paragraph in text.strip().split("\n\n"))


def temporary_directory() -> tempfile.TemporaryDirectory:
    return tempfile.TemporaryDirectory(prefix="pelcloud-bench-")
