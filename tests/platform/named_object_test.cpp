// SPDX-License-Identifier: BSD-2-Clause

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "child_process.h"
#include "platform/platform.h"

namespace aiplc::platform {
namespace {

constexpr auto kHoldBlock = [](Line line) {
    size_t size = 0;
    auto *bytes = static_cast<char *>(MapView(CreateMapping("Block", 10776), &size));
    if (bytes == nullptr || size < 10776 || bytes[0] != 0 || bytes[size - 1] != 0) return 1;
    std::memcpy(bytes + 10770, "kept", 5);
    return line.Tell() && line.Await() ? 0 : 1;
};

TEST(NamedObject, VanishesWithItsLastHandleAlsoWhenTheHolderIsKilled) {
    for (int round = 0; round < 2; ++round) {
        Child holder(kHoldBlock);
        EXPECT_TRUE(holder.line.Await()) << "new and zero, round " << round;
        holder.Kill();
        EXPECT_EQ(OpenMapping("Block"), nullptr);
        EXPECT_EQ(LastError(), static_cast<uint32_t>(ENOENT));
    }
    Child holder(kHoldBlock);
    holder.line.Await();
    const Handle opened = OpenMapping("Block");
    const Handle created = CreateMapping("Block", 100000);
    holder.Kill();
    size_t size = 0;
    auto *bytes = static_cast<char *>(MapView(created, &size));
    ASSERT_NE(bytes, nullptr);
    EXPECT_LT(size, 100000U) << "an existing mapping keeps its size";
    EXPECT_TRUE(CloseHandle(created) && CloseHandle(opened));
    EXPECT_EQ(OpenMapping("Block"), nullptr) << "a view alone does not keep the name";
    EXPECT_STREQ(bytes + 10770, "kept");
    EXPECT_TRUE(UnmapView(bytes));
    EXPECT_FALSE(UnmapView(bytes));
}

TEST(NamedObject, RefusesBadNamesOtherKindsAndWhatDoesNotFit) {
    const std::string names[] = {
        "", ".hosts", "a/b", "..", "a b", "\xC3\xA4", std::string(65, 'a')};
    for (const std::string &name : names) {
        EXPECT_EQ(CreateNamedEvent(name.c_str()), nullptr) << name;
        EXPECT_EQ(LastError(), static_cast<uint32_t>(EINVAL)) << name;
    }
    Child holder(kHoldBlock);
    holder.line.Await();
    for (const bool isOpenHere : {false, true}) {
        const Handle opened = isOpenHere ? OpenMapping("Block") : nullptr;
        EXPECT_EQ(CreateNamedMutex("Block"), nullptr);
        EXPECT_EQ(LastError(), static_cast<uint32_t>(EEXIST));
        EXPECT_EQ(CloseHandle(opened), isOpenHere);
    }
    for (const size_t size : {size_t{0}, size_t{1} << 50, size_t{1} << 62, SIZE_MAX}) {
        EXPECT_EQ(CreateMapping("Huge", size), nullptr) << "its memory is there or it is an error";
        EXPECT_EQ(OpenMapping("Huge"), nullptr);
    }
}

TEST(NamedObject, BadHandlesFailAndDoNotCrash) {
    const Handle mapping = CreateMapping("Block", 1);
    for (const Handle bad : {Handle{nullptr}, InvalidHandle(), mapping}) {
        EXPECT_EQ(Wait(bad, 0), kWaitFailed);
        EXPECT_EQ(LastError(), static_cast<uint32_t>(EBADF));
        EXPECT_FALSE(SetEvent(bad) || ResetEvent(bad) || ReleaseMutex(bad));
        EXPECT_EQ(CloseHandle(bad), bad == mapping);
    }
    EXPECT_FALSE(CloseHandle(mapping)) << "closed already";
}

// Creation, removal and the directory's own coming and going race with one another.
TEST(NamedObject, OpensWhileOthersOpenCloseAndDie) {
    const auto churn = [](Line) {
        for (int i = 0; i < 200; ++i) {
            const Handle event = CreateNamedEvent("E");
            const Handle mapping = CreateMapping("Block", 1);
            size_t size = 0;
            void *view = MapView(mapping, &size);
            if (!SetEvent(event) || !UnmapView(view)) return 1;
            if (!CloseHandle(mapping) || !CloseHandle(event)) return 2;
        }
        return 0;
    };
    Child children[] = {Child(churn), Child(churn), Child(churn)};
    for (int i = 0; i < 20; ++i)
        Child(kHoldBlock).Kill();
    for (Child &child : children)
        EXPECT_EQ(child.Join(), 0);
    EXPECT_EQ(OpenMapping("Block"), nullptr);
}

}  // namespace
}  // namespace aiplc::platform
