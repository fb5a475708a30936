#!/usr/bin/python3
"""The panel's page in a browser, against a stand-in for the panel's server."""

import pathlib
import subprocess
import sys
import unittest

try:
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.keys import Keys

    from browser import PAGES, Panel, axe_source, start_browser
except ImportError as missing:
    print(f"skipped: {missing}; script/bootstrap --with panel installs it", file=sys.stderr)
    sys.exit(77)

TREE = pathlib.Path(__file__).resolve().parents[2]
WIDTHS = (360, 1280, 2560)

# Everything that can be operated and is in sight; of a composite (tree) the one part that Tab leads to.
CONTROLS = """return [...document.querySelectorAll('a[href], button, input, select, summary, [tabindex="0"]')]
    .filter((each) => each.checkVisibility() && !each.disabled)"""


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.driver = start_browser()

    @classmethod
    def tearDownClass(cls):
        cls.driver.quit()

    def panel(self, *arguments):
        panel = Panel(self.driver, "--pace", "0.05", *arguments)
        self.addCleanup(panel.stop)
        panel.size(1280)
        self.driver.get_log("browser")
        return panel

    def opened(self, page="overview", *arguments):
        panel = self.panel(*arguments)
        panel.open(page)
        return panel

    def found_by_axe(self):
        """What axe-core, which is in the page by then, finds: rule and some of the places."""
        found = self.driver.execute_async_script(
            "axe.run().then(arguments[0], (error) => arguments[0]({violations: [{id: String(error), nodes: []}]}))"
        )
        return [(each["id"], [node["html"][:160] for node in each["nodes"]][:3]) for each in found["violations"]]


class WhatMatters(PageTest):
    def test_overview_answers_the_four_questions(self):
        panel = self.opened()
        panel.until_text("not measured", ".answer.network")
        panel.until_text("10 services", ".answer.stream")
        panel.press("Measure")
        panel.until_text("stream present", ".answer.network")
        panel.until("return /[45]\\.\\d+ Mbit\\/s/.test(document.querySelector('.answer.reception').innerText)")
        panel.press("Play Tessary Grün")
        panel.until_text("plays Tessary Grün", ".answer.picture")
        self.assertIn("MPEG-2, 720 × 576", panel.text(".answer.picture"))

    def test_instrument_that_does_not_answer_is_shown_and_comes_back(self):
        panel = self.opened("overview", "--quiet-line")
        panel.until_text("the instrument does not answer", ".banner")
        panel.until_text("look whether it runs", ".banner")
        self.driver.execute_script(axe_source())
        self.assertEqual(self.found_by_axe(), [])
        panel.instrument.answer(True)
        panel.until("return document.querySelector('.banner').hidden")

    def test_panel_with_a_token_asks_for_it(self):
        panel = self.panel("--token", "open sesame")
        self.driver.get(panel.url)
        panel.until_text("This panel asks for its token", "h1")
        self.driver.execute_script(axe_source())
        self.assertEqual(self.found_by_axe(), [])
        panel.js("document.querySelector('input').value = 'open sesame'")
        panel.press("Open the panel")
        panel.until_text("connected", ".chips")

    def test_panel_that_goes_is_shown_and_the_page_finds_it_again(self):
        panel = self.opened()
        port = panel.server.server_port
        panel.stop()
        panel.until_text("The panel does not answer", ".banner")
        panel.start("--port", str(port))
        panel.until("return document.querySelector('.banner').hidden")

    def test_panel_that_hangs_is_shown_and_the_page_finds_it_again(self):
        panel = self.opened()
        panel.server.awake.clear()
        panel.until_text("The panel does not answer", ".banner")
        panel.server.awake.set()
        panel.until("return document.querySelector('.banner').hidden")

    def test_command_at_work_is_shown_with_its_progress_and_who_waits(self):
        panel = self.opened()
        panel.instrument.test({"busy": "export --wait 600"})
        panel.until_text("export --wait 600", ".strip")
        self.assertIn("by the test", panel.text(".strip"))
        self.assertIn("40 of 100 MB", panel.text(".strip"))
        self.assertIn("waiting", panel.text(".strip"))
        self.assertAlmostEqual(panel.js("return document.querySelector('.strip progress').value"), 0.4)
        panel.press("Withdraw ping 192.168.77.1")
        panel.until("return document.querySelector('.strip .job') === null")

    def test_refused_command_tells_cause_and_remedy(self):
        panel = self.opened("commands")
        panel.js("document.querySelector('.commands input.mono').value = 'command --output \"rm -rf /\"'")
        panel.press("Run")
        panel.until_text("command is off", ".outcome")
        self.assertIn("--allow-command", panel.text(".outcome"))


