// SPDX-License-Identifier: BSD-2-Clause
//
// aiplc_make_signals: for each window of 2560 samples on standard input (16 bits, this machine's
// byte order), the signals of worker/classical/candidates.h on standard output; zeros where there
// are none. Training asks it about windows that the network's own answers have changed.

#include <cstdio>

#include "training/collect/window_record.h"
#include "worker/classical/candidates.h"

int main() {
    using aiplc::worker::Candidates;
    static Candidates candidates;
    aiplc::training::Window window;
    aiplc::training::Window filled;
    static decltype(aiplc::training::WindowRecord::candidates) signals;
    while (std::fread(window.data(), sizeof window, 1, stdin) == 1) {
        const bool usable = candidates.Make(window, filled);
        for (size_t kind = 0; kind < Candidates::kCount; ++kind) {
            signals[kind] =
                usable ? candidates[static_cast<Candidates::Kind>(kind)] : Candidates::Signal{};
        }
        if (std::fwrite(signals.data(), sizeof signals, 1, stdout) != 1 || std::fflush(stdout) != 0)
            return 1;
    }
    return 0;
}
