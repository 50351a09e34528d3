"""The pairs of channels on the page of vq_inspect_stream_file, in a real browser.

    pairs_page.py INSPECTOR SIMULATOR [SCREENSHOT_DIRECTORY]
"""
import os
import re
import sys
import unittest

from browser import ActionChains, By, Keys, PageTest

CORRELATED = ("--channels=0,1,3", "--rate=30000", "--pair-channels=3,1", "--pair-rate=2000", "--delay=-40ms",
              "--duration=1s")


class Pairs(PageTest):
    def cells(self):
        rows = self.browser.find_elements(By.CSS_SELECTOR, ".matrix tr")[1:]
        return [[cell.text for cell in row.find_elements(By.TAG_NAME, "td")] for row in rows]

    def test_matrix_has_every_pair_and_its_verdict(self):
        page = self.open_page(self.capture("three", *CORRELATED), "--pairs")
        cells = self.cells()
        self.assertEqual([len(row) for row in cells], [3, 3, 3])
        for row, column in ((1, 0), (2, 0), (2, 1)):
            self.assertEqual(cells[row][column], "")
        self.assertRegex(cells[1][2], r"^peak\n40\.0 ms\n\d+ sigmas$")
        for row, column in ((0, 1), (1, 1), (2, 2)):  # channel 2 is empty
            self.assertEqual(cells[row][column], "none\nno tags")
        for row, column in ((0, 0), (0, 2)):
            self.assertRegex(cells[row][column], r"^none\n–\n\d\.\d\d sigmas$")
        self.assertEqual(len(self.browser.find_elements(By.CSS_SELECTOR, "section.pair")), 6)
        self.assertEqual(len(self.browser.find_elements(By.CSS_SELECTOR, ".plot.histogram")), 3)
        self.assert_quiet(page)

    def test_cells_lead_to_their_pair_by_mouse_and_by_keyboard(self):
        page = self.open_page(self.capture("three", *CORRELATED), "--pairs")
        link = self.browser.find_element(By.CSS_SELECTOR, "a[href='#pair-1-3']")
        in_view = ("const box = document.getElementById('pair-1-3').getBoundingClientRect();"
                   "return box.top >= 0 && box.top < window.innerHeight / 2")
        link.click()
        self.assertTrue(self.browser.execute_script(in_view))
        self.browser.execute_script("location.hash = ''; window.scrollTo(0, 0)")
        link.send_keys(Keys.ENTER)
        self.assertTrue(self.browser.execute_script(in_view))
        self.assert_quiet(page)

    def test_histogram_zooms_moves_and_shows_all_again(self):
        page = self.open_page(self.capture("three", *CORRELATED), "--pair=1,3")
        for plot in ("pair-1-3-histogram", "pair-1-3-overview"):
            low, high = self.x_range(plot)
            self.drag(plot, -100, 200)
            zoomed_low, zoomed_high = self.x_range(plot)
            self.assertGreater(zoomed_low, low)
            self.assertLess(zoomed_high, high)
            area = self.browser.find_element(By.ID, plot)
            ActionChains(self.browser).key_down(Keys.SHIFT).drag_and_drop_by_offset(area, 60, 0).key_up(
                Keys.SHIFT).perform()
            moved_low, moved_high = self.x_range(plot)
            self.assertLess(moved_low, zoomed_low)
            self.assertAlmostEqual((moved_high - moved_low) / (zoomed_high - zoomed_low), 1, 3)
            self.browser.find_element(By.CSS_SELECTOR, "#" + plot + "-controls button").click()
            self.assertEqual(self.x_range(plot), [low, high])
        self.assert_quiet(page)

    def test_values_under_the_pointer_are_those_of_the_bin(self):
        page = self.open_page(self.capture("three", *CORRELATED), "--pair=1,3")
        self.point_at("pair-1-3-histogram")
        values = self.text("#pair-1-3-histogram-values")
        found = re.match(r"(\d+) ps — pairs: (\d+), background: ([\d.]+), by chance: ([\d.]+)$", values)
        self.assertIsNotNone(found, values)
        offset, bin_ps, under = self.browser.execute_script("""
            const {offset_ps, bin_ps} = orvoPage.report.pairs[0];
            const plot = orvoPlots['pair-1-3-histogram'];
            return [offset_ps, bin_ps, plot.toDataXCoord(document.getElementById('pair-1-3-histogram').clientWidth / 2)]""")
        self.assertLess(abs(offset - 40_000_000_000), 2000)
        self.assertLessEqual(abs(int(found[1]) - offset - under), 0.6 * bin_ps)
        pairs = self.browser.execute_script(
            "const plot = orvoPlots['pair-1-3-histogram']; const x = arguments[0];"
            "return plot.rawData_.filter(row => row[0] === x).map(row => row[1])",
            int(found[1]) - offset)
        self.assertEqual(pairs, [int(found[2])])
        self.point_at("pair-1-3-overview")
        self.assertRegex(self.text("#pair-1-3-overview-values"),
                         r"^-[\d.]+ ms to -[\d.]+ ms — clearest: [\d.]+ sigmas$")
        self.assert_quiet(page)

    def test_peak_background_and_half_maximum_are_drawn(self):
        page = self.open_page(self.capture("three", *CORRELATED), "--pair=3,1")
        pair = self.browser.execute_script("return orvoPage.report.pairs[0]")
        self.assertEqual(pair["id"], "pair-3-1")
        middle = pair["offset_ps"] + (pair["half"]["from_ps"] + pair["half"]["to_ps"]) / 2
        self.assertLess(abs(middle + 40e9), 30)
        width = pair["half"]["to_ps"] - pair["half"]["from_ps"]
        self.assertLess(abs(width - 94.2), 12)  # 40 ps of jitter
        half = pair["half"]["level"] * pair["expected"][len(pair["expected"]) // 2]
        self.assertLess(abs(half / max(pair["counts"]) - 0.5), 0.08)
        # The bar at half maximum is as dark as text, the shade of the peak is neither ground nor ink.
        bar, shade, outside = self.browser.execute_script("""
            const plot = orvoPlots['pair-3-1-histogram'];
            const pair = orvoPage.report.pairs[0];
            const {width, height, clientWidth} = plot.hidden_;
            const pixels = plot.hidden_ctx_.getImageData(0, 0, width, height).data;
            return arguments[0].map(([level, ps]) => {
              const y = plot.toDomYCoord(level * pair.expected[pair.expected.length >> 1]) * width / clientWidth;
              const x = plot.toDomXCoord(ps) * width / clientWidth;
              const at = 4 * (Math.floor(y) * width + Math.floor(x));
              return Array.from(pixels.subarray(at, at + 4));
            })""",
            [[pair["half"]["level"], (pair["half"]["from_ps"] + pair["half"]["to_ps"]) / 2],
             [1.9 * pair["half"]["level"], pair["peak"]["from_ps"] + width / 8],
             [1.9 * pair["half"]["level"], pair["peak"]["from_ps"] - width]])
        self.assertEqual(bar, [0x1b, 0x1f, 0x24, 255])
        self.assertTrue(0 < shade[3] < 255, shade)
        self.assertEqual(outside[3], 0)
        self.assert_quiet(page)

    def test_series_can_be_switched_off(self):
        self.open_page(self.capture("three", *CORRELATED), "--pair=1,3")
        boxes = self.browser.find_elements(By.CSS_SELECTOR, "#pair-1-3-histogram-controls input")
        self.browser.execute_script("arguments[0].scrollIntoView({block: 'center'})", boxes[0])
        boxes[2].click()
        self.assertEqual(self.browser.execute_script("return orvoPlots['pair-1-3-histogram'].visibility()"),
                         [True, True, False])

    def test_commands_and_names_stay_text(self):
        capture = self.capture("three", *CORRELATED)
        hostile_path = os.path.join(self.directory, "it's <img src=x onerror=window.hostile=1> & \n$(x).tagcap")
        os.rename(capture, hostile_path)
        page = self.open_page(hostile_path, "--pairs")
        self.assertIsNone(self.browser.execute_script("return window.hostile"))
        self.assertEqual(self.browser.find_elements(By.TAG_NAME, "img"), [])
        self.assertEqual(len(self.browser.find_elements(By.TAG_NAME, "script")), 3)
        command = self.text("#pair-1-3 pre")
        self.assertTrue(command.startswith("vq_verify_stream_file_xcorr $'" + self.directory), command)
        self.assertIn("it\\'s <img src=x onerror=window.hostile=1> & \\012$(x).tagcap' 1 3 --offset=4", command)
        self.assert_quiet(page)

    def test_pulses_are_a_comb_with_its_teeth(self):
        page = self.open_page(self.capture("pulses", "--light=pulses", "--pulse-period=12500", "--photons=0.05",
                                           "--duration=100ms"), "--pair=0,1")
        self.assertRegex(self.cells()[0][0], r"^comb\nevery 12\.5 ns\n")
        comb = self.browser.execute_script("return orvoPage.report.pairs[0].comb")
        self.assertLess(abs(comb["period_ps"] - 12500), 5)
        self.assertIn("known up to a multiple of the period", self.text("#pair-0-1"))
        self.screenshot("pairs_comb")
        self.assert_quiet(page)

    def test_every_width_is_legible(self):
        self.open_page(self.capture("three", *CORRELATED), "--pairs")
        for width in self.widths(400, 1000, 2500):
            overflow, plot = self.browser.execute_script(
                "return [document.documentElement.scrollWidth - window.innerWidth,"
                " document.getElementById('pair-1-3-histogram').clientWidth]")
            self.assertLessEqual(overflow, 0, width)
            hidden = "const box = document.querySelector('.matrix'); return box.scrollWidth - box.parentNode.clientWidth"
            self.assertLessEqual(self.browser.execute_script(hidden), 0, width)
            self.assertGreater(plot, 0.6 * min(width, 800))
            self.screenshot("pairs_%d" % width)

    def test_dark_and_printed(self):
        self.open_page(self.capture("three", *CORRELATED), "--pairs")
        ink = "return getComputedStyle(document.querySelector('.matrix td.peak b')).color"
        shown = "return getComputedStyle(document.querySelector('#pair-1-3-histogram-controls ' + arguments[0])).display"
        self.assertEqual(self.browser.execute_script(ink), "rgb(9, 105, 218)")
        self.media(scheme="dark")
        self.assertEqual(self.browser.execute_script(ink), "rgb(88, 166, 255)")
        self.screenshot("pairs_dark")
        self.media("print", "dark")
        self.assertEqual(self.browser.execute_script(ink), "rgb(5, 80, 174)")
        self.assertEqual(self.browser.execute_script(shown, "button"), "none")
        self.assertNotEqual(self.browser.execute_script(shown, ".swatch"), "none")
        self.screenshot("pairs_print")
        self.media()

    def test_captures_with_nothing_in_them_have_a_matrix(self):
        page = self.open_page(self.capture("none", "--tags", "0"), "--pairs")
        self.assertEqual(sum(text == "none\nno tags" for row in self.cells() for text in row), 6)
        self.assertEqual(self.browser.find_elements(By.CSS_SELECTOR, ".plot.histogram"), [])
        self.assert_quiet(page)

    def test_pages_without_pairs_have_none(self):
        page = self.open_page(self.capture("sound", "--tags", "5000"))
        self.assertEqual(self.browser.find_elements(By.CSS_SELECTOR, ".matrix"), [])
        self.assert_quiet(page)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
