// SPDX-License-Identifier: BSD-2-Clause

#include "fuzz/hostile_platform.h"

#include <algorithm>

#include "fuzz/arbitrary.h"

namespace aiplc::fuzz {

using namespace platform;

HostilePlatform::HostilePlatform(FuzzedDataProvider &data) : m_data(data) {
    fake = this;
}
HostilePlatform::~HostilePlatform() {
    Require(Held() == 0 && mutexDepth == 0);
    fake = nullptr;
}

bool HostilePlatform::Fails() {
    return m_data.ConsumeIntegral<uint8_t>() == 0xFF;
}

// The other side writes whatever it likes into the block.
void HostilePlatform::Meddle() {
    auto *const block = Block();
    if (block == nullptr) return;
    switch (m_data.ConsumeIntegralInRange<int>(0, 7)) {
        case 1:
        case 2:
            block->msgId = m_data.ConsumeIntegralInRange<uint32_t>(0, 5);
            break;
        case 3:
            block->retCode = m_data.ConsumeIntegral<int32_t>();
            break;
        case 4:
            FillAudio(m_data, block->AudioIn);
            break;
        case 5:
            FillAudio(m_data, block->AudioOut);
            break;
        case 6: {
            const auto at = m_data.ConsumeIntegralInRange<size_t>(0, viewBytes - 1);
            const auto most = m_data.ConsumeIntegralInRange<size_t>(0, viewBytes - at);
            (void)m_data.ConsumeData(&view[at], most);
            break;
        }
        default:
            break;
    }
}

int64_t HostilePlatform::Answer(std::string_view call, std::string_view, int64_t usual) {
    static constexpr std::string_view kOnHandles[] = {"SetEvent", "ResetEvent", "Release", "Wait"};
    static constexpr uint32_t kOutcomes[] = {kWaitSignalled, kWaitSignalled, kWaitAbandoned,
                                             kWaitTimeout,   kWaitFailed,    77};
    if (call == "PerformanceCounter") return m_clock += m_data.ConsumeIntegral<uint8_t>();
    if (call == "PerformanceFrequency") return 1000;
    if (call == "ExecutablePath") return m_data.ConsumeIntegralInRange<int64_t>(0, 1023);
    if (std::ranges::count(kOnHandles, call) != 0) Meddle();
    if (call == "Wait") {
        // At the end of the input every wait fails, so that a caller in a loop ends too.
        return m_data.remaining_bytes() == 0 ? kWaitFailed : m_data.PickValueInArray(kOutcomes);
    }
    if (call == "OpenMapping" && m_data.ConsumeBool()) return 0;
    if (Fails()) return call == "FindProcess" ? kNoProcessList : 0;
    if (call == "FindProcess") return m_data.ConsumeIntegralInRange<int64_t>(0, 3);
    if (call != "MapView" || !Fails()) return usual;
    return m_data.ConsumeIntegralInRange<int64_t>(1, 2 * usual);
}

}  // namespace aiplc::fuzz
