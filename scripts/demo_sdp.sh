#!/usr/bin/env bash
# Solves the semidefinite problem MODEL through the module of build/release, again for the parameter
# PARAMETER. Without a MODEL it is two problems of a random graph of 50 nodes: Lovasz' theta number
# and the relaxation of the maximum cut.
set -euo pipefail
cd "$(dirname "$0")/.."

models=("${MODEL:-}")
if [[ -z ${MODEL:-} ]]; then
    graph=build/examples/random50.graph
    models=(build/examples/theta50.dat-s build/examples/maxcut50.dat-s)
    mkdir -p build/examples
    csdp-randgraph "$graph" 50 0.2 1 >/dev/null
    csdp-graphtoprob "$graph" "${models[0]}" >/dev/null
    build/release/python scripts/maxcut.py "$graph" "${models[1]}"
fi
status=0
for model in "${models[@]}"; do
    build/release/python -m host "$model" --parameter "${PARAMETER:-1.1}" || status=$?
    if [[ ${#models[@]} -gt 1 ]]; then echo; fi
done
exit "$status"
