// SPDX-License-Identifier: BSD-2-Clause
//
// A request's way to the worker and back, beside a bare futex ping-pong: everything on one core and
// in turns, so that a disturbance of the machine meets all of them alike.

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>

#include "bench/benchmarks.h"
#include "bench/durations.h"
#include "bench/instant_worker.h"
#include "bench/metered_worker.h"
#include "bench/pace.h"
#include "bench/peer.h"
#include "bench/ping_pong.h"
#include "bench/registration.h"
#include "bench/windows.h"

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

// One thing that is done in turns with the others.
class Exchange {
  public:
    // work gets a running number. apart says how much of the last exchange is to be told apart.
    Exchange(
        std::function<void(size_t)> work, int64_t expected,
        std::function<int64_t()> apart = [] { return 0; })
        : m_work(std::move(work)), m_apart(std::move(apart)), m_all(expected), m_told(expected) {}

    void RunRound(Pace &pace, int64_t exchanges) {
        Durations rest(exchanges);
        for (int64_t i = 0; i < exchanges; ++i) {
            pace.Wait();
            const int64_t begin = Nanoseconds();
            m_work(m_count++);
            const int64_t took = Nanoseconds() - begin;
            const int64_t apart = m_apart();
            rest.Add(took - apart);
            m_all.Add(took);
            m_told.Add(apart);
        }
        m_restUs = rest.MedianUs();
    }
    // Without what is told apart, the last round's median.
    double RestUs() const { return m_restUs; }
    const Durations &All() const { return m_all; }
    const Durations &Told() const { return m_told; }

  private:
    std::function<void(size_t)> m_work;
    std::function<int64_t()> m_apart;
    size_t m_count = 0;
    Durations m_all;
    Durations m_told;
    double m_restUs = 0;
};

// Late answers count, since they take the time that they take.
void Request(AiplcAdapter &adapter, const Window &window, int64_t &late) {
    InoutDetail record{};
    static_assert(sizeof record.AudioIn == sizeof window);
    std::memcpy(record.AudioIn, window.data(), sizeof window);
    record.inferArg = 1;
    if (adapter.Process(record, kTimeoutMs) != 0) ++late;
}

// In the process that calls it, with a network of its own.
void PredictNext(const std::vector<Window> &windows, Account &account) {
    static MeteredNetwork network(account);
    static size_t count = 0;
    static Window out;
    (void)network.Predict(windows[count++ % windows.size()], out);
}

void MeasureRoundTrips(benchmark::State &state, Rhythm rhythm) {
    const std::vector<Window> windows = LoadWindows();
    const OneCore core;
    FutexPingPong futex;
    EventPingPong events;
    InstantWorker instant;
    MeteredWorker network;
    const SharedAccount account;
    FutexPingPong working([&] { PredictNext(windows, *account); });
    const auto window = [&windows](size_t number) -> const Window & {
        return windows[number % windows.size()];
    };
    int64_t late = 0;
    int64_t allocations = 0;

    const int64_t exchanges = ExchangesPerRound(rhythm);
    const int64_t all = exchanges * state.max_iterations;
    Exchange bare([&](size_t) { futex.RoundTrip(); }, all);
    Exchange event([&](size_t) { events.RoundTrip(); }, all);
    Exchange echo([&](size_t i) { Request(instant.Adapter(), window(i), late); }, all);
    Exchange request([&](size_t i) { Request(network.Adapter(), window(i), late); }, all,
                     [&] {
                         allocations += network.Last().allocations;
                         return network.Last().modelNs.load();
                     });
    Exchange cold([&](size_t) { working.RoundTrip(); }, all,
                  [&] { return account->modelNs.load(); });
    Request(network.Adapter(), window(0), late);  // its allocations are those of the start
    std::vector<double> eventShares;
    std::vector<double> echoShares;
    std::vector<double> requestShares;
    std::vector<double> coldShares;
    Pace pace(rhythm);
    for ([[maybe_unused]] auto iteration : state) {
        for (Exchange *exchange : {&bare, &event, &echo, &cold, &request})
            exchange->RunRound(pace, exchanges);
        eventShares.push_back(event.RestUs() / bare.RestUs());
        echoShares.push_back(echo.RestUs() / bare.RestUs());
        requestShares.push_back(request.RestUs() / bare.RestUs());
        coldShares.push_back(request.RestUs() / cold.RestUs());
        state.SetIterationTime(request.All().MedianUs() * 1e-6);
    }
    request.All().Report(state);
    state.counters["model_p50_us"] = request.Told().MedianUs();
    state.counters["instant_p50_us"] = echo.All().MedianUs();
    state.counters["event_p50_us"] = event.All().MedianUs();
    state.counters["futex_p50_us"] = bare.All().MedianUs();
    state.counters["event_over_futex"] = Median(eventShares);
    state.counters["instant_over_futex"] = Median(echoShares);
    state.counters["less_model_over_futex"] = Median(requestShares);
    state.counters["less_model_over_cold_futex"] = Median(coldShares);
    state.counters["late_share"] = static_cast<double>(late) / static_cast<double>(2 * all);
    if (allocations < 0)
        state.SetLabel("worker_allocations not available");
    else
        state.counters["worker_allocations"] =
            static_cast<double>(allocations) / static_cast<double>(all);
}

}  // namespace

void RegisterRoundTrips() {
    for (const Rhythm rhythm : {Rhythm::backToBack, Rhythm::paced}) {
        Register(std::string("worker/round_trip/") + NameOf(rhythm), kRounds,
                 [rhythm](benchmark::State &state) { MeasureRoundTrips(state, rhythm); });
    }
}

}  // namespace aiplc::bench
