"""Opens pages in Chromium and uses them as people do: by clicking, typing and following links.

Usage: lineage_page.py BUILD WORK
"""

import json
import pathlib
import subprocess
import sys
import time
import unittest
import urllib.parse

from selenium import webdriver
from selenium.webdriver.common.actions.action_builder import ActionBuilder
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

BUILD, WORK = map(pathlib.Path, sys.argv[1:3])

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from lineagepages import HOSTILE, Document, hostile, large, small, start_browser, write_page  # noqa: E402


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.small = write_page(BUILD, WORK, "small", small())
        cls.selected = write_page(BUILD, WORK, "selected", small(), ("table", "table:Warehouse.dw.orders"))
        cls.hostile = write_page(BUILD, WORK, "hostile", hostile())
        cls.large = write_page(BUILD, WORK, "large", large())
        cls.browser = start_browser(WORK)

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()

    def setUp(self):
        self.browser.get("about:blank")  # a page of its own, even where the last differs in its fragment alone

    def tearDown(self):
        """Nothing was complained about, nothing asked of a network, and no name was run."""
        self.assertNotIn("run", self.browser.title.split())
        self.assertEqual([entry["message"] for entry in self.browser.get_log("browser")], [])
        for entry in self.browser.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent" and message["params"]["documentURL"].startswith("file:"):
                scheme = urllib.parse.urlsplit(message["params"]["request"]["url"]).scheme
                self.assertIn(scheme, ("file", "data", "blob"))

    # What a test does and sees.

    def script(self, text, *arguments):
        return self.browser.execute_script(text, *arguments)

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def boxes(self):
        """The names that are drawn."""
        return sorted(self.script("return lineagePage.view.cy.nodes('.box').map(box => box.data('ref').name)"))

    def until(self, expected, look):
        deadline = time.monotonic() + 10
        while (seen := look()) != expected and time.monotonic() < deadline:
            time.sleep(0.03)
        self.assertEqual(seen, expected)

    def place(self, selector):
        """Where something drawn is in the window, once it no longer moves."""
        where = """
            const box = lineagePage.view.cy.nodes().filter(node => %s);
            if (box.empty() || lineagePage.view.cy.animated()) return null;
            const at = box[0].renderedPosition(), frame = document.getElementById('graph').getBoundingClientRect();
            return [Math.round(frame.left + at.x), Math.round(frame.top + at.y)];""" % selector
        deadline = time.monotonic() + 10
        while (at := self.script(where)) is None and time.monotonic() < deadline:
            time.sleep(0.03)
        return at

    def click_at(self, at, times=1):
        actions = ActionBuilder(self.browser)
        actions.pointer_action.move_to_location(*at)
        for _ in range(times):
            actions.pointer_action.click()
        actions.perform()

    def click(self, name, times=1):
        self.click_at(self.place(f"node.hasClass('box') && node.data('ref').name === {json.dumps(name)}"), times)

    def click_badge(self, name, direction):
        self.click_at(self.place(
            f"node.hasClass('badge') && node.data('ref').direction === {direction} && lineagePage.graph.names[node.data('ref').node] === {json.dumps(name)}"))

    def press(self, *keys):
        actions = webdriver.ActionChains(self.browser)
        actions.send_keys(*keys).perform()

    def headline(self):
        return self.find("#details h2").text

    def search(self, text, enter=True):
        field = self.find("#search")
        field.clear()
        field.send_keys(text)
        found = [option.find_element(By.CSS_SELECTOR, ".name").text for option in self.browser.find_elements(By.CSS_SELECTOR, "#found [role=option]")]
        if enter:
            field.send_keys(Keys.ENTER)
        return found

    # The tests.

    def test_opens_on_the_overview(self):
        self.browser.get(self.small)
        self.assertEqual(self.browser.title, "The small graph")
        self.assertEqual(self.boxes(), ["Shop", "Warehouse", "batch_jobs", "services"])
        self.assertIn("8 jobs, 8 tables, 2 data sources; 14 edges", self.find("#details").text)
        self.assertIn("7 tables", self.find("#details").text)
        self.assertTrue(self.browser.current_url.endswith("#overview"))

    def test_opens_on_the_selection(self):
        self.browser.get(self.selected)
        self.assertEqual(self.boxes(), ["Warehouse.dw.orders"])
        self.assertEqual(self.headline(), "Warehouse.dw.orders")
        self.press("o")
        self.assertEqual(len(self.boxes()), 4)
        self.press("s")
        self.assertEqual(self.boxes(), ["Warehouse.dw.orders"])

    def test_search_ranks_exact_before_prefix_before_substring(self):
        self.browser.get(self.small)
        found = self.search("orders", enter=False)
        self.assertEqual(found[:3], ["Shop.dbo.orders", "Warehouse.dw.orders", "Warehouse.stage.orders"])
        self.assertEqual(found[3:], ["Warehouse.dw.orders_archive", "batch_jobs/clean_orders", "batch_jobs/stage_orders"])
        self.assertEqual(self.search("dw.orders", enter=False), ["Warehouse.dw.orders", "Warehouse.dw.orders_archive"])
        self.assertEqual(self.search("DW.ORDERS", enter=False)[0], "Warehouse.dw.orders")
        self.assertEqual(self.search("mart sales", enter=False), ["Warehouse.mart.sales_a", "Warehouse.mart.sales_b"])
        self.assertEqual(self.search("nothing at all", enter=False), [])
        self.assertIn("No name holds this.", self.find("#found").text)

    def test_search_shows_what_was_chosen_with_its_neighbours(self):
        self.browser.get(self.small)
        self.search("dw.orders")
        self.assertEqual(self.boxes(), ["Warehouse.dw.orders", "batch_jobs/clean_orders", "services/mart_a", "services/mart_b"])
        self.assertEqual(self.headline(), "Warehouse.dw.orders")

    def test_click_centres_and_tells_details(self):
        self.browser.get(self.small)
        self.search("dw.orders")
        self.click("services/mart_b")
        self.until("services/mart_b", self.headline)
        frame = self.script("const r = document.getElementById('graph').getBoundingClientRect(); return [r.left + r.width / 2, r.top + r.height / 2]")
        at = self.place("node.data('ref').name === 'services/mart_b'")
        self.assertAlmostEqual(at[0], frame[0], delta=3)
        self.assertAlmostEqual(at[1], frame[1], delta=3)
        text = self.find("#details").text
        for part in ("Job\n(DataJob)", "Reads (1)", "Warehouse.dw.orders", "Writes (1)", "Warehouse.mart.sales_b", "/srv/jobs/services/mart_b.djf",
                     "job:services/mart_b"):
            self.assertIn(part, text)

    def test_lists_of_the_details_lead_on(self):
        self.browser.get(self.small)
        self.search("mart_a")
        self.find("#details .item[title^='Shown']").click()
        self.until("Warehouse.dw.orders", self.headline)
        self.find("#details .item[title^='Add']").click()
        self.until("batch_jobs/clean_orders", self.headline)
        self.assertIn("batch_jobs/clean_orders", self.boxes())

    def test_signs_expand_and_fold_a_level(self):
        self.browser.get(self.small)
        self.search("dw.orders")
        before = self.boxes()
        self.click_badge("batch_jobs/clean_orders", 0)
        self.until(sorted([*before, "Warehouse.stage.orders"]), self.boxes)
        self.click_badge("batch_jobs/clean_orders", 0)
        self.until(before, self.boxes)

    def test_expands_by_level_all_levels_and_a_number_of_levels(self):
        self.browser.get(self.small)
        self.search("dw.orders")
        self.find("button[aria-label='Expand a level upstream']").click()
        self.assertIn("Warehouse.stage.orders", self.boxes())
        self.assertNotIn("batch_jobs/stage_orders", self.boxes())
        self.find("button[aria-label='Expand all levels upstream']").click()
        self.assertIn("Shop.dbo.orders", self.boxes())
        self.assertNotIn("Warehouse.mart.sales_a", self.boxes())
        self.find("input[aria-label='Downstream levels shown']").send_keys(Keys.CONTROL, "a", Keys.NULL, "3", Keys.ENTER)
        self.until(11, lambda: len(self.boxes()))
        self.assertEqual(self.script("return document.activeElement.getAttribute('aria-label')"), "Downstream levels shown")
        self.find("button[aria-label='Fold a level downstream']").click()
        self.assertNotIn("services/report_a", self.boxes())
        self.find("input[aria-label='Upstream levels shown']").send_keys(Keys.CONTROL, "a", Keys.NULL, "0", Keys.ENTER)
        self.until(["Warehouse.dw.orders", "Warehouse.mart.sales_a", "Warehouse.mart.sales_b", "services/mart_a", "services/mart_b"], self.boxes)

    def test_opens_groups(self):
        self.browser.get(self.small)
        self.click("batch_jobs")
        self.until("batch_jobs", self.headline)
        self.click("batch_jobs", times=2)
        self.until(["Shop.dbo.orders", "Warehouse.dw.orders", "Warehouse.stage.orders", "batch_jobs/clean_orders", "batch_jobs/stage_orders"], self.boxes)

    def test_link_shows_what_was_shown(self):
        self.browser.get(self.small)
        self.search("stage.orders")
        self.find("button[aria-label='Expand all levels downstream']").click()
        shown, link = self.boxes(), self.browser.current_url
        self.assertIn("at=table:Warehouse.stage.orders", urllib.parse.unquote(link))
        self.browser.get("about:blank")
        self.browser.get(link)
        self.assertEqual(self.boxes(), shown)
        self.assertEqual(self.headline(), "Warehouse.stage.orders")

    def test_link_into_another_state_of_the_graph_shows_its_middle(self):
        self.browser.get(self.small)
        self.search("dw.orders")
        changed = small()
        changed.node("table", "Warehouse.new", source=1)
        link = write_page(BUILD, WORK, "changed", changed) + "#" + self.browser.current_url.split("#")[1]
        self.browser.get(link)
        self.assertEqual(self.headline(), "Warehouse.dw.orders")
        self.assertIn("another state", self.find("#note").text)
        self.browser.get("about:blank")
        self.browser.get(link.split("#")[0] + "#at=table:Warehouse.gone")
        self.assertIn("Warehouse.gone, which is not in this graph", self.find("#note").text)
        for nonsense in ("#show=%%%&of=x", "#overview=table:%ff", "#x", "#overview=%E0%A4%A", "#at=:"):
            self.browser.get("about:blank")
            self.browser.get(link.split("#")[0] + nonsense)
            self.assertGreaterEqual(len(self.boxes()), 3, nonsense)

    def test_back_and_forward(self):
        self.browser.get(self.small)
        self.search("mart_a")
        first = self.boxes()
        self.search("report_b")
        self.browser.back()
        self.until(first, self.boxes)
        self.assertEqual(self.headline(), "services/mart_a")
        self.browser.back()
        self.until(["Shop", "Warehouse", "batch_jobs", "services"], self.boxes)
        self.browser.forward()
        self.until(first, self.boxes)

    def test_keys_alone_suffice(self):
        self.browser.get(self.small)
        self.press("/", "dw.orders", Keys.ARROW_DOWN, Keys.ARROW_UP, Keys.ENTER)
        self.assertEqual(self.headline(), "Warehouse.dw.orders")
        self.assertEqual(self.script("return document.activeElement.id"), "graph")
        self.press("u")
        self.assertIn("Warehouse.stage.orders", self.boxes())
        self.press("U")
        self.assertNotIn("Warehouse.stage.orders", self.boxes())
        self.press("d")
        self.assertIn("Warehouse.mart.sales_b", self.boxes())
        self.press(Keys.ARROW_LEFT)
        self.assertEqual(self.headline(), "batch_jobs/clean_orders")
        self.press(Keys.ARROW_RIGHT, Keys.ARROW_RIGHT)
        upper, lower = sorted(("services/mart_a", "services/mart_b"),
                              key=lambda name: self.place(f"node.data('ref').name === '{name}'")[1])
        self.press(Keys.ARROW_UP)
        self.assertEqual(self.headline(), upper)
        self.press(Keys.ARROW_DOWN)
        self.assertEqual(self.headline(), lower)
        self.press(Keys.DELETE)
        self.assertNotIn(lower, self.boxes())
        self.press("o")
        self.assertEqual(len(self.boxes()), 4)
        self.press(Keys.ARROW_RIGHT, Keys.ENTER)
        self.assertNotIn("Warehouse", self.boxes())
        self.press("?")
        self.assertTrue(self.find("#help-text").is_displayed())
        self.assertIn("expand a level upstream", self.find("#help-text").text)
        self.press(Keys.ESCAPE)
        self.assertFalse(self.find("#help-text").is_displayed())

    def test_focus_is_seen(self):
        self.browser.get(self.small)
        for _ in range(4):
            self.press(Keys.TAB)
            outline = self.script("const s = getComputedStyle(document.activeElement); return [s.outlineStyle, s.outlineWidth]")
            self.assertEqual(outline, ["solid", "3px"])

    def test_skips_to_the_graph(self):
        self.browser.get(self.small)
        self.search("dw.orders")
        shown = self.boxes()
        self.find("#skip").send_keys(Keys.ENTER)
        self.assertEqual(self.script("return document.activeElement.id"), "graph")
        self.assertEqual(self.boxes(), shown)

    def test_tells_kinds_apart_by_shape_and_accesses_by_arrow(self):
        self.browser.get(self.small)
        self.search("clean_orders")
        shapes = self.script("""const cy = lineagePage.view.cy; return [['node.job', 'shape'], ['node.table', 'shape'],
            ['edge.read', 'target-arrow-fill'], ['edge.write', 'target-arrow-fill'], ['edge.read', 'line-style'], ['edge.write', 'line-style']]
            .map(([which, style]) => cy.elements(which)[0].style(style))""")
        self.assertEqual(shapes, ["round-rectangle", "rectangle", "hollow", "filled", "dashed", "solid"])
        self.assertEqual(self.script("return [...document.querySelectorAll('.legend li:not([hidden])')].map(each => each.dataset.of)"),
                         ["job", "table", "datasource", "read", "write", "inferred"])

    def test_tells_cycles(self):
        self.browser.get(self.small)
        self.assertIn("Cycles (1)", self.find("#details").text)
        self.search("loop.left")
        self.assertIn("In a cycle of 4", self.find("#details").text)
        self.find("#details section > button").click()
        self.until(["Warehouse.loop.left", "Warehouse.loop.right", "services/back", "services/there"], self.boxes)

    def test_dark_where_the_system_is_dark(self):
        self.browser.get(self.small)
        ground = "return [getComputedStyle(document.body).backgroundColor, lineagePage.view.cy.nodes('.box')[0].style('color')]"
        light = self.script(ground)
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": "dark"}]})
        try:
            self.until(True, lambda: all(a != b for a, b in zip(light, self.script(ground))))
        finally:
            self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": []})

    def test_prints_the_drawing(self):
        self.browser.get(self.small)
        self.search("dw.orders")
        self.script("dispatchEvent(new Event('beforeprint'))")
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "print"})
        try:
            self.assertTrue(self.find("#print svg").is_displayed())
            self.assertFalse(self.find("#graph").is_displayed())
            self.assertFalse(self.find("#search").is_displayed())
        finally:
            self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": ""})

    def test_saves_pictures(self):
        self.browser.get(self.hostile)
        self.search("Größen")
        for button, start in (("png", b"\x89PNG"), ("svg", b"<svg")):
            self.find(f"#{button}").click()
            saved = WORK / "downloads" / f"lineage.{button}"
            self.until(True, saved.exists)
            self.until(start, lambda: saved.read_bytes()[:4])
        subprocess.run(["xmllint", "--nonet", "--noout", saved], check=True)
        self.assertIn("Größen 日本語 \U0001f600", saved.read_text(encoding="utf-8"))

    def test_shows_every_name_unharmed_and_runs_none(self):
        self.browser.get(self.hostile)
        for name in HOSTILE:
            self.script("lineagePage.goTo(lineagePage.graph.names.indexOf(arguments[0]))", name)
            self.assertEqual(self.script("return document.querySelector('#details h2').textContent"), name)
            self.assertIn(name, self.script("return [...document.querySelectorAll('#details code')].map(each => each.textContent)"))
            self.assertEqual(self.script("return document.querySelectorAll('#details img, #details script').length"), 0)
            self.assertEqual(self.boxes(), sorted([name, f"folder/{name}"]))
            link = self.browser.current_url
            self.browser.get("about:blank")
            self.browser.get(link)
            self.assertEqual(self.script("return document.querySelector('#details h2').textContent"), name)
            self.assertEqual(self.script("return document.querySelectorAll('script').length"), 1)
        labels = self.script("return lineagePage.view.cy.nodes('.box').map(box => box.data('label'))")
        self.assertTrue(any("…" in label and label.startswith("nnn") and "END" in label for label in labels), labels)
        self.search(HOSTILE[0], enter=False)
        self.assertEqual(self.script("return document.querySelector('#found .name').textContent"), HOSTILE[0])

    def test_an_empty_graph_says_so(self):
        self.browser.get(write_page(BUILD, WORK, "empty", Document()))
        self.assertTrue(self.find("#empty").is_displayed())
        self.press("/", "x", Keys.ENTER)
        self.press(Keys.ESCAPE)

    def test_a_narrow_window_shows_all_parts(self):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {"width": 420, "height": 800, "deviceScaleFactor": 1, "mobile": False})
        try:
            self.browser.get(self.small)
            self.assertLessEqual(self.script("return document.documentElement.scrollWidth"), 420)
            for part in ("#search", "#graph", "#details", "#help"):
                self.assertGreater(self.find(part).size["height"], 20, part)
        finally:
            self.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def test_a_large_graph_is_never_drawn_whole(self):
        self.browser.get(self.large)
        self.assertEqual(self.script("return [lineagePage.graph.size, lineagePage.graph.edgeCount]"), [50000, 250000])
        self.assertEqual(len(self.boxes()), 38)
        self.assertIn("24,992 jobs, 25,000 tables, 8 data sources; 250,000 edges", self.find("#details").text)
        self.assertIn("pick one to see its own", self.find("#details").text)
        self.assertEqual(self.script("return lineagePage.view.cy.edges().length"), 0)
        self.click("Source0")
        self.until("Source0", self.headline)
        self.assertGreater(self.script("return lineagePage.view.cy.edges().length"), 0)
        self.find("#graph").send_keys(Keys.ENTER)
        self.until(True, lambda: "Source0.s0" in self.boxes())  # more than can be drawn: its schemas
        self.assertEqual(self.find("#note").is_displayed(), False)
        self.assertEqual(len(self.search("table_0", enter=False)), 40)
        self.assertIn("type on to narrow", self.find("#found").text)
        self.search("load_12000")
        self.assertEqual(self.headline().split("/")[1], "load_12000")
        few = self.boxes()
        self.find("button[aria-label='Expand all levels upstream']").click()
        self.assertIn("more than the 1,500 elements", self.find("#note").text)
        self.assertEqual(self.boxes(), few)
        self.find("#note button").click()
        self.assertGreater(len(self.boxes()), len(few))
        self.assertLessEqual(self.script("return lineagePage.view.cy.elements('.box, edge').length"), 1500)
        self.press("o")
        self.search("s0.table_00000")
        self.assertEqual(len(self.boxes()), 1)
        self.assertIn("24,992 neighbours", self.find("#note").text)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=1)
