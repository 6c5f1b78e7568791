#!/usr/bin/python3
"""Holds the documents against the programs: what is sent, what they say, every command that is shown."""

import contextlib
import copy
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
import urllib.parse
import urllib.request

import jsonschema

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
from localcloud import PROXIES, end, start_cloud  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENTS = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
SECONDS = 60

# What each unit of the scenario is for, and what its body must show for that.
UNITS = {
    "samples = 0": lambda body: not [key for key in body["vars"] if key.startswith("samp")],
    "samples = 64": lambda body: len(body["vars"]["sampVInput"]) == 64,
    "samples = 3": lambda body: len(body["vars"]["sampVInput"]) == 67,  # those of earlier units come first
    "nan = yes": lambda body: body["vars"]["vInput"] is None,
    "extreme = yes": lambda body: body["vars"]["shutdownTimer"] == 2147480000 and 0 not in body["failures"].values(),
    "garbage = yes": lambda body: not all(32 <= ord(c) < 127 for c in body["vars"]["name"]),
    "unterminated = yes": lambda body: len(body["vars"]["name"]) == 32,
}

# The commands that do not end by themselves: what they print at first, and how Ctrl-C then ends them.
ENDLESS = {
    "pelcloudctl log --follow": ("{PelCloud}", -signal.SIGINT),
}
# The commands that talk to a person, and what is put behind them for nobody.
TALKING = {
    "pelcloudctl enroll": "--client demo --secret-file ./secret --no-qr",
}


def equal(actual, expected):
    assert actual == expected, f"{actual} is not {expected}"


class Place:
    """A local cloud and a directory where the simulated suite is installed."""

    def __init__(self, ending, build):
        self.secret, self.token = (f"s3cr3t{secrets.token_hex(16)}" for _ in range(2))
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
        # In the place of the installed program, as it is on a computer with the suite.
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

    def start(self, command):
        return subprocess.Popen(["bash", "-c", command], cwd=self.directory, env=self.environment, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                start_new_session=True)

    def run(self, command):
        process = self.start(command)
        try:
            text = process.communicate(timeout=SECONDS)[0]
        finally:
            end(process)
        assert self.secret not in text and self.token not in text, f"{command} shows a secret"
        assert process.returncode == 0, f"{command}: status {process.returncode}:\n{text}"

    def run_endless(self, command, first, status):
        process = self.start(command)
        try:
            assert first in process.stdout.readline(), f"{command} shows something else"
            os.killpg(process.pid, signal.SIGINT)
            process.communicate(timeout=SECONDS)
        finally:
            end(process)
        equal(process.returncode, status)

    def requests(self):
        with urllib.request.urlopen(f"{self.cloud['api']}/api/requests?since=0", timeout=SECONDS) as answer:
            return [row for row in json.load(answer)["requests"] if "/mon/" in row["path"]]


def no_such_word(word):
    raise AssertionError(f"{word} is no JSON")


def bodies_of(place):
    """The computers' and the UPSs', as one run really sends them."""
    place.reset()
    place.run("pelcloudctl run --once")
    bodies = {"PUT": [], "POST": []}
    for request in place.requests():
        bodies[request["method"]].append(json.loads(request["body"], parse_constant=no_such_word))
    return bodies["PUT"], bodies["POST"]


def schema_of(name):
    schema = json.loads((ROOT / f"docs/{name}.schema.json").read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema)


def damaged(body):
    """What is done to a body, and the body with that, for each place in it."""
    for path in [(), *(((key,) for key, value in body.items() if isinstance(value, dict)))]:
        def changed(change, path=path):
            whole = copy.deepcopy(body)
            change(whole[path[0]] if path else whole)
            return whole

        yield f"a key more in {path}", changed(lambda record: record.update(surplus=0))
        for key, value in (body[path[0]] if path else body).items():
            if not key.startswith("samp"):
                yield f"{key} removed", changed(lambda record, key=key: record.pop(key))
            wrong = {dict: [], list: [256], str: 1}.get(type(value), "1")
            yield f"{key} of another kind", changed(lambda record, key=key, wrong=wrong: record.update({key: wrong}))
            if path in (("caps",), ("status",), ("failures",)) or key in ("active", "fullDischargeRequired"):
                for flag in (2, -1, None, True, 0.5):
                    yield f"{key} = {flag}", changed(lambda record, key=key, flag=flag: record.update({key: flag}))


def schemas_take_what_is_sent_and_nothing_else(place):
    computers, devices = bodies_of(place)
    equal((len(computers), len(devices)), (len(UNITS), len(UNITS)))
    for (unit, shows), body in zip(UNITS.items(), devices):
        assert shows(body), f"a unit with {unit} shows nothing of it"
    for schema, bodies in ((schema_of("computer"), computers), (schema_of("device"), devices)):
        for body in bodies:
            schema.validate(body)
        for damage, body in damaged(bodies[1]):
            assert not schema.is_valid(body), f"{damage} is taken"


def section(text, heading):
    return re.search(rf"^#+ {re.escape(heading)}\n(.*?)(?=^#|\Z)", text, re.MULTILINE | re.DOTALL)[1]


