#!/bin/sh
# The figures of the notes: scripts/measure.sh AIPLC FOLDER
# A call of ten minutes from Debian's fillets-ng-data-nl (recorded voices), at 20 % loss.
set -eu
exec 2>&1
aiplc=$1
folder=$2
mkdir -p "$folder"

speech=$folder/speech.wav
raw="-t raw -r 16000 -c 1 -b 16 -e signed"
if [ ! -s "$speech" ]; then
    # shellcheck disable=SC2086
    find /usr/share/games/fillets-ng/sound -path '*/nl/*.ogg' | LC_ALL=C sort |
        while read -r clip; do
            sox "$clip" $raw - 2>/dev/null || break # enough was read
        done | head -c 19200000 | sox $raw - "$speech"
fi

played=$speech
call() { # title, then options
    echo
    echo "== $1"
    shift
    "$aiplc" conceal "$played" --rate 16 --seed 1 -o "$folder/out.wav" "$@" 2>&1 |
        grep -E '^(packets|frames|worker|distance|speed)'
}

for burst in 2 4; do
    call "20 % loss, mean burst $burst, codec" --loss 20 --burst "$burst" --no-ai
    call "20 % loss, mean burst $burst, aiplc" --loss 20 --burst "$burst"
done

paced() { # title, then options
    sox "$speech" "$folder/short.wav" trim 0 180
    played=$folder/short.wav
    call "$@" --realtime
    played=$speech
}
[ "${3:-}" != paced ] ||
    paced "three minutes at the pace of a call, mean burst 2" --loss 20 --burst 2

for _ in 1 2; do
    timeout 900 sh -c 'while :; do :; done' &
    pids="${pids:-} $!"
done
trap 'kill $pids' EXIT
call "the same, mean burst 2, beside two busy loops" --loss 20 --burst 2
[ "${3:-}" != paced ] ||
    paced "three minutes at the pace of a call, beside two busy loops" --loss 20 --burst 2
