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
constexpr int64_t kShiftGrid = 40;      // samples
constexpr int64_t kLargestShift = 800;  // samples
constexpr int64_t kAround = 4000;       // samples before and behind a frame that decide its shift
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

// A recording brought back into step with the reference. A decoder that conceals the length that a
// gap event states, which is uneven, is some milliseconds ahead or behind from then on; that is
// nothing that can be heard, but would make every later frame a different one. The shift, a
// multiple of 2.5 ms, is followed by the difference from the reference around each frame.
class Aligned {
  public:
    Aligned(const Pcm &reference, const Pcm &recording) : m_reference(reference), m_pcm(recording) {
        for (size_t frame = 0; frame < Frames(reference); ++frame)
            m_shifts.push_back(Best(frame, m_shifts.empty() ? 0 : m_shifts.back()));
    }
    // Empty where the recording has none.
    std::span<const int16_t> operator[](size_t frame) const {
        const int64_t begin = static_cast<int64_t>(frame * kFrame) + m_shifts[frame];
        if (begin < 0 || begin + static_cast<int64_t>(kFrame) > std::ssize(m_pcm)) return {};
        return std::span(m_pcm).subspan(static_cast<size_t>(begin), kFrame);
    }
    double LastShiftMs() const { return static_cast<double>(m_shifts.back()) * 1000 / kRate; }

  private:
    int64_t Best(size_t frame, int64_t from) const {
        int64_t best = from;
        double least = Cost(frame, from) / 2;  // a clear case only, not what losses leave
        for (int64_t shift = -kLargestShift; shift <= kLargestShift; shift += kShiftGrid) {
            const double cost = Cost(frame, shift);
            if (cost >= least) continue;
            least = cost;
            best = shift;
        }
        return best;
    }
    double Cost(size_t frame, int64_t shift) const {
        const auto middle = static_cast<int64_t>(frame * kFrame);
        const int64_t begin = std::max<int64_t>({middle - kAround, 0, -shift});
        const int64_t end = std::min<int64_t>(
            {middle + kAround, std::ssize(m_reference), std::ssize(m_pcm) - shift});
        if (begin >= end) return std::numeric_limits<double>::max();
        double sum = 0;
        for (int64_t i = begin; i < end; ++i)
            sum += std::abs(m_reference[static_cast<size_t>(i)] -
                            m_pcm[static_cast<size_t>(i + shift)]);
        return sum / static_cast<double>(end - begin);
    }

    const Pcm &m_reference;
    const Pcm &m_pcm;
    std::vector<int64_t> m_shifts;  // of each frame of the reference, samples
};

void Compare(std::span<char *const> paths) {
    const Pcm reference = Read(paths[0]);
    std::vector<Pcm> recordings;
    for (const char *path : paths.subspan(1))
        recordings.push_back(Read(path));
    std::vector<Aligned> aligned;
    for (const Pcm &recording : recordings)
        aligned.emplace_back(reference, recording);
    if (Frames(reference) == 0) throw std::runtime_error("the loss-free recording is empty");

    measure::LogSpectralDistance meter(kRate);
    std::vector<bool> counts(Frames(reference));
    for (size_t i = 0; i < counts.size(); ++i) {
        if (std::ranges::any_of(aligned, [i](const Aligned &one) { return one[i].empty(); }))
            continue;
        counts[i] = std::ranges::any_of(aligned, [&](const Aligned &one) {
            return meter.FrameDb(one[i], Frame(reference, i)) > kTouchedDb;
        });
    }
    std::printf("%zu of %zu frames lie more than %.0f dB from the loss-free ones\n\n",
                static_cast<size_t>(std::ranges::count(counts, true)), counts.size(), kTouchedDb);
    std::printf(
        "log-spectral distance of those with speech, dB | shift at the end, ms | recording\n");
    for (size_t index = 0; index < aligned.size(); ++index) {
        measure::LogSpectralDistance distance(kRate);
        for (size_t i = 0; i < counts.size(); ++i)
            if (!aligned[index][i].empty())
                distance.Add(aligned[index][i], Frame(reference, i), counts[i]);
        std::printf("%5.2f | %5.1f | %s\n", distance.MeanDb().value_or(0),
                    aligned[index].LastShiftMs(), paths[index + 1]);
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
