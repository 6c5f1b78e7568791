#!/usr/bin/python3
"""Opens the local cloud's page in a browser while the plug-in reports to it.

Of three units the second one has an outage after the second report, which is lost.
"""

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
SAMPLES = [48, 64, 32]
SCENARIO = """
units = 3
[unit *]
timeline = mains
[unit 0]
samples = 48
[unit 1]
timeline = mains 25, outage 300
[unit 2]
samples = 32
"""
LOST_REPORT = "api:500:nth=10"  # a run has six requests; the tenth is the second report of 001


def why_not_here():
    if os.path.exists("/etc/pelorin.conf"):
        return "a suite is installed here, which the plug-in would report"
    if not os.path.exists(CHROMEDRIVER) and platform.freedesktop_os_release()["ID"] == "ubuntu":
        return "Ubuntu has no package with a browser that a test could start"
    return None


def start_plugin(ending, build, directory, configuration, proxy):
    for file in ("pelcloud.so", "devkit/suite/upscli.so", "devkit/host/pelhost"):
        shutil.copy(build / file, directory)
    (directory / "scenario.ini").write_text(SCENARIO)
    (directory / "pelcloud.json").write_text(json.dumps(configuration))
    host = subprocess.Popen(["./pelhost", "./pelcloud.so"], cwd=directory,
                            env={**os.environ, "HTTPS_PROXY": proxy})
    ending.callback(end, host)


