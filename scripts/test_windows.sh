#!/usr/bin/env bash
# The Windows stage: cross-builds VELK_Updater.exe and the Windows tests
# (scripts/build_windows.sh), then runs under Wine, in a fresh prefix, the Windows test
# programs and an end-to-end update by the exe against the local update server.
set -euo pipefail

cd "$(dirname "$0")/.."

BUILD_DIR=build-win scripts/build_windows.sh
# The Linux build supplies the end-to-end driver, the publisher and the update server.
BUILD_DIR=build scripts/setup.sh

scratch="$(mktemp -d)"
export WINEPREFIX="$scratch/prefix"
export WINEDEBUG=-all
# No Mono or Gecko: nothing here needs them, and their installers would ask for the network.
export WINEDLLOVERRIDES="mscoree,mshtml="
cleanup() {
    wineserver -k 2>/dev/null || true
    rm -rf "$scratch"
}
trap cleanup EXIT

echo "== Fresh Wine prefix =="
wineboot --init
wineserver --wait

echo "== Windows tests under Wine =="
ctest --test-dir build-win --output-on-failure --timeout 900

echo "== VELK_Updater.exe end to end under Wine =="
VELK_WINDOWS_BUILD="$(pwd)/build-win" ctest --test-dir build -L wine --output-on-failure --timeout 900
