// Files of several fragments through the plug-in and the local engine onto the disk and back.
#include <algorithm>
#include <thread>

#include "harness/Pattern.h"
#include "harness/PluginFixture.h"

namespace zd::test {
namespace {

constexpr std::int64_t kMegabyte = 1048576;
constexpr std::size_t kThreeFragments = 2 * 1048576 + 543210;
constexpr CreateOptions kExisting{.disposition = kZdOpen, .access = 0x3};
constexpr CreateOptions kReadOnly{.disposition = kZdOpen, .access = 0x1};

class CRoundTripTest : public CLocalEngineTest {
protected:
    void ConnectWith(DWORD maxOpenFragments = 100) {
        Registry().SetDword(kPluginKey, L"DebugLevel", 1);
        Registry().SetDword(kPluginKey, L"MaxFileSizeMB", 1);
        Registry().SetDword(kPluginKey, L"MaxOpenFragments", maxOpenFragments);
        ASSERT_EQ(0U, Connect());
    }

    // Disconnects and connects again with a new object.
    void Reconnect() {
        ASSERT_EQ(0U, m_manager->ZdDisconnect());
        m_manager = nullptr;
        ASSERT_EQ(0U, Connect());
    }

    Handle Opened(const std::wstring& name, const CreateOptions& options = CreateOptions()) {
        const Created created = Create(name, options);
        EXPECT_EQ(0U, created.code) << Narrow(name);
        return created.handle;
    }

    // Writes in pieces that do not end where fragments do.
    void WriteWhole(Handle handle, const std::string& data, std::size_t piece = 300007) {
        for (std::size_t at = 0; at < data.size(); at += piece) {
            const std::string part = data.substr(at, piece);
            ASSERT_EQ(part.size(), Write(handle, static_cast<std::int64_t>(at), part).count) << at;
        }
    }

    std::string ReadWhole(Handle handle, DWORD piece = 777777) {
        std::string whole;
        for (;;) {
            const Transfer transfer = Read(handle, static_cast<std::int64_t>(whole.size()), piece);
            EXPECT_EQ(0U, transfer.code);
            if (transfer.code != 0 || transfer.count == 0) return whole;
            whole += transfer.data;
        }
    }

    // Reads the file through a handle of its own; a difference is told by its place.
    void ExpectContent(const std::wstring& name, const std::string& expected) {
        const Created created = Create(name, kReadOnly);
        ASSERT_EQ(0U, created.code) << Narrow(name);
        EXPECT_EQ(expected.size(), created.information.size);
        const std::string read = ReadWhole(created.handle);
        EXPECT_EQ(expected.size(), read.size());
        const auto [wanted, found] = std::mismatch(expected.begin(), expected.end(), read.begin(), read.end());
        EXPECT_TRUE(wanted == expected.end() && found == read.end())
            << "they differ at byte " << (wanted - expected.begin());
        Close(created.handle);
    }

