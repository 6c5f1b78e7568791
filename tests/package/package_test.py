#!/usr/bin/python3
"""Makes the packages, and looks at them or uses the .deb.

package_test.py contents BUILD: what is in them, and what lintian says of it.
package_test.py install BUILD: installs the .deb into a clean system, runs pelcloudctl and the plug-in
there, and removes it. The system is bare, comes from the mirror that this one uses, and is kept in the
build directory for the next time. All is done in a mount and a process namespace over a file system in
memory, so that nothing stays mounted, running or lying about, however this ends. Nothing is ever removed
below a mount: outside of the namespace, its place is an empty directory.
"""

import contextlib
import fcntl
import io
import json
import os
import pathlib
import platform
import secrets
import shutil
import signal
import subprocess
import sys
import tarfile
import tempfile

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
DIRECTORY = "/opt/pelorin"  # of the suite, in the clean system
PROXIES = ("http_proxy", "https_proxy", "no_proxy")


def ran(arguments, seconds=120, **settings):
    return subprocess.run(arguments, text=True, timeout=seconds, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, **settings)


def run(arguments, **settings):
    """What a program says that must succeed."""
    answer = ran(arguments, **settings)
    assert answer.returncode == 0, f"{arguments[0]} ended with status {answer.returncode}:\n{answer.stdout}"
    return answer.stdout


def skip(why):
    print(f"skipped: {why}")
    sys.exit(STATUS_SKIPPED)


def make_packages(build, directory, generators):
    # With a umask that would make them useless.
    run(["cpack", "--config", build / "CPackConfig.cmake", "-B", directory, "-G", generators], umask=0o077,
        cwd=directory)


def only(directory, pattern):
    [file] = directory.glob(pattern)
    return file


# -- What is in the packages


def members(archive, prefix):
    return {member.name.removeprefix(prefix): member for member in archive if member.name.removeprefix(prefix) != "."}


def check_members(found):
    for name, member in found.items():
        wanted = 0o755 if member.isdir() or name.startswith("usr/bin/") else 0o644
        assert member.isdir() or member.isreg(), f"{name} is neither file nor directory"
        assert member.mode == wanted, f"{name} has mode {member.mode:o}"
        assert (member.uid, member.gid) == (0, 0), f"{name} is not root's"
    return {name for name, member in found.items() if member.isreg()}


def contents(build):
    with tempfile.TemporaryDirectory(prefix="pelcloud-package-") as directory:
        check_contents(build, pathlib.Path(directory))


def check_contents(build, directory):
    make_packages(build, directory, "DEB;TGZ")
    deb = only(directory, "*.deb")
    data = subprocess.run(["dpkg-deb", "--fsys-tarfile", deb], capture_output=True, check=True).stdout
    with tarfile.open(fileobj=io.BytesIO(data)) as archive:
        in_deb = check_members(members(archive, "./"))
    tar = only(directory, "*.tar.gz")
    with tarfile.open(tar) as archive:
        in_tar = check_members(members(archive, tar.name.removesuffix(".tar.gz") + "/"))
    assert INSTALLED <= in_deb, f"missing: {INSTALLED - in_deb}"
    assert in_deb - in_tar == ONLY_IN_DEB, in_deb ^ in_tar
    assert in_tar - in_deb == ONLY_IN_TAR, in_deb ^ in_tar
    environment = {**os.environ, "TMPDIR": str(directory)}  # lintian does not remove all of its files
    print(run(["lintian", "--fail-on", "error", "--show-overrides", deb], env=environment))


# -- A clean system


def mirror():
    """Where this system's packages come from, and their suite."""
    suite = platform.freedesktop_os_release().get("VERSION_CODENAME")
    lines = ran(["apt-get", "indextargets", "--format", "$(REPO_URI) $(RELEASE) $(COMPONENT)",
                 "Created-By: Packages"]).stdout.splitlines()
    for line in lines:
        address, release, component = line.split()
        if (release, component) == (suite, "main"):
            return address, suite
    skip("no source of apt has this system's main packages")


def why_not_here(build):
    if os.geteuid() != 0:
        return "only root can make a clean system"
    for program in ("debootstrap", "unshare", "man"):
        if not shutil.which(program):
            return f"there is no {program}"
    if ran(["unshare", "--mount", "--pid", "--fork", "mount", "-t", "tmpfs", "none", build]).returncode != 0:
        return "no namespaces may be made here, or nothing mounted in them"
    address, suite = mirror()
    with tempfile.TemporaryDirectory() as directory:
        release = ran(["/usr/lib/apt/apt-helper", "download-file", f"{address}dists/{suite}/Release",
                       f"{directory}/Release"])
    return "the mirror of packages cannot be reached" if release.returncode != 0 else None


