#!/usr/bin/env bash
# Fails when a source folder includes a folder that is not below it in the layer order:
# platform, then logging/crypto/http, then install/manifest (manifest builds on install's
# version order), then files/selfupdate, then client, then app.
set -u
src=${1:?usage: check_layers.sh SRC_DIR}

rank() {
    case "$1" in
        platform) echo 0 ;;
        logging | crypto | http) echo 1 ;;
        install) echo 2 ;;
        manifest) echo 3 ;;
        files | selfupdate) echo 4 ;;
        client) echo 5 ;;
        app) echo 6 ;;
        *) echo "" ;;
    esac
}

status=0
while IFS= read -r hit; do
    file=${hit%%:*}
    folder=${file#"$src"/}
    folder=${folder%%/*}
    included=$(sed -E 's/.*#include "([^/"]+)\/.*/\1/' <<<"$hit")
    [ "$included" = "$folder" ] && continue
    from=$(rank "$folder")
    to=$(rank "$included")
    if [ -z "$from" ] || [ -z "$to" ] || [ "$to" -ge "$from" ]; then
        echo "upward or sideways include: ${hit#"$src"/}"
        status=1
    fi
done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[^/"]+/' "$src" --include='*.cpp' --include='*.hpp')
[ "$status" -eq 0 ] && echo "layer order holds"
exit "$status"
