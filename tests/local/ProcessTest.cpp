// Several processes and threads on one pool.
#include <atomic>
#include <thread>

#include "LocalFixture.h"

namespace zd::test {
namespace {

class Processes : public LocalEngine {};

int CheckSecondProcess(const std::string&) {
    if (ReadText("pool/Dir/f") != "data") return 1;
    if (DescriptorOf("pool/Dir/f") != "O:BA") return 2;
    const ZdvfsStatRecord record = StatOf("pool/Dir/f");
    if (record.attributes != 0x26 || record.modificationTime != 1500000000) return 3;
    if (StatOf("pool/Dir").attributes != 0x12) return 4;
    WriteText("pool/answer", "seen");
    return 0;
}
const ChildTaskRegistration kCheck("check-second", &CheckSecondProcess);

TEST_F(Processes, AnotherProcessSeesEverything) {
    ASSERT_EQ(0, ZdvfsMkdir("pool/Dir", 2));
    WriteText("pool/Dir/f", "data");
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/Dir/f", "O:BA"));
    ASSERT_EQ(0, ZdvfsChmod("pool/Dir/f", 0x26));
    const ZdvfsTimes times = {1500000001, 1500000000};
    ASSERT_EQ(0, ZdvfsUtime("pool/Dir/f", &times));
    CChild child(L"check-second");
    EXPECT_EQ(0u, child.Wait());
    EXPECT_EQ("seen", ReadText("pool/answer"));
}

// Each process changes its own field of one object's metadata, and its own names.
int ChangeAttributes(const std::string& argument) {
    for (unsigned i = 1; i <= 40; ++i) {
        if (ZdvfsChmod("pool/shared", i) != 0) return 1;
        const std::string path = "pool/d/" + argument + std::to_string(i);
        if (ZdvfsClose(ZdvfsOpen(path.c_str(), kZdvfsReadWrite | kZdvfsCreate | kZdvfsExclusive, 0)) != 0) return 2;
        if (i % 2 == 0 && ZdvfsUnlink(path.c_str()) != 0) return 3;
    }
    return 0;
}
const ChildTaskRegistration kChange("change-attributes", &ChangeAttributes);

TEST_F(Processes, ChangesOfOneObjectDoNotLoseEachOther) {
    WriteText("pool/shared", "");
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    CChild one(L"change-attributes", L"one");
    CChild two(L"change-attributes", L"two");
    std::string text;
    for (int i = 0; i < 60; ++i) {
        text = "O:BA" + std::to_string(i);
        ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/shared", text.c_str()));
        ASSERT_EQ(text, DescriptorOf("pool/shared"));
    }
    EXPECT_EQ(0u, one.Wait());
    EXPECT_EQ(0u, two.Wait());
    EXPECT_EQ(40, StatOf("pool/shared").attributes);
    EXPECT_EQ(text, DescriptorOf("pool/shared"));
    EXPECT_EQ(40u, NamesOf("pool/d").size());
}

int CreateExclusively(const std::string&) {
    int won = 0;
    for (int i = 0; i < 40; ++i) {
        const std::string path = "pool/d/f" + std::to_string(i);
        const int file = ZdvfsOpen(path.c_str(), kZdvfsReadWrite | kZdvfsCreate | kZdvfsExclusive, 0);
        if (file >= 0) {
            ++won;
            ZdvfsClose(file);
        } else if (errno != EEXIST) {
            return 80;
        }
    }
    return won;
}
const ChildTaskRegistration kExclusive("create-exclusively", &CreateExclusively);

TEST_F(Processes, OnlyOneCreatesAFileExclusively) {
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    CChild one(L"create-exclusively");
    CChild two(L"create-exclusively");
    EXPECT_EQ(40u, one.Wait() + two.Wait());
}

int RemoveOpenFile(const std::string&) {
    return ZdvfsUnlink("pool/f") == 0 && !Exists("pool/f") ? 0 : 1;
}
const ChildTaskRegistration kRemove("remove-open", &RemoveOpenFile);

TEST_F(Processes, AFileOpenHereCanBeRemovedThere) {
    WriteText("pool/f", "data");
    const int file = ZdvfsOpen("pool/f", kZdvfsReadWrite, 0);
    CChild child(L"remove-open");
    EXPECT_EQ(0u, child.Wait());
    char buffer[8] = {};
    EXPECT_EQ(4, ZdvfsPread(file, buffer, sizeof buffer, 0));
    WriteText("pool/f", "new");
    EXPECT_EQ(kMissing, FailureOf([&] { return ZdvfsFsetNTAclStr(file, "O:SY"); }));
    EXPECT_EQ("", DescriptorOf("pool/f"));
    EXPECT_EQ(0, ZdvfsClose(file));
}

TEST_F(Processes, ThreadsWorkTogether) {
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    WriteText("pool/shared", "");
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 25; ++i) {
                const std::string path = "pool/d/t" + std::to_string(thread) + "-" + std::to_string(i);
                const std::string moved = path + "m";
                const std::string text = "O:" + path;
                const int file = ZdvfsOpen(path.c_str(), kZdvfsReadWrite | kZdvfsCreate | kZdvfsExclusive, 0);
                if (file < 0 || ZdvfsPwrite(file, path.data(), path.size(), 0) < 0) ++failures;
                if (ZdvfsFsetNTAclStr(file, text.c_str()) != 0) ++failures;
                if (ZdvfsRename(path.c_str(), moved.c_str()) != 0 || ZdvfsClose(file) != 0) ++failures;
                if (DescriptorOf(moved.c_str()) != text || ReadText(moved.c_str()) != path) ++failures;
                if (ZdvfsChmod("pool/shared", 2) != 0) ++failures;
                if (i % 5 == 0) NamesOf("pool/d");
                if (i % 2 == 0 && ZdvfsUnlink(moved.c_str()) != 0) ++failures;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(4u * 12u, NamesOf("pool/d").size());
}

}  // namespace
}  // namespace zd::test