def apt_settings():
    """Those of this system that tell how to fetch packages; and a clock may be wrong without harm here."""
    lines = [line for line in run(["apt-config", "dump"]).splitlines() if line.startswith("Acquire::")]
    return "\n".join([*lines, 'Acquire::Check-Valid-Until "false";', 'Acquire::Check-Date "false";',
                      'APT::Sandbox::User "root";', 'APT::Install-Recommends "false";', ""])


def proxy_environment():
    environment = {name: os.environ[name] for name in PROXIES if name in os.environ}
    for line in run(["apt-config", "shell", "http_proxy", "Acquire::http::Proxy"]).splitlines():
        environment["http_proxy"] = line.partition("=")[2].strip("'")
    return environment


class CleanSystem:
    """Writes go to memory; a bare system, package lists and packages below them are kept in `cache`."""

    def __init__(self, cache, memory):
        self.cache = cache
        self.root = memory / "root"
        for name in ("upper", "work", "root"):
            (memory / name).mkdir()
        for name in ("lists/partial", "archives/partial"):
            (cache / name).mkdir(parents=True, exist_ok=True)
        address, suite = mirror()
        bare = cache / suite
        with self.lock():
            if not bare.exists():
                new = cache / "new"
                run(["rm", "-rf", "--one-file-system", new])
                certificates = ["--include=ca-certificates"] if address.startswith("https:") else []
                run(["debootstrap", "--variant=minbase", *certificates, suite, new, address], seconds=600,
                    env={**os.environ, **proxy_environment()})
                new.rename(bare)
        run(["mount", "-t", "overlay", "overlay", self.root,
             "-o", f"lowerdir={bare},upperdir={memory}/upper,workdir={memory}/work"])
        run(["mount", "-t", "proc", "proc", self.root / "proc"])
        run(["mount", "--bind", cache / "lists", self.root / "var/lib/apt/lists"])
        run(["mount", "--bind", cache / "archives", self.root / "var/cache/apt/archives"])
        for name in ("resolv.conf", "hosts"):
            shutil.copyfile(f"/etc/{name}", self.root / "etc" / name)
        shutil.copytree("/etc/apt", self.root / "etc/apt", dirs_exist_ok=True,
                        ignore=lambda directory, names: names if directory.endswith("/apt.conf.d") else ["apt.conf"])
        (self.root / "etc/apt/apt.conf.d/99host").write_text(apt_settings())
        for keys in ("usr/share/keyrings", "etc/apt/keyrings"):
            if os.path.isdir(f"/{keys}"):
                shutil.copytree(f"/{keys}", self.root / keys, dirs_exist_ok=True)

    @contextlib.contextmanager
    def lock(self):
        with open(self.cache / "lock", "w") as file:
            fcntl.flock(file, fcntl.LOCK_EX)
            yield

    def command(self, arguments, **environment):
        return {"args": ["chroot", self.root, *arguments],
                "env": {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8", **environment}}

    def run(self, *arguments, status=0, **environment):
        command = self.command(arguments, **environment)
        answer = ran(command["args"], seconds=300, env=command["env"])
        assert answer.returncode == status, f"{arguments}: status {answer.returncode}:\n{answer.stdout}"
        return answer.stdout

    def install(self, deb):
        shutil.copy(deb, self.root / "tmp/package.deb")

        def install():
            self.run("apt-get", "install", "-y", "-qq", "/tmp/package.deb", DEBIAN_FRONTEND="noninteractive",
                     **proxy_environment())

        with self.lock():
            try:
                install()
            except AssertionError:  # the lists are missing, or name packages that are there no more
                self.run("apt-get", "update", "-qq", **proxy_environment())
                install()


# -- Its use


def start_cloud(build, directory, refresh_token, secret):
    seed = {"clients": [{"client_id": "x", "client_secret": secret}],
            "refresh_tokens": [{"refresh_token": refresh_token, "client_id": "x"}]}
    (directory / "seed.json").write_text(json.dumps(seed))
    cloud = subprocess.Popen([build / "devkit/cloud/pelcloud-localcloud", "--seed", directory / "seed.json"],
                             stdout=subprocess.PIPE, text=True)
    return cloud, dict(cloud.stdout.readline().split() for _ in range(4))


def check(system, status, **environment):
    text = system.run("pelcloudctl", "check", "--json", "-C", DIRECTORY, status=status, **environment)
    findings = json.loads(text)["findings"]
    told = {}
    for finding in findings:
        told.setdefault(finding["subject"], []).append((finding["verdict"], finding["text"]))
    return told


def use(system, build, memory):
    suite = system.root / DIRECTORY.lstrip("/")
    suite.mkdir()
    shutil.copy(build / "devkit/suite/upscli.so", suite)
    shutil.copy(build / "devkit/host/pelhost", suite)
    (suite / "scenario.ini").write_text("units = 2\n[unit *]\ntimeline = mains\n")

    told = check(system, 1)
    assert "problem" in dict(told["pelcloud.json"]), told

    refresh_token, secret = (f"s3cr3t{secrets.token_hex(8)}" for _ in range(2))
    cloud, address = start_cloud(build, memory, refresh_token, secret)
    config = {"home": address["api"], "cpid": "gatehouse", "cid": "x", "csec": secret, "rtk": refresh_token,
              "log": "info"}
    (suite / "pelcloud.json").write_text(json.dumps(config))
    (suite / "pelcloud.json").chmod(0o600)
    told = check(system, 0, HTTPS_PROXY=address["proxy"])
    assert told["plug-in"] == [("ok", f"/{PLUGIN} loads")], told
    assert told["suite"] == [("ok", f"{DIRECTORY}/upscli.so watches 2 UPSs")], told
    assert [verdict for verdict, _ in told["token"]] == ["ok"], told

    # The service manager lies elsewhere, so that the directory comes from the suite's configuration.
    (system.root / "etc/pelorin.conf").write_text(f"[PELORIN]\nPATH={DIRECTORY}\n")
    (suite / "pelhost").rename(system.root / "tmp/pelhost")
    command = system.command(["/tmp/pelhost", f"/{PLUGIN}"], HTTPS_PROXY=address["proxy"])
    host = subprocess.Popen(command["args"], env=command["env"], stdout=subprocess.PIPE, text=True)
    reports = set()
    while reports != {"PUT gatehouse", "POST gatehouse/000", "POST gatehouse/001"}:
        line = cloud.stdout.readline()
        assert line, f"the cloud has ended, with {reports}"
        reports.add(" ".join(line.split()[:2]))
    host.terminate()
    log = host.communicate()[0]
    assert host.returncode == 0, log
    assert "HTTP POST" in system.run("pelcloudctl", "log"), "the log tells nothing"
    cloud.terminate()
    cloud.wait()


def look_at_help(system):
    pages = system.root / "usr/share/man"
    for page in ("pelcloudctl", "pelcloud.json"):
        assert page in run(["man", "-M", pages, "-w", page])
    assert "_pelcloudctl" in system.run(
        "bash", "-c", "source /usr/share/bash-completion/completions/pelcloudctl; complete -p pelcloudctl")


def left(system, files):
    """What is still there of these files, and everything that is named after the package."""
    named = system.run("find", "/", "-xdev", "-name", "*pelcloud*", "-not", "-path", f"{DIRECTORY}/*").split()
    return {*named, *(file for file in files if (system.root / file.lstrip("/")).exists())}


def remove(system):
    paths = system.run("dpkg", "-L", "pelcloud").split()
    shared = {path for path in paths if "," in ran(system.command(["dpkg", "-S", path])["args"]).stdout}
    own = set(paths) - shared - {"/."}
    assert f"/{PLUGIN}" in own and os.path.dirname(f"/{PLUGIN}") in own, own
    system.run("dpkg", "-r", "pelcloud")
    remains = {path for path in left(system, own) if not path.startswith("/var/lib/dpkg/info/")}
    assert not remains, f"left by dpkg -r: {remains}"
    system.run("dpkg", "-P", "pelcloud")
    assert not left(system, own), f"left by dpkg -P: {left(system, own)}"
    assert (system.root / DIRECTORY.lstrip("/") / "pelcloud.json").exists(), "the operator's file is gone"


def install(build):
    why = why_not_here(build)
    if why:
        skip(why)
    memory = tempfile.mkdtemp(prefix="pelcloud-package-")
    try:
        namespaces = ["unshare", "--mount", "--pid", "--fork", "--kill-child"]
        return subprocess.run([*namespaces, sys.executable, __file__, "inside", build, memory], check=False).returncode
    finally:
        os.rmdir(memory)


def inside(build, memory):
    """In namespaces of its own, the process with number 1."""
    run(["mount", "-t", "proc", "proc", "/proc"])
    run(["mount", "-t", "tmpfs", "-o", "mode=0755", "tmpfs", memory])
    make_packages(build, memory, "DEB")
    cache = build / "packaging/system"
    cache.mkdir(exist_ok=True)
    system = CleanSystem(cache, memory)
    system.install(only(memory, "*.deb"))
    use(system, build, memory)
    look_at_help(system)
    remove(system)


def main():
    def late(*_):
        raise AssertionError("it takes too long")

    signal.signal(signal.SIGALRM, late)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))
    signal.alarm(840)
    for program in ("cpack", "dpkg-deb", "dpkg-shlibdeps", "file"):
        if not shutil.which(program):
            skip(f"there is no {program}")
    mode, *directories = sys.argv[1:]
    return {"contents": contents, "install": install, "inside": inside}[mode](
        *(pathlib.Path(directory).resolve() for directory in directories))


if __name__ == "__main__":
    try:
        sys.exit(main())
    except AssertionError as problem:
        print(f"FAILED: {problem}")
        sys.exit(1)
