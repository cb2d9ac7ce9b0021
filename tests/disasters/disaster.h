// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_DISASTER_H
#define AIPLC_TESTS_DISASTER_H

#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "src/adapter/protocol.h"
#include "src/platform/platform.h"
#include "tests/disasters/sabotaged_call.h"
#include "tests/support/child_process.h"
#include "tests/support/logged_test.h"

namespace aiplc::host {

namespace fs = std::filesystem;
using platform::Child;
using platform::Line;

// Real hosts and workers when something goes wrong. In each case every call
// of the host gives a frame, none takes longer than its limit, and nothing is left behind.
class Disaster : public LoggedTest {
  protected:
    Disaster();

    static std::string NamespaceName();
    static fs::path NamespaceFolder();
    static pid_t Worker();  // 0: there is none
    static void Send(pid_t worker, int signal);
    static bool Await(const std::function<bool()> &condition, double seconds = 20);
    // Whether the worker, a child of this process by now, has ended in time.
    static bool AwaitEnd(pid_t worker);

    // Expects of a call what holds in every disaster, and prints what it took. A machine that is
    // busy with something else gets three attempts.
    static SabotagedCall::Figures ExpectSound(const std::string &what,
                                              const std::function<SabotagedCall::Figures()> &play);
    // A host in a process of its own. Returns its exit status, 0 when all was as expected.
    static int RunHost(const std::string &what, int periods, bool isPaced);

    // Objects of a namespace that may be left in the end.
    enum class Left { nothing, untilTheNextHost };
    // Expects that nobody of this namespace runs, and that nothing of it is there.
    void ExpectNothingLeft(const std::string &what, Left left = Left::nothing) const;

  private:
    std::ptrdiff_t m_descriptors;
};

}  // namespace aiplc::host

#endif
