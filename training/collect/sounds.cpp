// SPDX-License-Identifier: BSD-2-Clause

#include "training/collect/sounds.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace aiplc::training {
namespace {

constexpr double kTone = 440;  // Hz
constexpr std::array<double, 4> kRows = {697, 770, 852, 941};
constexpr std::array<double, 4> kColumns = {1209, 1336, 1477, 1633};
constexpr double kTwist = 1.2589;  // amplitude of the higher tone by that of the lower one, 2 dB
constexpr int kEdge = 32;          // samples in which a digit sets in and ends, 2 ms

double Sine(double frequency, size_t at) {
    return std::sin(2 * std::numbers::pi * frequency * static_cast<double>(at) / Sounds::kRate);
}

// Amplitude of a sine of -30 to -10 dBFS.
double DrawAmplitude(Random &random) {
    return 32768 * std::numbers::sqrt2 * std::pow(10.0, random.Uniform(-30, -10) / 20);
}

int DrawMilliseconds(int low, int high, Random &random) {
    return random.Integer(low, high) * Sounds::kRate / 1000;
}

int16_t Rounded(double value) {
    return static_cast<int16_t>(std::lrint(value));
}

std::vector<int16_t> MakeTone(double seconds, Random &random) {
    const double amplitude = DrawAmplitude(random);
    std::vector<int16_t> samples(static_cast<size_t>(seconds * Sounds::kRate));
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = Rounded(amplitude * Sine(kTone, i));
    return samples;
}

std::vector<int16_t> MakeDigits(double seconds, Random &random) {
    // The power of a digit is that of one sine of this amplitude.
    const double low = DrawAmplitude(random) / std::hypot(1, kTwist);
    const auto size = static_cast<size_t>(seconds * Sounds::kRate);
    std::vector<int16_t> samples;
    while (samples.size() < size) {
        const double row = kRows.at(static_cast<size_t>(random.Integer(0, 3)));
        const double column = kColumns.at(static_cast<size_t>(random.Integer(0, 3)));
        const int length = DrawMilliseconds(80, 200, random);
        for (int i = 0; i < length; ++i) {
            const double inside = std::min({i, length - 1 - i, kEdge});
            const auto at = static_cast<size_t>(i);
            samples.push_back(
                Rounded(low * inside / kEdge * (Sine(row, at) + kTwist * Sine(column, at))));
        }
        samples.resize(samples.size() + static_cast<size_t>(DrawMilliseconds(60, 200, random)));
    }
    samples.resize(size);
    return samples;
}

}  // namespace

Sounds::Sounds(Scene scene, const std::string &musicFolder, double seconds, uint32_t seed)
    : m_scene(scene), m_seconds(seconds), m_seed(seed) {
    if (scene != Scene::music) return;
    for (const std::string &path : FindMusic(musicFolder))
        m_pieces.push_back(LoadRecording(path));
}

Recording Sounds::Make(uint32_t index) const {
    Random random({m_seed, index});
    if (m_scene == Scene::music) return Excerpt(index, random);
    return {kRate,
            m_scene == Scene::tone ? MakeTone(m_seconds, random) : MakeDigits(m_seconds, random)};
}

Recording Sounds::Excerpt(uint32_t index, Random &random) const {
    const Recording &piece = m_pieces[index % m_pieces.size()];
    const size_t length =
        std::min(static_cast<size_t>(m_seconds * piece.rate), piece.samples.size());
    const auto latest = static_cast<int>(piece.samples.size() - length);
    const auto from = piece.samples.begin() + random.Integer(0, latest);
    return {piece.rate, {from, from + static_cast<std::ptrdiff_t>(length)}};
}

}  // namespace aiplc::training
