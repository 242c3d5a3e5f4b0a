#!/usr/bin/env bash
# Sets up, builds and runs every test twice: a normal build, then a build with
# AddressSanitizer and UndefinedBehaviorSanitizer; then, when Wine is installed, the
# Windows stage (scripts/test_windows.sh; VELK_WINE_STAGE=0 leaves it out). Exits
# non-zero on any failure.
set -euo pipefail

cd "$(dirname "$0")/.."

run_suite() {
    local build_dir="$1"
    echo "== Tests in $build_dir =="
    ctest --test-dir "$build_dir" --output-on-failure --parallel "$(nproc)" --timeout 900 --label-exclude wine
}

BUILD_DIR=build scripts/setup.sh
run_suite build

BUILD_DIR=build-asan CMAKE_ARGS="-DVELK_SANITIZE=ON -DVELK_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug" \
    scripts/setup.sh
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    run_suite build-asan

if [ "${VELK_WINE_STAGE:-1}" != 0 ] && command -v wine >/dev/null; then
    scripts/test_windows.sh
fi
