// SPDX-License-Identifier: BSD-2-Clause

#include "tools/compare/page_sound.h"

#include <algorithm>
#include <utility>

namespace aiplc::tools {
namespace {

int64_t Size(const std::string &text) {
    return static_cast<int64_t>(text.size());
}

int64_t Cost(const CallSound &sound) {
    return Size(sound.whole) - Size(sound.excerpts);
}

}  // namespace

void PageSound::Add(CallSound sound) {
    m_calls.push_back(std::move(sound));
    int64_t held = 0;
    for (const CallSound &call : m_calls)
        held += Size(call.whole);
    // The most expensive calls become whole only after all others, for which there is no room.
    const std::vector<size_t> order = ByCost();
    for (auto call = order.rbegin(); call != order.rend() && held > m_limit; ++call) {
        held -= Size(m_calls[*call].whole);
        m_calls[*call].whole = {};
    }
}

std::vector<PageSound::Kept> PageSound::Choose() const {
    std::vector<Kept> kept;
    int64_t left = m_limit;
    for (const CallSound &call : m_calls) {
        kept.push_back(call.excerpts.empty() ? Kept::none : Kept::excerpts);
        left -= Size(call.excerpts);
    }
    for (const size_t call : ByCost()) {
        if (Cost(m_calls[call]) > left) continue;
        left -= Cost(m_calls[call]);
        kept[call] = Kept::whole;
    }
    return kept;
}

int64_t PageSound::Needed() const {
    int64_t bytes = 0;
    for (const CallSound &call : m_calls)
        bytes += call.wholeBytes;
    return bytes;
}

std::vector<size_t> PageSound::ByCost() const {
    std::vector<size_t> order;
    for (size_t i = 0; i < m_calls.size(); ++i) {
        if (!m_calls[i].whole.empty()) order.push_back(i);
    }
    std::ranges::stable_sort(order, {}, [this](size_t call) {
        return std::pair(!m_calls[call].excerpts.empty(), Cost(m_calls[call]));
    });
    return order;
}

}  // namespace aiplc::tools
