#!/usr/bin/env bash
# Sets up what is missing, then configures and builds one of the presets in build/PRESET.
#
#     scripts/build.sh PRESET [OPTION...]
#
# The options go to CMake's configuration.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
shift

if [[ $preset == clang ]] && ! command -v clang++ >/dev/null; then
    . scripts/common.sh
    install clang clang
fi
version=
if [[ $preset == *311 ]]; then version=3.11; fi
python=$(scripts/setup.sh "$version")

# CMake keeps the interpreter that it found first, so another one starts afresh.
if ! grep -qsF "=$python" <(grep -s '^Python_EXECUTABLE:' "build/$preset/CMakeCache.txt"); then
    rm -rf "build/${preset:?}"
fi

mkdir -p build
log=build/$preset.log
echo "fragments: building build/$preset for $python" >&2
{
    cmake --preset "$preset" -DPython_EXECUTABLE="$python" "$@" &&
        cmake --build --preset "$preset" --parallel "$(nproc)"
} >"$log" 2>&1 || {
    cat "$log" >&2
    exit 1
}
