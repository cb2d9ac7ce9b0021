// SPDX-License-Identifier: BSD-2-Clause
//
// A request's way to the worker and back, beside a bare futex ping-pong: everything on one core and
// in turns, so that a disturbance of the machine meets all of them alike.

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "benchmarks.h"
#include "durations.h"
#include "instant_worker.h"
#include "neural.h"
#include "pace.h"
#include "peer.h"
#include "ping_pong.h"
#include "registration.h"
#include "windows.h"

namespace aiplc::bench {

namespace {

constexpr int64_t kRounds = 11;
constexpr int64_t kExchanges = 100;  // of each kind in a round, back to back
constexpr int64_t kKinds = 5;
constexpr int kTimeoutMs = 16;

int64_t ExchangesPerRound(Rhythm rhythm) {
    return rhythm == Rhythm::paced ? std::max<int64_t>(PacedTicks() / kRounds / kKinds, 1)
                                   : kExchanges;
}

// The worker as it is shipped.
class NetworkWorker {
  public:
    NetworkWorker() {
        UseNewNamespace();
        m_adapter = std::make_unique<AiplcAdapter>();
        if (m_adapter->Create() != 0 || m_adapter->Init() != 0)
            throw std::runtime_error("the worker did not start");
    }
    ~NetworkWorker() { (void)m_adapter->Delete(); }
    NetworkWorker(const NetworkWorker &) = delete;
    NetworkWorker &operator=(const NetworkWorker &) = delete;

    AiplcAdapter &Adapter() { return *m_adapter; }

  private:
    std::unique_ptr<AiplcAdapter> m_adapter;
};

// One thing that is done in turns with the others.
class Exchange {
  public:
    // work gets a running number.
    Exchange(std::function<void(size_t)> work, int64_t expected)
        : m_work(std::move(work)), m_all(expected) {}

    // The round's median.
    void RunRound(Pace &pace, int64_t exchanges) {
        Durations round(exchanges);
        for (int64_t i = 0; i < exchanges; ++i) {
            pace.Wait();
            const int64_t begin = Nanoseconds();
            m_work(m_count++);
            const int64_t took = Nanoseconds() - begin;
            round.Add(took);
            m_all.Add(took);
        }
        m_roundUs = round.MedianUs();
    }
    double RoundUs() const { return m_roundUs; }
    const Durations &All() const { return m_all; }

  private:
    std::function<void(size_t)> m_work;
    size_t m_count = 0;
    Durations m_all;
    double m_roundUs = 0;
};

// Late answers count, since they take the time that they take.
void Request(AiplcAdapter &adapter, const Window &window, int64_t &late) {
    InoutDetail record{};
    static_assert(sizeof record.AudioIn == sizeof window);
    std::memcpy(record.AudioIn, window.data(), sizeof window);
    record.inferArg = 1;
    if (adapter.Process(record, kTimeoutMs) != 0) ++late;
}

void MeasureRoundTrips(benchmark::State &state, Rhythm rhythm) {
    const std::vector<Window> windows = LoadWindows();
    const OneCore core;
    FutexPingPong futex;
    EventPingPong events;
    InstantWorker instant;
    NetworkWorker network;
    const DenormalsFlushed denormals;
    const auto neural = std::make_unique<worker::Neural>(LoadModel());
    const auto window = [&windows](size_t number) -> const Window & {
        return windows[number % windows.size()];
    };
    int64_t late = 0;
    Window out{};

    const int64_t exchanges = ExchangesPerRound(rhythm);
    const int64_t all = exchanges * state.max_iterations;
    Exchange bare([&](size_t) { futex.RoundTrip(); }, all);
    Exchange event([&](size_t) { events.RoundTrip(); }, all);
    Exchange echo([&](size_t i) { Request(instant.Adapter(), window(i), late); }, all);
    Exchange request([&](size_t i) { Request(network.Adapter(), window(i), late); }, all);
    Exchange model([&](size_t i) { (void)neural->Predict(window(i), out); }, all);
    std::vector<double> eventShares;
    std::vector<double> echoShares;
    std::vector<double> requestShares;
    Pace pace(rhythm);
    for ([[maybe_unused]] auto iteration : state) {
        for (Exchange *exchange : {&bare, &event, &echo, &request, &model})
            exchange->RunRound(pace, exchanges);
        eventShares.push_back(event.RoundUs() / bare.RoundUs());
        echoShares.push_back(echo.RoundUs() / bare.RoundUs());
        requestShares.push_back((request.RoundUs() - model.RoundUs()) / bare.RoundUs());
        state.SetIterationTime(request.RoundUs() * 1e-6);
    }
    request.All().Report(state);
    state.counters["model_p50_us"] = model.All().MedianUs();
    state.counters["instant_p50_us"] = echo.All().MedianUs();
    state.counters["event_p50_us"] = event.All().MedianUs();
    state.counters["futex_p50_us"] = bare.All().MedianUs();
    state.counters["event_over_futex"] = Median(eventShares);
    state.counters["instant_over_futex"] = Median(echoShares);
    state.counters["less_model_over_futex"] = Median(requestShares);
    state.counters["late_share"] = static_cast<double>(late) / static_cast<double>(2 * all);
}

}  // namespace

void RegisterRoundTrips() {
    for (const Rhythm rhythm : {Rhythm::backToBack, Rhythm::paced}) {
        Register(std::string("worker/round_trip/") + NameOf(rhythm), kRounds,
                 [rhythm](benchmark::State &state) { MeasureRoundTrips(state, rhythm); });
    }
}

}  // namespace aiplc::bench
