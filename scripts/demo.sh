#!/usr/bin/env bash
# Sets up and builds the updater, publishes a demo release, serves it on loopback and
# runs VELK_Updater against a sandbox system root, so that a real update happens:
# files downloaded, verified and installed, the version recorded, the log written.
# Running it again finds the installation current ("No update required").
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

# Release 1.2.0 of the product, published with a zip beside every file.
echo "VELK service 1.2.0"  > "$demo/release/VELK_Service.exe"
echo "VELK game library 1.2.0" > "$demo/release/VELK.dll"
echo "VELK launcher 1.2.0" > "$demo/release/VELK_Launcher.exe"
echo "VELK kernel driver 1.2.0" > "$demo/release/drivers/VELK_Sys.sys"
./build/velk_publish --release "$demo/release" --out "$demo/site" --version 1.2.0 --build 120 --zip > /dev/null

./build/velk_update_server --root "$demo/site" --port "$port" --log "$demo/requests.log" > "$demo/server.out" &
server=$!
trap 'kill "$server" 2>/dev/null; wait "$server" 2>/dev/null || true' EXIT
for _ in $(seq 50); do grep -q listening "$demo/server.out" 2>/dev/null && break; sleep 0.1; done

elevate=()
[ "$(id -u)" -ne 0 ] && elevate=(sudo --preserve-env=VELK_SYSTEM_ROOT)
status=0
VELK_SYSTEM_ROOT="$demo/root" "${elevate[@]}" ./build/VELK_Updater || status=$?

echo
echo "== VELK_Updater exited with $status"
echo "== Installed files in $demo/install:"
find "$demo/install" -maxdepth 2 -type f ! -path '*/logs/*' -printf '   %P (%s bytes)\n' | sort
echo "== Registry record ($demo/root/registry.reg):"
grep -E '"(Version|BuildNumber|InstallPath)"' "$demo/root/registry.reg" | sed 's/^/   /'
echo "== Log file: $demo/install/logs/updater.log ($(wc -l < "$demo/install/logs/updater.log") lines)"
echo "== Run scripts/demo.sh again: the installation is now current."
exit "$status"