class Pages(PageTest):
    def test_all_open_without_a_complaint_of_the_browser(self):
        panel = self.opened()
        panel.instrument.set_measuring(True)
        for page in PAGES:
            panel.go(page)
        self.assertEqual(panel.complaints(), [])

    def test_none_is_wider_than_the_window(self):
        panel = self.opened()
        panel.instrument.set_measuring(True)
        for width in WIDTHS:
            panel.size(width)
            for page in PAGES:
                with self.subTest(page=page, width=width):
                    panel.go(page)
                    self.assertLessEqual(panel.js("return document.documentElement.scrollWidth"), width)

    def test_axe_finds_nothing(self):
        panel = self.opened()
        panel.instrument.set_measuring(True)
        panel.instrument.test({"busy": "export"})
        for width, theme in ((1280, "light"), (1280, "dark"), (360, "light")):
            panel.size(width)
            panel.theme(theme)
            self.driver.execute_script(axe_source())
            for page in PAGES:
                with self.subTest(page=page, theme=theme, width=width):
                    panel.go(page)
                    if page == "stream":
                        panel.press("Fetch")
                        panel.until("return document.querySelector('.tree [role=treeitem]') !== null")
                    self.assertEqual(self.found_by_axe(), [])

    def test_axe_finds_nothing_in_the_dialogs(self):
        panel = self.opened("recorder")
        for theme in ("light", "dark"):
            panel.theme(theme)
            self.driver.execute_script(axe_source())
            for opened in ("Keys and name", "Stop"):
                with self.subTest(theme=theme, opened=opened):
                    panel.press(opened)
                    panel.until("return document.querySelector('dialog[open]') !== null")
                    self.assertEqual(self.found_by_axe(), [])
                    self.key(Keys.ESCAPE)
                    panel.until("return document.querySelector('dialog') === null")

    def test_every_control_is_reached_by_the_keyboard(self):
        panel = self.opened()
        for page in PAGES:
            with self.subTest(page=page):
                panel.go(page)
                panel.js(
                    "document.querySelectorAll('details').forEach((each, at) => { each.open = at === 0; });"
                    "document.activeElement.blur()"
                )
                wanted = panel.js(
                    f"window.wanted = (() => {{ {CONTROLS} }})(); window.reached = new Set(); return window.wanted.length"
                )
                for _ in range(wanted + 40):
                    self.key(Keys.TAB)
                    panel.js("window.reached.add(document.activeElement)")
                self.assertEqual(
                    panel.js(
                        "return window.wanted.filter((each) => !window.reached.has(each))"
                        ".map((each) => each.outerHTML.slice(0, 120))"
                    ),
                    [],
                )

    def test_keys_lead_to_pages_and_are_listed(self):
        panel = self.opened()
        self.key("4")
        panel.until("return location.hash === '#reception'")
        self.key("?")
        panel.until_text("Reception", "dialog")
        self.assertIn("pause the plots", panel.text("dialog"))
        self.key(Keys.ESCAPE)
        panel.until("return document.querySelector('dialog') === null")
        panel.go("commands")
        panel.js("document.querySelector('.commands input.mono').focus()")
        self.key("2")
        self.assertEqual(panel.js("return [location.hash, document.activeElement.value]"), ["#commands", "2"])

    def key(self, key):
        ActionChains(self.driver).send_keys(key).perform()

    def test_names_of_the_stream_are_never_taken_as_html(self):
        panel = self.opened("stream", "--hostile")
        panel.instrument.run(["play", "2"], "test")
        for page in PAGES:
            panel.go(page)
        panel.go("stream")
        panel.until_text("<script>", ".page.stream")
        self.assertEqual(panel.js("return document.querySelectorAll('main img:not(.screen img), main script').length"), 0)
        self.assertNotIn("owned", panel.js("return document.title"))
        self.assertEqual(panel.complaints(), [])

    def test_real_instrument_has_its_picture_on_its_own_display_and_no_desk(self):
        panel = self.opened("picture", "--real")
        panel.until_text("its picture is on its display", ".page.picture")
        self.assertEqual(panel.js("return document.querySelectorAll('.screen img').length"), 0)
        panel.go("desk")
        panel.until_text("with a virtual instrument only", ".page.desk")


