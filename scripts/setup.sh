#!/usr/bin/env bash
# Installs every package the project needs (Debian 12), then configures and builds it.
# Safe to run again: packages already present are not touched, the build is incremental.
#   BUILD_DIR   build folder (default: build)
#   CMAKE_ARGS  extra arguments for the configure step
set -euo pipefail

cd "$(dirname "$0")/.."

packages=(
    build-essential cmake ninja-build pkg-config git
    libcurl4-openssl-dev libsodium-dev nlohmann-json3-dev libssl-dev libarchive-dev libzstd-dev
    libgtest-dev libgmock-dev libbenchmark-dev libcpp-httplib-dev libspdlog-dev
    clang libclang-rt-14-dev
    curl zip unzip e2fsprogs util-linux procps coreutils sudo
)

# shellcheck source=lib/packages.sh
source scripts/lib/packages.sh
install_packages "${packages[@]}"

build_dir="${BUILD_DIR:-build}"
# shellcheck disable=SC2086
# Warnings are errors in our own builds; CMAKE_ARGS may say otherwise.
cmake -S . -B "$build_dir" -G Ninja -DVELK_WERROR=ON ${CMAKE_ARGS:-}
cmake --build "$build_dir" --parallel "$(nproc)"
