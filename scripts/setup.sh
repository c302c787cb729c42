#!/usr/bin/env bash
# Finds or installs what the build and the tests need; prints the path of the CPython to build for.
#
#     scripts/setup.sh [VERSION]
#
# See find_python.sh for the choice. Debian packages are installed if the user is root; otherwise
# one line says what is missing.
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

find_python() { "$(dirname "$0")/find_python.sh" "$@"; }

version=${1:-}
if ! found=$(find_python "$version"); then
    if [[ -z $version && -n ${FRAGMENTS_PYTHON:-} ]]; then exit 1; fi
    install "CPython ${version:-from 3.8 on} with its headers" "python${version:-3}-dev"
    found=$(find_python "$version") || fail "no CPython ${version:-from 3.8 on} with headers was found"
fi
python=${found% *}
if [[ -z $version && -z ${FRAGMENTS_PYTHON:-} && ${found##* } != 3.8 ]]; then
    say "no CPython 3.8 was found; going on with ${found##* }, $python"
fi

# --- the solvers of the demos, and example models

# More that the system's own Python can have as packages: tests that need them are left out where
# they are missing.
if [[ -n $version && $EUID -eq 0 && $python == "$(command -pv "python$version")" ]] &&
    command -v apt-get >/dev/null; then
    for module in cvxopt distributed pip; do
        "$python" -c "import $module" 2>/dev/null || (install "$module" "python3-$module") || true
    done
fi

has_glpk() { "$python" -c 'import ctypes; ctypes.CDLL("libglpk.so.40")' 2>/dev/null; }

missing=()
has_glpk || missing+=(libglpk40)
command -v glpsol >/dev/null || missing+=(glpk-utils)
command -v csdp >/dev/null || missing+=(coinor-csdp)
if [[ ${#missing[@]} -gt 0 ]]; then install "solvers (${missing[*]})" "${missing[@]}"; fi

printf '%s\n' "$python"
