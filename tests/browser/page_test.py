#!/usr/bin/env python3
"""Loads pages that Inspect writes into a headless Chromium: the text that is seen, no message on
the console, no request but for the page itself, and a picture that is not empty."""
import os
import plistlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "tests", "cli"))
from harness import DEMO_APP, TOOLKIT, read  # noqa: E402

BROWSER = shutil.which("chromium") or shutil.which("chromium-browser")
HOSTILE = "</title></p><script>document.title='broken'</script><img src=https://example.com/x>\u202e&'\""


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        assert BROWSER, "there is no chromium; scripts/setup --browser installs it"
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="tovrek page "))

    def page_of(self, path):
        page = os.path.join(self.folder, os.path.basename(path) + ".html")
        status = subprocess.run([os.path.join(TOOLKIT, "Inspect"), path, "--html", page],
                                timeout=120).returncode
        self.assertLess(status, 2)
        return page

    def browse(self, page, *words):
        """What the browser prints, and the requests that it made."""
        log = os.path.join(self.folder, "net.json")
        result = subprocess.run(
            [BROWSER, "--headless=new", "--no-sandbox", "--disable-gpu", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--user-data-dir=" + os.path.join(self.folder, "profile"), "--enable-logging=stderr",
             "--window-size=1200,2400", "--virtual-time-budget=3000",
             "--log-net-log=" + log, *words, "file://" + page],
            capture_output=True, timeout=120, text=True)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertNotIn("CONSOLE", result.stderr)
        return result.stdout, set(re.findall(r'"url":"(https?://[^"]*example[^"]*)"',
                                             read(log).decode(errors="replace")))

    def judge(self, page, texts):
        dom, requests = self.browse(page, "--dump-dom")
        self.assertEqual(requests, set())
        self.assertNotIn("broken</title>", dom)
        self.assertNotIn("<script", dom)
        self.assertEqual(dom.count("<img"), dom.count('src="data:image/png'))
        shown = re.sub(r"<[^>]*>", "", dom)
        for text in texts:
            self.assertIn(text, shown)
        picture = os.path.join(self.folder, "page.png")
        self.browse(page, "--screenshot=" + picture)
        self.assertGreater(os.path.getsize(picture), 20000)

    def test_demo(self):
        self.judge(self.page_of(DEMO_APP), ["Fieldbook", "Verdict:", "com.example.fieldbook",
                                            "profile-missing", "armv7, arm64", "Ends"])

    def test_hostile_names(self):
        archive = os.path.join(self.folder, "hostile.ipa")
        with zipfile.ZipFile(archive, "w") as file:
            info = {"CFBundleDisplayName": HOSTILE, "CFBundleIdentifier": HOSTILE,
                    "CFBundleExecutable": "A"}
            file.writestr("Payload/A.app/Info.plist", plistlib.dumps(info))
            file.writestr(f"Payload/A.app/{HOSTILE.replace('/', '')}.framework/Info.plist",
                          plistlib.dumps(info))
        self.judge(self.page_of(archive), ["&lt;script&gt;", "code-unreadable", "\\u{202e}"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
