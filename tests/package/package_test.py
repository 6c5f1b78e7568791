#!/usr/bin/python3
"""Makes the packages and tests them.

package_test.py contents BUILD: what they contain, and what lintian reports.
package_test.py install BUILD: piuparts installs the .deb into a clean system, where pelcloudctl and the plug-in run,
and removes it. It works in namespaces of its own and in a file system in memory, so that nothing stays mounted,
running or on the disk, however it ends. The clean system is kept in the build directory for the next time.
"""

import contextlib
import io
import json
import os
import pathlib
import platform
import secrets
import shutil
import subprocess
import sys
import tarfile
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
from localcloud import start_cloud  # noqa: E402

STATUS_SKIPPED = 77
SOURCE = pathlib.Path(__file__).resolve().parents[2]
PLUGIN = "usr/lib/pelorin/pelcloud.so"
DOCS = "usr/share/doc/pelcloud/"
INSTALLED = {
    "usr/bin/pelcloudctl", PLUGIN, "usr/share/man/man1/pelcloudctl.1.gz", "usr/share/man/man5/pelcloud.json.5.gz",
    "usr/share/bash-completion/completions/pelcloudctl", "usr/share/zsh/vendor-completions/_pelcloudctl",
    "usr/share/fish/vendor_completions.d/pelcloudctl.fish", DOCS + "README.md", DOCS + "copyright",
    DOCS + "examples/pelcloud.json", *(DOCS + f"docs/{file.name}" for file in (SOURCE / "docs").iterdir()),
}
ONLY_IN_DEB = {DOCS + "changelog.gz", DOCS + "changelog.Debian.gz", "usr/share/lintian/overrides/pelcloud"}
ONLY_IN_TAR = {DOCS + "CHANGELOG.md"}

# Runs in the clean system, when the package is installed. The host is not beside the suite, so that the plug-in finds the
# suite through /etc/pelorin.conf.
USE = """#!/bin/sh -ex
cd '{suite}'
export HTTPS_PROXY='{proxy}'
pelcloudctl check --json -C . >check.json
printf '[PELORIN]\\nPATH={suite}\\n' >/etc/pelorin.conf
host/pelhost '/{plugin}' & host=$!
until grep -q 'HTTP POST.*device/001 OK' pelcloud.log; do sleep 0.2; kill -0 $host; done
kill $host
wait $host
pelcloudctl log | grep -q 'HTTP POST'
rm /etc/pelorin.conf
"""


def run(arguments, **settings):
    """The output of a program, which must succeed."""
    answer = subprocess.run(arguments, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            text=True, check=False, **settings)
    assert answer.returncode == 0, f"{arguments[0]} ended with status {answer.returncode}:\n{answer.stdout}"
    return answer.stdout


def make_packages(build, directory, generators):
    # The umask must not show in the packages.
    run(["cpack", "--config", build / "CPackConfig.cmake", "-B", directory, "-G", generators], umask=0o077,
        cwd=directory)


def only(directory, pattern):
    [file] = directory.glob(pattern)
    return file


def files_in(archive, prefix):
    files = set()
    for member in archive:
        name = member.name.removeprefix(prefix)
        wanted = 0o755 if member.isdir() or name.startswith("usr/bin/") else 0o644
        assert member.isdir() or member.isreg(), f"{name} is neither file nor directory"
        assert name == "." or member.mode == wanted, f"{name} has mode {member.mode:o}"
        assert (member.uid, member.gid) == (0, 0), f"{name} is not root's"
        if member.isreg():
            files.add(name)
    return files


def contents(build, directory):
    make_packages(build, directory, "DEB;TGZ")
    deb, tar = only(directory, "*.deb"), only(directory, "*.tar.gz")
    data = subprocess.run(["dpkg-deb", "--fsys-tarfile", deb], capture_output=True, check=True).stdout
    with tarfile.open(fileobj=io.BytesIO(data)) as archive:
        in_deb = files_in(archive, "./")
    with tarfile.open(tar) as archive:
        in_tar = files_in(archive, tar.name.removesuffix(".tar.gz") + "/")
    assert INSTALLED <= in_deb, f"missing: {INSTALLED - in_deb}"
    assert in_deb - in_tar == ONLY_IN_DEB, in_deb ^ in_tar
    assert in_tar - in_deb == ONLY_IN_TAR, in_deb ^ in_tar
    environment = {**os.environ, "TMPDIR": str(directory)}  # lintian leaves files there
    print(run(["lintian", "--fail-on", "error", "--show-overrides", deb], env=environment))


