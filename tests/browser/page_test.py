#!/usr/bin/python3
"""Looks at the local cloud's page with a browser while the plug-in reports to it.

The pieces are put together as scripts/demo does it: the local cloud, the simulated suite, the
plug-in in its host. One unit of three has an outage between the second and the third report. With
--screenshot it then waits for a few more reports and saves a picture of the page.
"""

import argparse
import base64
import contextlib
import json
import os
import pathlib
import platform
import secrets
import shutil
import signal
import subprocess
import sys
import tempfile
from urllib.parse import urlsplit

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
from localcloud import PROXIES, end, start_cloud  # noqa: E402

CHROMEDRIVER = "/usr/bin/chromedriver"
STATUS_SKIPPED = 77
DESKTOP = {"width": 1280, "height": 1100, "deviceScaleFactor": 1, "mobile": False}
PHONE = {"width": 390, "height": 844, "deviceScaleFactor": 2, "mobile": True}
REPORTS_IN_PICTURE = 8
UNITS = {"demo-000", "demo-001", "demo-002"}
SCENARIO = """
units = 3
[unit *]
timeline = mains
[unit 1]
timeline = mains 25, outage 300
"""


def why_not_here():
    if os.path.exists("/etc/pelorin.conf"):
        return "a suite is installed here, which the plug-in would report"
    ubuntu = platform.freedesktop_os_release().get("ID") == "ubuntu"
    if ubuntu and not os.path.exists(CHROMEDRIVER):
        return "Ubuntu has no package with a browser that a test could start"
    return None


def start_plugin(ending, build, directory, configuration, proxy):
    for file in ("pelcloud.so", "devkit/suite/upscli.so", "devkit/host/pelhost"):
        shutil.copy(build / file, directory)
    (directory / "scenario.ini").write_text(SCENARIO)
    (directory / "pelcloud.json").write_text(json.dumps(configuration))
    with open(directory / "host.log", "wb") as log:
        host = subprocess.Popen(["./pelhost", "./pelcloud.so"], cwd=directory, stdout=log,
                                stderr=log, env={**os.environ, "HTTPS_PROXY": proxy})
    ending.callback(end, host)


def start_browser(ending, directory):
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service

    class OwnService(Service):
        def send_remote_shutdown_command(self):
            if self.process.poll() is None:  # else the port may be another's by now
                super().send_remote_shutdown_command()

    options = webdriver.ChromeOptions()
    for argument in (
            "--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu",
            "--hide-scrollbars", "--no-first-run", "--disable-background-networking",
            "--disable-component-update", "--disable-sync", "--disable-breakpad",
            "--no-proxy-server", "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1",
            f"--user-data-dir={directory / 'profile'}"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"performance": "ALL", "browser": "ALL"})
    # What a browser leaves in a home directory or for temporary files ends with ours.
    places = ("HOME", "TMPDIR", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME")
    ours = {name: str(directory) for name in places}
    service = OwnService(CHROMEDRIVER, env={**os.environ, **ours})
    ending.callback(service.stop)
    driver = webdriver.Chrome(service=service, options=options)
    ending.callback(driver.quit)
    return driver


class Page:
    """What is seen of the page."""

    def __init__(self, driver, address):
        self.driver = driver
        self.origin = urlsplit(address).netloc
        self.show_on(DESKTOP)
        self.colour("light")
        driver.get(address)

    def show_on(self, screen):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", screen)

    def colour(self, scheme):
        feature = {"name": "prefers-color-scheme", "value": scheme}
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [feature]})

    def run(self, script):
        return self.driver.execute_script(script)

    def wait(self, seconds, what, condition):
        from selenium.common.exceptions import TimeoutException
        from selenium.webdriver.support.ui import WebDriverWait

        try:
            WebDriverWait(self.driver, seconds).until(lambda _: condition())
        except TimeoutException:
            raise AssertionError(f"not within {seconds} s: {what}; {self.units()}") from None

    def text(self):
        return self.run("return document.body.innerText")

    def units(self):
        """By id: state, the words that show it, battery, and how many reports there were."""
        return self.run("""
            const shown = (unit, field) => unit.querySelector(`[data-field="${field}"]`).innerText;
            const units = [...document.querySelectorAll("article")];
            return Object.fromEntries(units.map((unit) => [unit.id.replace("unit-", ""), {
              state: unit.dataset.state,
              words: shown(unit, "state"),
              battery: parseInt(shown(unit, "battery")),
              reports: Number(unit.dataset.reports),
            }]));""")

    def states(self):
        return {name: (unit["state"], unit["words"]) for name, unit in self.units().items()}

    def wait_for_reports(self, number, seconds):
        self.wait(seconds, f"{number} reports of each unit", lambda: UNITS == {
            name for name, unit in self.units().items() if unit["reports"] >= number})

    def brightness(self, scheme):
        """Of the page's background, from 0 to 255."""
        self.colour(scheme)
        pixel = self.run("""
            const canvas = Object.assign(document.createElement("canvas"), { width: 1, height: 1 });
            const context = canvas.getContext("2d", { willReadFrequently: true });
            context.fillStyle = getComputedStyle(document.body).backgroundColor;
            context.fillRect(0, 0, 1, 1);
            return [...context.getImageData(0, 0, 1, 1).data];""")
        return sum(pixel[:3]) / 3

    def requests(self):
        """Every address that was asked for since the browser's start."""
        messages = (json.loads(row["message"])["message"] for row in
                    self.driver.get_log("performance"))
        return [urlsplit(message["params"].get("request", message["params"])["url"])
                for message in messages
                if message["method"] in ("Network.requestWillBeSent", "Network.webSocketCreated")]


