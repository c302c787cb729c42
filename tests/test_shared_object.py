"""What the module's file shows to the system: its name, its symbols and what it needs."""

import os
import pathlib
import re
import subprocess
import sysconfig
import unittest

from support import fragments

PATH = pathlib.Path(fragments.__file__)


def readelf(*options):
    command = ["readelf", "--wide", *options, str(PATH)]
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, universal_newlines=True).stdout


class SharedObject(unittest.TestCase):
    def test_file_name(self):
        self.assertEqual(PATH.name, "fragments" + sysconfig.get_config_var("EXT_SUFFIX"))

    @unittest.skipIf("FRAGMENTS_SANITIZE" in os.environ, "the sanitizers export symbols of their own")
    def test_exports_the_init_function_alone(self):
        # Number, value, size, type, binding, visibility, section, name.
        rows = [line.split() for line in readelf("--dyn-syms").splitlines()]
        defined = [r[7] for r in rows if len(r) >= 8 and r[0][:-1].isdigit() and r[6] != "UND"]
        self.assertEqual(sorted(defined), ["PyInit_fragments@@VERS_1.0", "VERS_1.0"])

    @unittest.skipIf("FRAGMENTS_SANITIZE" in os.environ, "the sanitizers have libraries of their own")
    def test_needs_the_c_library_alone(self):
        needed = re.findall(r"\(NEEDED\).*\[(.*)\]", readelf("--dynamic"))
        self.assertIn("libc.so.6", needed)
        self.assertLessEqual(set(needed), {"libc.so.6", "ld-linux-x86-64.so.2"})


if __name__ == "__main__":
    unittest.main()
