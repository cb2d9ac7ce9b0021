// SPDX-License-Identifier: BSD-2-Clause
//
// How far recordings of one call, made with losses, lie from its loss-free recording:
//     gstreamer_compare LOSS-FREE.wav CONCEALED.wav ...
// Frames count that lie more than 1 dB from the loss-free ones in any of the recordings, so that
// all recordings are measured over the same ones. For scripts/gstreamer_demo.sh.

#include <sndfile.hh>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "measure/log_spectral_distance.h"

namespace aiplc::gst {
namespace {

constexpr int kRate = 16000;
constexpr size_t kFrame = 320;
constexpr size_t kLargestShift = 25;  // frames
constexpr double kTouchedDb = 1.0;

using Pcm = std::vector<int16_t>;

Pcm Read(const std::string &path) {
    SndfileHandle file(path);
    if (!file || file.channels() != 1 || file.samplerate() != kRate)
        throw std::runtime_error(path + " must be a mono recording at 16 kHz");
    Pcm pcm(static_cast<size_t>(file.frames()));
    pcm.resize(static_cast<size_t>(file.read(pcm.data(), file.frames())));
    return pcm;
}

size_t Frames(const Pcm &pcm) {
    return pcm.size() / kFrame;
}

std::span<const int16_t> Frame(const Pcm &pcm, size_t index) {
    return std::span(pcm).subspan(index * kFrame, kFrame);
}

double Difference(std::span<const int16_t> one, std::span<const int16_t> other) {
    double sum = 0;
    for (size_t i = 0; i < one.size(); ++i)
        sum += std::abs(one[i] - other[i]);
    return sum;
}

// Cuts off what the recording lacks at its begin, because its first packets were lost.
Pcm AlignedReference(const Pcm &reference, const Pcm &recording) {
    size_t best = 0;
    double least = std::numeric_limits<double>::max();
    for (size_t shift = 0; shift <= std::min(kLargestShift, Frames(reference)); ++shift) {
        const size_t count = std::min(Frames(reference) - shift, Frames(recording));
        double sum = 0;
        for (size_t i = 0; i < count; ++i)
            sum += Difference(Frame(reference, i + shift), Frame(recording, i));
        if (count > 0 && sum / static_cast<double>(count) < least) {
            least = sum / static_cast<double>(count);
            best = shift;
        }
    }
    return {reference.begin() + static_cast<std::ptrdiff_t>(best * kFrame), reference.end()};
}

void Compare(std::span<char *const> paths) {
    std::vector<Pcm> recordings;
    for (const char *path : paths.subspan(1))
        recordings.push_back(Read(path));
    const Pcm reference = AlignedReference(Read(paths[0]), recordings[0]);
    size_t count = Frames(reference);
    for (const Pcm &recording : recordings)
        count = std::min(count, Frames(recording));
    measure::LogSpectralDistance meter(kRate);
    std::vector<bool> differs(count);
    for (size_t i = 0; i < count; ++i)
        differs[i] = std::ranges::any_of(recordings, [&](const Pcm &recording) {
            return meter.FrameDb(Frame(recording, i), Frame(reference, i)) > kTouchedDb;
        });
    std::printf("%zu of %zu frames lie more than %.0f dB from the loss-free ones\n\n",
                static_cast<size_t>(std::ranges::count(differs, true)), count, kTouchedDb);
    std::printf("%-28s %s\n", "recording", "log-spectral distance of those with speech, dB");
    for (size_t index = 0; index < recordings.size(); ++index) {
        measure::LogSpectralDistance distance(kRate);
        for (size_t i = 0; i < count; ++i)
            distance.Add(Frame(recordings[index], i), Frame(reference, i), differs[i]);
        std::printf("%-28s %.2f\n", paths[index + 1], distance.MeanDb().value_or(0));
    }
}

}  // namespace
}  // namespace aiplc::gst

int main(int argc, char **argv) {
    if (argc < 3) {
        std::fputs("usage: gstreamer_compare LOSS-FREE.wav CONCEALED.wav ...\n", stderr);
        return 2;
    }
    try {
        aiplc::gst::Compare(std::span(argv + 1, argv + argc));
        return 0;
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "gstreamer_compare: %s\n", failure.what());
        return 1;
    }
}
