#!/usr/bin/python3
"""Runs scripts/demo as a person does: to its end, until Ctrl-C, with options that it refuses."""

import concurrent.futures
import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import threading
import urllib.request

DEMO = pathlib.Path(__file__).resolve().parents[2] / "scripts/demo"
INSTALLED_SUITE = "/etc/pelorin.conf"
PAGE = re.compile(r"^See your power at (http://127\.0\.0\.1:\d+/)$", re.MULTILINE)
REPORT = re.compile(r"^\d\d:\d\d:\d\d  POST demo/(\d{3}) on mains 100%$", re.MULTILINE)
SUMMARY = re.compile(r"^unit (\d{3}): reported in 1 of 1 runs$", re.MULTILINE)
UNITS = ["000", "001", "002"]
SECONDS_TO_START = 60
SECONDS_TO_END = 10

REFUSED = [
    ["--runs"], ["--runs", "two"], ["--runs", "-1"], ["--units", "0"], ["--units", "1000"],
    ["--scenario", "/nonexistent/scenario.ini"], ["--speed", "2"], ["two"],
]


class Demo:
    """A running scripts/demo, in a process group and with temporary files of its own."""

    def __init__(self, arguments):
        self.temporary = tempfile.TemporaryDirectory(prefix="pelcloud-demo-")
        self.process = subprocess.Popen(
            [DEMO, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True, start_new_session=True,
            env={**os.environ, "TMPDIR": self.temporary.name})

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in self.left_processes():
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGKILL)
        self.process.wait()
        self.process.stdout.close()
        self.temporary.cleanup()

    def read(self, seconds, until=None):
        """What is printed until a line matches, or to the end."""
        limit = threading.Timer(seconds, os.killpg, (self.process.pid, signal.SIGKILL))
        limit.start()
        text = ""
        try:
            for line in self.process.stdout:
                text += line
                if until and until.search(line):
                    return text
            self.process.wait()
        finally:
            limit.cancel()
        assert not until, f"ended too early or takes longer than {seconds} s:\n{text}"
        return text

    def left_processes(self):
        """Those with its directory for temporary files, whoever their parent is by now."""
        mark = b"TMPDIR=" + os.fsencode(self.temporary.name)
        left = []
        for entry in pathlib.Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                if mark in (entry / "environ").read_bytes().split(b"\0"):
                    left.append(int(entry.name))
        return left

    def check_end(self, status, text):
        assert self.process.returncode == status, f"status {self.process.returncode}:\n{text}"
        left = self.left_processes()
        assert not left, f"left processes: {left}"
        files = os.listdir(self.temporary.name)
        assert not files, f"left files: {files}"


def fetch_page(text):
    address = PAGE.search(text)[1]
    direct = urllib.request.build_opener(urllib.request.ProxyHandler({}))
    with direct.open(address, timeout=20) as answer:
        assert b"<title>PelCloud</title>" in answer.read(), f"no page at {address}"


def one_run_to_its_end():
    with Demo(["--runs", "1"]) as demo:
        text = demo.read(SECONDS_TO_START, until=PAGE)
        fetch_page(text)
        text += demo.read(10 + 30 + SECONDS_TO_END)
        demo.check_end(0, text)
        assert REPORT.findall(text) == UNITS, f"not a report of each unit:\n{text}"
        assert SUMMARY.findall(text) == UNITS, f"no summary:\n{text}"


def ctrl_c():
    with Demo([]) as demo:
        text = demo.read(SECONDS_TO_START, until=PAGE)
        assert demo.left_processes(), "processes are not found by their environment"
        os.killpg(demo.process.pid, signal.SIGINT)
        text += demo.read(SECONDS_TO_END)
        demo.check_end(130, text)
        assert not SUMMARY.search(text), f"a summary without a run:\n{text}"


def refused_options():
    for arguments in REFUSED:
        with Demo(arguments) as demo:
            text = demo.read(SECONDS_TO_END)
            demo.check_end(2, f"{arguments}: {text}")
            assert text.strip(), f"{arguments}: no message"


def installed_suite():
    with Demo(["--runs", "1"]) as demo:
        text = demo.read(SECONDS_TO_END)
        demo.check_end(1, text)
        assert INSTALLED_SUITE in text, text


def verdict(case):
    try:
        case()
        return "ok"
    except AssertionError as problem:
        return f"FAILED: {problem}"


def main():
    # Whoever started this may have Ctrl-C ignored, which a shell could not trap.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))
    cases = [one_run_to_its_end, ctrl_c, refused_options]
    if os.path.exists(INSTALLED_SUITE):
        cases = [installed_suite, refused_options]
    with concurrent.futures.ThreadPoolExecutor(len(cases)) as pool:
        verdicts = list(pool.map(verdict, cases))
    for case, text in zip(cases, verdicts):
        print(f"{case.__name__}: {text}")
    return 0 if set(verdicts) == {"ok"} else 1


if __name__ == "__main__":
    sys.exit(main())
