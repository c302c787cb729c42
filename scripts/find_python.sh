#!/usr/bin/env bash
# Prints the path and the version of the CPython to build for, on one line; status 1 if there is
# none.
#
#     scripts/find_python.sh [VERSION]
#
# With a VERSION, such as 3.11, only that one will do, the system's own if there is one. Without,
# it is what FRAGMENTS_PYTHON names, else a CPython 3.8, else the newest one from 3.9 on.
set -euo pipefail
. "$(dirname "$0")/common.sh"

# Prints the path of the interpreter and its version if it is a CPython from 3.8 on that runs and
# has its headers. (What stands on the PATH may be a shim that runs nothing.)
probe() {
    "$1" - 2>/dev/null <<'EOF'
import os, sys, sysconfig
header = os.path.join(sysconfig.get_path("include"), "Python.h")
if sys.implementation.name != "cpython" or sys.version_info < (3, 8) or not os.path.exists(header):
    sys.exit(1)
print(sys.executable, "%d.%d" % sys.version_info[:2])
EOF
}

# The first one of version $1 on the PATH, among pyenv's or among uv's.
find_version() {
    local pyenv=${PYENV_ROOT:-${HOME:-}/.pyenv}/versions
    local uv=${UV_PYTHON_INSTALL_DIR:-${XDG_DATA_HOME:-${HOME:-}/.local/share}/uv/python}
    local candidate
    while read -r candidate; do
        if probe "$candidate"; then return; fi
    done < <(
        type -aP "python$1" || true
        ls -d "$pyenv"/*/bin/"python$1" "$uv"/*/bin/"python$1" 2>/dev/null
    )
    return 1
}

find_newest() {
    local minor
    for minor in {30..9}; do
        if find_version "3.$minor"; then return; fi
    done
    return 1
}

find_system() {
    local candidate
    candidate=$(command -pv "python$1") && probe "$candidate" || find_version "$1"
}

if [[ -n ${1:-} ]]; then
    find_system "$1"
elif [[ -n ${FRAGMENTS_PYTHON:-} ]]; then
    program=$(command -v "$FRAGMENTS_PYTHON") ||
        fail "FRAGMENTS_PYTHON: there is no program $FRAGMENTS_PYTHON"
    probe "$program" ||
        fail "FRAGMENTS_PYTHON: $program is no CPython from 3.8 on that runs and has its headers"
else
    find_version 3.8 || find_newest
fi
