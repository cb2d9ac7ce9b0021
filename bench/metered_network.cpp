// SPDX-License-Identifier: BSD-2-Clause

#include "bench/metered_network.h"

#include <sys/mman.h>

#include <new>

#include "bench/allocations.h"
#include "bench/pace.h"
#include "bench/windows.h"

namespace aiplc::bench {

namespace {

Account *Map() {
    void *const memory =
        mmap(nullptr, sizeof(Account), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    return new (memory) Account;
}

}  // namespace

SharedAccount::SharedAccount() : m_account(Map()) {}

void SharedAccount::Unmap::operator()(Account *account) const {
    munmap(account, sizeof *account);
}

MeteredNetwork::MeteredNetwork(Account &account) : m_account(account), m_neural(LoadModel()) {}

int32_t MeteredNetwork::Predict(std::span<const int16_t, worker::kWindowSamples> window,
                                std::span<int16_t, worker::kWindowSamples> out) noexcept {
    const int64_t begin = Nanoseconds();
    const auto allocations = Allocations();
    const int32_t result = m_neural.Predict(window, out);
    if (allocations) {
        const auto soFar = static_cast<int64_t>(*allocations);
        m_account.allocations = soFar - m_allocations;
        m_allocations = soFar;
    } else {
        m_account.allocations = -1;
    }
    m_account.modelNs = Nanoseconds() - begin;
    return result;
}

}  // namespace aiplc::bench
