// SPDX-License-Identifier: BSD-2-Clause
//
// Hosts that meet, are killed, lack what they need, or have another user beside them.

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <fstream>
#include <list>
#include <memory>

#include "tests/disasters/disaster.h"
#include "tests/support/open_descriptors.h"

namespace aiplc::host {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr int kHosts = 4;
#else
constexpr int kHosts = 20;
#endif

constexpr int kNotPermitted = 77;

class HostDisaster : public Disaster {
  protected:
    // Gives the process file systems of its own, with a /dev/shm of so many bytes that all may use.
    static bool OwnSharedMemory(const char *size) {
        unsetenv("XDG_RUNTIME_DIR");
        return unshare(CLONE_NEWNS) == 0 &&
               mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               mount("tmpfs", "/dev/shm", "tmpfs", 0, size) == 0 && chmod("/dev/shm", 01777) == 0;
    }
    static void ExpectGood(int result) {
        if (result == kNotPermitted) GTEST_SKIP() << "needs the right to mount file systems";
        EXPECT_EQ(result, 0);
    }
    // Plays in so many processes at once, each after prepare with its number.
    static void PlayAtOnce(int count, const std::string &what, int periods,
                           const std::function<void(int)> &prepare) {
        std::list<Child> hosts;
        for (int i = 0; i < count; ++i) {
            hosts.emplace_back([&](Line line) {
                prepare(i);
                line.Tell();
                return RunHost(what, periods, true);
            });
        }
        for (Child &host : hosts)
            EXPECT_EQ(host.Join(), 0);
    }
};

}  // namespace

TEST_F(HostDisaster, TwoOfOneUser) {
    PlayAtOnce(2, "one of two hosts", 25, [](int) {});
    ExpectNothingLeft("two hosts in one namespace");
}

TEST_F(HostDisaster, TwentyAtOnceInNamespacesOfTheirOwn) {
    const std::string mine = NamespaceName();
    PlayAtOnce(kHosts, "one of twenty hosts", 12, [&](int i) {
        setenv("AIPLC_NAMESPACE", (mine + "-" + std::to_string(i)).c_str(), 1);
    });
    ExpectNothingLeft("twenty hosts");
    for (const auto &entry : fs::directory_iterator(NamespaceFolder().parent_path()))
        EXPECT_THAT(entry.path().filename().string(), testing::Not(testing::StartsWith(mine)));
}

TEST_F(HostDisaster, ChannelsOfOneProcessHaveAWorkerEach) {
    const std::string mine = NamespaceName();
    unsetenv("AIPLC_NAMESPACE");
    auto first = std::make_unique<SabotagedCall>();
    SabotagedCall second;
    EXPECT_TRUE(first->PredictorRunning() && second.PredictorRunning());
    EXPECT_TRUE(first->PlayUntilPredicted());
    first.reset();
    EXPECT_TRUE(second.PlayUntilPredicted());
    EXPECT_EQ(std::getenv("AIPLC_NAMESPACE"), nullptr);
    setenv("AIPLC_NAMESPACE", mine.c_str(), 1);
}

TEST_F(HostDisaster, WorkerOfAKilledHostEndsAndTheNextHostPlays) {
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
        EXPECT_TRUE(call.PredictorRunning());
        EXPECT_TRUE(call.PlayUntilPredicted());
        return call.Result();
    });
    ExpectNothingLeft("killed host");
}

TEST_F(HostDisaster, DescriptorsExhausted) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizers need descriptors of their own";
#endif
    for (rlim_t room = 0; room < 24; ++room) {
        Child host([room](Line) {
            rlimit limit{};
            getrlimit(RLIMIT_NOFILE, &limit);
            limit.rlim_cur = static_cast<rlim_t>(OpenDescriptors()) + room;
            setrlimit(RLIMIT_NOFILE, &limit);
            return RunHost("room for " + std::to_string(room) + " descriptors", 4, false);
        });
        EXPECT_EQ(host.Join(), 0) << room;
    }
    // To look for what is left takes descriptors.
    ExpectNothingLeft("descriptors exhausted", Left::untilTheNextHost);
}

TEST_F(HostDisaster, SharedMemoryFull) {
    Child host([](Line) {
        if (!OwnSharedMemory("size=64k,nr_inodes=64")) return kNotPermitted;
        std::ofstream("/dev/shm/full") << std::string(1 << 20, 'x');
        if (RunHost("shared memory full", 4, false) != 0) return 1;
        fs::remove("/dev/shm/full");
        SabotagedCall call;
        return call.PlayUntilPredicted() ? 0 : 2;
    });
    ExpectGood(host.Join());
}

TEST_F(HostDisaster, AnotherUserPlantsTheFolderOrOpensTheObjects) {
    Child host([](Line) {
        if (!OwnSharedMemory("size=8m")) return kNotPermitted;
        const fs::path base = NamespaceFolder().parent_path();
        const auto asAnotherUser = [](auto body) {
            return Child([&](Line) { return setuid(65534) == 0 ? body() : 99; }).Join();
        };
        // Planted before there is a host: it conceals without a worker.
        if (asAnotherUser([&] { return mkdir(base.c_str(), 0777); }) != 0) return 2;
        if (RunHost("folder planted by another user", 4, false) != 0) return 3;
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
