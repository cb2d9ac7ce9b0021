// SPDX-License-Identifier: BSD-2-Clause

#include "tools/shell/interrupt.h"

#include <csignal>

#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

volatile std::sig_atomic_t interrupted = 0;

void Note(int /*signal*/) {
    interrupted = 1;
}

}  // namespace

void CatchInterrupts() {
    struct sigaction action {};
    action.sa_handler = Note;
    sigemptyset(&action.sa_mask);
    action.sa_flags = static_cast<int>(SA_RESETHAND);  // and no restart: a blocked read returns
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    action.sa_handler = SIG_IGN;
    action.sa_flags = 0;
    sigaction(SIGPIPE, &action, nullptr);
}

void ThrowIfInterrupted() {
    if (interrupted != 0) throw Interrupted();
}

}  // namespace aiplc::tools