def rows(text):
    """The cells of each row whose first cell is code."""
    return [[cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
            for line in text.splitlines() if line.startswith("| `")]


def keys_of(schema):
    """By key the word for its type."""
    return {key: value.get("$ref", "object").removeprefix("#/$defs/") for key, value in schema["properties"].items()}


def tables_are_those_of_the_schemas(_):
    text = (ROOT / "docs/wire-format.md").read_text()
    device = schema_of("device").schema
    tables = {"The computer": schema_of("computer").schema, "A UPS": device,
              **{f"`{key}`": value for key, value in device["properties"].items() if "properties" in value}}
    equal(len(tables), 7)
    for heading, schema in tables.items():
        equal({row[0].strip("`"): row[1] for row in rows(section(text, heading))}, keys_of(schema))


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
        equal({*request["headers"], "Expect"}, set(headers))
        fixed = {name: value.strip("`") for name, value in headers.items() if re.fullmatch("`[^`]*`", value)}
        equal({name: request["values"].get(name, value) for name, value in fixed.items()}, fixed)


def messages_are_those_of_the_programs(_):
    """What the tables of troubleshooting quote, with … for what varies, stands in the sources."""
    sources = [*(ROOT / "tools").rglob("*.cpp"), *(ROOT / "plugin").glob("*.cpp")]
    code = "".join(file.read_text() for file in sources).replace('\\"', "''")
    source = re.sub(r'"\s*"', "", code).replace("''", '"')
    texts = [text for row in rows((ROOT / "docs/troubleshooting.md").read_text())
             for text in re.findall(r"`([^`]*)`", row[0])]
    assert len(texts) > 40, f"only {len(texts)} messages"
    for text in texts:
        # An operator sees these put together: a status and its words, a message and what it is about.
        for part in re.split(r"…/\S*|…|'|\b\d{3} \(|\(\d\)|\)$|HTTP (?:PUT|POST)|pelcloud\.\w+", text):
            part = part.strip(" .:;/")
            assert part in source, f"no program says {part!r}"


def shown_lines():
    """Each line of each block of shell, with those that go on joined."""
    for document in DOCUMENTS:
        for block in re.findall(r"^```sh\n(.*?)^```", document.read_text(), re.MULTILINE | re.DOTALL):
            for line in block.replace("\\\n", " ").splitlines():
                yield re.sub(r"\s+", " ", re.sub(r"\s+#.*", "", line)).strip()


def commands_run(place):
    commands = {line for line in shown_lines() if line.startswith("pelcloudctl")}
    equal({*ENDLESS, *TALKING} - commands, set())
    for command in sorted(commands):
        print(f"  {command}", flush=True)
        place.reset()
        if command in ENDLESS:
            place.run_endless(command, *ENDLESS[command])
        else:
            place.run(f"{command} {TALKING.get(command, '')}")


def scripts_have_the_documented_usage(_):
    """They are run by others; here, each is there and knows what is put behind it."""
    table = {}
    for cells in rows(section((ROOT / "README.md").read_text(), "Commands")):
        name, *words = (word.rstrip(".") for word in re.findall(r"[\w./-]+", cells[0]))
        table[name] = words
    shown = [line.split() for line in shown_lines() if line.startswith("scripts/")]
    everywhere = {name for file in DOCUMENTS for name in re.findall(r"\bscripts/[a-z-]+", file.read_text())}
    equal(everywhere, {f"scripts/{file.name}" for file in (ROOT / "scripts").iterdir()})
    equal(set(table), everywhere | {".ci/run"})
    for name, *words in [*shown, *([name, *words] for name, words in table.items())]:
        assert os.access(ROOT / name, os.X_OK), f"{name} cannot be run"
        text = (ROOT / name).read_text()
        unknown = [word for word in words
                   if not word.isdigit() and not re.search(rf"(?<![\w-]){re.escape(word)}\b", text)]
        assert not unknown, f"{name} knows nothing of {unknown}"
    usage = subprocess.run([ROOT / "scripts/demo", "--help"], stdout=subprocess.PIPE, text=True, check=True).stdout
    equal([word for word in table["scripts/demo"] if word not in usage], [])


def links_lead_somewhere(_):
    for document in DOCUMENTS:
        for link in re.findall(r"\]\(([^)#]+)[^)]*\)", document.read_text()):
            assert urllib.parse.urlsplit(link).scheme or (document.parent / link).exists(), f"{document.name}: {link}"


CHECKS = [
    schemas_take_what_is_sent_and_nothing_else,
    requests_are_as_documented,  # of that run
    tables_are_those_of_the_schemas,
    messages_are_those_of_the_programs,
    scripts_have_the_documented_usage,
    links_lead_somewhere,
    commands_run,
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
    signal.signal(signal.SIGINT, signal.default_int_handler)  # not ignored by what is started here
    with contextlib.ExitStack() as ending:
        place = Place(ending, pathlib.Path(sys.argv[1]).resolve())
        good = [holds(check, place) for check in CHECKS]
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
