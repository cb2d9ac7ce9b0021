#!/bin/sh
# Sends recorded speech over UDP on the loopback interface, loses packets on the way, decodes what arrives by
# opusdec and by aiplcopusdec at once, and prints how far each is from the loss-free decode:
#     scripts/gstreamer_demo.sh BUILD FOLDER [LOSS]      LOSS: 0 to 1 (0.1)
# Both decoders get the same losses. They repeat from run to run: identity's random numbers begin alike.
set -eu
build=$1
folder=$2
loss=${3:-0.1}
port=${AIPLC_DEMO_PORT:-45004}

# Recorded voices from Debian's fillets-ng-data-nl (a game's dialogue, GPL-2).
speech=/usr/share/games/fillets-ng/sound/computer/nl
export GST_PLUGIN_PATH="$build/lib/gstreamer-1.0"
export AIPLC_MODEL="${AIPLC_MODEL:-$build/bin/x64/xanu_audio_aiplc.model}"

mkdir -p "$folder"
log=$folder/receiver.log
pcm="audio/x-raw,rate=16000,channels=1"
set --
for file in "$speech"/poc-v-*.ogg; do
    set -- "$@" filesrc location="$file" ! oggdemux ! vorbisdec ! audioconvert ! audioresample ! $pcm ! all.
done
gst-launch-1.0 -q concat name=all ! $pcm ! wavenc ! filesink location="$folder/speech.wav" "$@"

caps="application/x-rtp,media=audio,clock-rate=48000,encoding-name=OPUS,payload=96"
to_opusdec="opusdec plc=true ! $pcm ! wavenc"
# opusdec leaves the decoder's complexity at 0, so that both have the same received audio.
to_aiplc="aiplcopusdec decoder-complexity=0 ! $pcm ! wavenc"
# shellcheck disable=SC2086
gst-launch-1.0 -e -m udpsrc address=127.0.0.1 port="$port" caps="$caps" ! \
    rtpjitterbuffer do-lost=true latency=60 ! rtpopusdepay ! tee name=packets \
    packets. ! queue ! $to_opusdec ! filesink location="$folder/opusdec.wav" \
    packets. ! queue ! $to_aiplc ! filesink location="$folder/aiplcopusdec.wav" \
    udpsrc address=127.0.0.1 port=$((port + 1)) caps="$caps" ! rtpjitterbuffer latency=60 ! rtpopusdepay ! \
    $to_opusdec ! filesink location="$folder/loss-free.wav" >"$log" 2>&1 &
receiver=$!
trap 'kill $receiver 2>/dev/null || true' EXIT
# The port in the kernel's table says that the receiver listens.
until grep -q ":$(printf %04X $((port + 1))) " /proc/net/udp; do
    kill -0 $receiver 2>/dev/null || { cat "$log" >&2; exit 1; }
    sleep 0.1
done

gst-launch-1.0 -q filesrc location="$folder/speech.wav" ! wavparse ! identity sync=true ! audioconvert ! \
    opusenc bitrate=24000 audio-type=voice ! rtpopuspay ! tee name=sent \
    sent. ! queue ! identity drop-probability="$loss" ! udpsink host=127.0.0.1 port="$port" \
    sent. ! queue ! udpsink host=127.0.0.1 port=$((port + 1))
# The receiver plays its jitter buffer to the end.
sleep 1
kill -INT $receiver
wait $receiver || { cat "$log" >&2; exit 1; }
trap - EXIT

sed -n 's/.*x-aiplcopusdec-stats.*packetsReceived=(guint64)\([0-9]*\), packetsLost=(gint64)\([0-9]*\).*/\1 packets received, \2 lost/p' "$log"
"$build/bin/gstreamer_compare" "$folder/loss-free.wav" "$folder/opusdec.wav" "$folder/aiplcopusdec.wav"
