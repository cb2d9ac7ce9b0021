// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>

#include <atomic>
#include <cstdarg>

#include "src/platform/platform.h"

namespace {

constexpr size_t kTextBytes = 1024;

// Unsynchronised by contract; atomic only so that a late registration is no data race.
std::atomic<AiplcLogFunc> logCallback{nullptr};

}  // namespace

void AiplcRegLog(AiplcLogFunc callback) {
    logCallback.store(callback, std::memory_order_release);
}

void AudAiplcLog(const char *sourceUnit, int32_t line, const char *format, ...) {
    if (format == nullptr) return;
    char text[kTextBytes];
    (void)aiplc::platform::FillBounded(text, sizeof text, 0, sizeof text);
    va_list arguments;
    va_start(arguments, format);
    const int result =
        aiplc::platform::FormatBounded(text, sizeof text, sizeof text - 1, format, arguments);
    va_end(arguments);
    if (result < 0) return;
    if (const AiplcLogFunc callback = logCallback.load(std::memory_order_acquire)) {
        callback(sourceUnit, line, "[AUDIO_AIPLC] %s", text);
    }
}
