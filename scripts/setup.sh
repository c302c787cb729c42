#!/usr/bin/env bash
# Finds or installs what the build and the tests need; prints the path of the CPython to build for.
#
#     scripts/setup.sh [VERSION]
#
# With a VERSION, such as 3.11, only that one will do, the system's own if there is one. Without,
# it is what FRAGMENTS_PYTHON names, else a CPython 3.8, else the newest one. Debian packages are
# installed if the user is root; otherwise one line says what is missing.
set -euo pipefail

. "$(dirname "$0")/common.sh"

# --- compiler and tools

compiles() {
    "${CXX:-c++}" -std=c++20 -x c++ -fsyntax-only - 2>/dev/null <<'EOF'
consteval int one() { return 1; }
int main() { return []<class T>(T x) { return x; }(one()); }
EOF
}

has_cmake() {
    local version
    version=$(cmake --version 2>/dev/null | sed -n 's/^cmake version //p')
    [[ -n $version && $(printf '3.25\n%s\n' "$version" | sort -V | head -n 1) == 3.25 ]]
}

[[ $(uname -sm) == "Linux x86_64" ]] || fail "this module is for 64-bit Linux on x86"
compiles || [[ -n ${CXX:-} ]] || install "a C++20 compiler" g++
compiles || fail "${CXX:-c++} does not compile C++20; g++ 12 does"
has_cmake || install "CMake 3.25 or newer" cmake
has_cmake || fail "CMake 3.25 or newer is needed; this one is older"
command -v make >/dev/null || install "make" make

# --- interpreter

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
    found=$(find_system "$1") || install "CPython $1 with its headers" "python$1-dev"
    found=${found:-$(find_system "$1")} || fail "no CPython $1 with headers was found"
elif [[ -n ${FRAGMENTS_PYTHON:-} ]]; then
    program=$(command -v "$FRAGMENTS_PYTHON") ||
        fail "FRAGMENTS_PYTHON: there is no program $FRAGMENTS_PYTHON"
    found=$(probe "$program") ||
        fail "FRAGMENTS_PYTHON: $program is no CPython from 3.8 on that runs and has its headers"
elif ! found=$(find_version 3.8); then
    found=$(find_newest) || install "a CPython from 3.8 on with its headers" python3-dev
    found=${found:-$(find_newest)} || fail "no CPython from 3.8 on with headers was found"
    say "no CPython 3.8 was found; going on with ${found##* }, ${found% *}"
fi
python=${found% *}

# --- the solver of the demo and its example models

has_glpk() { "$python" -c 'import ctypes; ctypes.CDLL("libglpk.so.40")' 2>/dev/null; }

missing=()
has_glpk || missing+=(libglpk40)
command -v glpsol >/dev/null || missing+=(glpk-utils)
if [[ ${#missing[@]} -gt 0 ]]; then install "GLPK" "${missing[@]}"; fi

printf '%s\n' "$python"
