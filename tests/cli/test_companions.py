"""Which companions Tovrek carries out itself, and which it starts."""
import os
import shutil

from harness import COMPANIONS, DEMO_APP, TOOLKIT, WholeProgramTest, read, write


class Companions(WholeProgramTest):
    @classmethod
    def setUpClass(cls):
        """An installation of our own."""
        super().setUpClass()
        cls.toolkit = cls.path("toolkit")
        shutil.copytree(os.path.join(TOOLKIT, "host"), os.path.join(cls.toolkit, "host"))
        shutil.copytree(os.path.join(TOOLKIT, "Data"), os.path.join(cls.toolkit, "Data"))
        shutil.copy(os.path.join(TOOLKIT, "Tovrek"), cls.toolkit)
        cls.lipo = os.path.join(cls.toolkit, "host/usr/bin/lipo")

    def setUp(self):
        self.output = self.path(self.id() + ".wex")
        os.remove(self.lipo)

    def wrap_here(self, **environment):
        return self.wrap(DEMO_APP, self.output, toolkit=self.toolkit, environment=environment)

    def test_what_was_built_with_it_is_not_started(self):
        # The beginning of the program alone cannot be started.
        write(read(COMPANIONS, "lipo")[:4096], self.lipo)
        os.chmod(self.lipo, 0o755)
        self.assert_wrapped(self.wrap_here(), self.output)
        os.remove(self.output)
        self.wrap_here(TOVREK_COPIES="0")
        self.assertFalse(os.path.exists(self.output))

    def test_what_somebody_has_put_in_its_place_is_started(self):
        calls = self.path("calls")
        real = shutil.copy(os.path.join(COMPANIONS, "lipo"), self.lipo + ".real")
        script = f'#!/bin/sh\necho "$@" >>"{calls}"\nexec "{real}" "$@"\n'
        write(script.encode(), self.lipo)
        os.chmod(self.lipo, 0o755)
        self.assert_wrapped(self.wrap_here(), self.output)
        self.assertIn(b"-info ", read(calls))
        os.remove(self.lipo)
        shutil.copy("/bin/false", self.lipo)
        os.remove(self.output)
        self.wrap_here()
        self.assertFalse(os.path.exists(self.output))
