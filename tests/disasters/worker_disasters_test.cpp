// SPDX-License-Identifier: BSD-2-Clause
//
// Workers that are killed, crash, stop, are slow or are no workers.

#include <dlfcn.h>

#include <fstream>
#include <future>

#include "tests/disasters/disaster.h"
#include "tests/support/loud_worker.h"
#include "tests/support/ready_adapter.h"

namespace aiplc::host {
namespace {

// Workers with sanitizers take seconds to start.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kDelaysUs[] = {-1, 100, 2000};
#else
constexpr int kDelaysUs[] = {-1, 0, 20, 50, 100, 300, 1000, 2000, 3000};
#endif

struct Signal {
    int number;
    const char *name;
};
constexpr Signal kSignals[] = {{SIGKILL, "killed"}, {SIGSEGV, "crashed"}, {SIGSTOP, "stopped"}};

class WorkerDisaster : public Disaster {
  protected:
    // Signals the worker so many microseconds from now on.
    static std::jthread SignalLater(pid_t worker, int signal, int delayUs) {
        return std::jthread([=] {
            const auto begin = Clock::now();
            while (1000 * MsSince(begin) < delayUs) {
            }
            Send(worker, signal);
        });
    }
    // The concealment library that this program has loaded.
    static fs::path LoadedLibrary() {
        Dl_info info{};
        return dladdr(reinterpret_cast<void *>(&AiPlcCreate), &info) != 0 ? info.dli_fname : "";
    }
    // Runs a test in a copy of this program and its library in another folder, as another user
    // where given. Returns its exit status.
    static int RunElsewhere(const fs::path &folder, const char *test, uid_t user = geteuid()) {
        const fs::path host = folder / "host";
        fs::copy_file("/proc/self/exe", host, fs::copy_options::skip_existing);
        const fs::path library = LoadedLibrary();
        fs::copy_file(library, folder / library.filename(), fs::copy_options::skip_existing);
        Child child([&](Line) {
            if (user != geteuid()) {
                unsetenv("XDG_RUNTIME_DIR");
                setenv("LD_LIBRARY_PATH", folder.c_str(), 1);
                if (setuid(user) != 0) return 99;
            }
            const std::string filter =
                "--gtest_filter=WorkerDisaster.DISABLED_" + std::string(test);
            return execl(host.c_str(), host.c_str(), "--gtest_also_run_disabled_tests",
                         filter.c_str(), nullptr);
        });
        return child.Join();
    }
};

// Gone for so many requests.
struct GoneWorker : ReadyAdapter {
    int Process(InoutDetail &, int) override { return ++requests <= gone ? -1 : 0; }
    int gone = 0;
    int requests = 0;
};

}  // namespace

TEST_F(WorkerDisaster, SignalledAtAnyPointOfARequest) {
    // The library makes the second request of a call, for two frames, and the host the third one.
    int victim = 2;
    for (const auto &[number, name] : kSignals) {
        for (const int delayUs : kDelaysUs) {
            victim = victim == 2 ? 3 : 2;
            const std::string what =
                std::string("worker ") + name + " " +
                (delayUs < 0 ? "before a " : std::to_string(delayUs) + " us into a ") +
                (victim == 2 ? "request" : "second look");
            ExpectSound(what, [&, number = number] {
                TakeLog();
                auto call = std::make_unique<SabotagedCall>();
                EXPECT_TRUE(call->PredictorRunning()) << log;
                const pid_t worker = Worker();
                int requests = 0;
                std::jthread saboteur;
                call->Play(6, [&] {
                    if (++requests != victim) return;
                    if (delayUs < 0)
                        Send(worker, number);
                    else
                        saboteur = SignalLater(worker, number, delayUs);
                });
                if (saboteur.joinable()) saboteur.join();
                // One that is killed is to be gone before its host, which then tidies up.
                EXPECT_TRUE(number == SIGSTOP || AwaitEnd(worker));
                const auto figures = call->Result();
                call.reset();
                Send(worker, SIGCONT);
                ExpectNothingLeft(what);
                return figures;
            });
        }
    }
}

TEST_F(WorkerDisaster, StoppedForAWhileServesAgain) {
    ExpectSound("worker stopped for ten gaps, then served again", [] {
        SabotagedCall call;
        int requests = 0;
        const pid_t worker = Worker();
        call.Play(10, [&] {
            if (++requests == 2) Send(worker, SIGSTOP);
        });
        const int before = call.Result().predicted;
        Send(worker, SIGCONT);
        EXPECT_TRUE(Await([&] {
            call.Play(1);
            return call.Result().predicted > before + 2;
        }));
        return call.Result();
    });
    ExpectNothingLeft("stopped and continued");
}

TEST_F(WorkerDisaster, SignalledWhileItStartsOrEnds) {
    for (const auto &[number, name] : kSignals) {
        const std::string what = std::string("worker ") + name + " while it starts";
        ExpectSound(what, [&, number = number] {
            auto signalled = std::async(std::launch::async, [number] {
                pid_t worker = 0;
                Await([&] { return (worker = Worker()) > 0; });
                Send(worker, number);
                return worker;
            });
            SabotagedCall call;
            call.Play(4);
            // Gone before its host, which then tidies up.
            const pid_t worker = signalled.get();
            Send(worker, SIGKILL);
            EXPECT_TRUE(AwaitEnd(worker));
            return call.Result();
        });
        ExpectNothingLeft(what);

        pid_t worker = 0;
        {
            std::jthread saboteur;  // has done its work before the worker may go on
            const SabotagedCall call;
            worker = Worker();
            saboteur = SignalLater(worker, number, 100);
        }
        Send(worker, SIGCONT);
        // Killed as the last one.
        ExpectNothingLeft(std::string("worker ") + name + " while it ends", Left::untilTheNextHost);
    }
}

TEST_F(WorkerDisaster, SlowOrStuck) {
    for (const int ms : {5, 14, 17, 30, 100'000}) {
        const std::string what = "worker takes " + std::to_string(ms) + " ms";
        const auto figures = ExpectSound(what, [ms] {
            const worker::LoudWorker process(ms);
            AiplcAdapter adapter;
            adapter.workerRunning = adapter.ipcReady;  // Create would start the worker's executable
            EXPECT_EQ(adapter.Init(), 0);
            SabotagedCall call(false, &adapter);
            // A busy machine may not leave the worker the time of its first requests.
            const auto isHeard = [&] {
                return call.Result().secondLooks > 0 &&
                       call.Result().predicted > call.Result().secondLooks;
            };
            for (int i = 0; i < (ms > 5 ? 1 : 20) && !isHeard(); ++i)
                call.Play(8);
            (void)adapter.Delete();
            return call.Result();
        });
        EXPECT_TRUE(ms > 5 || figures.predicted > figures.secondLooks);
        EXPECT_TRUE(ms > 5 || figures.secondLooks > 0);
        EXPECT_TRUE(ms < 100'000 || figures.predicted == 0);
        ExpectNothingLeft(what, Left::untilTheNextHost);  // the worker is killed as the last one
    }
}

TEST_F(WorkerDisaster, GoneIsAskedSeldomAndThenAgain) {
    GoneWorker worker;
    worker.gone = 1 << 30;
    SabotagedCall call(false, &worker);
    call.Play(750);  // a minute with a loss in every 80 ms
    EXPECT_GT(worker.requests, 4);
    EXPECT_LT(worker.requests, 15);
    worker.gone = worker.requests;
    call.Play(400);
    EXPECT_GT(worker.requests, worker.gone + 10);
}

// Run by the test below.
TEST_F(WorkerDisaster, DISABLED_PlaysWithoutAWorker) {
    ExpectSound("an executable that is no worker", [] {
        SabotagedCall call;
        EXPECT_FALSE(call.PredictorRunning());
        call.Play(4);
        EXPECT_EQ(call.Result().predicted, 0);
        return call.Result();
    });
}

TEST_F(WorkerDisaster, ExecutableIsWrong) {
    const fs::path folder = mkdtemp(std::string("/tmp/aiplc-test-XXXXXX").data());
    const fs::path worker = folder / "x64" / protocol::kWorkerExecutable;
    const auto play = [&] { return RunElsewhere(folder, "PlaysWithoutAWorker"); };
    EXPECT_EQ(play(), 0) << "no folder";
    fs::create_directory(folder / "x64");
    EXPECT_EQ(play(), 0) << "missing";
    fs::create_directory(worker);
    EXPECT_EQ(play(), 0) << "a folder";
    fs::remove(worker);
    for (const std::string content : {"", "no program", "#!/nowhere/at/all\n"}) {
        std::ofstream(worker) << content;
        for (const fs::perms mode : {fs::perms{0600}, fs::perms{0700}}) {
            fs::permissions(worker, mode);
            EXPECT_EQ(play(), 0) << content;
        }
    }
    fs::remove(worker);
    fs::copy_file("/bin/true", worker);
    EXPECT_EQ(play(), 0) << "ends at once";
    fs::remove_all(folder);
    ExpectNothingLeft("wrong executables");
}

// Run by the test below.
TEST_F(WorkerDisaster, DISABLED_PlaysWithAWorker) {
    SabotagedCall call;
    EXPECT_TRUE(call.PredictorRunning());
    EXPECT_TRUE(call.PlayUntilPredicted());
}

// As one with file capabilities: the system shows neither its executable nor its environment. Root
// could read it all the same.
TEST_F(WorkerDisaster, ExecutableMayNotBeRead) {
    const fs::path folder = mkdtemp(std::string("/tmp/aiplc-test-XXXXXX").data());
    const fs::path worker = folder / "x64" / protocol::kWorkerExecutable;
    fs::copy(fs::read_symlink("/proc/self/exe").parent_path() / "x64", folder / "x64");
    fs::permissions(folder, fs::perms{0755});
    fs::permissions(worker, fs::perms{0111});
    EXPECT_EQ(RunElsewhere(folder, "PlaysWithAWorker", geteuid() == 0 ? 65534 : geteuid()), 0);
    fs::permissions(worker, fs::perms{0700});
    fs::remove_all(folder);
}

}  // namespace aiplc::host
