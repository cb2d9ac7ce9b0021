// SPDX-License-Identifier: BSD-2-Clause

#include "worker/service/service.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/child_process.h"

using namespace aiplc::platform;
using namespace aiplc::protocol;
using namespace aiplc::worker;

namespace {

bool Signalled(const UniqueHandle &handle, uint32_t ms = 20000) {
    return Wait(handle.get(), ms) == kWaitSignalled;
}

// Answers with the input's first sample plus 100 for each prediction made; at -1 when told to.
// Fails at -2.
struct Counting : Predictor {
    int32_t Predict(std::span<const int16_t, 2560> in,
                    std::span<int16_t, 2560> out) noexcept override {
        if (in[0] == -1) line.Await();
        out[0] = static_cast<int16_t>(in[0] + 100 * ++count);
        return in[0] == -2 ? 77 : 0;
    }
    Line line;
    int count = 0;
};

int Serve(Line line) {
    JoinAsServer();
    Counting predictor;
    predictor.line = line;
    Service service(predictor);
    return line.Tell() && line.Await() && service.Open() && line.Tell() ? service.Run() : 1;
}

// The library's side of the protocol.
struct Library {
    UniqueHandle mapping{CreateMapping(kSharedMemName, 10776)};
    UniqueHandle receiver{CreateNamedEvent(kWorkerReceiverName)};
    UniqueHandle answer{CreateNamedEvent(kAdapterReceiverName)};
    UniqueHandle started{CreateNamedEvent(kProcessStartedName)};
    UniqueHandle inputReady{CreateNamedEvent(kInputReadyName)};
    UniqueHandle mutex{CreateNamedMutex(kInferMutexName)};
    size_t size = 0;
    SharedBlock &block = *static_cast<SharedBlock *>(MapView(mapping.get(), &size));

    void Send(uint32_t message) const {
        block.msgId = message;
        SetEvent(receiver.get());
    }
    bool Ask(uint32_t message) const {
        Send(message);
        return Signalled(answer);
    }
    // Sends until the worker has taken it.
    void ProjectOutput(uint32_t message) const {
        for (Send(message); Signalled(receiver, 0); Sleep(1))
            SetEvent(receiver.get());
    }
    void Begin(int16_t sample) const {
        ASSERT_TRUE(Signalled(mutex));  // not abandoned
        block.AudioIn[0] = sample;
        SetEvent(inputReady.get());
        Send(AIPLC_PROCESS);
        ReleaseMutex(mutex.get());
        ASSERT_TRUE(Signalled(started));
    }
    void End(int sample, int32_t result = 0) const {
        ASSERT_TRUE(Signalled(mutex));
        EXPECT_EQ(block.AudioOut[0], sample);
        EXPECT_EQ(block.retCode, result);
        ReleaseMutex(mutex.get());
    }
};

}  // namespace

TEST(Service, AnswersEveryMessageAndServesEachRequestOnce) {
    Child worker(Serve);
    const Library library;
    worker.line.Tell();
    library.ProjectOutput(AIPLC_DELETE);  // for a worker before this one
    EXPECT_TRUE(library.Ask(AIPLC_CHECK_READY));
    for (const uint32_t unknown : {0U, 5U, 0xFFFFFFFFU})
        library.ProjectOutput(unknown);
    std::thread([&] { Signalled(library.mutex); }).join();  // leaves it abandoned
    EXPECT_TRUE(library.Ask(AIPLC_INIT));                   // makes the first prediction
    library.block.retCode = 7;
    library.Begin(-1);
    EXPECT_FALSE(Signalled(library.mutex, 0));  // late: the library refuses its next request
    library.block.msgId = AIPLC_NONE;
    worker.line.Tell();
    library.End(199);
    for (int16_t i = 3; i <= 20; ++i) {
        library.ProjectOutput(AIPLC_PROCESS);  // of a request that was given up
        library.Begin(i);
        library.End(101 * i);
    }
    library.Begin(-2);
    library.End(101 * 20, 77);  // the answer before it stays
    EXPECT_TRUE(Signalled(library.mutex));
    SetEvent(library.inputReady.get());
    library.ProjectOutput(AIPLC_PROCESS);  // cannot be served
    library.Send(AIPLC_DELETE);
    EXPECT_EQ(worker.Join(), 0);
    EXPECT_FALSE(Signalled(library.started, 0));
}

// As it happens to hosts that start together: the first takes the answer, the others have not been
// heard.
TEST(Service, AnswersAgainForAWhileAndLeavesNoAnswerBehind) {
    Child worker(Serve);
    const Library library;
    worker.line.Tell();
    EXPECT_TRUE(library.Ask(AIPLC_CHECK_READY));
    std::thread([&] { Signalled(library.mutex); }).join();  // leaves it abandoned
    EXPECT_TRUE(Signalled(library.answer));
    EXPECT_TRUE(Signalled(library.answer));
    library.Begin(5);  // although it never saw AIPLC_INIT
    library.End(205);
    int answers = 3;
    while (Signalled(library.answer, 500))
        ++answers;
    EXPECT_LE(answers, 50);
    library.ProjectOutput(AIPLC_CHECK_READY);
    library.Send(AIPLC_DELETE);
    EXPECT_EQ(worker.Join(), 0);
    EXPECT_FALSE(Signalled(library.answer, 0));
}

TEST(Service, EndsWithItsHostAlsoBesideAnotherWorker) {
    for (int i = 0; i < 20; ++i) {
        Child worker(Serve);
        Child other(Serve);
        Child host([](Line line) { return Library().mapping && line.Tell() && line.Await(); });
        for (const Child *each : {&worker, &other})
            EXPECT_TRUE(each->line.Tell() && each->line.Await());
        host.Kill();
        EXPECT_EQ(worker.Join(), 0);
        EXPECT_EQ(other.Join(), 0);
    }
}

TEST(Service, RefusesABlockThatIsTooSmall) {
    Child worker(Serve);
    const UniqueHandle mapping(CreateMapping(kSharedMemName, 4096));
    worker.line.Tell();
    EXPECT_EQ(worker.Join(), 1);
}