    void ExpectChildSucceeds() {
        const ChildResult result = RunSelfInChild();
        EXPECT_EQ(0U, result.exitCode) << result.output;
        EXPECT_FALSE(result.timedOut);
    }
};

TEST_F(CRoundTripTest, ThreeFragmentsComeBackThroughAnotherHandleAfterAReconnect) {
    ConnectWith();
    const std::string data = Pattern(kThreeFragments);
    const Handle handle = Opened(L"\\big.bin");
    WriteWhole(handle, data);
    Close(handle);
    Reconnect();
    ExpectContent(L"\\big.bin", data);
    // Each fragment is an object of the storage.
    ExpectContent(L"\\big.bin;F1", data.substr(kMegabyte, kMegabyte));
    ExpectContent(L"\\big.bin;F2", data.substr(2 * kMegabyte));
    EXPECT_EQ(2U, Create(L"\\big.bin;F3", kReadOnly).code);
}

TEST_F(CRoundTripTest, ThreeFragmentsComeBackInAnotherProcess) {
    const std::string data = Pattern(kThreeFragments, 7);
    ConnectWith();
    if (InChild()) return ExpectContent(L"\\dir\\big.bin", data);
    Close(Opened(L"\\dir", {.isDirectory = 1, .attributes = FILE_ATTRIBUTE_DIRECTORY, .disposition = kZdCreate}));
    const Handle handle = Opened(L"\\dir\\big.bin");
    WriteWhole(handle, data);
    Close(handle);
    ExpectChildSucceeds();
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    ExpectChildSucceeds();
}

TEST_F(CRoundTripTest, AnotherProcessReadsWhatAnOpenHandleHasWritten) {
    const std::string data = Pattern(kThreeFragments, 8);
    ConnectWith();
    if (InChild()) return ExpectContent(L"\\big.bin", data);
    const Handle handle = Opened(L"\\big.bin");
    WriteWhole(handle, data);
    ExpectChildSucceeds();
    EXPECT_TRUE(data == ReadWhole(handle));
    Close(handle);
}

TEST_F(CRoundTripTest, AnotherProcessesWriteIsReadHere) {
    const std::string data = Pattern(kThreeFragments, 9);
    const std::string patch = Pattern(200000, 10);
    ConnectWith();
    if (InChild()) {
        const Handle handle = Opened(L"\\big.bin", kExisting);
        EXPECT_EQ(patch.size(), Write(handle, kMegabyte - 100000, patch).count);
        return Close(handle);
    }
    const Handle handle = Opened(L"\\big.bin");
    WriteWhole(handle, data);
    ExpectChildSucceeds();
    std::string expected = data;
    expected.replace(kMegabyte - 100000, patch.size(), patch);
    EXPECT_TRUE(expected == ReadWhole(handle)) << "through the handle that was open all the time";
    Close(handle);
    ExpectContent(L"\\big.bin", expected);
}

TEST_F(CRoundTripTest, EveryLimitOfOpenFragmentsReadsTheSameBytes) {
    const std::string data = Pattern(5 * kMegabyte + 17, 11);
    for (const DWORD limit : {1U, 2U, 0U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(limit);
        m_manager = nullptr;
        ConnectWith(limit);
        const Handle handle = Opened(L"\\big.bin", {.disposition = kZdOverwriteIf, .access = 0x3});
        WriteWhole(handle, data, 1500000);
        EXPECT_TRUE(data == ReadWhole(handle));
        // Back and forth over the boundaries.
        for (std::int64_t boundary = 5; boundary >= 1; --boundary) {
            const std::int64_t at = boundary * kMegabyte - 10;
            EXPECT_EQ(data.substr(static_cast<std::size_t>(at), 20), Read(handle, at, 20).data);
        }
        Close(handle);
        ExpectContent(L"\\big.bin", data);
    }
}

TEST_F(CRoundTripTest, OverwritingCuttingGrowingAndAppendingSurviveAReconnect) {
    ConnectWith(2);
    std::string expected = Pattern(kThreeFragments, 12);
    const Handle handle = Opened(L"\\big.bin");
    WriteWhole(handle, expected);
    const std::string middle = Pattern(1200000, 13);
    EXPECT_EQ(middle.size(), Write(handle, 500000, middle).count);
    expected.replace(500000, middle.size(), middle);
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, kMegabyte + 99));
    expected.resize(kMegabyte + 99);
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 3 * kMegabyte));
    expected.resize(3 * kMegabyte);
    Close(handle);
    Reconnect();
    ExpectContent(L"\\big.bin", expected);

    // The copy and the file appended to itself are made by the storage.
    const Handle source = Opened(L"\\big.bin", kExisting);
    const Handle target = Opened(L"\\copy.bin");
    EXPECT_EQ(3U, Write(target, 0, "abc").count);
    EXPECT_EQ(0U, m_manager->ZdAppendFile(target, source, 3, 1000, 2 * kMegabyte));
    EXPECT_EQ(0U, m_manager->ZdAppendFile(source, source, 3 * kMegabyte, 5, kMegabyte + 1));
    Close(source);
    Close(target);
    Reconnect();
    ExpectContent(L"\\copy.bin", "abc" + expected.substr(1000, 2 * kMegabyte));
    ExpectContent(L"\\big.bin", expected + expected.substr(5, kMegabyte + 1));
}