def mirror():
    """The address and the name of this system's main packages."""
    name = platform.freedesktop_os_release().get("VERSION_CODENAME")
    lines = run(["apt-get", "indextargets", "--format", "$(RELEASE) $(COMPONENT) $(REPO_URI)",
                 "Created-By: Packages"]).splitlines()
    return next((line.split()[2] for line in lines if line.startswith(f"{name} main ")), ""), name


def why_not_here(build, directory):
    if subprocess.run(["unshare", "--mount", "mount", "-t", "tmpfs", "none", build], check=False).returncode != 0:
        return "nothing may be mounted here"
    address, name = mirror()
    release = ["/usr/lib/apt/apt-helper", "download-file", f"{address}dists/{name}/Release", directory / "Release"]
    if not address.startswith("http:") or subprocess.run(release, check=False).returncode != 0:
        return "there is no mirror of packages that a clean system can use"
    return None


def install(build, directory):
    why_not = why_not_here(build, directory)
    if why_not:
        print(f"skipped: {why_not}")
        return STATUS_SKIPPED
    # What is mounted ends with the namespace; the directory is empty outside of it.
    namespace = ["unshare", "--mount", "--pid", "--mount-proc", "--fork", "--kill-child"]
    return subprocess.run([*namespace, sys.executable, __file__, "inside", build, directory], check=False,
                          timeout=840).returncode


def inside(build, directory):
    run(["mount", "-t", "tmpfs", "-o", "mode=0755", "tmpfs", directory])
    make_packages(build, directory, "DEB")
    suite, scripts = directory / "suite", directory / "scripts"
    (suite / "host").mkdir(parents=True)
    scripts.mkdir()
    shutil.copy(build / "devkit/suite/upscli.so", suite)
    shutil.copy(build / "devkit/host/pelhost", suite / "host")
    (suite / "scenario.ini").write_text("units = 2\n[unit *]\ntimeline = mains\n")
    token, secret = (f"s3cr3t{secrets.token_hex(8)}" for _ in range(2))
    seed = {"clients": [{"client_id": "x", "client_secret": secret}],
            "refresh_tokens": [{"refresh_token": token, "client_id": "x"}]}
    with contextlib.ExitStack() as ending:
        cloud = start_cloud(ending, build, directory, seed, "--quiet")
        config = {"home": cloud["api"], "cpid": "gatehouse", "cid": "x", "csec": secret, "rtk": token, "log": "info"}
        (suite / "pelcloud.json").write_text(json.dumps(config))
        (suite / "pelcloud.json").chmod(0o600)
        use = scripts / "post_install_use"
        use.write_text(USE.format(suite=suite, plugin=PLUGIN, proxy=cloud["proxy"]))
        use.chmod(0o755)
        address, name = mirror()
        system = build / f"packaging/{name}.tgz"
        proxy = run(["apt-config", "shell", "proxy", "Acquire::http::Proxy"]).strip().removeprefix("proxy=").strip("'")
        run(["piuparts", "-d", name, "-m", f"{address} main", *([f"--proxy={proxy}"] if proxy else []),
                   "-b" if system.exists() else "--save", system, "-t", directory, "--scriptsdir", scripts,
                   "--bindmount", suite, "--no-upgrade-test", "--no-eatmydata", "--no-adequate",
                   "--no-check-valid-until", only(directory, "*.deb")])
    findings = {finding["subject"]: finding for finding in json.loads((suite / "check.json").read_text())["findings"]}
    assert findings["plug-in"]["verdict"] == "ok" and f"/{PLUGIN}" in findings["plug-in"]["text"], findings
    assert findings["suite"]["verdict"] == "ok" and findings["token"]["verdict"] == "ok", findings
    return 0


def main():
    mode, build, *rest = sys.argv[1:]
    build = pathlib.Path(build).resolve()
    if mode == "inside":
        return inside(build, pathlib.Path(*rest))
    with tempfile.TemporaryDirectory(prefix="pelcloud-package-") as directory:
        return {"contents": contents, "install": install}[mode](build, pathlib.Path(directory))


if __name__ == "__main__":
    try:
        sys.exit(main())
    except AssertionError as problem:
        print(f"FAILED: {problem}")
        sys.exit(1)
