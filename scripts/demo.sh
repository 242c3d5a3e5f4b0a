#!/usr/bin/env bash
# Sets up and builds the updater, publishes a signed demo release, serves it on loopback
# and runs VELK_Updater against a sandbox system root, so that a real update happens:
# files downloaded, verified and installed, the version recorded, the log written.
# The updater is the demo vendor's own build, with the demo's release key pinned
# (build-demo/); it then refuses a copy of the manifest that an attacker on the update
# site has tampered with, and a signed manifest replayed after its expiry. Running it again
# finds the installation current.
#   DEMO_DIR  where the sandbox lives (default: demo/ in the checkout)
set -euo pipefail

cd "$(dirname "$0")/.."
BUILD_DIR=build scripts/setup.sh > /dev/null

demo="$(realpath -m "${DEMO_DIR:-demo}")"
port="$(sed -n 's/^VELK_LOOPBACK_PORT:STRING=//p' build/CMakeCache.txt)"
mkdir -p "$demo/root" "$demo/release/drivers"

# The installer's part: the product's registry key, pointing at the installation folder.
if [ ! -f "$demo/root/registry.reg" ]; then
    printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark\\VELK]\r\n"InstallPath"="%s"\r\n' \
        "$demo/install" > "$demo/root/registry.reg"
fi

# The vendor's signing key (made on first use) and its updater, built with that key pinned.
key_file="$demo/release_ed25519.key"
public_key="$(./build/velk_publish --sign-ed25519 "$key_file" --print-public-key 2> /dev/null)"
# shellcheck disable=SC2086
cmake -S . -B build-demo -G Ninja -DVELK_BUILD_TESTS=OFF -DVELK_BUILD_BENCH=OFF ${CMAKE_ARGS:-} \
    -DVELK_LOOPBACK_PORT="$port" -DVELK_RELEASE_PUBLIC_KEY="$public_key" > /dev/null
cmake --build build-demo --target VELK_Updater > /dev/null
updater=./build-demo/VELK_Updater

# Release 1.2.0 of the product, signed, with a zip beside every file.
echo "VELK service 1.2.0"  > "$demo/release/VELK_Service.exe"
echo "VELK game library 1.2.0" > "$demo/release/VELK.dll"
echo "VELK launcher 1.2.0" > "$demo/release/VELK_Launcher.exe"
echo "VELK kernel driver 1.2.0" > "$demo/release/drivers/VELK_Sys.sys"
./build/velk_publish --release "$demo/release" --out "$demo/site" --version 1.2.0 --build 120 --zip \
    --sign-ed25519 "$key_file" > /dev/null

# An attacker on the update site points VELK.dll at a build of its own (same size, its own
# digest) in a copy of the signed manifest, served as the channel "tampered".
mkdir -p "$demo/site/files/evil"
printf '%-23s\n' "VELK backdoor" > "$demo/site/files/evil/VELK.dll"
genuine="$(sha256sum "$demo/release/VELK.dll" | cut -d' ' -f1)"
evil="$(sha256sum "$demo/site/files/evil/VELK.dll" | cut -d' ' -f1)"
sed -e "s/$genuine/$evil/" -e 's|"files/VELK.dll"|"files/evil/VELK.dll"|' \
    "$demo/site/manifest.json" > "$demo/site/manifest-tampered.json"
# A mirror that keeps serving a signed manifest after its expiry (channel "expired").
./build/velk_publish --release "$demo/release" --out "$demo/site" --version 1.2.0 --build 120 \
    --channel expired --expires-in -1 --sign-ed25519 "$key_file" > /dev/null

./build/velk_update_server --root "$demo/site" --port "$port" --log "$demo/requests.log" > "$demo/server.out" &
server=$!
trap 'kill "$server" 2>/dev/null; wait "$server" 2>/dev/null || true' EXIT
for _ in $(seq 50); do grep -q listening "$demo/server.out" 2>/dev/null && break; sleep 0.1; done

elevate=()
[ "$(id -u)" -ne 0 ] && elevate=(sudo --preserve-env=VELK_SYSTEM_ROOT)
status=0
VELK_SYSTEM_ROOT="$demo/root" "${elevate[@]}" "$updater" || status=$?
log="$demo/install/logs/updater.log"
grep -o 'Signature verified successfully using .*' "$log" | tail -n 1 | sed 's/^/== /'

echo
echo "== The tampered manifest (channel \"tampered\"):"
VELK_SYSTEM_ROOT="$demo/root" "${elevate[@]}" "$updater" --channel tampered > "$demo/tampered.out" 2>&1 || true
grep -E 'Signature verification failed: |Manifest verification failed' "$log" | tail -n 2 | sed 's/^.*\] \[\] /   /'
if grep -q backdoor "$demo/install/VELK.dll"; then
    echo "== The tampered VELK.dll was installed"
    status=1
fi

echo
echo "== The expired manifest (channel \"expired\"):"
VELK_SYSTEM_ROOT="$demo/root" "${elevate[@]}" "$updater" --channel expired > "$demo/expired.out" 2>&1 || true
grep -E 'Manifest verification failed' "$log" | tail -n 1 | sed 's/^.*\] \[\] /   /'

echo
echo "== VELK_Updater exited with $status"
echo "== Installed files in $demo/install:"
find "$demo/install" -maxdepth 2 -type f ! -path '*/logs/*' -printf '   %P (%s bytes)\n' | sort
echo "== Private download folder: $(stat -c '%A %U:%G' "$demo/install/.velk_downloads")"
echo "== Registry record ($demo/root/registry.reg):"
grep -E '"(Version|BuildNumber|InstallPath|RolloutCohort)"' "$demo/root/registry.reg" | sed 's/^/   /'
echo "== Log file: $log ($(wc -l < "$log") lines)"
echo "== Run scripts/demo.sh again: the installation is now current."
exit "$status"
