// SPDX-License-Identifier: BSD-2-Clause

#include "receiver/time_stretch.h"

#include <algorithm>
#include <cmath>

namespace aiplc::receiver {
namespace {

constexpr double kAlike = 0.85;        // normalised correlation of neighbouring periods
constexpr double kQuietLevel = 100;    // rms: -50 dBFS
constexpr double kQuietOverNoise = 2;  // 6 dB
constexpr double kLoudestNoise = 330;  // rms: -40 dBFS; louder sound is never taken for a pause
constexpr double kNoiseRise = 1.005;   // a frame: 2 dB a second

double Energy(std::span<const int16_t> samples) {
    double sum = 0;
    for (const int16_t sample : samples)
        sum += static_cast<double>(sample) * sample;
    return sum;
}

// -1 to 1; 1 for silence, which is alike.
double Correlation(std::span<const int16_t> a, std::span<const int16_t> b) {
    double product = 0;
    for (size_t i = 0; i < a.size(); ++i)
        product += static_cast<double>(a[i]) * b[i];
    const double energies = Energy(a) * Energy(b);
    return energies > 0 ? product / std::sqrt(energies) : 1.0;
}

}  // namespace

TimeStretch::TimeStretch(uint32_t sampleRate)
    : m_shortest(sampleRate / 400), m_longest(sampleRate / 100), m_noise(kLoudestNoise) {
    m_changed.reserve(sampleRate / 50 + m_longest);
}

std::span<const int16_t> TimeStretch::Process(std::span<const int16_t> frame, Change wanted,
                                              size_t most) {
    FollowNoise(frame);
    if (wanted == Change::none) return frame;
    const std::optional<Period> period = FindPeriod(frame, most);
    if (!period) return frame;
    const auto first = frame.subspan(period->start, period->length);
    const auto second = frame.subspan(period->start + period->length, period->length);
    m_changed.clear();
    Append(frame.first(period->start));
    if (wanted == Change::shorten) {
        AppendFade(first, second);
    } else {
        Append(first);
        AppendFade(second, first);
        Append(second);
    }
    Append(frame.subspan(period->start + 2 * period->length));
    return m_changed;
}

void TimeStretch::FollowNoise(std::span<const int16_t> frame) {
    m_level = std::sqrt(Energy(frame) / static_cast<double>(frame.size()));
    m_noise = std::clamp(m_level, 1.0, std::min(m_noise * kNoiseRise, kLoudestNoise));
}

// The most alike neighbours; in a quiet frame the longest period that is allowed, so that a pause
// makes up for most.
std::optional<TimeStretch::Period> TimeStretch::FindPeriod(std::span<const int16_t> frame,
                                                           size_t most) const {
    const size_t longest = std::min(m_longest, most);
    const bool quiet =
        m_level < std::max(kQuietLevel, std::min(kQuietOverNoise * m_noise, kLoudestNoise));
    if (longest < m_shortest) return std::nullopt;
    if (quiet) return Period{(frame.size() - 2 * longest) / 2, longest};
    double best = kAlike;
    std::optional<Period> found;
    for (size_t length = m_shortest; length <= longest; ++length) {
        const size_t start = (frame.size() - 2 * length) / 2;
        const double alike =
            Correlation(frame.subspan(start, length), frame.subspan(start + length, length));
        if (alike <= best) continue;
        best = alike;
        found = Period{start, length};
    }
    return found;
}

void TimeStretch::Append(std::span<const int16_t> samples) {
    m_changed.insert(m_changed.end(), samples.begin(), samples.end());
}

void TimeStretch::AppendFade(std::span<const int16_t> from, std::span<const int16_t> to) {
    const auto count = static_cast<float>(from.size());
    for (size_t i = 0; i < from.size(); ++i) {
        const float share = (static_cast<float>(i) + 0.5F) / count;
        const float mixed =
            static_cast<float>(from[i]) * (1 - share) + static_cast<float>(to[i]) * share;
        m_changed.push_back(static_cast<int16_t>(std::lrint(mixed)));
    }
}

}  // namespace aiplc::receiver
