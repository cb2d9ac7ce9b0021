#!/bin/sh
# Prints which folder includes from which, with the number of includes, and fails when folders depend on each
# other in a circle.
#     scripts/folder_arrows.sh [FOLDER ...]     tools worker src host receiver gstreamer measure
set -eu
cd "$(dirname "$0")/.."
[ $# -gt 0 ] || set -- tools worker src host receiver gstreamer measure

arrows=$(git grep -oE '^#include "[^"]+"' -- "$@" | awk -F '[:"]' '{
    from = $1; to = $3
    sub("/[^/]*$", "", from); sub("/[^/]*$", "", to)
    if (from != to) print from, to
}' | sort | uniq -c | awk '{ print $2, $3, $1 }')
echo "$arrows" | awk '{ printf "%-18s -> %-18s %3d\n", $1, $2, $3 }'
# A folder and those inside it, as a seam and the system behind it, are one.
echo "$arrows" | awk '{ if (index($1, $2 "/") != 1 && index($2, $1 "/") != 1) print $1, $2 }' | tsort >/dev/null ||
    { echo "folder_arrows.sh: the folders named by tsort depend on each other in a circle" >&2; exit 1; }