def equal(actual, expected):
    assert actual == expected, f"{actual} is not {expected}"


def nothing_is_reported_at_first(page):
    page.wait(20, "it says so", lambda: "Nothing has been reported yet" in page.text())
    equal(page.units(), {})


def first_reports_show_three_units(page):
    page.wait_for_reports(1, 40)
    equal(page.states(), {name: ("on-mains", "On mains") for name in UNITS})
    assert "Nothing has been reported yet" not in page.text()


def an_outage_shows_on_its_unit_alone(page):
    page.wait(40, "001 on battery", lambda: page.states().get("demo-001", "?")[0] == "on-battery")
    equal(page.states(), {"demo-000": ("on-mains", "On mains"),
                          "demo-001": ("on-battery", "On battery"),
                          "demo-002": ("on-mains", "On mains")})
    units = page.units()
    assert units["demo-001"]["battery"] < units["demo-000"]["battery"], f"no discharge: {units}"
    headline = ("1 UPS needs a look", "1 on battery", "2 on mains")
    equal([words for words in headline if words not in page.text()], [])


def plots_are_drawn(page):
    page.wait(10, "lines in all six plots", lambda: page.run("""
        const canvas = document.createElement("canvas");
        const copy = canvas.getContext("2d", { willReadFrequently: true });
        return [...document.querySelectorAll("article canvas")].filter((plot) => {
          const { width, height } = plot;
          Object.assign(canvas, { width, height });
          if (width * height === 0) return false;
          copy.drawImage(plot, 0, 0);
          const pixels = copy.getImageData(0, 0, width, height).data;
          return pixels.some((value, i) => i % 4 === 3 && value > 0);
        }).length;""") == 2 * len(UNITS))


def dark_is_darker_than_light(page):
    dark, light = page.brightness("dark"), page.brightness("light")
    assert dark < 80 and light > 200, f"background {dark:.0f} in the dark, {light:.0f} in the light"


def nothing_sticks_out_on_a_phone(page):
    page.show_on(PHONE)
    # A unit out of sight is not laid out, so each is looked at; what sticks out of it, it hides.
    widths = page.driver.execute_async_script("""
        const done = arguments[0];
        const frame = () => new Promise(requestAnimationFrame);
        (async () => {
          const widths = {};
          for (const element of document.querySelectorAll("article")) {
            element.scrollIntoView({ behavior: "instant" });
            await frame();
            await frame();
            widths[element.id] = [element.scrollWidth, element.clientWidth];
          }
          const root = document.documentElement;
          widths["the page"] = [root.scrollWidth, root.clientWidth];
          widths["the screen"] = [innerWidth, screen.width];
          scrollTo(1000, 0);
          widths["what is scrolled"] = [scrollX, 0];
          done(widths);
        })();""")
    equal(len(widths), len(UNITS) + 3)
    equal(widths["the screen"][1], PHONE["width"])
    assert all(wide <= room for wide, room in widths.values()), f"wider than its room: {widths}"


