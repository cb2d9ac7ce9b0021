// SPDX-License-Identifier: BSD-2-Clause
//
// What real hosts and workers do to each other when something goes wrong. In each case every call
// of the host gives a frame, none takes longer than its limit, and nothing is left behind.

#include <aiplc/adapter.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>

#include "adapter/protocol.h"
#include "platform/platform.h"
#include "sabotaged_call.h"
#include "service.h"
#include "support/child_process.h"

namespace aiplc::host {
namespace {

namespace fs = std::filesystem;
using platform::Child;
using platform::Line;
using std::chrono::microseconds;

std::string NamespaceName() {
    const char *const name = std::getenv("AIPLC_NAMESPACE");
    return name != nullptr ? name : "default";
}

fs::path NamespaceFolder() {
    const char *const runtime = std::getenv("XDG_RUNTIME_DIR");
    const fs::path base = runtime != nullptr && fs::exists(fs::path(runtime) / "aiplc")
                              ? fs::path(runtime) / "aiplc"
                              : fs::path("/dev/shm/aiplc-" + std::to_string(geteuid()));
    return base / NamespaceName();
}

// The entries of the namespace's folder.
std::string Listing() {
    std::string names;
    std::error_code none;
    for (const auto &entry : fs::directory_iterator(NamespaceFolder(), none))
        names.append(" ").append(entry.path().filename().string());
    return names;
}

size_t Descriptors() {
    return static_cast<size_t>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

pid_t Worker() {
    uint32_t id = 0;
    const auto status = platform::FindProcess(protocol::kWorkerExecutable, &id);
    return status == platform::FindStatus::found ? static_cast<pid_t>(id) : 0;
}

template <typename Condition>
bool Await(Condition condition, double seconds = 20) {
    for (const auto begin = Clock::now(); MsSince(begin) < 1000 * seconds;) {
        if (condition()) return true;
        std::this_thread::sleep_for(microseconds(200));
    }
    return condition();
}

void Send(pid_t worker, int signal) {
    if (worker > 0) kill(worker, signal);  // 0: all of this test
}

// Signals the worker some time after it is told to.
std::jthread SignalLater(pid_t worker, int signal, int delayUs) {
    return std::jthread([=] {
        const auto begin = Clock::now();
        while (1000 * MsSince(begin) < delayUs) {
        }
        Send(worker, signal);
    });
}

// Expects of a call what holds in every disaster, and prints what it took. A machine that is busy
// with something else gets three attempts.
SabotagedCall::Figures ExpectSound(const std::string &what,
                                   const std::function<SabotagedCall::Figures()> &play) {
    SabotagedCall::Figures figures;
    double limitMs = 0;
    for (int attempt = 0; attempt < 3; ++attempt) {
        const SchedulingNoise noise;
        figures = play();
        EXPECT_EQ(figures.silent, 0) << what;
        limitMs = SabotagedCall::kLimitMs + 2 * noise.LongestMs() + 2;
        if (figures.longestMs <= limitMs) break;
    }
    EXPECT_LE(figures.longestMs, limitMs) << what;
    std::printf("longest call %4.1f ms, %2d frames predicted, %2d in second looks: %s\n",
                figures.longestMs, figures.predicted, figures.secondLooks, what.c_str());
    std::fflush(stdout);  // a forked host ends without it
    return figures;
}

// What the library has said since a call was set up, to be read when a worker is missing.
std::string logged;

void Log(const char *unit, int32_t /*line*/, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    logged.append(std::to_string(platform::PerformanceCounter() / 1'000'000)).append(" ms ");
    logged.append(unit).append(": ").append(va_arg(arguments, const char *)).append("\n");
    va_end(arguments);
}

// A worker that starts so late that its host has given it up and gone waits a minute for another.
constexpr double kWorkerAloneSeconds = 80;

class Disaster : public testing::Test {
  protected:
    // Processes that end without a parent become this one's children: none may be left.
    Disaster() {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
#if defined(__SANITIZE_ADDRESS__)
        setenv("ASAN_OPTIONS", "handle_segv=0", 1);  // a worker crashes as it would elsewhere
        setenv("AIPLC_MODEL", "autoregressive", 1);  // in time on a slow machine too
#endif
        (void)Descriptors();
        m_descriptors = Descriptors();
    }
    // What may be left of a namespace in the end.
    enum class Left { nothing, untilTheNextHost };

    // Nobody of this namespace runs, and nothing of it is there.
    void ExpectNothingLeft(const std::string &what, Left left = Left::nothing) const {
        EXPECT_TRUE(Await([] { return Worker() == 0; }, kWorkerAloneSeconds)) << what;
        EXPECT_TRUE(Await(
            [] {
                while (waitpid(-1, nullptr, WNOHANG) > 0) {
                }
                return waitpid(-1, nullptr, WNOHANG) < 0;
            },
            kWorkerAloneSeconds))
            << what;
        EXPECT_EQ(Descriptors(), m_descriptors) << what;
        if (left == Left::untilTheNextHost)
            platform::CloseHandle(platform::CreateNamedEvent("Next"));
        EXPECT_FALSE(fs::exists(NamespaceFolder())) << what << Listing();
    }

  private:
    size_t m_descriptors;
};

struct Signal {
    int number;
    const char *name;
};
// Workers with sanitizers take seconds to start.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kHosts = 4;
constexpr int kDelaysUs[] = {-1, 100, 2000};
#else
constexpr int kHosts = 20;
constexpr int kDelaysUs[] = {-1, 0, 20, 50, 100, 300, 1000, 2000, 3000};
#endif

constexpr Signal kSignals[] = {{SIGKILL, "killed"}, {SIGSEGV, "crashed"}, {SIGSTOP, "stopped"}};

}  // namespace

TEST_F(Disaster, WorkerSignalledAtAnyPointOfARequest) {
    // The library makes the second request of a call, for two frames, and the host the third one.
    int victim = 2;
    for (const auto &[number, name] : kSignals) {
        for (const int delayUs : kDelaysUs) {
            victim = victim == 2 ? 3 : 2;
            const std::string request = victim == 2 ? "request" : "second look";
            const std::string what =
                std::string("worker ") + name + " " +
                (delayUs < 0 ? "before a " : std::to_string(delayUs) + " us into a ") + request;
            ExpectSound(what, [&, number = number] {
                logged.clear();
                AiplcRegLog(Log);
                auto call = std::make_unique<SabotagedCall>();
                EXPECT_TRUE(call->WorkerRunning()) << logged;
                AiplcRegLog(nullptr);
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
                if (number != SIGSTOP) {
                    EXPECT_TRUE(Await([=] { return waitpid(worker, nullptr, WNOHANG) == worker; }));
                }
                const auto figures = call->Result();
                call.reset();
                Send(worker, SIGCONT);
                ExpectNothingLeft(what);
                return figures;
            });
        }
    }
}

TEST_F(Disaster, WorkerStoppedForAWhileServesAgain) {
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

TEST_F(Disaster, WorkerSignalledWhileItStartsOrEnds) {
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
            EXPECT_TRUE(Await([=] { return waitpid(worker, nullptr, WNOHANG) == worker; }));
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

namespace {

// Answers loudly, each time but the first, which makes the worker ready, after so many ms.
class SlowPredictor : public worker::Predictor {
  public:
    explicit SlowPredictor(int ms) : m_ms(ms) {}
    int32_t Predict(std::span<const int16_t, worker::kWindowSamples>,
                    std::span<int16_t, worker::kWindowSamples> out) noexcept override {
        if (m_count++ > 0) std::this_thread::sleep_for(std::chrono::milliseconds(m_ms));
        std::ranges::fill(out, int16_t{1000});
        return 0;
    }

  private:
    int m_ms;
    int m_count = 0;
};

// The worker's own protocol loop with a predictor that takes its time.
class SlowWorker {
  public:
    explicit SlowWorker(int ms)
        : m_process([ms](Line line) {
              platform::JoinAsServer();
              SlowPredictor predictor(ms);
              worker::Service service(predictor);
              const bool isOpen = service.Open();
              line.Tell();
              return isOpen ? service.Run() : 1;
          }) {
        // Create would start the worker's executable instead.
        m_adapter.workerRunning = m_adapter.ipcReady;
        EXPECT_EQ(m_adapter.Init(), 0);
    }
    ~SlowWorker() { (void)m_adapter.Delete(); }
    AiplcAdapter &Adapter() { return m_adapter; }

  private:
    Child m_process;
    AiplcAdapter m_adapter;
};

}  // namespace

TEST_F(Disaster, SlowAndStuckWorkers) {
    for (const int ms : {5, 14, 17, 30, 100'000}) {
        const std::string what = "worker takes " + std::to_string(ms) + " ms";
        const auto figures = ExpectSound(what, [ms] {
            SlowWorker worker(ms);
            SabotagedCall call(false, &worker.Adapter());
            // A busy machine may not leave the worker the time of its first requests.
            const auto isHeard = [&] {
                return call.Result().secondLooks > 0 &&
                       call.Result().predicted > call.Result().secondLooks;
            };
            for (int i = 0; i < (ms > 5 ? 1 : 20) && !isHeard(); ++i)
                call.Play(8);
            return call.Result();
        });
        EXPECT_TRUE(ms > 5 || figures.predicted > figures.secondLooks);
        EXPECT_TRUE(ms > 5 || figures.secondLooks > 0);
        EXPECT_TRUE(ms < 100'000 || figures.predicted == 0);
        ExpectNothingLeft(what, Left::untilTheNextHost);  // the worker is killed as the last one
    }
}

namespace {

// A host in another folder: a copy of this program, which plays a call and says what happened.
int PlayBesideAnotherWorker(const fs::path &folder) {
    const fs::path host = folder / "host";
    Child child([&](Line) {
        return execl(host.c_str(), host.c_str(), "--gtest_also_run_disabled_tests",
                     "--gtest_filter=Disaster.DISABLED_PlaysWithoutAWorker", nullptr);
    });
    return child.Join();
}

}  // namespace

// Run by the test below.
TEST_F(Disaster, DISABLED_PlaysWithoutAWorker) {
    ExpectSound("an executable that is no worker", [] {
        SabotagedCall call;
        EXPECT_FALSE(call.WorkerRunning());
        call.Play(4);
        EXPECT_EQ(call.Result().predicted, 0);
        return call.Result();
    });
}

TEST_F(Disaster, WrongExecutables) {
    const fs::path folder = mkdtemp(std::string("/tmp/aiplc-test-XXXXXX").data());
    const fs::path worker = folder / "x64" / protocol::kWorkerExecutable;
    fs::copy_file("/proc/self/exe", folder / "host");
    EXPECT_EQ(PlayBesideAnotherWorker(folder), 0) << "no folder";
    fs::create_directory(folder / "x64");
    EXPECT_EQ(PlayBesideAnotherWorker(folder), 0) << "missing";
    fs::create_directory(worker);
    EXPECT_EQ(PlayBesideAnotherWorker(folder), 0) << "a folder";
    fs::remove(worker);
    for (const std::string content : {"", "no program", "#!/nowhere/at/all\n"}) {
        std::ofstream(worker) << content;
        for (const fs::perms mode : {fs::perms{0600}, fs::perms{0700}}) {
            fs::permissions(worker, mode);
            EXPECT_EQ(PlayBesideAnotherWorker(folder), 0) << content;
        }
    }
    fs::remove(worker);
    fs::copy_file("/bin/true", worker);
    EXPECT_EQ(PlayBesideAnotherWorker(folder), 0) << "ends at once";
    fs::remove_all(folder);
    ExpectNothingLeft("wrong executables");
}

// Run by the test below.
TEST_F(Disaster, DISABLED_PlaysWithAWorker) {
    SabotagedCall call;
    EXPECT_TRUE(call.WorkerRunning());
    EXPECT_TRUE(call.PlayUntilPredicted());
}

// As one with file capabilities: the system shows neither its executable nor its environment. Root
// could read it all the same.
TEST_F(Disaster, WorkerThatMayNotBeRead) {
    const fs::path folder = mkdtemp(std::string("/tmp/aiplc-test-XXXXXX").data());
    const fs::path built = fs::read_symlink("/proc/self/exe").parent_path() / "x64";
    fs::copy_file("/proc/self/exe", folder / "host");
    fs::copy(built, folder / "x64");
    fs::permissions(folder, fs::perms{0755});
    fs::permissions(folder / "x64" / protocol::kWorkerExecutable, fs::perms{0111});
    const fs::path host = folder / "host";
    Child child([&](Line) {
        if (geteuid() == 0) {
            unsetenv("XDG_RUNTIME_DIR");
            if (setuid(65534) != 0) return 99;
        }
        return execl(host.c_str(), host.c_str(), "--gtest_also_run_disabled_tests",
                     "--gtest_filter=Disaster.DISABLED_PlaysWithAWorker", nullptr);
    });
    EXPECT_EQ(child.Join(), 0);
    fs::permissions(folder / "x64" / protocol::kWorkerExecutable, fs::perms{0700});
    fs::remove_all(folder);
}

namespace {

// A host in a process of its own. Exits with the number of failed expectations that matter.
int RunHost(Line line, const std::string &name, int periods, bool isPaced) {
    line.Tell();
    ExpectSound(name, [&] {
        SabotagedCall call;
        call.Play(
            periods, [] {}, isPaced);
        return call.Result();
    });
    return testing::Test::HasFailure() ? 1 : 0;
}

}  // namespace

TEST_F(Disaster, TwoHostsOfOneUser) {
    {
        Child first([](Line line) { return RunHost(line, "one of two hosts", 25, true); });
        Child second([](Line line) { return RunHost(line, "one of two hosts", 25, true); });
        EXPECT_EQ(first.Join(), 0);
        EXPECT_EQ(second.Join(), 0);
    }
    ExpectNothingLeft("two hosts in one namespace");
}

TEST_F(Disaster, ChannelsOfOneProcessHaveAWorkerEach) {
    const std::string mine = NamespaceName();
    unsetenv("AIPLC_NAMESPACE");
    auto first = std::make_unique<SabotagedCall>();
    SabotagedCall second;
    EXPECT_TRUE(first->WorkerRunning() && second.WorkerRunning());
    EXPECT_TRUE(first->PlayUntilPredicted());
    first.reset();
    EXPECT_TRUE(second.PlayUntilPredicted());
    EXPECT_EQ(std::getenv("AIPLC_NAMESPACE"), nullptr);
    setenv("AIPLC_NAMESPACE", mine.c_str(), 1);
}

namespace {

// A worker that is gone for so many requests.
struct GoneWorker : AiplcAdapterInterface {
    int Create() override { return 0; }
    int Init() override { return 0; }
    int Delete() override { return 0; }
    int Process(InoutDetail &, int) override { return ++requests <= gone ? -1 : 0; }
    int gone = 0;
    int requests = 0;
};

}  // namespace

TEST_F(Disaster, WorkerThatIsGoneIsAskedSeldomAndThenAgain) {
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

TEST_F(Disaster, TwentyHostsAtOnce) {
    const std::string mine = NamespaceName();
    {
        std::vector<std::unique_ptr<Child>> hosts;
        for (int i = 0; i < kHosts; ++i) {
            setenv("AIPLC_NAMESPACE", (mine + "-" + std::to_string(i)).c_str(), 1);
            hosts.push_back(std::make_unique<Child>(
                [](Line line) { return RunHost(line, "one of twenty hosts", 12, true); }));
        }
        for (const auto &host : hosts)
            EXPECT_EQ(host->Join(), 0);
    }
    setenv("AIPLC_NAMESPACE", mine.c_str(), 1);
    ExpectNothingLeft("twenty hosts");
    for (const auto &entry : fs::directory_iterator(NamespaceFolder().parent_path()))
        EXPECT_THAT(entry.path().filename().string(), testing::Not(testing::StartsWith(mine)));
}

TEST_F(Disaster, WorkerOfAKilledHostEndsAndTheNextHostPlays) {
    {
        Child host([](Line line) {
            SabotagedCall call;
            call.Play(4);
            line.Tell();
            pause();
            return 0;
        });
        EXPECT_GT(Worker(), 0);
        host.Kill();
    }
    ExpectSound("straight after a killed host, whose worker still ends", [] {
        SabotagedCall call;
        EXPECT_TRUE(call.WorkerRunning());
        EXPECT_TRUE(call.PlayUntilPredicted());
        return call.Result();
    });
    ExpectNothingLeft("killed host");
}

TEST_F(Disaster, DescriptorsExhausted) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizers need descriptors of their own";
#endif
    for (rlim_t room = 0; room < 24; ++room) {
        Child host([room](Line) {
            rlimit limit{};
            getrlimit(RLIMIT_NOFILE, &limit);
            limit.rlim_cur = Descriptors() + room;
            setrlimit(RLIMIT_NOFILE, &limit);
            return RunHost({}, "room for " + std::to_string(room) + " descriptors", 4, false);
        });
        EXPECT_EQ(host.Join(), 0) << room;
    }
    // To look for what is left takes descriptors.
    ExpectNothingLeft("descriptors exhausted", Left::untilTheNextHost);
}

namespace {

// Gives the process file systems of its own, with a /dev/shm of so many bytes that all may use.
bool OwnSharedMemory(const char *size) {
    unsetenv("XDG_RUNTIME_DIR");
    return unshare(CLONE_NEWNS) == 0 &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", "/dev/shm", "tmpfs", 0, size) == 0 && chmod("/dev/shm", 01777) == 0;
}

constexpr int kNotPermitted = 77;

void ExpectGood(int result) {
    if (result == kNotPermitted) GTEST_SKIP() << "needs the right to mount file systems";
    EXPECT_EQ(result, 0);
}

}  // namespace

TEST_F(Disaster, SharedMemoryFull) {
    Child host([](Line) {
        if (!OwnSharedMemory("size=64k,nr_inodes=64")) return kNotPermitted;
        std::ofstream("/dev/shm/full") << std::string(1 << 20, 'x');
        if (RunHost({}, "shared memory full", 4, false) != 0) return 1;
        fs::remove("/dev/shm/full");
        SabotagedCall call;
        return call.PlayUntilPredicted() ? 0 : 2;
    });
    ExpectGood(host.Join());
}

TEST_F(Disaster, AnotherUserPlantsTheFolderOrOpensTheObjects) {
    Child host([](Line) {
        if (!OwnSharedMemory("size=8m")) return kNotPermitted;
        const fs::path base = NamespaceFolder().parent_path();
        const auto asAnotherUser = [](auto body) {
            return Child([&](Line) { return setuid(65534) == 0 ? body() : 99; }).Join();
        };
        // Planted before there is a host: it conceals without a worker.
        if (asAnotherUser([&] { return mkdir(base.c_str(), 0777); }) != 0) return 2;
        if (RunHost({}, "folder planted by another user", 4, false) != 0) return 3;
        if (!fs::is_empty(base)) return 4;
        fs::remove_all(base);
        // The host is there first: nobody else gets in.
        SabotagedCall call;
        if (!call.PlayUntilPredicted()) return 5;
        const pid_t worker = Worker();
        return asAnotherUser([&] {
            const fs::path folder = NamespaceFolder();
            std::error_code error;
            int opened = 0;
            for (const char *const object : {protocol::kSharedMemName, protocol::kInferMutexName})
                opened += open((folder / object).c_str(), O_RDWR) >= 0 ? 1 : 0;
            opened += fs::directory_iterator(base, error) != fs::directory_iterator() ? 1 : 0;
            opened += open((folder / "Planted").c_str(), O_CREAT | O_WRONLY, 0600) >= 0 ? 1 : 0;
            opened += kill(worker, 0) == 0 ? 1 : 0;
            return opened;
        });
    });
    ExpectGood(host.Join());
}

}  // namespace aiplc::host
