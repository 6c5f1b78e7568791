#!/usr/bin/python3
"""Compares documents, manual pages and completions with the programs, and runs every command that documents show."""

import contextlib
import json
import os
import pathlib
import re
import secrets
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import urllib.parse
import urllib.request

import jsonschema

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
from localcloud import PROXIES, start_cloud  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENTS = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
SECONDS = 60

# The faults of each unit of the scenario, and what its body must show for them.
UNITS = {
    "samples = 0": lambda body: not [key for key in body["vars"] if key.startswith("samp")],
    "samples = 64": lambda body: len(body["vars"]["sampVInput"]) == 64,
    "samples = 3": lambda body: len(body["vars"]["sampVInput"]) == 67,  # those of earlier units come first
    "nan = yes": lambda body: body["vars"]["vInput"] is None,
    "extreme = yes": lambda body: body["vars"]["shutdownTimer"] == 2147480000 and 0 not in body["failures"].values(),
    "garbage = yes": lambda body: not all(32 <= ord(c) < 127 for c in body["vars"]["name"]),
    "unterminated = yes": lambda body: len(body["vars"]["name"]) == 32,
}

# How commands are run that do not end by themselves or ask questions.
SPECIAL = {
    "pelcloudctl log --follow": "timeout 3 {} | grep -F PelCloud; [ \"${{PIPESTATUS[*]}}\" = '124 0' ]",
    "pelcloudctl enroll": "{} --client demo --secret-file ./secret --no-qr",
}

OPTION_IN_HELP = re.compile(r"^  (?:-(\w),)?--([a-z-]+)", re.MULTILINE)
# By shell its file of completions, and what prints the offers for "pelcloudctl -C / log --" and a Tab.
SHELLS = {
    "bash": ("pelcloudctl", "COMP_WORDS=(pelcloudctl -C / log --) COMP_CWORD=4; _pelcloudctl; echo ${COMPREPLY[*]}"),
    "fish": ("pelcloudctl.fish", "complete -C'pelcloudctl -C / log --' | string split -f1 \\t"),
    "zsh": ("_pelcloudctl", None),
}


def equal(actual, expected):
    assert actual == expected, f"{actual} is not {expected}"


class Place:
    """A local cloud and a directory where the simulated suite is installed."""

    def __init__(self, ending, build):
        self.secret, self.token = (f"s3cr3t{secrets.token_hex(16)}" for _ in range(2))
        self.build = build
        self.directory = pathlib.Path(ending.enter_context(tempfile.TemporaryDirectory(prefix="pelcloud-docs-")))
        clients = [{"client_id": name, "client_secret": self.secret} for name in ("demo", "1234.apps")]
        seed = {"clients": clients, "refresh_tokens": [{"refresh_token": self.token, "client_id": "demo"}]}
        self.cloud = start_cloud(ending, build, self.directory, seed, "--quiet", "--approve-after", "0",
                                 "--poll-seconds", "1")
        self.suite = self.directory / "suite"
        self.suite.mkdir()
        shutil.copy(build / "devkit/suite/upscli.so", self.suite)
        lines = (f"[unit {i}]\ntimeline = mains\n{unit}\n" for i, unit in enumerate(UNITS))
        (self.suite / "scenario.ini").write_text(f"units = {len(UNITS)}\n" + "".join(lines))
        (self.directory / "secret").write_text(self.secret + "\n")
        # In place of the installed program, for the directory of the suite.
        program = self.directory / "pelcloudctl"
        program.write_text(f"#!/bin/sh\nexec '{build}/pelcloudctl' -C '{self.suite}' \"$@\"\n")
        program.chmod(0o755)
        self.environment = {**os.environ, "HTTPS_PROXY": self.cloud["proxy"],
                            "PATH": f"{self.directory}:{os.environ['PATH']}"}

    def reset(self):
        """Enrolled, with a log."""
        config = {"home": self.cloud["api"], "cpid": "gate-1", "cid": "demo", "csec": self.secret,
                  "rtk": self.token, "log": "info"}
        (self.suite / "pelcloud.json").write_text(json.dumps(config))
        (self.suite / "pelcloud.json").chmod(0o600)
        (self.suite / "pelcloud.log").write_text("[01-01-2026 00:00:00.000][info]{PelCloud} Start service: OK.\n")

    def run(self, command):
        """What a command prints, which must succeed."""
        answer = subprocess.run(["bash", "-c", command], cwd=self.directory, env=self.environment, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                check=False, timeout=SECONDS)
        assert self.secret not in answer.stdout and self.token not in answer.stdout, f"{command} shows a secret"
        assert answer.returncode == 0, f"{command}: status {answer.returncode}:\n{answer.stdout}"
        return answer.stdout

    def options(self, command=""):
        """Those that the help of a command lists."""
        found = OPTION_IN_HELP.findall(self.run(f"pelcloudctl {command} --help"))
        return {f"{dashes}{name}" for pair in found for dashes, name in zip(("-", "--"), pair) if name}

    def requests(self):
        with urllib.request.urlopen(f"{self.cloud['api']}/api/requests?since=0", timeout=SECONDS) as answer:
            return [row for row in json.load(answer)["requests"] if "/mon/" in row["path"]]


