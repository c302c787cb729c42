"""The wheel of this build, installed into a fresh environment and used from there."""

import importlib
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

from scripts.wheel_backend import project_version, wheel_tag

TESTS = pathlib.Path(__file__).resolve().parent
BUILD = pathlib.Path(importlib.import_module("test_buffers").__file__).parent
EXAMPLE = """\
NAME          LEAST
ROWS
 N  COST
 G  ROW
COLUMNS
    X         COST             1.0   ROW              2.0
RHS
    RHS       ROW              3.0
ENDATA
"""


def has_pip():
    return subprocess.run([sys.executable, "-m", "pip", "--version"], stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL).returncode == 0


@unittest.skipIf({"FRAGMENTS_SANITIZE", "FRAGMENTS_CHECKED"} & set(os.environ), "not what ships")
@unittest.skipUnless(has_pip(), "this interpreter has no pip")
class Install(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.path = pathlib.Path(directory.name)
        self.environment = {k: v for k, v in os.environ.items() if k != "PYTHONPATH"}

    def run_python(self, *arguments, **environment):
        done = subprocess.run(arguments, cwd=str(TESTS), env={**self.environment, **environment},
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              universal_newlines=True)
        self.assertEqual(done.returncode, 0, done.stdout)
        return done.stdout

    def test_wheel_works_where_it_is_installed(self):
        pip = sys.executable, "-m", "pip", "--quiet", "--disable-pip-version-check"
        self.run_python(*pip, "wheel", "--no-build-isolation", "--no-index", "--wheel-dir",
                        str(self.path), "--config-settings", "build-dir=%s" % BUILD, str(TESTS.parent))
        (wheel,) = self.path.iterdir()
        self.assertEqual(wheel.name, "fragments-%s-%s.whl" % (project_version(), wheel_tag()))
        self.run_python(sys.executable, "-m", "venv", "--without-pip", str(self.path / "env"))
        python = str(self.path / "env" / "bin" / "python")
        self.run_python(*pip, "--python", python, "install", "--no-index", str(wheel))

        example = self.path / "least.mps"
        example.write_text(EXAMPLE)
        answer = self.run_python(python, "-m", "fragments_host", str(example))
        self.assertRegex(answer, r"(?m)^objective by closures +1\.5 ")
        place = self.run_python(python, "-c", "import fragments; print(fragments.__file__)")
        self.assertEqual(place[: len(str(self.path))], str(self.path))
        # What the tests need beside the module comes from the build, without the module.
        (self.path / "beside").mkdir()
        for file in BUILD.glob("test_buffers.*.so"):
            (self.path / "beside" / file.name).symlink_to(file)
        self.run_python(python, "-m", "unittest", "-q", "test_frame", PYTHONDONTWRITEBYTECODE="1",
                        PYTHONPATH="%s:%s" % (self.path / "beside", TESTS.parent))


if __name__ == "__main__":
    unittest.main()
