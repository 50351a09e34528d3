"""The page of vq_inspect_stream_file in a real browser: what it shows, what can be done with its plots, and that nothing
of a capture's header becomes markup.

    inspect_page.py INSPECTOR SIMULATOR [SCREENSHOT_DIRECTORY]
"""
import json
import os
import sys
import unittest

from browser import By, HOSTILE, PageTest, with_header


class Page(PageTest):
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
            self.drag(plot, -100, 200)
            zoomed_low, zoomed_high = self.x_range(plot)
            self.assertGreater(zoomed_low, low)
            self.assertLess(zoomed_high, high)
            self.browser.find_element(By.CSS_SELECTOR, "#" + plot + "-controls button").click()
            self.assertEqual(self.x_range(plot), [low, high])
        self.assert_quiet(page)

    def test_values_appear_under_the_pointer(self):
        page = self.open_page(self.capture("sound", "--tags", "200000"))
        for plot, unit in (("rates", "kHz"), ("intervals", "to")):
            self.point_at(plot)
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
        for width in self.widths(400, 800, 1600, 2500):
            overflow, plot = self.browser.execute_script(
                "return [document.documentElement.scrollWidth - window.innerWidth,"
                " document.getElementById('rates').clientWidth]")
            self.assertLessEqual(overflow, 0, width)
            self.assertGreater(plot, 0.6 * min(width, 1800))
            self.screenshot("page_%d" % width)

    def test_dark_and_printed(self):
        self.open_page(self.capture("sound", "--tags", "50000"))
        ground = "return getComputedStyle(document.body).backgroundColor"
        shown = "return getComputedStyle(document.querySelector('#rates-controls ' + arguments[0])).display"
        self.assertEqual(self.browser.execute_script(ground), "rgb(255, 255, 255)")
        self.media(scheme="dark")
        self.assertEqual(self.browser.execute_script(ground), "rgb(20, 24, 29)")
        self.screenshot("page_dark")
        self.media("print", "dark")
        self.assertEqual(self.browser.execute_script(ground), "rgb(255, 255, 255)")
        # Paper has nothing to press, but the key to the colours.
        self.assertEqual(self.browser.execute_script(shown, "button"), "none")
        self.assertEqual(self.browser.execute_script(shown, "input"), "none")
        self.assertNotEqual(self.browser.execute_script(shown, ".swatch"), "none")
        self.screenshot("page_print")
        self.media()

    def test_captures_with_nothing_in_them_have_a_page(self):
        capture = self.capture("none", "--tags", "0")
        page = self.open_page(capture)
        self.assertEqual(self.text(".verdict"), "suspect")
        self.assertEqual(self.text("#rates"), "none")
        self.assert_quiet(page)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
