#!/usr/bin/env bash
# Builds the manifest reader's libFuzzer target with clang and runs it.
#   scripts/fuzz.sh [SECONDS]   (default 600)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-600}"
out=build-fuzz
mkdir -p "$out/corpus"
cp -n tests/fuzz/corpus/* "$out/corpus/" 2>/dev/null || true
clang++ -std=c++20 -O1 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
    -Isrc tests/fuzz/manifest_fuzz.cpp src/manifest/manifest.cpp -o "$out/manifest_fuzz"
"$out/manifest_fuzz" -max_total_time="$seconds" -max_len=4096 -print_final_stats=1 "$out/corpus"
