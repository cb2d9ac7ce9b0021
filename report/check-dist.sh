#!/bin/sh
# Rebuilds the page and compares it with the committed one, byte for byte.
set -eu
cd "$(dirname "$0")"
built=$(mktemp)
trap 'rm -f "$built"' EXIT
npm run --silent check
node build.mjs "$built" >/dev/null
cmp dist/report.html "$built" || {
    echo "report/dist/report.html is not what report/src builds: run 'make report' and commit it" >&2
    exit 1
}
echo "report/dist/report.html is what report/src builds"
