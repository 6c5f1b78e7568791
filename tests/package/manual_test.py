#!/usr/bin/python3
"""Holds the manual pages and the shells' completions against what pelcloudctl itself says."""

import http.server
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import threading

OPTION_IN_HELP = re.compile(r"^  (?:-(\w),)?--([a-z-]+)", re.MULTILINE)
COMMAND_IN_HELP = re.compile(r"^  ([a-z-]+) {2,}", re.MULTILINE)
ITEM_IN_PAGE = re.compile(r"^\.It Fl .*$", re.MULTILINE)
KEY_IN_PAGE = re.compile(r"^\.It Cm (\w+)$", re.MULTILINE)
EVERYWHERE = {"-h", "--help"}  # told once in the page, again by each command
BAD_PAGES = {
    "an unknown request": ".Dd January 1, 2026\n.Dt X 1\n.Os\n.Sh NAME\n.Xyzzy x\n",
    "an unfinished list": ".Dd January 1, 2026\n.Dt X 1\n.Os\n.Sh NAME\n.Nm x\n.Nd x\n.Bl -tag\n.It Fl x\n",
}
SHELLS = {"bash": "pelcloudctl", "zsh": "_pelcloudctl", "fish": "pelcloudctl.fish"}
# What a shell offers for "pelcloudctl -C / log --" and a Tab.
OFFERS = {
    "bash": "source FILE; COMP_WORDS=(pelcloudctl -C / log --); COMP_CWORD=4; _pelcloudctl; printf '%s\\n' ${COMPREPLY[@]}",
    "fish": "source FILE; complete -C'pelcloudctl -C / log --' | string split -f1 \\t",
}


def ran(arguments, **settings):
    return subprocess.run(arguments, capture_output=True, text=True, timeout=60, **settings)


def help_of(tool, *command):
    answer = ran([tool, *command, "--help"])
    assert answer.returncode == 0, answer.stderr
    return answer.stdout


def options_in_help(text):
    return {f"{dashes}{name}" for pair in OPTION_IN_HELP.findall(text)
            for dashes, name in zip(("-", "--"), pair) if name}


def options_in_page(text):
    """Those that have an entry of their own. `Fl -json` is --json in mdoc, `Fl n , Fl -lines Ar n` is two."""
    names = re.findall(r"(?:Fl|,) (-?[a-z][a-z-]*|[A-Z])\b", " ".join(ITEM_IN_PAGE.findall(text)))
    return {f"-{name}" for name in names}


def options(tool, page, _):
    """Each command has a section, with an entry for each of its options and for no other."""
    text = page("pelcloudctl.1").read_text()
    common, *sections = re.split(r"^\.Ss ", text.split(".Sh COMMANDS")[0] + "\n.Ss "
                                 + text.split(".Sh COMMANDS\n.Ss ")[1].split("\n.Sh ")[0], flags=re.MULTILINE)
    told = {section.split()[0]: options_in_page(section) for section in sections}
    whole = help_of(tool)
    commands = COMMAND_IN_HELP.findall(whole.split("Subcommands:")[1])
    assert sorted(told) == sorted(commands), f"the page tells of {sorted(told)}, the program of {sorted(commands)}"
    assert options_in_page(common) == options_in_help(whole), (options_in_page(common), options_in_help(whole))
    for command in commands:
        known = options_in_help(help_of(tool, command)) - EVERYWHERE
        assert told[command] == known, f"{command}: the page tells of {told[command]}, the program of {known}"


def examples(tool, page, _):
    """The command lines of the page name commands and options that there are."""
    text = page("pelcloudctl.1").read_text().replace("\\e\n", "")
    lines = re.findall(r"^(?:\.Dl )?[#$] pelcloudctl ([^|\n]*)", text, re.MULTILINE)
    assert len(lines) > 5, lines
    for line in lines:
        command, *words = line.split()
        named = {word for word in words if word.startswith("-")}
        assert named <= options_in_help(help_of(tool, command)), line


class AuthorizationServer(http.server.BaseHTTPRequestHandler):
    """Gives everyone a device code."""

    def do_POST(self):
        code = {"device_code": "s3cr3t", "user_code": "ABCD", "verification_url": "https://where.example"}
        body = json.dumps(code).encode()
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


def keys(tool, page, _):
    """The keys in the other page are those that are written, and the example shows no others."""
    text = page("pelcloud.json.5").read_text()
    told = set(KEY_IN_PAGE.findall(text))
    example = json.loads(text.split(".Bd -literal -offset indent\n")[1].split(".Ed")[0])
    assert set(example) <= told, set(example) - told
    with (tempfile.TemporaryDirectory() as directory,
          http.server.ThreadingHTTPServer(("127.0.0.1", 0), AuthorizationServer) as server):
        threading.Thread(target=server.serve_forever, daemon=True).start()
        address = f"http://127.0.0.1:{server.server_port}/"
        secret = pathlib.Path(directory, "secret")
        secret.write_text("s3cr3t\n")
        answer = ran([tool, "enroll", "--no-wait", "-C", directory, "--authorization-endpoint", address, "--home",
                      "https://where.example", "--computer", "x", "--client", "x", "--secret-file", str(secret)],
                     stdin=subprocess.DEVNULL, env={"PATH": os.environ["PATH"]})
        server.shutdown()
        assert answer.returncode == 0, answer.stderr
        written = set(json.loads(pathlib.Path(directory, "pelcloud.json").read_text()))
    assert written == told, f"the page tells of {told}, the program writes {written}"


def formatting(tool, page, _):
    """man finds nothing to warn of."""
    def complaints(file):
        answer = ran(["man", "--warnings", "-E", "UTF-8", "-l", str(file)], env={**os.environ, "MANPAGER": "cat"})
        assert answer.returncode == 0, answer.stderr
        return answer.stderr

    for name in ("pelcloudctl.1", "pelcloud.json.5"):
        found = complaints(page(name))
        assert not found, found
    with tempfile.TemporaryDirectory() as directory:
        for name, text in BAD_PAGES.items():
            bad = pathlib.Path(directory, "bad.1")
            bad.write_text(text)
            assert complaints(bad), f"nobody minds {name}"


def completions(tool, _, build):
    """The shells that are installed take their files, and bash and fish offer what the help tells."""
    wanted = {name for name in options_in_help(help_of(tool, "log")) if name.startswith("--")} | {"--directory"}
    for shell, name in SHELLS.items():
        if not shutil.which(shell):
            print(f"no {shell} here")
            continue
        file = build / "packaging/completions" / shell / name
        assert file.read_text() == ran([tool, "completions", shell]).stdout, f"{shell}: not what the program prints"
        answer = ran([shell, "-n", str(file)])
        assert answer.returncode == 0 and not answer.stderr, f"{shell}: {answer.stderr}"
        if shell in OFFERS:
            offered = set(ran([shell, "-c", OFFERS[shell].replace("FILE", str(file))]).stdout.split())
            assert offered == wanted, f"{shell} offers {offered}"


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    failed = 0
    for case in (options, examples, keys, formatting, completions):
        try:
            case(str(build / "pelcloudctl"), lambda name: build / "packaging" / name, build)
            print(f"{case.__name__}: ok")
        except AssertionError as problem:
            print(f"{case.__name__}: FAILED: {problem}")
            failed = 1
    return failed


if __name__ == "__main__":
    sys.exit(main())