class StreamPage(PageTest):
    def test_server_of_each_protocol_is_set_and_scanned(self):
        panel = self.opened("stream")
        panel.js(
            "const [protocol] = document.querySelectorAll('.page.stream select'); protocol.value = 'rtp+t2mi';"
            "protocol.dispatchEvent(new Event('change'))"
        )
        panel.press("Only set it")
        panel.until_text("the next scan or play uses it", ".page.stream")
        self.assertEqual(panel.instrument.ran[-1], ["server", "rtp+t2mi://239.0.0.1:1234?pid=4096&plp=1"])
        panel.press("Set and scan")
        panel.until_text("10 services", ".page.stream .outcome")
        self.assertEqual(panel.instrument.ran[-1], ["scan", "rtp+t2mi://239.0.0.1:1234?pid=4096&plp=1", "--wait", "12"])

    def test_service_shows_its_pids_and_plays(self):
        panel = self.opened("stream")
        panel.press("PIDs of Tessary Grün")
        panel.until_text("257 (0x101)", ".page.stream")
        panel.press("Play Tessary Grün")
        panel.until_text("plays", ".page.stream tr.chosen")
        self.assertEqual(panel.instrument.ran[-1], ["play", "2"])

    def test_part_of_a_table_shows_its_bytes_and_a_byte_its_part(self):
        panel = self.opened("stream")
        panel.press("Fetch")
        panel.until("return document.querySelector('.tree [role=treeitem]') !== null")
        panel.js(
            "[...document.querySelectorAll('.tree .node')].find((each) => each.innerText.includes('section_length')).click()"
        )
        self.assertEqual(panel.text(".hex .pairs .marked").split(), ["f0", "a1"])
        panel.js("document.querySelectorAll('.hex .pairs span')[0].click()")
        self.assertIn("table_id", panel.text(".tree [aria-selected=true]"))