TEST_F(CRoundTripTest, AWriteInTheNextFragmentLeavesNoHole) {
    ConnectWith();
    const Handle handle = Opened(L"\\sparse.bin");
    EXPECT_EQ(5U, Write(handle, 0, "begin").count);
    EXPECT_EQ(3U, Write(handle, kMegabyte + 1000, "end").count);
    EXPECT_EQ(87U, Write(handle, 3 * kMegabyte, "too far").code);
    Close(handle);
    Reconnect();
    ExpectContent(L"\\sparse.bin", "begin" + std::string(kMegabyte + 1000 - 5, '\0') + "end");
}

TEST_F(CRoundTripTest, DeletionRemovesEveryFragmentForGood) {
    ConnectWith();
    const Handle handle = Opened(L"\\big.bin");
    WriteWhole(handle, Pattern(kThreeFragments, 14));
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_EQ(2U, Read(handle, 0, 1).code);
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    Reconnect();
    for (const wchar_t* const name : {L"\\big.bin", L"\\big.bin;F1", L"\\big.bin;F2"}) {
        EXPECT_EQ(2U, Create(name, kReadOnly).code) << Narrow(name);
    }
}

TEST_F(CRoundTripTest, EmptyingAnExistingFileRemovesItsFurtherFragments) {
    ConnectWith();
    const Handle handle = Opened(L"\\big.bin");
    WriteWhole(handle, Pattern(kThreeFragments, 15));
    Close(handle);
    const Handle again = Opened(L"\\big.bin", {.disposition = kZdOverwrite, .access = 0x3});
    EXPECT_EQ(5U, Write(again, 0, "short").count);
    Close(again);
    Reconnect();
    ExpectContent(L"\\big.bin", "short");
    EXPECT_EQ(2U, Create(L"\\big.bin;F1", kReadOnly).code);
}

TEST_F(CRoundTripTest, ThreadsOnOneHandleFillTheirOwnRanges) {
    ConnectWith(2);
    constexpr std::size_t kRange = 700001;
    const Handle handle = Opened(L"\\shared.bin");
    ASSERT_EQ(0U, m_manager->ZdSetFileSize(handle, 4 * kRange));
    std::vector<std::thread> threads;
    for (std::uint32_t t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            const std::string data = Pattern(kRange, 100 + t);
            const auto base = static_cast<std::int64_t>(kRange * t);
            for (std::size_t at = 0; at < kRange; at += 123457) {
                const std::string part = data.substr(at, 123457);
                EXPECT_EQ(part.size(), Write(handle, base + static_cast<std::int64_t>(at), part).count);
            }
            EXPECT_TRUE(data == Read(handle, base, kRange).data);
        });
    }
    for (std::thread& thread : threads) thread.join();
    Close(handle);
    Reconnect();
    std::string expected;
    for (std::uint32_t t = 0; t < 4; ++t) expected += Pattern(kRange, 100 + t);
    ExpectContent(L"\\shared.bin", expected);
}

TEST_F(CRoundTripTest, ThreadsOnHandlesOfTheirOwnAndProcessesBesideThem) {
    ConnectWith(1);
    if (InChild()) {
        const std::string data = Pattern(kThreeFragments, 16);
        const Handle handle = Opened(L"\\child.bin");
        WriteWhole(handle, data);
        Close(handle);
        return ExpectContent(L"\\child.bin", data);
    }
    std::vector<std::thread> threads;
    for (std::uint32_t t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            const std::wstring name = L"\\file" + std::to_wstring(t);
            const std::string data = Pattern(kThreeFragments + t, 200 + t);
            const Handle handle = Opened(name);
            WriteWhole(handle, data, 400009);
            EXPECT_TRUE(data == ReadWhole(handle));
            Close(handle);
        });
    }
    ExpectChildSucceeds();
    for (std::thread& thread : threads) thread.join();
    Reconnect();
    for (std::uint32_t t = 0; t < 3; ++t) {
        ExpectContent(L"\\file" + std::to_wstring(t), Pattern(kThreeFragments + t, 200 + t));
    }
    ExpectContent(L"\\child.bin", Pattern(kThreeFragments, 16));
}

}  // namespace
}  // namespace zd::test
