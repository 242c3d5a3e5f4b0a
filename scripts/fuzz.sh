#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, AddressSanitizer and UndefinedBehaviorSanitizer,
# and runs each for the given time:
#   manifest_fuzz  the manifest reader and its structural rules
#   registry_fuzz  the emulated registry file's reader, and writing back what it read
#   paths_fuzz     file names, target paths and download URLs, and the candidates built from them
#   transfer_fuzz  a server's ETag, Content-Range and Retry-After around a resumed download
#   cohort_fuzz    the rollout cohort kept in a product record anyone may have edited
#   patch_fuzz     any bytes applied as a patch to an installed copy
#   scripts/fuzz.sh [SECONDS] [TARGET...]   (default 600 seconds each, every target)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-600}"
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(manifest registry paths transfer cohort patch)
out=build-fuzz
CC=clang CXX=clang++ cmake -S . -B "$out" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELK_FUZZ=ON \
    -DVELK_SANITIZE=ON -DVELK_BUILD_TESTS=OFF -DVELK_BUILD_BENCH=OFF -DVELK_BUILD_TOOLS=OFF >/dev/null
for target in "${targets[@]}"; do
    cmake --build "$out" --target "${target}_fuzz" --parallel "$(nproc)"
    corpus="$out/corpus-$target"
    mkdir -p "$corpus"
    [ -d "tests/fuzz/corpus/$target" ] && cp -n "tests/fuzz/corpus/$target"/* "$corpus/" 2>/dev/null || true
    "$out/tests/fuzz/${target}_fuzz" -max_total_time="$seconds" -max_len=4096 -print_final_stats=1 "$corpus"
done
