#!/usr/bin/env python3
"""The same losses without redundancy, with in-band FEC and with redundant audio (RFC 2198), each at
the same bit rate of all payloads together: scripts/compare_redundancy.py AIPLC FOLDER [BITRATE]

Three minutes of recorded voices from Debian's fillets-ng-data-nl, losses in bursts of 2 packets.
"""

import json
import pathlib
import subprocess
import sys

SPEECH = "/usr/share/games/fillets-ng/sound"
SECONDS = 180
TOLERANCE = 0.03
CONCEALED = ("partial", "interpolated", "extrapolated", "secondLook", "codec", "muted", "lost")
WAYS = {"none": [], "FEC": ["--fec"], "copies of 1": ["--red", "1"], "copies of 2": ["--red", "2"],
        "copies of 3": ["--red", "3"]}


def make_speech(path):
    raw = ["-t", "raw", "-r", "16000", "-c", "1", "-b", "16", "-e", "signed"]
    pcm = b""
    for clip in sorted(pathlib.Path(SPEECH).glob("**/nl/*.ogg")):
        pcm += subprocess.run(["sox", clip, *raw, "-"], check=True, capture_output=True).stdout
        if len(pcm) >= 2 * 16000 * SECONDS:
            break
    if not pcm:
        sys.exit(f"{SPEECH}: no speech; install fillets-ng-data-nl")
    subprocess.run(["sox", *raw, "-", path], input=pcm[:2 * 16000 * SECONDS], check=True)


class Bench:
    def __init__(self, aiplc, folder):
        self.aiplc = aiplc
        self.speech = folder / "speech.wav"
        self.output = folder / "out.wav"
        if not self.speech.exists():
            make_speech(self.speech)

    def run(self, command, options):
        """The report of a run, as aiplc writes it."""
        call = [self.aiplc, command, self.speech, "--rate", "16", "--burst", "2", "-q", "--json", "-"]
        return json.loads(subprocess.run(call + options, check=True, capture_output=True).stdout)

    def bitrate_for(self, total, options):
        """The encoder's bit rate at which all payloads together come to total, in bit/s."""
        bitrate = total
        for _ in range(8):
            report = self.run("conceal", options + ["--no-ai", "-o", self.output,
                                                    "--bitrate", str(bitrate)])
            measured = report["input"]["payloadBitrate"]
            if abs(measured / total - 1) < TOLERANCE / 3:
                return bitrate
            bitrate = min(max(round(bitrate * total / measured), 6000), 510000)
        sys.exit(f"{total} bit/s cannot be reached with {' '.join(options)}; give another bit rate")

    def figures(self, total, options):
        """What compare measures over the whole call, as value by method and measure."""
        report = self.run("compare", options + ["--bitrate", str(self.bitrate_for(total, options))])
        values = {(figure["method"], figure["measure"]): figure["value"]
                  for figure in report["figures"] if figure["kind"] == "call"}
        return values, report["files"][0]["payloadBitrate"]


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    folder = pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    total = int(sys.argv[3]) if len(sys.argv) == 4 else 48000
    bench = Bench(sys.argv[1], folder)
    print("LSD and MCD are those of concealed frames, ESTOI is that of the whole call, all three of\n"
          "aiplc against the same call without losses: what coding at a lower rate costs is not in.\n")
    print("| loss | redundancy | kbit/s in all | concealed | LSD, dB | MCD, dB | ESTOI | codec's |")
    print("|---|---|---|---|---|---|---|---|")
    for loss in (10, 20, 30):
        for way, options in WAYS.items():
            values, measured = bench.figures(total, ["--loss", str(loss)] + options)
            if abs(measured / total - 1) > TOLERANCE:
                sys.exit(f"{way} at {loss} %: {measured} bit/s are not {total}")
            concealed = sum(values.get(("aiplc", "share." + source), 0) for source in CONCEALED)
            print(f"| {loss} % | {way} | {measured / 1000:.1f} | {concealed:.1f} % "
                  f"| {values[('aiplc', 'lsd')]:.2f} | {values[('aiplc', 'mcd')]:.2f} "
                  f"| {values[('aiplc', 'estoi')]:.3f} | {values[('codec', 'estoi')]:.3f} |",
                  flush=True)


if __name__ == "__main__":
    main()
