"""What deploy/ gives to build servers: the script that wraps with a keychain made from secrets."""
import base64
import os
import signal
import subprocess
import time

from harness import DEMO_APP, IDENTITIES, PROFILE, ROOT, TOOLKIT, WholeProgramTest, read


class BuildServer(WholeProgramTest):
    def start(self, output, **changes):
        secrets = {"SIGNING_P12_BASE64": base64.b64encode(read(IDENTITIES, "admin.p12")).decode(),
                   "SIGNING_P12_PASSWORD": "demo",
                   "SIGNING_PROFILE_BASE64": base64.b64encode(read(PROFILE)).decode(),
                   "TOVREK_FOLDER": TOOLKIT, "XDG_DATA_HOME": self.path("unused")}
        environment = {name: value for name, value in (self.environment | secrets | changes).items()
                       if value is not None}
        return subprocess.Popen([os.path.join(ROOT, "deploy/ci/wrap_app"), DEMO_APP, output,
                                 "-logWriteLevel", "3"], env=environment, cwd=self.folder, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, start_new_session=True)

    def assert_nothing_left(self, output):
        self.assertEqual(self.left_in_scratch(), [])
        self.assertEqual([name for name in os.listdir(self.scratch) if name.startswith("tmp.")], [])
        self.assertFalse(os.path.exists(self.path("unused")))
        log = output + ".log"
        if os.path.exists(log):
            self.assertNotIn(b"demo\n", read(log))

    def test_wraps_and_takes_the_keychain_down(self):
        output = self.path("App.wex")
        process = self.start(output)
        _, errors = process.communicate(timeout=240)
        self.assertEqual(process.returncode, 0, errors)
        self.assertGreater(os.path.getsize(output), 10_000)
        self.assertGreater(os.path.getsize(output + ".log"), 100)
        self.assert_nothing_left(output)

    def test_failures(self):
        for changes, text in (({"SIGNING_P12_PASSWORD": "wrong"}, "assword"),
                              ({"SIGNING_P12_BASE64": "!"}, "invalid input"),
                              ({"SIGNING_PROFILE_BASE64": "eA=="}, ""),
                              ({"SIGNING_P12_PASSWORD": None}, "SIGNING_P12_PASSWORD")):
            output = self.path("No.wex")
            process = self.start(output, **changes)
            _, errors = process.communicate(timeout=240)
            with self.subTest(changes):
                self.assertNotEqual(process.returncode, 0)
                self.assertIn(text, errors)
                self.assertFalse(os.path.exists(output))
                self.assert_nothing_left(output)

    def test_cancelled(self):
        output = self.path("Cut.wex")
        process = self.start(output)
        deadline = time.monotonic() + 120
        while not os.path.exists(output + ".log") and time.monotonic() < deadline:
            time.sleep(0.01)
        # As servers do it: the whole group of the job.
        os.killpg(process.pid, signal.SIGTERM)
        process.communicate(timeout=60)
        self.assertNotEqual(process.returncode, 0)
        self.assertFalse(os.path.exists(output))
        self.assert_nothing_left(output)
