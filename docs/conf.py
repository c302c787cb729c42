"""How the pages are made; see scripts/docs.sh."""

import os
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "scripts")]

from wheel_backend import project_version  # noqa: E402

project = "fragments"
version = release = project_version()
extensions = ["closure_pages"]
recorded_calls = os.environ["RECORDED_CALLS"]
default_role = "code"
smartquotes = False
html_theme = "furo"
html_title = "fragments " + version
html_static_path = ["static"]
html_css_files = ["reference.css"]
html_copy_source = False
html_show_copyright = False
add_module_names = False