def start_browser(ending, directory):
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service

    class OwnService(Service):
        def send_remote_shutdown_command(self):
            if self.process.poll() is None:  # else another process may have the port
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
    # The browser's files in home and temporary directories are removed with ours.
    places = ("HOME", "TMPDIR", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME")
    service = OwnService(CHROMEDRIVER, env={**os.environ, **dict.fromkeys(places, str(directory))})
    ending.callback(service.stop)
    driver = webdriver.Chrome(service=service, options=options)
    ending.callback(driver.quit)
    return driver


class Page:
    def __init__(self, driver, address):
        self.driver = driver
        self.origin = urlsplit(address).netloc
        self.show_on(DESKTOP)
        driver.get(address)

    def show_on(self, screen):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", screen)

    def run(self, script):
        return self.driver.execute_async_script(
            "const done = arguments[0]; (async () => {" + script + "})().then(done);")

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
        """State, its words, battery and number of reports of each unit."""
        return self.run("""
            const shown = (unit, field) => unit.querySelector(`[data-field="${field}"]`).innerText;
            return [...document.querySelectorAll("article")].map((unit) => [
              unit.dataset.state, shown(unit, "state"), parseInt(shown(unit, "battery")),
              Number(unit.dataset.reports)]);""")

    def wait_for_reports(self, *numbers):
        self.wait(40, f"{numbers} reports", lambda: [unit[3] for unit in self.units()] == [*numbers])

    def wait_for_waveforms(self, *lengths):
        """Of each unit the last samples of its report, or none."""
        script = """
            return Promise.all([...document.querySelectorAll("article")].map(async (unit) => {
              const plot = unit.querySelector('[data-plot="waveforms"]');
              if (plot.dataset.empty === "true") return null;
              const url = `/api/body?computer=demo&device=${unit.dataset.unit}`;
              const { vars } = await (await fetch(url)).json();
              const { datasets } = Chart.getChart(plot.querySelector("canvas")).data;
              const own = datasets.every(({ data }, i) => {
                const reported = [vars.sampVInput, vars.sampVOutput, vars.sampIOutput][i];
                return String(data.map(({ y }) => y)) === String(reported.slice(-data.length));
              });
              return own ? datasets[0].data.length : "of another unit";
            }));"""
        self.wait(20, f"waveforms {lengths}", lambda: self.run(script) == [*lengths])


def equal(actual, expected):
    assert actual == expected, f"{actual} is not {expected}"


def first_reports_show_three_units(page):
    page.wait_for_reports(1, 1, 1)
    equal([unit[:2] for unit in page.units()], 3 * [["on-mains", "On mains"]])
    assert "Nothing has been reported yet" not in page.text()


def waveforms_are_of_their_unit(page):
    page.wait_for_waveforms(*SAMPLES)
    page.wait_for_reports(2, 1, 2)  # without the second report of 001 the samples of 002 are not known
    page.wait_for_waveforms(*SAMPLES[:2], None)


def an_outage_shows_on_its_unit_alone(page):
    page.wait_for_reports(3, 2, 3)
    equal([unit[:2] for unit in page.units()],
          [["on-mains", "On mains"], ["on-battery", "On battery"], ["on-mains", "On mains"]])
    assert page.units()[1][2] < page.units()[0][2], f"no discharge: {page.units()}"
    headline = ("1 UPS needs attention", "1 on battery", "2 on mains")
    equal([words for words in headline if words not in page.text()], [])
    page.wait_for_waveforms(*SAMPLES)


def plots_are_drawn(page):
    page.wait(10, "lines in all six plots", lambda: page.run("""
        return [...document.querySelectorAll("article canvas")].filter((plot) => {
          const { width, height } = plot;
          const blank = Object.assign(document.createElement("canvas"), { width, height });
          return width * height > 0 && plot.toDataURL() !== blank.toDataURL();
        }).length;""") == 6)


def nothing_sticks_out_on_a_phone(page):
    page.show_on(PHONE)
    # A unit out of sight has no layout, so each is scrolled to.
    widths = page.run("""
        const frame = () => new Promise(requestAnimationFrame);
        const widths = [];
        for (const element of [...document.querySelectorAll("article"), document.documentElement]) {
          element.scrollIntoView({ behavior: "instant" });
          await frame();
          await frame();
          widths.push([element.scrollWidth, element.clientWidth]);
        }
        scrollTo(1000, 0);
        return [...widths, [innerWidth, screen.width], [scrollX, 0]];""")
    equal(len(widths), 6)
    equal(widths[-2][1], PHONE["width"])
    assert all(wide <= room for wide, room in widths), f"wider than its room: {widths}"


def nothing_comes_from_elsewhere(page):
    messages = [json.loads(row["message"])["message"] for row in page.driver.get_log("performance")]
    asked = [urlsplit(message["params"].get("request", message["params"])["url"])
             for message in messages
             if message["method"] in ("Network.requestWillBeSent", "Network.webSocketCreated")]
    origins = {(address.scheme, address.netloc) for address in asked
               if address.scheme not in ("data", "chrome")}
    equal(origins, {("http", page.origin)})


def console_is_quiet(page):
    equal([row for row in page.driver.get_log("browser") if row["level"] in ("SEVERE", "WARNING")], [])


# In this order: each starts with the page as the one before left it; the last two check the whole time.
CHECKS = [
    first_reports_show_three_units, waveforms_are_of_their_unit, an_outage_shows_on_its_unit_alone,
    plots_are_drawn, nothing_sticks_out_on_a_phone, nothing_comes_from_elsewhere, console_is_quiet,
]


def main():
    build = pathlib.Path(sys.argv[1])
    if why_not_here():
        print(f"skipped: {why_not_here()}")
        return STATUS_SKIPPED
    assert os.path.exists(CHROMEDRIVER), "scripts/setup installs it; selenium would download one"
    for name in [name for name in os.environ if name.lower() in PROXIES]:
        del os.environ[name]
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))

    secret, code = ("s3cr3t-" + secrets.token_hex(16) for _ in range(2))
    seed = {"clients": [{"client_id": "demo", "client_secret": secret}],
            "device_codes": [{"device_code": code, "client_id": "demo", "approved": True}]}
    account = {"cpid": "demo", "cid": "demo", "csec": secret, "code": code, "log": "info"}
    with contextlib.ExitStack() as ending:
        directory = pathlib.Path(ending.enter_context(tempfile.TemporaryDirectory(prefix="pelcloud-page-")))
        cloud = start_cloud(ending, build, directory, seed, "--quiet", "--fault", LOST_REPORT)
        page = Page(start_browser(ending, directory), cloud["page"])
        page.wait(20, "a hint", lambda: "Nothing has been reported yet" in page.text())
        start_plugin(ending, build, directory, {"home": cloud["api"], **account}, cloud["proxy"])
        for check in CHECKS:
            check(page)
            print(f"{check.__name__}: ok", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
