"""The local cloud, for tests that are written in Python."""

import json
import subprocess

PROXIES = {"http_proxy", "https_proxy", "all_proxy", "no_proxy"}


def end(process):
    process.terminate()
    try:
        process.wait(timeout=20)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def start_cloud(ending, build, directory, seed, *options):
    """The addresses that it says at first, by name."""
    file = directory / "seed.json"
    file.write_text(json.dumps(seed))
    program = build / "devkit/cloud/pelcloud-localcloud"
    cloud = subprocess.Popen([program, "--seed", file, *options], stdout=subprocess.PIPE, text=True)
    ending.callback(cloud.stdout.close)
    ending.callback(end, cloud)
    return dict(cloud.stdout.readline().split() for _ in range(4))