# -- The wire


def no_such_word(word):
    raise AssertionError(f"{word} is no JSON")


def schema_of(name):
    return json.loads((ROOT / f"docs/{name}.schema.json").read_text())


def objects_in(schema):
    return [schema, *(value for value in schema["properties"].values() if "properties" in value)]


def schemas_accept_what_is_sent(place):
    place.reset()
    place.run("pelcloudctl run --once")
    bodies = {"PUT": [], "POST": []}
    for request in place.requests():
        bodies[request["method"]].append(json.loads(request["body"], parse_constant=no_such_word))
    equal(len(bodies["POST"]), len(UNITS))
    for (unit, shows), body in zip(UNITS.items(), bodies["POST"]):
        assert shows(body), f"a unit with {unit} shows nothing of it"
    for name, method in (("computer", "PUT"), ("device", "POST")):
        schema = schema_of(name)
        jsonschema.Draft202012Validator.check_schema(schema)
        for body in bodies[method]:
            jsonschema.validate(body, schema, jsonschema.Draft202012Validator)
        for part in objects_in(schema):  # and nothing else
            equal(part["additionalProperties"], False)
            equal(set(part["required"]), {key for key in part["properties"] if not key.startswith("samp")})
    flag = jsonschema.Draft202012Validator(schema_of("device")["$defs"]["flag"])
    equal([value for value in (0, 1, 2, -1, None, True, 0.5) if flag.is_valid(value)], [0, 1])


def section(text, heading):
    return re.search(rf"^#+ {re.escape(heading)}\n(.*?)(?=^#|\Z)", text, re.MULTILINE | re.DOTALL)[1]


