#!/usr/bin/env bash
# Checks the stubs of build/release and the layer by mypy --strict, and beside them what is named.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh

command -v mypy >/dev/null || install mypy mypy
MYPYPATH=build/release mypy --strict --python-version 3.8 build/release/fragments.pyi host "$@"