class ReceptionPage(PageTest):
    def test_plots_have_the_history_and_follow(self):
        panel = self.opened("reception")
        panel.until("return document.querySelectorAll('.page.reception canvas').length > 0")
        panel.instrument.set_measuring(True)
        first = panel.until("return document.querySelector('.tools .readout').textContent")
        panel.until("return document.querySelector('.tools .readout').textContent !== arguments[0]", first)
        panel.until("return /Mbit/.test(document.querySelector('figcaption .readout').textContent)")

    def test_time_without_rows_is_neither_a_line_nor_an_absence(self):
        panel = self.opened("reception")
        rows, absences = self.driver.execute_async_script(
            """import('/app/history.js').then(async ({History}) => {
            const rows = [[100, 0, null], [101, 0, null], [200, 1, 5], [201, 1, 5]];
            const answer = {columns: ['time', 'present', 'bit_rate'], rows};
            const fetched = window.fetch;
            window.fetch = async () => new Response(JSON.stringify(answer), {headers: {'Content-Type': 'application/json'}});
            const history = new History(300);
            await history.load(new Date(0), new Date(300000));
            window.fetch = fetched;
            arguments[0]([history.rows.map((row) => [+row[0], row[1], row[2]]),
                history.absences().map((pair) => pair.map(Number))]);
        })"""
        )
        self.assertEqual(rows, [[100000, 0, None], [101000, 0, None], [101001, None, None], [200000, 1, 5], [201000, 1, 5]])
        self.assertEqual(absences, [[100000, 101001]])
        self.assertEqual(panel.complaints(), [])

    def test_pause_holds_the_window_and_zoom_narrows_it(self):
        panel = self.opened("reception")
        panel.until("return document.querySelectorAll('.page.reception canvas').length > 0")
        panel.press("Pause")
        held = panel.text(".tools .readout")
        panel.press("zoom in")
        panel.until("return document.querySelector('.tools .readout').textContent !== arguments[0]", held)
        panel.press("Back to now")
        panel.until_text("Pause", "[title=p]")

    def test_keyboard_and_mouse_pan_and_zoom_all_plots(self):
        panel = self.opened("reception")
        panel.until("return document.querySelectorAll('.page.reception .plots canvas').length > 0")
        panel.js("document.querySelector('.page.reception .plots .plot').focus()")
        now = panel.text(".tools .readout")
        ActionChains(self.driver).send_keys(Keys.ARROW_LEFT).perform()
        panel.until_text("Back to now", "[title=p]")
        self.assertNotEqual(panel.text(".tools .readout"), now)
        ActionChains(self.driver).send_keys("0").perform()
        panel.until_text("Pause", "[title=p]")
        plot = self.driver.find_element("css selector", ".page.reception .plots .plot")
        ActionChains(self.driver).move_to_element_with_offset(plot, -50, 0).click_and_hold().move_by_offset(
            60, 0
        ).move_by_offset(60, 0).release().perform()
        panel.until_text("Back to now", "[title=p]")

    def test_course_is_offered_as_csv_of_the_window(self):
        panel = self.opened("reception")
        panel.until("return document.querySelector('a[download]').href.includes('/api/history.csv?from=')")

    def test_marks_are_listed_and_shown(self):
        panel = self.opened("reception")
        panel.until_text("sender: 3 continuity errors a second", ".page.reception")
        panel.press("Show mark 1")
        panel.until_text("Back to now", "[title=p]")


class PicturePage(PageTest):
    def test_picture_and_levels_come_and_end_with_the_page(self):
        panel = self.opened("picture")
        panel.until("return document.querySelector('.screen img')?.naturalWidth === 720")
        panel.until_text("dBFS", ".meters")
        self.assertEqual(panel.js("return document.querySelectorAll('.meters meter').length"), 2)
        panel.press("Listen")
        panel.until("return document.querySelector('[title=l]').innerText === 'Listening'")
        panel.go("overview")
        panel.until("return document.querySelector('.screen img') === null")
        self.assertTrue(panel.server.all_flows_end())


class LinePage(PageTest):
    def test_both_ways_are_shown_as_text_and_bytes_and_searched(self):
        panel = self.opened("line")
        panel.until_text("HELLO !..", ".log")
        self.assertIn("48 45 4c 4c 4f", panel.text(".log"))
        panel.js(
            "const it = document.querySelector('.page.line input'); it.value = '48 45 4c 4c';"
            "it.dispatchEvent(new Event('input'))"
        )
        panel.until("return document.querySelectorAll('.logtable tr').length === 1")

    def test_questions_of_every_second_can_be_left_out(self):
        panel = self.opened("line")
        panel.instrument.set_measuring(True)
        panel.until_text("getethernetmes?", ".log")
        panel.js("document.querySelector('.page.line input[type=checkbox]').click()")
        self.assertNotIn("getethernetmes?", panel.text(".log"))
        self.assertIn("HELLO !..", panel.text(".log"))

    def test_commands_and_log_of_the_daemon_are_shown(self):
        panel = self.opened("line")
        panel.press("Commands that the daemon ran")
        panel.until_text("nmcli networking on", ".log")
        panel.press("Daemon's log")
        panel.until_text("successfully deleted", ".log")


