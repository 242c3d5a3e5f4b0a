#!/usr/bin/env bash
# Cross-builds the Windows program VELK_Updater.exe and the Windows test programs with
# mingw-w64. libsodium, libcurl (Schannel for TLS), libzstd and GoogleTest have no mingw packages
# in Debian, so they are built here from Debian's own sources; the result is kept in the
# build folder and reused by later runs on the same machine.
#   BUILD_DIR      build folder (default: build-win)
#   LOOPBACK_PORT  the local update server's port for the default endpoints (default: CMake's)
set -euo pipefail
shopt -s inherit_errexit

cd "$(dirname "$0")/.."
source_dir="$(pwd)"
build_dir="$(realpath -m "${BUILD_DIR:-build-win}")"
deps="$build_dir/deps"
prefix="$deps/prefix"
host=x86_64-w64-mingw32
jobs="$(nproc)"

# shellcheck source=lib/packages.sh
source scripts/lib/packages.sh
# Wine carries out CNG and Schannel with GnuTLS, which it only recommends.
install_packages mingw-w64 wine wine64 libgnutls30 dpkg-dev autoconf automake libtool make cmake ninja-build \
    pkg-config libgtest-dev nlohmann-json3-dev

# `apt-get source` needs a deb-src entry beside every deb entry of the distribution.
enable_source_packages() {
    apt-cache showsrc libsodium curl libzstd >/dev/null 2>&1 && return 0
    local as_root=() file
    [ "$(id -u)" -ne 0 ] && as_root=(sudo)
    for file in /etc/apt/sources.list.d/*.sources; do
        case "$file" in */velk-src-*) continue ;; esac
        [ -e "$file" ] || continue
        sed 's/^Types: deb$/Types: deb-src/' "$file" |
            "${as_root[@]}" tee "/etc/apt/sources.list.d/velk-src-$(basename "$file")" >/dev/null
    done
    if [ -f /etc/apt/sources.list ]; then
        sed -n 's/^deb /deb-src /p' /etc/apt/sources.list |
            "${as_root[@]}" tee /etc/apt/sources.list.d/velk-src.list >/dev/null
    fi
    "${as_root[@]}" apt-get update -q
}

# fetch_source PACKAGE: unpacks Debian's source of PACKAGE under $deps/src once;
# prints the unpacked folder.
fetch_source() {
    local package="$1"
    mkdir -p "$deps/src"
    if ! compgen -G "$deps/src/$package-[0-9]*/" >/dev/null; then
        enable_source_packages >&2
        (cd "$deps/src" && apt-get source -q "$package" >&2)
    fi
    local folder
    folder="$(compgen -G "$deps/src/$package-[0-9]*/" | head -n 1)"
    [ -n "$folder" ] || { echo "No source of $package was unpacked" >&2; return 1; }
    echo "$folder"
}

build_libsodium() {
    [ -f "$deps/libsodium.done" ] && return 0
    local src
    src="$(fetch_source libsodium)"
    (
        cd "$src"
        DO_NOT_UPDATE_CONFIG_SCRIPTS=1 ./autogen.sh -s
        ./configure --host=$host --prefix="$prefix" --disable-shared --enable-static \
            CC=$host-gcc-posix
        make -j"$jobs"
        make install
    )
    touch "$deps/libsodium.done"
}

build_curl() {
    [ -f "$deps/curl.done" ] && return 0
    local src
    src="$(fetch_source curl)"
    (
        cd "$src"
        # Debian's unpacked source carries the NSS and GnuTLS variants' renaming patches on
        # top; take them off as debian/rules does before building the plain library.
        if [ ! -f .velk-variants-reversed ]; then
            patch -R -p1 <debian/patches/99_nss.patch
            patch -R -p1 <debian/patches/90_gnutls.patch
            touch .velk-variants-reversed
        fi
        autoreconf -fi
        ./configure --host=$host --prefix="$prefix" CC=$host-gcc-posix \
            --disable-shared --enable-static --disable-pthreads --disable-ldap --disable-ldaps \
            --disable-manual --disable-docs --with-schannel --without-openssl --without-gnutls \
            --without-nss --without-wolfssl --without-mbedtls --without-bearssl --without-rustls \
            --without-zlib --without-brotli --without-zstd --without-libssh --without-libssh2 \
            --without-libpsl --without-libidn2 --without-librtmp --without-nghttp2 --without-nghttp3 \
            --without-ngtcp2 --without-quiche --without-msh3 --without-hyper --without-libgsasl \
            --without-gssapi --without-winidn
        make -j"$jobs" -C lib
        make -C lib install
        make -C include install
        make install-pkgconfigDATA
    )
    touch "$deps/curl.done"
}

# The library only, static, with its CMake build and pkg-config file.
build_zstd() {
    [ -f "$deps/zstd.done" ] && return 0
    local src
    src="$(fetch_source libzstd)"
    cmake -S "$src/build/cmake" -B "$deps/zstd-build" -G Ninja \
        -DCMAKE_TOOLCHAIN_FILE="$source_dir/cmake/mingw-w64.cmake" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_INSTALL_PREFIX="$prefix" -DZSTD_BUILD_PROGRAMS=OFF -DZSTD_BUILD_TESTS=OFF \
        -DZSTD_BUILD_SHARED=OFF -DZSTD_BUILD_STATIC=ON -DZSTD_MULTITHREAD_SUPPORT=OFF
    cmake --build "$deps/zstd-build" --parallel "$jobs"
    cmake --install "$deps/zstd-build"
    touch "$deps/zstd.done"
}

build_googletest() {
    [ -f "$deps/googletest.done" ] && return 0
    cmake -S /usr/src/googletest -B "$deps/googletest-build" -G Ninja \
        -DCMAKE_TOOLCHAIN_FILE="$source_dir/cmake/mingw-w64.cmake" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_INSTALL_PREFIX="$prefix" -DBUILD_GMOCK=OFF
    cmake --build "$deps/googletest-build" --parallel "$jobs"
    cmake --install "$deps/googletest-build"
    touch "$deps/googletest.done"
}

# Header-only: the distribution's headers and CMake package work for any target.
install_nlohmann_json() {
    [ -d "$prefix/share/cmake/nlohmann_json" ] && return 0
    mkdir -p "$prefix/include" "$prefix/share/cmake"
    cp -r /usr/include/nlohmann "$prefix/include/"
    cp -r /usr/share/cmake/nlohmann_json "$prefix/share/cmake/"
}

mkdir -p "$deps"
build_libsodium
build_curl
build_zstd
build_googletest
install_nlohmann_json

export PKG_CONFIG_LIBDIR="$prefix/lib/pkgconfig"
export PKG_CONFIG_SYSROOT_DIR=/
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$source_dir/cmake/mingw-w64.cmake" \
    -DVELK_WINDOWS_DEPS="$prefix" -DVELK_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELK_WERROR=ON \
    ${LOOPBACK_PORT:+-DVELK_LOOPBACK_PORT="$LOOPBACK_PORT"}
cmake --build "$build_dir" --parallel "$jobs"
# The vendor's package: a zip holding VELK_Updater.exe.
(cd "$build_dir" && cpack -G ZIP)
