#!/usr/bin/env bash
# Solves the model MODEL through the module of build/release, again for the parameter PARAMETER or,
# with a MATRIX of 1, for a changed matrix. Without a MODEL it is an example that comes with GLPK.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh

example=/usr/share/doc/glpk-utils/examples/plan.mps
model=${MODEL:-}
if [[ -z $model && -f $example ]]; then
    model=$example
elif [[ -z $model ]]; then
    # Slim installations leave documents out, and some compress them.
    model=build/examples/plan.mps
    mkdir -p build/examples
    if [[ -f $example.gz ]]; then
        gunzip -c "$example.gz" >"$model"
    elif [[ ! -s $model ]]; then
        (
            cd build/examples
            apt-get download -qq glpk-utils >/dev/null 2>&1 &&
                dpkg-deb --fsys-tarfile glpk-utils_*.deb |
                tar -xO ".$example" >plan.mps.part 2>/dev/null &&
                mv plan.mps.part plan.mps
        ) || fail "$example is not there; name a model: make demo MODEL=FILE.mps"
    fi
fi
case ${MATRIX:-0} in
0) options=(--parameter "${PARAMETER:-1.1}") ;;
1) options=(--matrix-parameters ${PARAMETER:+--parameter "$PARAMETER"}) ;;
*) fail "MATRIX can be 1, not $MATRIX: make demo MODEL=FILE.mps MATRIX=1" ;;
esac
exec build/release/python -m host "$model" "${options[@]}"
