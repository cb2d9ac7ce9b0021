#!/bin/sh
# Writes the manual pages of aiplc and its commands from their --help: scripts/man_pages.sh AIPLC FOLDER
set -eu
aiplc=$(realpath "$1")
folder=$2
mkdir -p "$folder"
wrapper=$(mktemp -d)
trap 'rm -rf "$wrapper"' EXIT
version=$("$aiplc" --version | sed 's/^aiplc \([^,]*\),.*/\1/')

page() { # NAME ONE-LINE COMMAND...
    name=$1 line=$2
    shift 2
    # The page is named after the program that help2man runs.
    printf '#!/bin/sh\nexec "%s" %s "$@"\n' "$aiplc" "$*" >"$wrapper/$name"
    chmod +x "$wrapper/$name"
    help2man --no-info --manual="aiplc" --source="aiplc $version" --version-string="$version" \
        --name="$line" "$wrapper/$name" |
        sed "s/^\.SS \"\(.*\):\"$/.SS \"\1\"/" >"$folder/$name.1"
}

page aiplc "packet-loss concealment for Opus speech"
"$aiplc" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) *\(.*\)/\1 \2/p' | while read -r command line; do
    page "aiplc-$command" "$line" "$command"
done
