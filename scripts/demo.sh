#!/bin/sh
# Conceals one call three ways: scripts/demo.sh AIPLC FOLDER
# Same speech, same packets, same losses: none, concealed by the codec, concealed by aiplc.
set -eu
exec 2>&1
aiplc=$1
folder=$2

# A recorded voice from Debian's fillets-ng-data-nl (a game's dialogue, GPL-2).
speech=/usr/share/games/fillets-ng/sound/computer/nl/poc-v-vyresil.ogg
loss="--loss 20 --burst 2 --seed 1"

mkdir -p "$folder"
echo "== No loss"
"$aiplc" conceal "$speech" --rate 16000 -o "$folder/clean.wav"
echo
echo "== 20 % loss, concealed by the codec"
# shellcheck disable=SC2086
"$aiplc" conceal "$speech" --rate 16000 $loss --no-ai -o "$folder/codec-plc.wav"
echo
echo "== 20 % loss, concealed by aiplc"
# shellcheck disable=SC2086
"$aiplc" conceal "$speech" --rate 16000 $loss --require-ai -o "$folder/aiplc.wav"
echo
echo "Listen: $folder/clean.wav, $folder/codec-plc.wav, $folder/aiplc.wav"
