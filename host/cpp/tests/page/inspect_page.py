"""The page of vq_inspect_stream_file in a real browser: what it shows, what can be done with its plots, and that nothing
of a capture's header becomes markup.

    inspect_page.py INSPECTOR SIMULATOR [SCREENSHOT_DIRECTORY]

Ends with status 77 where there is no Selenium or no Chromium.
"""
import json
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import unittest

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.options import Options
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.by import By
except ImportError:
    print("SKIPPED: there is no Python module selenium here")
    sys.exit(77)
CHROMEDRIVER = shutil.which("chromedriver")
if CHROMEDRIVER is None or shutil.which("chromium") is None:
    print("SKIPPED: there is no Chromium with chromedriver here")
    sys.exit(77)

INSPECTOR, SIMULATOR = sys.argv[1:3]
SCREENSHOTS = sys.argv[3] if len(sys.argv) > 3 else None
HOSTILE = "</script></title><script>window.hostile=1</script><img src=x onerror=\"window.hostile=2\">&lt;'"


def start_browser(profile):
    options = Options()
    for argument in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--user-data-dir=" + profile, "--window-size=1200,1000"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    return webdriver.Chrome(service=Service(CHROMEDRIVER), options=options)


def with_header(path, change):
    """Rewrites the capture's header text."""
    with open(path, "rb") as file:
        content = file.read()
    length, = struct.unpack("<I", content[8:12])
    header = change(content[12:12 + length].decode())
    encoded = header.encode()
    with open(path, "wb") as file:
        file.write(content[:8] + struct.pack("<I", len(encoded)) + encoded + content[12 + length:])


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.mkdtemp()
        cls.browser = start_browser(os.path.join(cls.directory, "profile"))

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        shutil.rmtree(cls.directory, ignore_errors=True)

    def capture(self, name, *options):
        path = os.path.join(self.directory, name + ".tagcap")
        subprocess.run([SIMULATOR, path, "--seed", "11", *options], check=True, stdout=subprocess.DEVNULL)
        return path

    def open_page(self, capture):
        page = os.path.join(self.directory, "page.html")
        subprocess.run([INSPECTOR, "--quiet", "--html", page, capture], check=True)
        self.assertLessEqual(os.path.getsize(page), 600_000)
        self.browser.get_log("browser")
        self.browser.get_log("performance")
        self.browser.get("file://" + page)
        time.sleep(0.3)
        return page

    def screenshot(self, name):
        if SCREENSHOTS:
            self.browser.save_screenshot(os.path.join(SCREENSHOTS, name + ".png"))

    def text(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector).text

    def assert_quiet(self, page):
        """Nothing on the console, and no request but for the page itself."""
        self.assertEqual(self.browser.get_log("browser"), [])
        for entry in self.browser.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            params = message["params"]
            # The browser asks for icons of its own start page.
            if message["method"] == "Network.requestWillBeSent" and params.get("documentURL") == "file://" + page:
                url = params["request"]["url"]
                self.assertTrue(url == "file://" + page or url.startswith("data:"), url)

    def x_range(self, plot):
        return self.browser.execute_script("return orvoPlots[arguments[0]].xAxisRange()", plot)

    def test_verdict_and_findings_come_first(self):
        page = self.open_page(self.capture("cut", "--tags", "100000", "--cut-tail", "3"))
        self.assertEqual(self.text(".verdict"), "suspect")
        self.assertTrue(self.text(".findings li").startswith("suspect cut_record"))
        headings = [heading.text for heading in self.browser.find_elements(By.TAG_NAME, "h2")]
        self.assertEqual(headings, ["Rates over time", "Distances between tags of a channel", "Losses along the file",
                                    "Channels", "Payload", "File"])
        self.assertIn("99999", self.text("body"))
        self.assert_quiet(page)

    def test_plots_zoom_and_show_all_again(self):
        page = self.open_page(self.capture("sound", "--tags", "200000"))
        for plot in ("rates", "intervals"):
            low, high = self.x_range(plot)
            area = self.browser.find_element(By.ID, plot)
            self.browser.execute_script("arguments[0].scrollIntoView({block: 'center'})", area)
            actions = ActionChains(self.browser)
            actions.move_to_element_with_offset(area, -100, 0).click_and_hold()
            actions.move_by_offset(200, 0).release().perform()
            zoomed_low, zoomed_high = self.x_range(plot)
            self.assertGreater(zoomed_low, low)
            self.assertLess(zoomed_high, high)
            self.browser.find_element(By.CSS_SELECTOR, "#" + plot + "-controls button").click()
            self.assertEqual(self.x_range(plot), [low, high])
        self.assert_quiet(page)

    def test_values_appear_under_the_pointer(self):
        page = self.open_page(self.capture("sound", "--tags", "200000"))
        for plot, unit in (("rates", "kHz"), ("intervals", "to")):
            area = self.browser.find_element(By.ID, plot)
            self.browser.execute_script("arguments[0].scrollIntoView({block: 'center'})", area)
            ActionChains(self.browser).move_to_element(area).perform()
            values = self.text("#" + plot + "-values")
            self.assertIn("channel 0: ", values)
            self.assertIn("channel 1: ", values)
            self.assertIn(unit, values)
        self.assert_quiet(page)

    def test_channels_can_be_switched_off(self):
        self.open_page(self.capture("sound", "--tags", "50000"))
        box = self.browser.find_element(By.CSS_SELECTOR, "#rates-controls input")
        self.browser.execute_script("arguments[0].scrollIntoView({block: 'center'})", box)
        box.click()
        self.assertEqual(self.browser.execute_script("return orvoPlots.rates.visibility()"), [False, True])

    def test_losses_are_drawn_where_there_are_some(self):
        self.open_page(self.capture("sound", "--tags", "50000"))
        self.assertEqual(self.text("#losses"), "none")
        page = self.open_page(self.capture("lossy", "--tags", "50000", "--garbage", "5000", "--garbage-at", "200000"))
        drawn = self.browser.execute_script("return orvoPlots.losses.yAxisExtremes()[0]")
        self.assertGreater(drawn[1], 100)
        self.assert_quiet(page)

    def test_foreign_text_is_never_markup(self):
        capture = self.capture("hostile", "--tags", "5000")
        replaced = json.dumps(HOSTILE)
        with_header(capture, lambda header: header.replace('"vq_simulate_stream_file"', replaced)
                    .replace('"simulation"', '"\\u0000\\u2028\\"><svg onload=window.hostile=3>"')
                    .replace('{"file_type"', '{' + replaced + ':1,"file_type"'))
        hostile_path = os.path.join(self.directory, "<img src=x onerror=window.hostile=4>.tagcap")
        os.rename(capture, hostile_path)
        page = self.open_page(hostile_path)
        self.assertIsNone(self.browser.execute_script("return window.hostile"))
        for tag in ("img", "svg", "iframe", "object"):
            self.assertEqual(self.browser.find_elements(By.TAG_NAME, tag), [])
        self.assertEqual(len(self.browser.find_elements(By.TAG_NAME, "script")), 3)
        self.assertIn(HOSTILE, self.text("body"))
        self.assertIn("<img src=x onerror=window.hostile=4>", self.text("h1"))
        self.assert_quiet(page)

    def test_every_width_is_legible(self):
        self.open_page(self.capture("wide", "--tags", "50000", "--flip-every", "5000"))
        for width in (400, 800, 1600, 2500):
            self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": width, "height": 1000, "deviceScaleFactor": 1, "mobile": False})
            time.sleep(0.3)
            overflow, plot = self.browser.execute_script(
                "return [document.documentElement.scrollWidth - window.innerWidth,"
                " document.getElementById('rates').clientWidth]")
            self.assertLessEqual(overflow, 0, width)
            self.assertGreater(plot, 0.6 * min(width, 1800))
            self.screenshot("page_%d" % width)
        self.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def test_dark_and_printed(self):
        self.open_page(self.capture("sound", "--tags", "50000"))
        ground = "return getComputedStyle(document.body).backgroundColor"
        shown = "return getComputedStyle(document.getElementById('rates-controls')).display"
        self.assertEqual(self.browser.execute_script(ground), "rgb(255, 255, 255)")
        dark = [{"name": "prefers-color-scheme", "value": "dark"}]
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": dark})
        self.assertEqual(self.browser.execute_script(ground), "rgb(20, 24, 29)")
        self.screenshot("page_dark")
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "print", "features": dark})
        self.assertEqual(self.browser.execute_script(ground), "rgb(255, 255, 255)")
        self.assertEqual(self.browser.execute_script(shown), "none")
        self.screenshot("page_print")
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "", "features": []})

    def test_captures_with_nothing_in_them_have_a_page(self):
        capture = self.capture("none", "--tags", "0")
        page = self.open_page(capture)
        self.assertEqual(self.text(".verdict"), "suspect")
        self.assertEqual(self.text("#rates"), "none")
        self.assert_quiet(page)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
