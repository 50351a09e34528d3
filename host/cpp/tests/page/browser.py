"""A headless Chromium for the tests of pages, and the captures that they are made of.

    TEST.py INSPECTOR SIMULATOR [SCREENSHOT_DIRECTORY]

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
    from selenium.webdriver.common.keys import Keys
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


class PageTest(unittest.TestCase):
    """Starts the browser once for all tests of a class."""

    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.mkdtemp()
        cls.browser = start_browser(os.path.join(cls.directory, "profile"))

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        shutil.rmtree(cls.directory, ignore_errors=True)

    def setUp(self):
        self.media()
        self.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def capture(self, name, *options):
        path = os.path.join(self.directory, name + ".tagcap")
        subprocess.run([SIMULATOR, path, "--seed", "11", *options], check=True, stdout=subprocess.DEVNULL)
        return path

    def open_page(self, capture, *options):
        page = os.path.join(self.directory, "page.html")
        subprocess.run([INSPECTOR, "--quiet", "--html", page, *options, capture], check=True)
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

    def widths(self, *widths):
        """The page at each of these widths in turn."""
        for width in widths:
            self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": width, "height": 1000, "deviceScaleFactor": 1, "mobile": False})
            time.sleep(0.3)
            yield width
        self.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def media(self, medium="", scheme=""):
        features = [{"name": "prefers-color-scheme", "value": scheme}] if scheme else []
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": medium, "features": features})

    def drag(self, plot, from_x, by_x):
        """Drags in a plot, from a distance of its middle; into view first."""
        area = self.browser.find_element(By.ID, plot)
        self.browser.execute_script("arguments[0].scrollIntoView({block: 'center'})", area)
        actions = ActionChains(self.browser)
        actions.move_to_element_with_offset(area, from_x, 0).click_and_hold()
        actions.move_by_offset(by_x, 0).release().perform()

    def point_at(self, plot, x=0):
        area = self.browser.find_element(By.ID, plot)
        self.browser.execute_script("arguments[0].scrollIntoView({block: 'center'})", area)
        ActionChains(self.browser).move_to_element_with_offset(area, x, 0).perform()
