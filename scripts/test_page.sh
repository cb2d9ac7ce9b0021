#!/bin/sh
# The tests of the report's page: scripts/test_page.sh required|optional
# Where npm, its registry or a browser is missing, "required" fails; "optional" says in a line what was left
# out and succeeds.
set -eu
cd "$(dirname "$0")/../report"
log=$(mktemp)
trap 'rm -f "$log"' EXIT

left_out() { # what, why
    echo "$1 left out: $2"
    [ "$mode" = optional ] && exit 0
    echo "test_page.sh: they are required here" >&2
    exit 1
}

mode=${1:-}
case "$mode" in
required | optional) ;;
*) echo "test_page.sh: '$mode' is neither required nor optional" >&2; exit 2 ;;
esac

command -v npm >/dev/null || left_out "The page's tests are" "there is no npm; install Node 18 or newer with it"
# A registry that does not answer is given up after a minute, not after a quarter of an hour.
export npm_config_fetch_timeout=30000 npm_config_fetch_retries=1
echo "Fetching what the page is built with (npm ci)"
if ! npm ci --ignore-scripts --no-progress >"$log" 2>&1; then
    registry=silent
    ! npm ping >/dev/null 2>&1 || registry=answers
    [ "$mode:$registry" = optional:silent ] || cat "$log" >&2
    [ "$registry" = silent ] || exit 1
    left_out "The page's tests are" "npm's registry $(npm config get registry) does not answer"
fi
npm run --silent format:check || {
    echo "test_page.sh: 'npm run format' in report/ formats these files" >&2
    exit 1
}
npm run --silent check-dist
browser=${CHROMIUM:-/usr/bin/chromium}
if [ ! -x "$browser" ]; then
    node --test tests/logic.test.mjs
    left_out "The page's tests in a browser are" "no program $browser; CHROMIUM=/path/to/chrome names another"
fi
npm run --silent test
