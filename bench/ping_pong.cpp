// SPDX-License-Identifier: BSD-2-Clause

#include "bench/ping_pong.h"

#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace aiplc::bench {

namespace {

constexpr uint32_t kPong = 0;  // the word of a new mapping
constexpr uint32_t kPing = 1;

constexpr char kThere[] = "PING";
constexpr char kBack[] = "PONG";

void Set(uint32_t &word, uint32_t value) {
    std::atomic_ref(word).store(value);
    syscall(SYS_futex, &word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

void WaitWhile(uint32_t &word, uint32_t value) {
    while (std::atomic_ref(word).load() == value)
        syscall(SYS_futex, &word, FUTEX_WAIT, value, nullptr, nullptr, 0);
}

void AnswerWord(uint32_t &word, const std::function<void()> &work) {
    for (;;) {
        WaitWhile(word, kPong);
        work();
        Set(word, kPong);
    }
}

void AnswerEvents() {
    const platform::Handle there = platform::CreateNamedEvent(kThere);
    const platform::Handle back = platform::CreateNamedEvent(kBack);
    while (platform::Wait(there, platform::kWaitForever) == platform::kWaitSignalled)
        platform::SetEvent(back);
}

worker::UniqueHandle OpenEvent(const char *name) {
    worker::UniqueHandle event(platform::CreateNamedEvent(name));
    if (!event) throw std::runtime_error("no named event");
    return event;
}

}  // namespace

SharedWord::SharedWord() {
    void *memory =
        mmap(nullptr, sizeof *m_word, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    m_word = static_cast<uint32_t *>(memory);
}

SharedWord::~SharedWord() {
    munmap(m_word, sizeof *m_word);
}

FutexPingPong::FutexPingPong(const std::function<void()> &work)
    : m_peer([this, &work] { AnswerWord(m_word.Word(), work); }) {}

void FutexPingPong::RoundTrip() {
    Set(m_word.Word(), kPing);
    WaitWhile(m_word.Word(), kPing);
}

EventPingPong::EventPingPong()
    : m_peer((UseNewNamespace(), AnswerEvents)),
      m_there(OpenEvent(kThere)),
      m_back(OpenEvent(kBack)) {
    RoundTrip();
}

void EventPingPong::RoundTrip() {
    platform::SetEvent(m_there.get());
    platform::Wait(m_back.get(), platform::kWaitForever);
}

}  // namespace aiplc::bench
