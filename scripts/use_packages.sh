#!/bin/sh
# Installs the packages of a folder on this machine, which has none of aiplc's yet, and uses them as their
# users would: scripts/use_packages.sh FOLDER
set -eu
folder=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
export DEBIAN_FRONTEND=noninteractive

# The tool alone: speech through losses, with the network in its worker and in this process.
apt-get install -y -qq --no-install-recommends "$folder"/aiplc_*.deb "$folder"/lib*1_*.deb sox man-db >/dev/null
sox -q -n -r 16000 -c 1 -b 16 speech.wav synth 6 pluck 110 tremolo 4 80 gain -6
for predictor in worker in-process; do
    aiplc conceal speech.wav --loss 20 --burst 2 --seed 1 --require-ai --predictor "$predictor" -q \
        -o "$predictor.wav" --json report.json
    grep -q '"requests": [1-9]' report.json
done
man aiplc-conceal | grep -q -- --predictor
bash -n /usr/share/bash-completion/completions/aiplc

# The element in a pipeline, with the weights of the tool's package.
apt-get install -y -qq --no-install-recommends "$folder"/gstreamer1.0-aiplc_*.deb gstreamer1.0-tools \
    gstreamer1.0-plugins-base >/dev/null
gst-launch-1.0 -q audiotestsrc num-buffers=50 samplesperbuffer=960 ! audio/x-raw,rate=48000,channels=1 ! opusenc ! \
    aiplcopusdec ! filesink location=decoded.raw
[ "$(stat -c %s decoded.raw)" -gt 80000 ]

# A program of one's own on the library, with pkg-config and nothing else of this folder.
apt-get install -y -qq --no-install-recommends "$folder"/libaiplc-dev_*.deb gcc libc6-dev pkg-config libopus-dev \
    >/dev/null
for example in /usr/share/doc/libaiplc-dev/examples/*.c*; do
    name=$(basename "${example%.gz}" .c)
    zcat -f "$example" >"$name.c"
    # shellcheck disable=SC2046
    gcc -std=c11 -c "$name.c" $(pkg-config --cflags aiplc aiplc-receiver opus)
done
printf '#include <aiplc/receiver.h>\nint main(void) { AiPlcReceiverOptions o; AiPlcReceiver *r; AiPlcReceiverDefaults(&o);
o.predictor = AIPLC_PREDICTOR_IN_PROCESS; return AiPlcReceiverCreate(&r, &o); }\n' >own.c
# shellcheck disable=SC2046
gcc -std=c11 own.c -o own $(pkg-config --cflags --libs aiplc-receiver)
./own # the installed weights are found

apt-get purge -y -qq aiplc gstreamer1.0-aiplc libaiplc-dev libaiplc-receiver1 libxanu-audiocore-aiplc1 >/dev/null
[ -z "$(find /usr -name '*aiplc*' -not -path '*/doc/*')" ]
echo "packages: installed, used and removed"
