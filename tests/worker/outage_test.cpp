// SPDX-License-Identifier: BSD-2-Clause

#include "worker/classical/outage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "bench/allocations.h"

namespace aiplc::worker {
namespace {

using Samples = std::vector<int16_t>;

constexpr double kBuzz = 600;
constexpr double kBackground = 60;  // RMS

// Fills all that is missing with a square wave of 200 Hz, which must not be heard for long.
class Buzz : public Predictor {
  public:
    int32_t Predict(std::span<const int16_t, kWindowSamples> window,
                    std::span<int16_t, kWindowSamples> out) noexcept override {
        ++requests;
        std::ranges::copy(window, out.begin());
        for (size_t i = 0; i < kWindowSamples; ++i)
            if (out[i] == 0) out[i] = static_cast<int16_t>(i / 40 % 2 == 0 ? kBuzz : -kBuzz);
        return 0;
    }
    inline static int requests = 0;
};

double Correlation(std::span<const int16_t> s, size_t lag) {
    double with = 0;
    double power = 0;
    for (size_t i = lag; i < s.size(); ++i) {
        with += double(s[i]) * s[i - lag];
        power += double(s[i]) * s[i];
    }
    return with / power;
}

double Rms(std::span<const int16_t> s) {
    double power = 0;
    for (const int16_t x : s)
        power += double(x) * x;
    return std::sqrt(power / double(s.size()));
}

// A history of frames that the library would keep, and the requests that it would make of it.
class Call {
  public:
    // Coloured noise, on top of it a tone in every other 200 ms.
    void Receive(size_t frames) {
        for (size_t i = 0; i < frames * kFrameSamples; ++i, ++m_time) {
            m_noise = 0.9 * m_noise + kBackground * std::sqrt(1 - 0.81) * m_white(m_random);
            const bool isTone = m_time / 3200 % 2 == 1;
            const double tone = isTone ? 5000 * std::sin(0.1 * double(m_time)) : 0;
            m_history.push_back(static_cast<int16_t>(std::lround(m_noise + tone)));
        }
    }
    void Lose(size_t frames) {
        m_history.resize(m_history.size() + frames * kFrameSamples);
        m_time += frames * kFrameSamples;
    }
    // Asks for the window that ends at the newest frame, and keeps the first two frames of the
    // prediction's gap, which begins there.
    void Ask(size_t gap) {
        const std::span window = std::span(m_history).last<kWindowSamples>();
        const auto before = bench::Allocations();
        ASSERT_EQ(m_outage.Predict(window, m_out), 0);
        ASSERT_EQ(bench::Allocations(), before);
        std::copy_n(m_out.begin() + long(gap), 2 * kFrameSamples, window.begin() + long(gap));
    }
    // Two frames of a loss that goes on, one of which the prediction limit fades out.
    std::span<const int16_t> GoOn(bool isFaded) {
        Lose(2);
        Ask(5 * kFrameSamples);
        const std::span made = std::span(m_history).last(3 * kFrameSamples).first(640);
        Samples &heard = m_heard.emplace_back(made.begin(), made.end());
        for (size_t i = 0; isFaded && i < kFrameSamples; ++i)
            made[320 + i] = static_cast<int16_t>(made[320 + i] * (320 - int(i)) / 320);
        return heard;
    }
    const auto &Prediction() const { return m_out; }
    Outage &Worker() { return m_outage; }

  private:
    Outage m_outage{std::make_unique<Buzz>()};
    std::mt19937 m_random{7};
    std::normal_distribution<double> m_white;
    double m_noise = 0;
    size_t m_time = 0;
    Samples m_history;
    std::vector<Samples> m_heard;
    std::array<int16_t, kWindowSamples> m_out{};
};

TEST(Outage, EndsInTheBackgroundAndNotInItsOwnPredictions) {
    Call call;
    for (int gap = 0; gap < 20; ++gap) {
        call.Receive(9);
        call.Lose(2);
        call.Receive(2);
        call.Ask(4 * kFrameSamples);
    }
    call.Receive(8);
    call.Lose(1);
    for (const bool isFaded : {false, false, true}) {
        const auto predicted = call.GoOn(isFaded);
        EXPECT_NEAR(Rms(predicted), kBuzz, 1);
    }
    const auto fading = call.GoOn(false);
    EXPECT_LT(Rms(fading.last(320)), 2 * kBackground);
    EXPECT_GT(Rms(fading.first(160)), kBuzz / 2);

    const int requests = Buzz::requests;
    Samples quiet;
    for (int k = 0; k < 30; ++k) {
        const auto made = call.GoOn(k % 3 == 2);
        quiet.insert(quiet.end(), made.begin(), made.end());
        const double level = 20 * std::log10(Rms(made) / kBackground);
        EXPECT_LT(std::abs(level), 3) << k;
    }
    EXPECT_EQ(Buzz::requests, requests);
    EXPECT_NEAR(Correlation(quiet, 1), 0.9, 0.05);
    for (size_t lag = 60; lag < 2000; ++lag)
        ASSERT_LT(std::abs(Correlation(quiet, lag)), 0.15) << lag;

    // Received audio again: the other predictor's predictions are heard at once.
    call.Receive(1);
    call.Ask(6 * kFrameSamples);
    EXPECT_EQ(Buzz::requests, requests + 1);
    EXPECT_EQ(std::abs(call.Prediction()[6 * kFrameSamples]), kBuzz);
}

// Speech alone is no background.
TEST(Outage, FadesWhereItHasHeardNothingButSpeech) {
    Call call;
    call.Receive(10);  // noise
    call.Worker().ForgetLast();
    call.Receive(8);  // the tone
    call.Lose(1);
    for (int k = 0; k < 4; ++k)
        call.GoOn(k == 2);
    const double first = Rms(call.GoOn(false));
    EXPECT_LT(first, 5000 * 0.0563);  // 25 dB below the tone
    for (int k = 0; k < 30; ++k)
        call.GoOn(k % 3 == 2);
    EXPECT_LT(Rms(call.GoOn(false)), first / 10);
}

}  // namespace
}  // namespace aiplc::worker
