#!/usr/bin/env bash
# Fails when a source folder includes a folder that is not below it in the layer order:
# platform, then logging/crypto/http, then install/manifest (manifest builds on install's
# version order), then files/selfupdate, then client, then app.
# One grep and one awk for the whole tree: the check runs with every test pass.
set -u
src=${1:?usage: check_layers.sh SRC_DIR}
src=${src%/}

grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[^/"]+/' "$src" --include='*.cpp' --include='*.hpp' |
    awk -v src="$src/" '
        BEGIN {
            split("platform 0 logging 1 crypto 1 http 1 install 2 manifest 3 files 4 selfupdate 4 client 5 app 6",
                  pairs, " ")
            for (i = 1; i < length(pairs); i += 2) rank[pairs[i]] = pairs[i + 1]
        }
        {
            hit = substr($0, length(src) + 1)
            folder = hit
            sub(/\/.*/, "", folder)
            included = hit
            sub(/^[^"]*"/, "", included)
            sub(/\/.*/, "", included)
            if (included == folder) next
            if (!(folder in rank) || !(included in rank) || rank[included] >= rank[folder]) {
                print "upward or sideways include: " hit
                failed = 1
            }
        }
        END {
            if (!failed) print "layer order holds"
            exit failed
        }'
