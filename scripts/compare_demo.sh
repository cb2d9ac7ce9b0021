#!/bin/sh
# Measures the demo's speech at twelve losses: scripts/compare_demo.sh AIPLC FOLDER
set -eu
aiplc=$1
folder=$2

# A recorded voice from Debian's fillets-ng-data-nl (a game's dialogue, GPL-2).
speech=/usr/share/games/fillets-ng/sound/computer/nl/poc-v-vyresil.ogg

mkdir -p "$folder"
begin=$(date +%s%N)
"$aiplc" compare "$speech" --loss 5,10,20,30 --burst 1,2,4 --html "$folder/compare.html"
end=$(date +%s%N)
echo
echo "Took $(((end - begin) / 1000000)) ms. Look and listen: $folder/compare.html"
