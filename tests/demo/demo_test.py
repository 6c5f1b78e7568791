#!/usr/bin/python3
"""Runs scripts/demo to its end, until Ctrl-C, and with bad options."""

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
PAGE = re.compile(r"^Open (http://127\.0\.0\.1:\d+/) in a browser\.$", re.MULTILINE)
REPORT = re.compile(r"^\d\d:\d\d:\d\d  POST demo/(\d{3}) on mains 100%$", re.MULTILINE)
SUMMARY = re.compile(r"^unit (\d{3}): reported in 1 of 1 runs$", re.MULTILINE)
SECONDS_TO_BUILD = 200
SECONDS_TO_END = 60
BAD_OPTIONS = [
    ["--runs"], ["--runs", "two"], ["--runs", "-1"], ["--units", "0"], ["--units", "1000"],
    ["--scenario", "/nonexistent/scenario.ini"], ["--speed", "2"], ["two"],
]


def left_processes(directory):
    """Those whose temporary directory it is."""
    mark = b"TMPDIR=" + os.fsencode(directory)
    for entry in pathlib.Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            if mark in (entry / "environ").read_bytes().split(b"\0"):
                yield int(entry.name)


@contextlib.contextmanager
def demo(*arguments, status):
    """A running demo; afterwards it has ended with the status and left neither processes nor files."""
    with tempfile.TemporaryDirectory(prefix="pelcloud-demo-") as directory:
        process = subprocess.Popen([DEMO, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT, text=True, start_new_session=True,
                                   env={**os.environ, "TMPDIR": directory})
        limit = threading.Timer(SECONDS_TO_BUILD, os.killpg, (process.pid, signal.SIGKILL))
        limit.start()
        try:
            yield process
            assert process.wait(SECONDS_TO_END) == status, f"{arguments}: status {process.returncode}"
            assert not list(left_processes(directory)) and not os.listdir(directory), "left something"
        finally:
            limit.cancel()
            for left in left_processes(directory):
                os.kill(left, signal.SIGKILL)
            process.wait()


def one_run():
    with demo("--runs", "1", status=0) as process:
        text = process.stdout.read()
    for expected in (REPORT, SUMMARY):
        assert expected.findall(text) == ["000", "001", "002"], text


def ctrl_c():
    with demo(status=130) as process:
        text = ""
        while not PAGE.search(text):
            line = process.stdout.readline()
            assert line, text
            text += line
        direct = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        with direct.open(PAGE.search(text)[1], timeout=20) as answer:
            assert b"<title>PelCloud</title>" in answer.read()
        os.killpg(process.pid, signal.SIGINT)


def bad_options():
    for arguments in BAD_OPTIONS:
        with demo(*arguments, status=2) as process:
            assert process.stdout.read().strip(), f"{arguments}: no message"


def installed_suite():
    with demo(status=1) as process:
        assert "/etc/pelorin.conf" in process.stdout.read()


def main():
    # Ctrl-C may be ignored here, which the shell could not change.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))
    cases = [installed_suite] if os.path.exists("/etc/pelorin.conf") else [one_run, ctrl_c]
    with concurrent.futures.ThreadPoolExecutor() as pool:
        for result in [pool.submit(case) for case in [*cases, bad_options]]:
            result.result()


if __name__ == "__main__":
    main()
