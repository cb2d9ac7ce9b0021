// SPDX-License-Identifier: BSD-2-Clause

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "adapter/protocol.h"
#include "platform/platform.h"
#include "predictor_choice.h"
#include "service.h"

namespace {

int Serve() {
    const auto predictor = aiplc::worker::ChoosePredictor();
    aiplc::worker::Service service(*predictor);
    if (!service.Open()) return 1;
    aiplc::platform::AskForRealTime();
    const int result = service.Run();
    predictor->Report();
    return result;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc > 1) {
        std::fprintf(stderr,
                     "%s: unexpected argument \"%s\": this is the prediction worker, which "
                     "libxanu_audiocore_aiplc starts without arguments\n",
                     aiplc::protocol::kWorkerExecutable, argv[1]);
        return 2;
    }
    aiplc::platform::JoinAsServer();
#if defined(SIGHUP)
    std::signal(SIGHUP, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
#endif
    // The thread that watches the hosts may still run: end without taking statics from under it.
    std::_Exit(Serve());
}
