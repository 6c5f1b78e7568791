#!/usr/bin/python3
"""The plug-in in its host reports through nginx: short-lived connections, reloads during a run, a stopped worker."""

import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.request

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
from localcloud import end, start_cloud  # noqa: E402

UNITS = 20
ROUND_TRIP = 0.02
SEED = {"clients": [{"client_id": "c1", "client_secret": "s3cr3t-c"}], "access_tokens": [{"access_token": "s3cr3t-a"}],
        "refresh_tokens": [{"refresh_token": "s3cr3t-r", "client_id": "c1"}]}
TEMPORARY = "".join(f"{name}_temp_path {name};" for name in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))


def await_that(is_so, what, seconds=120):
    deadline = time.monotonic() + seconds
    while not is_so():
        assert time.monotonic() < deadline, what
        time.sleep(0.01)


class Nginx:
    """With TLS and HTTP/2, two workers, and a listening socket of ours, so that the kernel chooses the port."""

    def __init__(self, ending, directory, upstream):
        self.directory, self.upstream = directory, upstream
        listener = ending.enter_context(socket.create_server(("127.0.0.1", 0)))
        self.address = "127.0.0.1:{}".format(listener.getsockname()[1])
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                        "-subj", "/CN=nginx", "-keyout", "key.pem", "-out", "cert.pem"],
                       cwd=directory, check=True, capture_output=True)
        self.configure("keepalive_requests 2;")
        program = shutil.which("nginx", path=os.environ["PATH"] + ":/usr/sbin")
        self.process = subprocess.Popen([program, "-p", directory, "-c", "nginx.conf"], pass_fds=[listener.fileno()],
                                        env={"NGINX": f"{listener.fileno()};"})
        ending.callback(end, self.process)

    def configure(self, settings):
        (self.directory / "nginx.conf").write_text(f"""
            daemon off; user root; worker_processes 2; pid nginx.pid; error_log error.log; events {{ }}
            http {{ log_format requests "$pid $server_protocol $connection_requests $status";
                    access_log access.log requests; {TEMPORARY} {settings}
                    server {{ listen {self.address} ssl http2; ssl_certificate cert.pem; ssl_certificate_key key.pem;
                              location / {{ proxy_pass {self.upstream}; }} }} }}""")

    def requests(self):
        """Worker, protocol, number on its connection, and status of each request so far."""
        log = self.directory / "access.log"
        return [line.split() for line in log.read_text().splitlines()] if log.exists() else []


def test_nginx(ending, build, directory, cloud):
    nginx = Nginx(ending, directory, cloud["api"])
    for program in ("pelcloud.so", "devkit/suite/upscli.so", "devkit/host/pelhost"):
        shutil.copy(build / program, directory)
    (directory / "scenario.ini").write_text(f"units = {UNITS}\n[unit *]\nsamples = 0\n")
    (directory / "pelcloud.json").write_text(json.dumps({
        "home": f"https://{nginx.address}", "cpid": "pc1", "cid": "c1", "csec": "s3cr3t-c", "rtk": "s3cr3t-r",
        "log": "info"}))
    host = subprocess.Popen([directory / "pelhost", directory / "pelcloud.so"], stdout=subprocess.DEVNULL,
                            env={**os.environ, "HTTPS_PROXY": cloud["proxy"], "NO_PROXY": "127.0.0.1"})
    ending.callback(end, host)

    def results(word):
        log = directory / "pelcloud.log"
        return re.findall(rf"HTTP (\w+) \S+/mon/(\S+) {word}\.\n", log.read_text()) if log.exists() else []

    for count in range(UNITS, 2 * UNITS, 3):  # the first run
        await_that(lambda: len(nginx.requests()) >= count, "no requests")
        nginx.configure("")
        nginx.process.send_signal(signal.SIGHUP)
    await_that(lambda: len(results("OK")) == 2 * UNITS, "reports are lost at a reload")
    requests = nginx.requests()
    assert {(protocol, status) for _, protocol, _, status in requests} == {("HTTP/1.1", "200")}, requests
    assert {number for _, _, number, _ in requests[:UNITS]} == {"1", "2"}, requests

    await_that(lambda: len(nginx.requests()) >= 3 * UNITS, "no requests")  # in the second run
    worker = int(nginx.requests()[-1][0])
    os.kill(worker, signal.SIGSTOP)
    ending.callback(os.kill, worker, signal.SIGCONT)
    await_that(lambda: len(results("OK")) == 4 * UNITS - 1, "the dead connection is used again")
    assert len(results("error")) == 1, results("error")


def test_settings_of_the_local_cloud(cloud):
    """Those that this test and the benchmarks rely on."""
    address = ("127.0.0.1", int(cloud["api"].rpartition(":")[2]))
    head = b"PUT /_ah/api/pelorin/v1/mon/pc2 HTTP/1.1\r\nAuthorization: Bearer s3cr3t-a\r\nContent-Length: 2\r\n"

    def answer(connection, request):
        """The first word of the answer and what it takes, in round trips."""
        began = time.monotonic()
        connection.sendall(request)
        with contextlib.suppress(TimeoutError):
            return connection.recv(9999).partition(b"\r\n")[0], int((time.monotonic() - began) / ROUND_TRIP)
        return None

    with socket.create_connection(address, timeout=1) as kept, socket.create_connection(address, timeout=60) as fresh:
        assert answer(kept, head + b"Expect: 100-continue\r\n\r\n") is None
        status, _ = answer(kept, b"{}")
        assert status == b"HTTP/1.1 200 OK", status
        assert answer(kept, head + b"\r\n{}")[1] >= 1
        rules = json.dumps({"faults": ["api:hang"]}).encode()
        urllib.request.urlopen(f"{cloud['api']}/api/faults", rules, 60).close()
        assert answer(kept, head + b"\r\n{}") is None
        assert answer(fresh, head + b"\r\n{}")[0] == status
    with socket.create_connection(address, timeout=60) as fresh:
        assert answer(fresh, head + b"\r\n{}")[1] >= 2


def main():
    with contextlib.ExitStack() as ending:
        directory = pathlib.Path(ending.enter_context(tempfile.TemporaryDirectory(prefix="pelcloud-nginx-")))
        cloud = start_cloud(ending, pathlib.Path(sys.argv[1]), directory, SEED, "--quiet", "--no-continue",
                            "--round-trip-ms", str(round(1000 * ROUND_TRIP)))
        test_nginx(ending, pathlib.Path(sys.argv[1]), directory, cloud)
        test_settings_of_the_local_cloud(cloud)


if __name__ == "__main__":
    main()
