#!/usr/bin/env bash
# Makes the pages of docs/ in build/docs/html, from the declarations of the closures and from the
# calls that the host makes while its tests run. Fails where one of the closures has no comment or
# where the calls contradict a page. With TABLES, a file of what `make bench` has printed, the
# picture of the speed is drawn anew. Expects build/release.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh

# The packages are for the system's own interpreter.
system() { "$(command -pv python3)" "$@"; }
missing=()
system -c 'import sphinx' 2>/dev/null || missing+=(python3-sphinx)
system -c 'import furo' 2>/dev/null || missing+=(furo)
system -c 'import matplotlib' 2>/dev/null || missing+=(python3-matplotlib)
if [[ ${#missing[@]} -gt 0 ]]; then install "${missing[*]}" "${missing[@]}"; fi

calls=$PWD/build/docs/calls.txt
build/release/python -B scripts/record_calls.py "$calls"
system docs/pictures.py ${TABLES:+"$TABLES"}
# What is written in one page is checked against all others, so all are read anew.
RECORDED_CALLS=$calls system -m sphinx -q -E -W --keep-going -b html docs build/docs/html
say "build/docs/html/index.html"