def nothing_comes_from_elsewhere(page):
    asked = [address for address in page.requests() if address.scheme not in ("data", "chrome")]
    expected = {"/", "/page/page.js", "/page/chart.js", "/page/style.css", "/api/state"}
    equal(expected - {address.path for address in asked}, set())
    equal({(address.scheme, address.netloc) for address in asked}, {("http", page.origin)})


def console_is_quiet(page):
    rows = page.driver.get_log("browser")
    equal([row["message"] for row in rows if row["level"] in ("SEVERE", "WARNING")], [])


# In this order: each goes on from where the one before it has left the page, and the last two
# speak of the whole time.
CHECKS = [
    first_reports_show_three_units,
    an_outage_shows_on_its_unit_alone,
    plots_are_drawn,
    dark_is_darker_than_light,
    nothing_sticks_out_on_a_phone,
    nothing_comes_from_elsewhere,
    console_is_quiet,
]


def run(check, page):
    """Whether it holds."""
    try:
        check(page)
    except AssertionError as problem:
        print(f"{check.__name__}: FAILED: {problem}", flush=True)
        return False
    print(f"{check.__name__}: ok", flush=True)
    return True


def show_logs(directory):
    for name in ("host.log", "pelcloud.log"):
        if (directory / name).exists():
            lines = (directory / name).read_text(errors="replace").splitlines()[-20:]
            print(f"{name}:", *(line for line in lines if "s3cr3t" not in line), sep="\n  ")


def save_picture(page, file):
    page.show_on(DESKTOP)
    page.run("scrollTo(0, 0)")
    page.wait_for_reports(REPORTS_IN_PICTURE, 10 * REPORTS_IN_PICTURE + 40)
    plots_are_drawn(page)
    height = page.run("return document.querySelector('.bottom').getBoundingClientRect().bottom")
    clip = {"x": 0, "y": 0, "width": DESKTOP["width"], "height": height, "scale": 1}
    picture = page.driver.execute_cdp_cmd(
        "Page.captureScreenshot", {"captureBeyondViewport": True, "clip": clip})
    file.write_bytes(base64.b64decode(picture["data"]))


def main():
    parser = argparse.ArgumentParser(description="Looks at the local cloud's page with a browser.")
    parser.add_argument("build", type=pathlib.Path, help="the build directory")
    parser.add_argument("--screenshot", type=pathlib.Path, metavar="FILE",
                        help="also saves a picture of the page")
    options = parser.parse_args()
    if why_not_here():
        print(f"skipped: {why_not_here()}")
        return STATUS_SKIPPED
    if not os.path.exists(CHROMEDRIVER):  # selenium would download one
        print(f"{CHROMEDRIVER} is missing; scripts/setup installs it")
        return 1
    for name in [name for name in os.environ if name.lower() in PROXIES]:
        del os.environ[name]
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))

    secret, code = ("s3cr3t-" + secrets.token_hex(16) for _ in range(2))
    seed = {"clients": [{"client_id": "demo", "client_secret": secret}],
            "device_codes": [{"device_code": code, "client_id": "demo", "approved": True}]}
    account = {"cpid": "demo", "cid": "demo", "csec": secret, "code": code, "log": "info"}
    with contextlib.ExitStack() as ending:
        temporary = tempfile.TemporaryDirectory(prefix="pelcloud-page-")
        directory = pathlib.Path(ending.enter_context(temporary))
        cloud = start_cloud(ending, options.build, directory, seed, "--quiet")
        page = Page(start_browser(ending, directory), cloud["page"])
        good = [run(nothing_is_reported_at_first, page)]
        configuration = {"home": cloud["api"], **account}
        start_plugin(ending, options.build, directory, configuration, cloud["proxy"])
        good += [run(check, page) for check in CHECKS]
        if not all(good):
            show_logs(directory)
        elif options.screenshot:
            save_picture(page, options.screenshot)
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
