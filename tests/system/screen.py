"""What the screen says of a page, and what becomes of a result, with raw bytes."""

import json
import re
import threading
import unittest
from html import unescape

from jxscreen import CSP, ScreenCase
from jxtest import SOURCE


class Pages(ScreenCase):
    def test_document_names_its_script_and_style_and_nothing_of_elsewhere(self):
        self.drive()
        self.show()
        answer = self.get("/")
        self.assertEqual(answer.status, 200)
        self.assertEqual(answer.headers["content-type"], "text/html; charset=utf-8")
        self.assertEqual(answer.headers["content-security-policy"], CSP)
        self.assertIn('<main id="screen" tabindex="-1"></main>', answer.text)
        self.assertIn("<title>Test &lt;app&gt;</title>", answer.text)
        self.assertEqual(re.findall(r'(?:src|href)="([^"]*)"', answer.text),
                         ["data:,", "/pages/style.css", "/pages/screen.js"])
        self.assertNotIn("<script>", answer.text)

    def test_page_on_screen_has_its_members_and_no_others(self):
        self.drive()
        screen = self.show(vars={"name": "<b>&"})
        self.assertEqual(list(screen), ["id", "page", "sync", "vars", "html"])
        self.assertLess(0, screen["id"])
        self.assertLess(screen["id"], 2 ** 53)
        self.assertEqual(screen["page"], "a.html")
        self.assertIs(screen["sync"], True)
        self.assertEqual(screen["vars"], {"name": "<b>&"})
        self.assertEqual(screen["html"], "<html><body><p>A &lt;b&gt;&amp;</p></body></html>")
        self.assertEqual(self.get("/api/screen").headers["content-type"], "application/json")
        self.assertEqual(self.get("/api/screen").headers["cache-control"], "no-store")

    def test_markup_from_outside_stays_text_but_for_the_text_variable(self):
        self.drive()
        html = self.show("text.html", vars={"text": "<b>bold</b>", "name": "<script>1</script>"})["html"]
        self.assertEqual(html, "<body><b>bold</b>|&lt;b&gt;bold&lt;/b&gt;|&lt;script&gt;1&lt;/script&gt;</body>")
        self.assertIn('libzorguiprt: text.html: line 1: <?html name?>: only "text" is HTML', self.stderr())

    def test_script_changes_reach_the_browser_and_the_program(self):
        self.drive()
        screen = self.show("script.html", vars={"name": "<é😀>", "gone": "x"})
        self.assertEqual(screen["html"], "<body>&lt;é😀&gt;</body>")
        self.assertEqual(screen["vars"], {"name": "<é😀>", "made": "by script"})
        self.post(screen["id"], {"result": 0, "vars": {"name": None, "more": "😀"}})
        self.assertEqual(self.driver.next(), {"returned": "script.html", "result": 0,
                                              "vars": {"made": "by script", "more": "😀"}})

    def test_broken_instructions_are_left_out_and_told_on_standard_error(self):
        self.drive()
        self.assertEqual(self.show("broken.html")["html"], "<body>123\n")
        lines = self.stderr().splitlines()
        self.assertEqual(len(lines), 3, lines)
        self.assertIn("broken.html: line 1: <?js …?> failed: ReferenceError", lines[0])
        self.assertIn("broken.html: line 1: <?unknown …?>: nothing is registered", lines[1])
        self.assertIn("broken.html: line 2: an instruction without an end", lines[2])

    def test_missing_page_returns_at_once_with_a_line_and_leaves_the_variables(self):
        self.drive()
        for page in ("missing.html", "../a.html", "/etc/passwd", "", "sub"):
            self.driver.tell(sync=page, vars={"name": "kept"})
            self.assertEqual(self.driver.next(), {"returned": page, "result": -1, "vars": {"name": "kept"}})
        self.assertIn("libzorguiprt: cannot read the page missing.html in", self.stderr())
        self.assertEqual(len(self.stderr().splitlines()), 5)

    def test_missing_page_shown_asynchronously_has_another_in_its_place_that_can_be_left(self):
        self.drive()
        self.driver.tell(**{"async": "missing<b>.html", "vars": {"name": "v"}})
        self.assertEqual(self.driver.next(), {"shown": "missing<b>.html"})
        screen = self.screen()
        self.assertEqual((screen["page"], screen["sync"], screen["vars"]), ("missing<b>.html", False, {"name": "v"}))
        self.assertIn("The page missing&lt;b&gt;.html cannot be read:<br>No such file or directory.<br>", screen["html"])
        self.assertEqual(re.findall('<button [^>]*data-result="(.*?)"', screen["html"]), ["-1", "1"])
        self.assertRegex(self.stderr(), "^libzorguiprt: cannot read the page missing<b>.html in .*: No such file or directory\n$")
        self.assertEqual(self.post(screen["id"], {"result": -1}).status, 204)
        for result in (1, -1):
            self.assertEqual(self.driver.next(), {"began": "missing<b>.html"})
            self.assertEqual(self.driver.next(), {"reported": "missing<b>.html", "type": 0, "result": result})
        self.assertEqual(self.post(screen["id"], {"result": -1}).status, 409)

    def test_page_that_ends_for_a_missing_one_takes_no_result(self):
        self.drive()
        self.driver.tell(**{"async": "a.html"})
        page_id = self.screen()["id"]
        self.driver.tell(sync="missing.html")
        self.assertEqual(self.driver.next(), {"shown": "a.html"})
        self.assertEqual(self.driver.next()["result"], -1)
        self.assertEqual(self.post(page_id, {"result": 1}).status, 409)


