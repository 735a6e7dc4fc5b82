"""The operator of a running terminal: sees its pages and presses their buttons over the screen's API."""

import json
import urllib.request

import jxtest


class Terminal:
    """A running jxdownloader without arguments."""

    def __init__(self, case, **env):
        case.env.update(JXPLATFORM_SCREEN="127.0.0.1:0", JXPLATFORM_PAGES=str(jxtest.SOURCE / "pages"))
        self.process = case.start(jxtest.BIN / "jxdownloader", env={**case.env, **env})
        self.url_file = case.root / "screen.url"
        self.last_id = 0

    def next(self, page):
        """Waits for the next page, which is to be `page`; its variables. Its HTML is then in `html`."""
        url = jxtest.wait_until(lambda: self.url_file.exists() and self.url_file.read_text().strip(), 60, "the screen's URL")
        self.base = url.rstrip("/")

        def newest():
            with urllib.request.urlopen(f"{self.base}/api/screen?after={self.last_id}&wait=20", timeout=60) as answer:
                return json.load(answer) if answer.status == 200 else None
        screen = jxtest.wait_until(newest, 60, f"{page} on the screen")
        assert screen["page"] == page, (screen["page"], page, screen["vars"])
        self.last_id, self.html = screen["id"], screen["html"]
        return screen["vars"]

    def press(self, result, **variables):
        body = json.dumps({"result": result, "vars": variables}).encode()
        urllib.request.urlopen(urllib.request.Request(f"{self.base}/api/screen/{self.last_id}/result", body), timeout=60).close()
