#!/usr/bin/env bash
# Sets up and builds the updater, then runs it.
set -euo pipefail

cd "$(dirname "$0")/.."
BUILD_DIR=build scripts/setup.sh

status=0
./build/VELK_Updater --help || status=$?
echo "(VELK_Updater exited with $status)"
