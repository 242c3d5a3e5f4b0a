#!/usr/bin/env bash
# Fails when a source folder includes a folder that is not below it in the layer order:
# common (shared records and helpers), then platform, then logging/crypto/http, then
# release and installation (neither includes the other), then delivery, then apply, then app.
# One grep and one awk for the whole tree: the check runs with every test pass.
set -u
src=${1:?usage: check_layers.sh SRC_DIR}
src=${src%/}

grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[^/"]+/' "$src" --include='*.cpp' --include='*.hpp' |
    awk -v src="$src/" '
        BEGIN {
            split("common 0 platform 1 logging 2 crypto 2 http 2 release 3 installation 3 delivery 4 apply 5 app 6",
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
