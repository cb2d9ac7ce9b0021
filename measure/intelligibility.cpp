// SPDX-License-Identifier: BSD-2-Clause

#include "measure/intelligibility.h"

#include <kissfft/kiss_fftr.h>
#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <numbers>
#include <stdexcept>

namespace aiplc::measure {
namespace {

constexpr int kRate = 10000;
constexpr size_t kFrame = 256;
constexpr size_t kHop = 128;
constexpr size_t kFft = 512;
constexpr size_t kSegment = 30;  // frames
constexpr double kLowestCentreHz = 150.0;
constexpr double kSpeechRangeDb = 40.0;
constexpr double kTiny = 1e-9;  // keeps silence from dividing by nothing

// The call at 10 kHz, in 16-bit steps.
std::vector<float> Resample(std::span<const int16_t> samples, int sampleRate) {
    const size_t length = samples.size() * kRate / static_cast<size_t>(sampleRate);
    std::vector<float> output(length, 0.0F);
    const soxr_io_spec_t format = soxr_io_spec(SOXR_INT16_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    size_t done = 0;
    if (soxr_oneshot(sampleRate, kRate, 1, samples.data(), samples.size(), nullptr, output.data(),
                     output.size(), &done, &format, &quality, nullptr) != nullptr) {
        throw std::runtime_error("the intelligibility measure cannot resample to 10 kHz");
    }
    for (float &sample : output)
        sample *= 32768.0F;
    return output;
}

std::array<float, kFrame> HannWindow() {
    std::array<float, kFrame> window{};
    for (size_t i = 0; i < kFrame; ++i) {
        const double phase = 2.0 * std::numbers::pi * static_cast<double>(i + 1) / (kFrame + 1);
        window[i] = static_cast<float>(0.5 - 0.5 * std::cos(phase));
    }
    return window;
}

size_t BinFrom(double hz) {
    return static_cast<size_t>(std::ceil(hz * kFft / kRate));
}

size_t FrameCount(size_t samples) {
    return samples < kFrame ? 0 : (samples - kFrame) / kHop + 1;
}

// Takes the mean off and scales to length 1. at(i): the i-th of count values.
template <typename At>
void Normalise(size_t count, At at) {
    double mean = 0.0;
    for (size_t i = 0; i < count; ++i)
        mean += at(i);
    mean /= static_cast<double>(count);
    double power = 0.0;
    for (size_t i = 0; i < count; ++i) {
        at(i) -= mean;
        power += at(i) * at(i);
    }
    const double scale = 1.0 / (std::sqrt(power) + kTiny);
    for (size_t i = 0; i < count; ++i)
        at(i) *= scale;
}

template <typename Frames>
void NormaliseSegment(Frames &frames) {
    for (size_t band = 0; band < frames[0].size(); ++band)
        Normalise(frames.size(), [&](size_t i) -> double & { return frames[i][band]; });
    for (auto &frame : frames)
        Normalise(frame.size(), [&](size_t i) -> double & { return frame[i]; });
}

}  // namespace

Intelligibility::Intelligibility(std::span<const int16_t> reference, int sampleRate)
    : m_sampleRate(sampleRate) {
    const std::vector<float> at10K = Resample(reference, sampleRate);
    const std::array<float, kFrame> window = HannWindow();
    std::vector<double> levels;
    for (size_t frame = 0; frame < FrameCount(at10K.size()); ++frame) {
        double power = 0.0;
        for (size_t i = 0; i < kFrame; ++i) {
            const auto sample = static_cast<double>(window[i] * at10K[frame * kHop + i]);
            power += sample * sample;
        }
        levels.push_back(20.0 * std::log10(std::sqrt(power) + kTiny));
    }
    if (levels.empty()) return;
    const double loudest = *std::max_element(levels.begin(), levels.end());
    for (size_t frame = 0; frame < levels.size(); ++frame) {
        if (levels[frame] > loudest - kSpeechRangeDb) m_kept.push_back(frame);
    }
    m_reference = Magnitudes(at10K);
}

std::vector<Intelligibility::Frame> Intelligibility::Magnitudes(
    const std::vector<float> &at10K) const {
    const std::unique_ptr<kiss_fftr_state, void (*)(kiss_fftr_state *)> fft(
        kiss_fftr_alloc(kFft, 0, nullptr, nullptr), [](auto *state) { kiss_fftr_free(state); });
    if (!fft) throw std::bad_alloc();
    const std::array<float, kFrame> window = HannWindow();
    std::array<float, kFft> time{};
    std::array<kiss_fft_cpx, kFft / 2 + 1> bins{};
    std::vector<Frame> frames;
    frames.reserve(m_kept.size());
    for (const size_t kept : m_kept) {
        for (size_t i = 0; i < kFrame; ++i)
            time[i] = window[i] * at10K[kept * kHop + i];
        kiss_fftr(fft.get(), time.data(), bins.data());
        Frame &frame = frames.emplace_back();
        for (size_t band = 0; band < kBands; ++band) {
            const double centre = kLowestCentreHz * std::exp2(static_cast<double>(band) / 3.0);
            double power = kTiny;
            const size_t end = BinFrom(centre * std::exp2(1.0 / 6.0));
            for (size_t k = BinFrom(centre * std::exp2(-1.0 / 6.0)); k < end; ++k)
                power += static_cast<double>(bins[k].r * bins[k].r + bins[k].i * bins[k].i);
            frame[band] = std::sqrt(power);
        }
    }
    return frames;
}

std::vector<Intelligibility::Segment> Intelligibility::Segments(
    std::span<const int16_t> signal) const {
    std::vector<Segment> segments;
    if (m_reference.size() < kSegment) return segments;
    std::vector<float> at10K = Resample(signal, m_sampleRate);
    at10K.resize(std::max(at10K.size(), m_kept.back() * kHop + kFrame), 0.0F);
    const std::vector<Frame> processed = Magnitudes(at10K);
    for (size_t first = 0; first + kSegment <= processed.size(); ++first) {
        std::array<Frame, kSegment> one{};
        std::array<Frame, kSegment> other{};
        std::copy_n(&processed[first], kSegment, one.begin());
        std::copy_n(&m_reference[first], kSegment, other.begin());
        NormaliseSegment(one);
        NormaliseSegment(other);
        double sum = 0.0;
        for (size_t i = 0; i < kSegment; ++i) {
            for (size_t band = 0; band < kBands; ++band)
                sum += one[i][band] * other[i][band];
        }
        const size_t end = m_kept[first + kSegment - 1] * kHop + kFrame;
        segments.push_back({static_cast<double>(m_kept[first] * kHop) / kRate,
                            static_cast<double>(end) / kRate, sum / double{kSegment}});
    }
    return segments;
}

}  // namespace aiplc::measure
