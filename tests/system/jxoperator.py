"""The operator: sees the program's pages and answers them through the screen's requests."""

import http.client
import json
import shutil
import urllib.parse

import jxtest


class Operator:
    def __init__(self, case):
        """The operator of `case`'s program, which must have been started with `case.env`."""
        path = case.root / "screen.url"
        url = jxtest.wait_until(lambda: path.exists() and path.read_text().strip(), what="the screen's URL")
        self.case = case
        self.address = urllib.parse.urlsplit(url).netloc
        self.last = {"id": 0}  # the page that was seen last

    def request(self, method, path, body=None):
        connection = http.client.HTTPConnection(self.address, timeout=60)
        try:
            connection.request(method, path, body)
            answer = connection.getresponse()
            return answer.status, answer.read()
        finally:
            connection.close()

    def next(self):
        """Waits for a page that has not been seen and returns it; a page that was replaced quickly may be missed."""
        for _ in range(4):
            status, body = self.request("GET", f"/api/screen?after={self.last['id']}&wait=30")
            if status == 200:
                self.last = json.loads(body)
                return self.last
            self.case.assertEqual(status, 204)
        return self.case.fail(f"for two minutes nothing but {self.last}")

    def see(self, page):
        """Waits for the next page, which must be `page`, and returns it."""
        self.case.assertEqual(self.next()["page"], page)
        return self.last

    def see_past(self, passing, page):
        """Waits for `page`, before which only the `passing` ones may be seen, and returns it."""
        while self.next()["page"] != page:
            self.case.assertIn(self.last["page"], passing)
        return self.last

    def answer(self, result, **variables):
        """Ends the page that was seen last with a result."""
        body = json.dumps({"result": result, "vars": variables})
        status, reason = self.request("POST", f"/api/screen/{self.last['id']}/result", body)
        self.case.assertEqual(status, 204, reason)

    def press_if_open(self, result):
        """Ends the page that was seen last with a result; false when it takes none any more."""
        status, reason = self.request("POST", f"/api/screen/{self.last['id']}/result", json.dumps({"result": result}))
        self.case.assertIn(status, (204, 409), reason)
        return status == 204

    def press_until_another(self, result):
        """Presses the page that was seen last, and pages of its name after it, once a second until another stands there.

        For a page whose press has no effect before what it ends has begun."""
        name = self.last["page"]
        for _ in range(120):
            self.press_if_open(result)
            status, body = self.request("GET", f"/api/screen?after={self.last['id']}&wait=1")
            if status == 200:
                self.last = json.loads(body)
                if self.last["page"] != name:
                    return self.last
        return self.case.fail(f"for two minutes {result} changed nothing about {self.last}")

    def choose(self, page, result, **variables):
        """Waits for `page` and answers it; returns the page."""
        screen = self.see(page)
        self.answer(result, **variables)
        return screen


class OperatorCase(jxtest.Case):
    def use_pages_without(self, page):
        """Has the programs started from now on miss a page."""
        pages = self.root / "pages"
        shutil.copytree(jxtest.SOURCE / "pages", pages)
        (pages / page).unlink()
        self.env["JXPLATFORM_PAGES"] = str(pages)

    def start_terminal(self, **kwargs):
        """Starts the program with its screen; its operator is `self.operator`."""
        self.env["JXPLATFORM_SCREEN"] = "127.0.0.1:0"
        self.program = self.start(jxtest.BIN / "jxdownloader", **kwargs)
        self.operator = Operator(self)
        return self.operator