class DeskPage(PageTest):
    def test_senders_are_started_and_stopped(self):
        panel = self.opened("desk")
        panel.until_text("demo.ts", ".page.desk table")
        panel.press("Start sender")
        panel.until("return document.querySelectorAll('.page.desk table')[0].querySelectorAll('tbody tr').length === 2")
        self.assertEqual(panel.instrument.desk["senders"][1]["url"], "udp://239.0.0.1:1234")
        panel.press("Stop sender of demo.ts")
        panel.until("return document.querySelectorAll('.page.desk table')[0].querySelectorAll('tbody tr').length === 1")

    def test_cable_daemon_and_programs_are_turned(self):
        panel = self.opened("desk")
        panel.press("Pull it out")
        panel.until_text("out", ".page.desk dd .bad")
        panel.press("Kill the daemon")
        panel.until_text("does not run", ".page.desk")
        panel.press("Set", ".page.desk")
        panel.until_text("set", ".page.desk .outcome")
        self.assertEqual(
            sorted(panel.instrument.desk["dab"]), ["answer_after_s", "die_at", "never_opens", "open_after_s", "pieces"]
        )
        panel.press("smcroute real again")
        panel.until_text("All programs behave as they are", ".page.desk")


class CommandsPage(PageTest):
    def test_all_rows_of_the_protocol_are_described_and_can_be_typed(self):
        panel = self.opened("commands")
        self.assertEqual(panel.js("return document.querySelectorAll('.command').length"), 34)
        undescribed = panel.js(
            "return [...document.querySelectorAll('.command .about')].filter((each) => each.textContent.length < 60).length"
        )
        self.assertEqual(undescribed, 0)
        for row in range(1, 35):
            self.assertTrue(
                panel.js(
                    f"document.querySelector('[data-key=tool-{row}]').click();"
                    "return document.querySelector('.commands input.mono').value"
                )
            )
        panel.js("document.querySelector('.commands input.mono').value = 'ping 192.168.77.1'")
        panel.press("Run")
        panel.until_text("192.168.77.1", ".page.commands .outcome")

    def test_rows_are_those_of_the_protocol_page(self):
        subprocess.run([TREE / "client" / "panel" / "make-rows", "--check"], check=True)

    def test_line_is_taken_apart_as_a_shell_does(self):
        self.opened("commands")
        words = self.driver.execute_async_script(
            """import('/app/words.js').then(({ wordsOf }) => arguments[0]([
            wordsOf("tessaryctl raw 'a b' \\"c\\\\\\"d\\" e\\\\ f"), wordsOf("  play   2 "), wordsOf("raw ''")]))"""
        )
        self.assertEqual(words, [["raw", "a b", 'c"d', "e f"], ["play", "2"], ["raw", ""]])


class Quantities(PageTest):
    def test_are_written_as_tessaryctl_writes_them(self):
        panel = self.opened()
        said = self.driver.execute_async_script(
            """import('/app/units.js').then((u) => arguments[0]([
            u.bitRateText(5159708), u.bitRateText(999.4), u.bitRateText(99960000),
            u.byteCount(18800000), u.byteCount(12), u.microsecondsText(2105), u.microsecondsText(998), u.pidText(257),
            u.durationText(3725), u.durationText(65),
            u.countText(1234567), u.withoutZeros('5.00 Mbit/s'), u.withoutZeros('10 ms'), u.withoutZeros('2.50 ms'),
            u.bitRateText(null)]))"""
        )
        self.assertEqual(
            said,
            [
                "5.16 Mbit/s",
                "999 bit/s",
                "100 Mbit/s",
                "18.8 MB",
                "12 bytes",
                "2.10 ms",
                "998 µs",
                "257 (0x101)",
                "1:02:05",
                "1:05",
                "1,234,567",
                "5 Mbit/s",
                "10 ms",
                "2.5 ms",
                "–",
            ],
        )
        self.assertIsNotNone(panel)


if __name__ == "__main__":
    unittest.main()