class VeryLongVariables(ScreenCase):
    """The program's own pages with what a peer may send at most, about 10 MB."""

    SIZE = 10_000_000
    HEAD = "<span style='color:#f00'><b>Cloud not reachable</b></span><br>"
    TAIL = "</div><b>Status</b>:<div class='text_nowrap_tick'>500 (no)</div>"

    def setUp(self):
        super().setUp()
        self.drive(JXPLATFORM_PAGES=str(SOURCE / "pages"))
        self.last_id = 0

    def bring(self, page, **variables):
        """The HTML of `page`, all scripts of which have to succeed, and which a slow browser has to get in time."""
        screen = self.show(page, self.last_id, vars=variables)
        self.last_id = screen["id"]
        self.assertEqual(self.stderr(), "")
        self.assertLess(len(json.dumps(screen)), 1_000_000)
        return screen["html"]

    def press(self, page, result, **variables):
        """Returns `result`; the variables that the program gets."""
        self.assertEqual(self.post(self.last_id, {"result": result, "vars": variables}).status, 204)
        returned = self.driver.next()
        self.assertEqual((returned["returned"], returned["result"]), (page, result))
        return returned["vars"]

    def settings(self, text):
        return self.bring("prx-settings.html", cloud_env_list=text, cloud_env="n1", cert="jx-basic", auth_ex_support="1")

    def test_settings_offer_the_first_environments_and_return_one(self):
        count = self.SIZE // 40
        text = json.dumps([{"name": f"n{i}", "certs": ["auth-ex", "jx-basic"]} for i in range(count)])
        html = self.settings(text)
        names = re.findall(r'name="cloud_env" value="(.*?)"', html)
        self.assertGreater(len(names), 500)
        self.assertEqual(names, [f"n{i}" for i in range(len(names))])
        self.assertEqual(re.findall(r'data-for="cloud_env" data-value="(.*?)"', html), names)
        self.assertIn("The proxy offers more than can be shown.", html)
        self.assertNotIn("offers none", html)
        returned = self.press("prx-settings.html", 0, cloud_env="n3", cert="auth-ex")
        self.assertEqual((returned["cloud_env"], returned["cert"]), ("n3", "auth-ex"))
        self.assertEqual([entry["name"] for entry in json.loads(returned["cloud_env_list"])], names)

    def test_settings_tell_entries_by_what_is_outside_of_strings(self):
        for begin in ('],[{"\\', '\\"},{"name":"x"},', "}]é😀"):
            given = [f"{begin}{i}" for i in range(2000)]
            html = self.settings(json.dumps([{"certs": [], "name": name} for name in given], ensure_ascii=False))
            names = [unescape(name) for name in re.findall(r'name="cloud_env" value="(.*?)"', html)]
            self.assertGreater(len(names), 400)
            self.assertEqual(names, given[:len(names)])
            self.press("prx-settings.html", -1)

    def test_settings_survive_entries_of_any_kind(self):
        for text in ('[{"name":"' + "<" * self.SIZE + '"}]', '[{"certs":["' + '","'.join(map(str, range(50000))) + '"]}]',
                     "[" * self.SIZE, "{}," * 100000, '["' + "\\" * 300000, "x" * 300000):
            html = self.settings(text)
            self.assertIn("The proxy offers more than can be shown.", html)
            self.assertNotIn("<input", html)
            self.press("prx-settings.html", -1)

    def test_result_shows_the_beginning_and_the_end(self):
        for piece, size in (("<", self.SIZE), ("é😀", self.SIZE), ("<br>", 200000), ("<script>alert(1)</script>", 200000),
                            ("<span style='color:#f00'>Warning:", 200000)):
            text = self.HEAD + piece * (size // len(piece)) + self.TAIL
            html = self.bring("result.html", text=text)
            self.assertIn("<b>Cloud not reachable</b>", html)
            self.assertIn("<b>Status</b>:<div class='text_nowrap_tick'>500 (no)</div>", html)
            self.assertNotIn("<script", html)
            self.assertNotIn("&lt;br", html)
            self.assertNotIn("\N{REPLACEMENT CHARACTER}", html)
            self.press("result.html", 0)

    def test_long_log_keeps_its_errors_and_its_lines_whole(self):
        def line(number):
            if number % 100 == 50:
                return f"<span style='color:#f00'>Error: {number}.zip: is not a zip archive<br></span>"
            return f"Unpacked a rather long name of a file that stands in this package {number}<br>"
        for first in range(0, 90, 15):  # other places of a line meet the cut
            text = "<b>Download successful</b>" + "-" * first + "<br>" + "".join(map(line, range(2000)))
            html = self.bring("result.html", text=text)
            message = re.search(r'data-announce="assertive">(.*?)</section>', html, re.S)[1]
            self.assertEqual(message.count('<span class="bad">'), message.count("</span>"))
            found = re.findall(r'<span class="bad">Error: (\d+)\.zip: is not a zip archive<br></span>', message)
            self.assertEqual([int(number) for number in found], list(range(50, 2000, 100)))
            lines = re.sub(r'<span class="bad">.*?</span>', "", message).split("<br>")[1:-1]
            self.assertLessEqual({re.sub(r"\d+$", "", text) for text in lines},
                                 {"Unpacked a rather long name of a file that stands in this package ", "…"})
            self.press("result.html", 0)

    def test_waiting_shows_the_beginning(self):
        for piece in ("<", "<br>", "<script>alert(1)</script>", "é😀"):
            for first in range(12):  # each place of a piece meets the cut
                html = self.bring("wait.html", text="<b>Checking</b>" + "-" * first + piece * (20000 // len(piece)))
                self.assertIn("<b>Checking</b>", html)
                self.assertNotIn("<script", html)
                self.assertNotIn("\N{REPLACEMENT CHARACTER}", html)
                self.press("wait.html", 0)

    def test_information_is_shown_with_its_beginning(self):
        html = self.bring("prx-info.html", version="<" * self.SIZE, device_type="é" * self.SIZE, auth_ex_support="1")
        self.assertEqual(re.findall(r"<dd.*?>(.*?)</dd>", html), ["&lt;" * 1000 + "…", "é" * 1000 + "…", "supported"])
        self.press("prx-info.html", -1)

    def test_text_that_fits_is_shown_whole(self):
        text = "a" * 65000
        self.assertIn(text, self.bring("result.html", text=text))


class Results(ScreenCase):
    def test_synchronous_page_returns_result_and_variables_once(self):
        self.drive()
        page_id = self.show(vars={"name": "old", "gone": "x"})["id"]
        answer = self.post(page_id, {"result": 5, "vars": {"name": "new", "gone": None, "never": None}})
        self.assertEqual((answer.status, answer.body), (204, b""))
        self.assertEqual(self.driver.next(), {"returned": "a.html", "result": 5, "vars": {"name": "new"}})
        self.assertEqual(self.post(page_id, {"result": 6}).status, 409)
        self.assertEqual(self.screen()["id"], page_id, "the page stays on screen until the next one")

    def test_result_without_variables_leaves_them(self):
        self.drive()
        page_id = self.show(vars={"name": "v"})["id"]
        self.assertEqual(self.post(page_id, {"result": -1}).status, 204)
        self.assertEqual(self.driver.next(), {"returned": "a.html", "result": -1, "vars": {"name": "v"}})

    def test_page_that_returns_by_itself_does_so_without_a_browser(self):
        self.drive()
        self.driver.tell(sync="auto.html", vars={"name": "v"})
        self.assertEqual(self.driver.next(), {"returned": "auto.html", "result": 5, "vars": {"name": "v"}})
        self.assertEqual(self.screen()["page"], "auto.html", "it stays on screen")

    def test_replaced_page_takes_no_result(self):
        self.drive()
        self.driver.tell(sync="a.html", thread=True)
        first = self.screen()["id"]
        second = self.show("b.html", after=first)["id"]
        self.assertGreater(second, first)
        self.assertEqual(self.driver.next(), {"returned": "a.html", "result": -1, "vars": {}})
        answer = self.post(first, {"result": 1})
        self.assertEqual(answer.status, 409)
        self.assertTrue(answer.text.strip())
        self.assertEqual(self.post(second, {"result": 1}).status, 204)
        self.assertEqual(self.driver.next()["result"], 1)

    def test_two_browsers_pressing_at_once_one_is_heard(self):
        self.drive()
        after = 0
        for _ in range(20):
            after = page_id = self.show(after=after)["id"]
            answers = [None] * 4
            barrier = threading.Barrier(len(answers))

            def press(index):
                barrier.wait()
                answers[index] = self.post(page_id, {"result": index}).status

            threads = [threading.Thread(target=press, args=(i,)) for i in range(len(answers))]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            self.assertEqual(sorted(answers), [204, 409, 409, 409])
            self.assertEqual(self.driver.next()["result"], answers.index(204))
        self.assertTrue(self.driver.lines.empty())

    def test_asynchronous_page_stays_and_reports_until_left(self):
        self.drive()
        self.driver.tell(**{"async": "a.html"})
        self.assertEqual(self.driver.next(), {"shown": "a.html"})
        screen = self.screen()
        self.assertIs(screen["sync"], False)
        for result in (0, 7, -1):
            self.assertEqual(self.post(screen["id"], {"result": result, "vars": {"ignored": "x"}}).status, 204)
            self.assertEqual(self.driver.next(), {"began": "a.html"})
            self.assertEqual(self.driver.next(), {"reported": "a.html", "type": 0, "result": result})
        self.assertEqual(self.post(screen["id"], {"result": -1}).status, 409)
        self.assertEqual(self.screen()["id"], screen["id"])

    def test_replaced_asynchronous_page_reports_nothing_more(self):
        self.drive()
        self.driver.tell(**{"async": "a.html"})
        first = self.screen()["id"]
        second = self.show("b.html", after=first)["id"]
        self.assertEqual(self.driver.next(), {"shown": "a.html"})
        self.assertEqual(self.post(first, {"result": -1}).status, 409)
        self.assertEqual(self.post(second, {"result": 2}).status, 204)
        self.assertEqual(self.driver.next(), {"returned": "b.html", "result": 2, "vars": {}})

    def test_next_page_waits_for_the_callback_that_runs(self):
        self.drive()
        self.driver.tell(**{"async": "a.html", "hold": True})
        page_id = self.screen()["id"]
        self.assertEqual(self.post(page_id, {"result": -1}).status, 204)
        self.driver.tell(sync="b.html", thread=True)
        self.assertEqual(self.driver.next(), {"shown": "a.html"})
        self.assertEqual(self.driver.next(), {"began": "a.html"})
        self.assertEqual(self.get(f"/api/screen?after={page_id}&wait=1").status, 204)
        self.driver.tell(release=True)
        self.assertEqual(self.driver.next(), {"reported": "a.html", "type": 0, "result": -1})
        self.assertEqual(self.screen(page_id)["page"], "b.html")

    def test_callback_may_show_a_page_itself(self):
        self.drive()
        self.driver.tell(**{"async": "a.html", "then": "b.html"})
        page_id = self.screen()["id"]
        self.assertEqual(self.post(page_id, {"result": 1}).status, 204)
        inner = self.screen(page_id)
        self.assertEqual(inner["page"], "b.html")
        self.assertEqual(self.post(inner["id"], {"result": 4}).status, 204)
        self.assertEqual([self.driver.next() for _ in range(4)],
                         [{"shown": "a.html"}, {"began": "a.html"}, {"returned": "b.html", "result": 4, "vars": {}},
                          {"reported": "a.html", "type": 0, "result": 1}])

    def test_callback_of_a_synchronous_page_ends_it(self):
        self.drive()
        self.driver.tell(sync="a.html", vars={"name": "v"}, polls=3)
        self.assertEqual(self.driver.next(), {"returned": "a.html", "result": -1, "vars": {"name": "v"}})
        self.assertEqual(self.post(self.screen()["id"], {"result": 1}).status, 409)


if __name__ == "__main__":
    unittest.main()