def rows(text):
    """The cells of each row whose first cell is code."""
    return [[cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
            for line in text.splitlines() if line.startswith("| `")]


def requests_are_as_documented(place):
    text = section((ROOT / "docs/wire-format.md").read_text(), "Requests")
    table = rows(text)
    addresses = {row[0].strip("`"): row[1].strip("`") for row in table if len(row) == 3}
    headers = {row[0].strip("`"): row[1] for row in table if len(row) == 2}
    requests = place.requests()
    equal([request["method"] for request in requests], ["PUT", "POST"] * len(UNITS))
    for i, request in enumerate(requests):
        path = addresses[request["method"]].replace("{home}", "").replace("{cpid}", "gate-1")
        equal(request["path"], path.replace("{nnn}", f"{i // 2:03}"))
        equal(set(request["headers"]), set(headers))
        fixed = {name: value.strip("`") for name, value in headers.items() if re.fullmatch("`[^`]*`", value)}
        equal({name: request["values"].get(name, value) for name, value in fixed.items()}, fixed)


def tables_have_the_keys_of_the_schemas(_):
    text = (ROOT / "docs/wire-format.md").read_text()
    device = schema_of("device")
    tables = {"The computer": schema_of("computer"), "A UPS": device,
              **{f"`{key}`": value for key, value in device["properties"].items() if "properties" in value}}
    equal(len(tables), 7)
    for heading, schema in tables.items():
        equal({row[0].strip("`"): row[1] for row in rows(section(text, heading))},
              {key: value.get("$ref", "object").split("/")[-1] for key, value in schema["properties"].items()})


# -- Documents


def messages_are_in_the_programs(_):
    """What the tables of troubleshooting quote, with … for what varies."""
    sources = [*(ROOT / "tools").rglob("*.[ch]*"), *(ROOT / "plugin").glob("*.[ch]*")]
    code = "".join(file.read_text() for file in sources).replace('\\"', "''")
    source = re.sub(r'"\s*u?"', "", code).replace("''", '"')
    texts = [text for row in rows((ROOT / "docs/troubleshooting.md").read_text())
             for text in re.findall(r"`([^`]*)`", row[0])]
    assert len(texts) > 40, f"only {len(texts)} messages"
    for text in texts:
        # An operator sees these put together: a status and its words, a message and what it is about.
        for part in re.split(r"…/\S*|…|'|\b\d{3} \(|\(\d\)|\)$|HTTP (?:PUT|POST)|pelcloud\.\w+", text):
            part = part.strip(" .:;/")
            assert part in source, f"no program says {part!r}"


def links_lead_somewhere(_):
    for document in DOCUMENTS:
        for link in re.findall(r"\]\(([^)#]+)[^)]*\)", document.read_text()):
            assert urllib.parse.urlsplit(link).scheme or (document.parent / link).exists(), f"{document.name}: {link}"


def commands_run(place):
    blocks = (block for file in DOCUMENTS
              for block in re.findall(r"^```sh\n(.*?)^```", file.read_text(), re.MULTILINE | re.DOTALL))
    lines = (re.sub(r"\s+#.*", "", line) for block in blocks for line in block.replace("\\\n", " ").splitlines())
    commands = {" ".join(line.split()) for line in lines if line.startswith("pelcloudctl")}
    equal(set(SPECIAL) - commands, set())
    for command in sorted(commands):
        print(f"  {command}", flush=True)
        place.reset()
        place.run(SPECIAL.get(command, "{}").format(command))


# -- Manual pages and completions


def page(place, name):
    return (place.build / "packaging" / name).read_text()


def options_in_page(text):
    """Those that have an entry. `Fl -json` is --json in mdoc, `Fl n , Fl -lines Ar n` is two."""
    names = re.findall(r"(?:Fl|,) (-?[a-z][a-z-]*|[A-Z])\b", " ".join(re.findall(r"\n\.It Fl .*", text)))
    return {f"-{name}" for name in names}


def manual_has_every_command_and_option(place):
    before, after = page(place, "pelcloudctl.1").split(".Sh COMMANDS\n")
    equal(options_in_page(before), place.options())
    sections = {text.split()[0]: options_in_page(text) for text in after.split("\n.Sh ")[0].split(".Ss ")[1:]}
    names = re.findall(r"\n  ([a-z-]+) {2,}", place.run("pelcloudctl --help").split("Subcommands:")[1])
    equal(sections, {name: place.options(name) - {"-h", "--help"} for name in names})


def examples_of_the_manual_have_known_options(place):
    text = page(place, "pelcloudctl.1").replace("\\e\n", "")
    lines = re.findall(r"^(?:\.Dl )?[#$] pelcloudctl ([^|\n]*)", text, re.MULTILINE)
    assert len(lines) > 5, lines
    for line in lines:
        command, *words = line.split()
        equal({word for word in words if word.startswith("-")} - place.options(command), set())


def keys_of_the_manual_are_those_written(place):
    text = page(place, "pelcloud.json.5")
    keys = set(re.findall(r"^\.It Cm (\w+)$", text, re.MULTILINE))
    example = json.loads(text.split(".Bd -literal -offset indent\n")[1].split(".Ed")[0])
    equal(set(example) - keys, set())
    (place.suite / "pelcloud.json").unlink()
    place.run("pelcloudctl enroll --no-wait --home http://a.example --computer x --client demo --secret-file secret")
    equal(set(json.loads((place.suite / "pelcloud.json").read_text())), keys)


def man_has_no_complaints(place):
    for name in ("pelcloudctl.1", "pelcloud.json.5"):
        file = place.build / "packaging" / name
        equal(place.run(f"MANPAGER=cat man --warnings -E UTF-8 -l {file} 2>&1 >/dev/null"), "")


def shells_complete(place):
    wanted = {name for name in place.options("log") if name.startswith("--")} | {"--directory"}
    for shell, (name, offers) in SHELLS.items():
        file = place.build / "packaging/completions" / shell / name
        equal(file.read_text(), place.run(f"pelcloudctl completions {shell}"))
        equal(place.run(f"{shell} -n {file}"), "")
        if offers:
            script = shlex.quote(f"source {file}; {offers}")
            equal(set(place.run(f"{shell} -c {script}").split()), wanted)


CHECKS = [
    schemas_accept_what_is_sent,
    requests_are_as_documented,  # those of that run
    tables_have_the_keys_of_the_schemas,
    messages_are_in_the_programs,
    links_lead_somewhere,
    commands_run,
    manual_has_every_command_and_option,
    examples_of_the_manual_have_known_options,
    keys_of_the_manual_are_those_written,
    man_has_no_complaints,
    shells_complete,
]


def holds(check, place):
    try:
        check(place)
    except (AssertionError, jsonschema.ValidationError) as problem:
        print(f"{check.__name__}: FAILED: {problem}", flush=True)
        return False
    print(f"{check.__name__}: ok", flush=True)
    return True


def main():
    for name in [name for name in os.environ if name.lower() in PROXIES]:
        del os.environ[name]
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))
    with contextlib.ExitStack() as ending:
        place = Place(ending, pathlib.Path(sys.argv[1]).resolve())
        good = [holds(check, place) for check in CHECKS]
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
