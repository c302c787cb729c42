#!/usr/bin/env bash
# clang-format and clang-tidy over the named files, by default over all C++ of the module,
# its kernels and tests.
# Expects build/release to be configured.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh

missing=()
for tool in clang-format clang-tidy; do
    command -v "$tool" >/dev/null || missing+=("$tool")
done
if [[ ${#missing[@]} -gt 0 ]]; then install "${missing[*]}" "${missing[@]}"; fi

files=("$@")
if [[ ${#files[@]} -eq 0 ]]; then
    mapfile -t files < <(git ls-files '*.h' '*.cpp' ':!benchmarks')
fi
clang-format --dry-run -Werror "${files[@]}"

# Headers are looked at where a source includes them.
sources=()
for file in "${files[@]}"; do
    if [[ $file == *.cpp ]]; then sources+=("$file"); fi
done
if [[ ${#sources[@]} -eq 0 ]]; then exit; fi
printf '%s\n' "${sources[@]}" |
    xargs -P "$(nproc)" -n 1 clang-tidy -p build/release --quiet 2> >(grep -v 'warnings generated' >&2)
