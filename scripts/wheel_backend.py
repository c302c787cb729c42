"""Builds the wheel for the interpreter that runs this, as pip asks for it (PEP 517).

CMake builds and installs into a directory; this packs that into a wheel (PEP 427). It takes
nothing but the standard library, as setuptools alone can't write wheels.
"""

import base64
import hashlib
import os
import pathlib
import re
import subprocess
import sys
import sysconfig
import tempfile
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
SUMMARY = "The inner loops of a modelling layer for conic optimisation"


def project_version():
    """The version of the project, which stands in CMakeLists.txt."""
    text = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"^project\(fragments VERSION ([\d.]+)", text, re.MULTILINE)[1]


def wheel_tag():
    interpreter = "cp%d%d" % sys.version_info[:2]
    platform = re.sub(r"[-.]", "_", sysconfig.get_platform())
    return "%s-%s-%s" % (interpreter, interpreter, platform)


def metadata():
    return """\
Metadata-Version: 2.1
Name: fragments
Version: %s
Summary: %s
Requires-Python: >=3.8
Description-Content-Type: text/markdown

%s""" % (project_version(), SUMMARY, (ROOT / "README.md").read_text(encoding="utf-8"))


def wheel_metadata():
    return """\
Wheel-Version: 1.0
Generator: fragments (%s)
Root-Is-Purelib: false
Tag: %s
""" % (project_version(), wheel_tag())


def run_cmake(*arguments):
    try:
        subprocess.run(["cmake", *map(str, arguments)], cwd=ROOT, check=True)
    except FileNotFoundError:
        sys.exit("fragments: missing: CMake 3.25 or newer. On Debian, as root: apt-get install cmake")
    except subprocess.CalledProcessError as error:
        sys.exit("fragments: cmake failed with status %d" % error.returncode)


def install(directory, stage):
    """Builds in `directory`, as it is configured or else afresh, and installs below `stage`; the
    path that stands for site-packages."""
    if not (ROOT / directory / "CMakeCache.txt").exists():
        run_cmake("-S", ROOT, "-B", directory, "-DPython_EXECUTABLE=" + sys.executable,
                  "-DBUILD_TESTING=OFF")
    run_cmake("--build", directory, "--parallel", os.cpu_count())
    run_cmake("--install", directory, "--prefix", stage)
    module = "fragments" + sysconfig.get_config_var("EXT_SUFFIX")
    for path in pathlib.Path(stage).rglob(module):
        return path.parent
    sys.exit("fragments: %s is configured for another interpreter than %s"
             % (directory, sys.executable))


def pack(files, wheel):
    """Writes the wheel of `files`, {path in it: bytes}, with its RECORD."""
    record = ""
    with zipfile.ZipFile(wheel, "w", zipfile.ZIP_DEFLATED) as archive:
        for path, content in sorted(files.items()):
            archive.writestr(zip_entry(path), content)
            digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=")
            record += "%s,sha256=%s,%d\n" % (path, digest.decode(), len(content))
        path = dist_info() + "/RECORD"
        archive.writestr(zip_entry(path), record + path + ",,\n")


def zip_entry(path):
    """An entry that says nothing of the day and the machine it was packed on."""
    entry = zipfile.ZipInfo(path)
    entry.compress_type = zipfile.ZIP_DEFLATED
    entry.external_attr = (0o755 if path.endswith(".so") else 0o644) << 16
    return entry


def dist_info():
    return "fragments-%s.dist-info" % project_version()


def prepare_metadata_for_build_wheel(metadata_directory, config_settings=None):
    directory = pathlib.Path(metadata_directory) / dist_info()
    directory.mkdir()
    (directory / "METADATA").write_text(metadata(), encoding="utf-8")
    return dist_info()


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    """The setting `build-dir` names the build directory. By default it is one below `build/` for
    each interpreter."""
    directory = (config_settings or {}).get("build-dir", "build/wheel-" + wheel_tag())
    with tempfile.TemporaryDirectory() as stage:
        packages = install(directory, stage)
        files = {str(path.relative_to(packages)): path.read_bytes()
                 for path in packages.rglob("*") if path.is_file()}
    files[dist_info() + "/METADATA"] = metadata().encode()
    files[dist_info() + "/WHEEL"] = wheel_metadata().encode()
    wheel = "fragments-%s-%s.whl" % (project_version(), wheel_tag())
    pack(files, pathlib.Path(wheel_directory) / wheel)
    return wheel
