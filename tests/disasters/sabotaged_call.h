// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_SABOTAGED_CALL_H
#define AIPLC_TESTS_SABOTAGED_CALL_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <span>
#include <thread>
#include <vector>

#include "host/pipeline_channel.h"

namespace aiplc::host {

using Clock = std::chrono::steady_clock;

inline double MsSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// How long this machine leaves a thread that wants to run waiting: the longest of many short waits.
class SchedulingNoise {
  public:
    ~SchedulingNoise() {
        m_ends = true;
        m_thread.join();
    }
    double LongestMs() const { return m_longestMs; }

  private:
    void Watch() {
        while (!m_ends) {
            const auto begin = Clock::now();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            m_longestMs = std::max<double>(m_longestMs, MsSince(begin) - 1);
        }
    }
    std::atomic<bool> m_ends = false;
    std::atomic<double> m_longestMs = 0;
    std::thread m_thread{[this] { Watch(); }};
};

// A call of loud noise that loses two frames of four, then one frame of four, and so on: every
// fourth tick asks the worker, the library for two frames or the host for the single one.
class SabotagedCall {
  public:
    // Longest that the library may hold the audio thread: 10 ms for the worker to take the request
    // and 16 ms for its answer.
    static constexpr double kLimitMs = 26;
    static constexpr int kPeriod = 4;
    static constexpr uint32_t kRate = 16000;

    explicit SabotagedCall(bool useWorker = true, AiplcAdapterInterface *adapter = nullptr)
        : m_channel({.sampleRate = kRate, .useWorker = useWorker, .adapter = adapter}) {}

    // Plays periods of four frames. before runs straight before each request.
    void Play(
        int periods, const std::function<void()> &before = [] {}, bool isPaced = false) {
        for (int i = 0; i < periods * kPeriod; ++i) {
            if (isPaced) std::this_thread::sleep_for(std::chrono::milliseconds(20));
            const bool asks = m_frames % kPeriod == 1 && m_frames > 2 * kPeriod;
            if (asks) before();
            const auto begin = Clock::now();
            Tick();
            m_result.longestMs = std::max(m_result.longestMs, MsSince(begin));
            if (m_frames++ <= kPeriod) continue;
            const auto output = m_channel.OutputSamples();
            if (std::ranges::none_of(output, [](int16_t s) { return s != 0; })) ++m_result.silent;
            const bool isFilled =
                m_channel.LastDecision().secondLook == HistoryEditor::SecondLook::filled;
            m_result.secondLooks += isFilled ? 1 : 0;
            m_result.predicted +=
                isFilled || m_channel.Output().pktType == AIPLC_INTERPOLATE ? 1 : 0;
        }
    }
    // Plays on until a frame of the worker is heard, but not for ever.
    bool PlayUntilPredicted() {
        for (int i = 0; i < 50 && m_result.predicted == 0; ++i)
            Play(1);
        return m_result.predicted > 0;
    }
    struct Figures {
        double longestMs = 0;  // of a call of AiPlcApply
        int silent = 0;        // frames
        int predicted = 0;
        int secondLooks = 0;  // among the predicted
    };
    const Figures &Result() const { return m_result; }
    bool PredictorRunning() const { return m_channel.PredictorRunning(); }

  private:
    void Tick() {
        const auto fill = [this](std::span<int16_t> frame) {
            for (int16_t &sample : frame)
                sample = static_cast<int16_t>(static_cast<int>(m_random() % 8001) - 4000);
        };
        const bool isSingle = m_frames / kPeriod % 2 == 1;
        const int place = m_frames % kPeriod;
        if ((place == 2 || (place == 3 && !isSingle)) && m_frames > kPeriod) {
            m_channel.ApplyLost(fill);
            return;
        }
        std::vector<int16_t> frame(AIPLC_FRAME_SAMPLES_16K);
        fill(frame);
        m_channel.ApplyReceived(frame, 1103);
    }

    PipelineChannel m_channel;
    std::minstd_rand m_random;
    int m_frames = 0;
    Figures m_result;
};

}  // namespace aiplc::host

#endif
