// Slots 21 and 29: control requests that pass through, on a handle and to the root of every mounted pool.
#include <atomic>
#include <thread>

#include "harness/PluginFixture.h"
#include "log/ClosurePatches.h"

using namespace zd::test;

namespace {

constexpr DWORD kNoResult = 0xFFFFFFFF;
constexpr DWORD kRequest = 77;

class CIoctlTest : public CDoubleTest {
protected:
    void SetUp() override {
        CDoubleTest::SetUp();
        Registry().SetDword(kPluginKey, L"MaxFileSizeMB", 1);
        ASSERT_EQ(0U, Connect());
        Double().SetIoctlShape(kRequest, "isl");
        ClearLogs();
    }

    Handle Open(const wchar_t* name, const CreateOptions& options = CreateOptions()) {
        const Created created = Create(name, options);
        EXPECT_EQ(0U, created.code);
        ClearLogs();
        return created.handle;
    }

    // A list of a 32-bit value, a text and a 64-bit value.
    std::uint64_t Arguments() { return reinterpret_cast<std::uint64_t>(m_slots); }

    static constexpr std::int64_t kMegabyte = 1024 * 1024;

private:
    std::uint64_t m_slots[3] = {0xFFFFFFFFFFFFFFFBULL, reinterpret_cast<std::uint64_t>("vm1"), 1ULL << 40};
};

// ---- 21 ----

TEST_F(CIoctlTest, HandleIoctlPassesRequestAndArgumentsToTheFilesDescriptor) {
    const Handle handle = Open(L"\\a");
    EXPECT_EQ(0U, m_manager->ZdHandleIoctl(handle, kRequest, Arguments()));
    EXPECT_CALLS("ZdvfsVIoctl(*, 77, -5, \"vm1\", 1099511627776) = 0");
    EXPECT_LOG();
}

TEST_F(CIoctlTest, HandleIoctlUsesTheDescriptorThatTheOpenAnswered) {
    Double().SetNextDescriptor(4321);
    const Handle handle = Open(L"\\a");
    EXPECT_EQ(0U, m_manager->ZdHandleIoctl(handle, kRequest, Arguments()));
    EXPECT_CALLS("ZdvfsVIoctl(4321, *) = 0");
}

TEST_F(CIoctlTest, HandleIoctlAnswersTheResultUntranslated) {
    const Handle handle = Open(L"\\a");
    for (const std::int64_t result : {0LL, 1LL, 42LL, -1LL, -2LL, 0x7FFFFFFFLL, -0x80000000LL}) {
        Double().ClearRules();
        Double().Add(OnCall("ZdvfsVIoctl").Answers(result).WithErrno(ENOSPC).WithLastError(112));
        EXPECT_EQ(static_cast<DWORD>(result), m_manager->ZdHandleIoctl(handle, kRequest, Arguments())) << result;
    }
    EXPECT_LOG();
}

TEST_F(CIoctlTest, HandleIoctlPassesAnyRequestCode) {
    const Handle handle = Open(L"\\a");
    for (const DWORD request : {0U, 1U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(0U, m_manager->ZdHandleIoctl(handle, request, 0));
        EXPECT_CALLS("ZdvfsVIoctl(*, " + std::to_string(static_cast<int>(request)) + ") = 0");
    }
}

TEST_F(CIoctlTest, HandleIoctlOfANullHandleAnswersAllOnesWithoutACall) {
    EXPECT_EQ(kNoResult, m_manager->ZdHandleIoctl(0, kRequest, Arguments()));
    EXPECT_CALLS();
    EXPECT_LOG();
}

TEST_F(CIoctlTest, HandleIoctlOfAnUnknownHandleAnswersAllOnesWithoutACall) {
    const Handle released = Open(L"\\a");
    Close(released);
    ClearLogs();
    for (const Handle handle : {released, Handle{1}, Handle{0x1234}, ~Handle{0}}) {
        EXPECT_EQ(kNoResult, m_manager->ZdHandleIoctl(handle, kRequest, Arguments())) << handle;
    }
    EXPECT_CALLS();
    EXPECT_LOG();
}

TEST_F(CIoctlTest, HandleIoctlOfAnotherConnectionsHandleIsUnknown) {
    const Handle handle = Open(L"\\a");
    IProtocolManager* const other = NewManager();
    ClearLogs();
    EXPECT_EQ(kNoResult, other->ZdHandleIoctl(handle, kRequest, Arguments()));
    EXPECT_CALLS();
}

TEST_F(CIoctlTest, HandleIoctlPassesTheMinusOneOfAClosedFileOn) {
    const Handle handle = Open(L"\\a");
    ASSERT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    ClearLogs();
    EXPECT_EQ(kNoResult, m_manager->ZdHandleIoctl(handle, kRequest, Arguments()));
    EXPECT_CALLS("ZdvfsVIoctl(-1, 77, -5, \"vm1\", 1099511627776) = -1");
    ASSERT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CIoctlTest, HandleIoctlFollowsTheFragmentLastWritten) {
    const Handle handle = Open(L"\\a");
    Double().SetNextDescriptor(500);
    ASSERT_EQ(0U, Write(handle, kMegabyte - 2, "12345").code);
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdHandleIoctl(handle, kRequest, Arguments()));
    EXPECT_CALLS("ZdvfsVIoctl(500, *) = 0");
    ASSERT_EQ(0U, Write(handle, 0, "1").code);
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdHandleIoctl(handle, kRequest, Arguments()));
    const std::vector<Call> calls = Double().Calls();
    ASSERT_EQ(1U, calls.size());
    EXPECT_NE(500, calls[0].descriptor);
    EXPECT_EQ("pool/a", calls[0].path);
}

TEST_F(CIoctlTest, HandleIoctlAfterAShrinkUsesTheLastFragmentThereIs) {
    const Handle handle = Open(L"\\a");
    ASSERT_EQ(0U, m_manager->ZdSetFileSize(handle, 2 * kMegabyte + 5));
    ASSERT_EQ(0U, Write(handle, 2 * kMegabyte, "123").code);
    ASSERT_EQ(0U, m_manager->ZdSetFileSize(handle, kMegabyte + 5));
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdHandleIoctl(handle, kRequest, Arguments()));
    const std::vector<Call> calls = Double().Calls();
    ASSERT_EQ(1U, calls.size());
    EXPECT_EQ("ZdvfsVIoctl", calls[0].function);
    EXPECT_EQ("pool/a;F1", calls[0].path);
}

TEST_F(CIoctlTest, HandleIoctlReopensNothing) {
    Double().MakeFile("pool/a", std::string(), kMegabyte);
    Double().MakeFile("pool/a;F1", "12345");
    const Handle handle = Open(L"\\a", {.disposition = kZdOpen});
    EXPECT_EQ(0U, m_manager->ZdHandleIoctl(handle, kRequest, Arguments()));
    EXPECT_CALLS("ZdvfsVIoctl(*, 77, *) = 0");
}

TEST_F(CIoctlTest, HandleIoctlOfADirectoryHasNoDescriptorToPassOn) {
    Double().MakeDirectory("pool/dir");
    const Handle handle = Open(L"\\dir", {.isDirectory = 1, .disposition = kZdOpen});
    EXPECT_EQ(kNoResult, m_manager->ZdHandleIoctl(handle, kRequest, Arguments()));
    EXPECT_CALLS("ZdvfsVIoctl(-1, 77, *) = -1");
}

TEST_F(CIoctlTest, HandleIoctlLetsNoExceptionOutAndLeavesTheLock) {
    static const struct {
        EThrow thrown;
        DWORD code;
    } kRows[] = {{EThrow::kBadAlloc, 8}, {EThrow::kRuntimeError, kNoResult}, {EThrow::kUnsignedLong, kNoResult}};
    const Handle handle = Open(L"\\a");
    for (const auto& row : kRows) {
        Double().ClearRules();
        Double().Add(OnCall("ZdvfsVIoctl").Throws(row.thrown, 5).WithLastError(31));
        DWORD code = kUntouched;
        EXPECT_NO_THROW(code = m_manager->ZdHandleIoctl(handle, kRequest, Arguments()));
        EXPECT_EQ(row.code, code);
    }
    EXPECT_LOG();
    std::thread([&] { EXPECT_EQ(0U, Write(handle, 0, "x").code); }).join();
}

TEST_F(CIoctlTest, HandleIoctlHoldsTheHandlesLockDuringTheCall) {
    const Handle handle = Open(L"\\a");
    const Handle other = Open(L"\\other");
    CGate entered;
    CGate proceed;
    CGate met;  // the writer stands before a lock, or in the storage
    std::atomic<bool> blocked{false};
    std::atomic<DWORD> writer{0};
    CClosurePatches patches(Plugin());
    patches.Replace<void(CRITICAL_SECTION*)>("EnterCriticalSection", [&](auto original, CRITICAL_SECTION* section) {
        if (::GetCurrentThreadId() == writer && ::TryEnterCriticalSection(section) != FALSE) return;
        if (::GetCurrentThreadId() == writer) {
            blocked = true;
            met.Set();
        }
        original(section);
    });
    Double().Add(OnCall("ZdvfsVIoctl").Before([&](const Call&) {
        entered.Set();
        proceed.Wait();
    }));
    Double().Add(OnCall("ZdvfsPwrite").ForPath("pool/a").Before([&](const Call&) { met.Set(); }));
    std::thread controlling([&] { m_manager->ZdHandleIoctl(handle, kRequest, Arguments()); });
    EXPECT_TRUE(entered.Wait());
    EXPECT_EQ(0U, Write(other, 0, "y").code) << "other handles go on";
    std::thread writing([&] {
        writer = ::GetCurrentThreadId();
        EXPECT_EQ(0U, Write(handle, 0, "x").code);
    });
    EXPECT_TRUE(met.Wait());
    EXPECT_TRUE(blocked);
    EXPECT_EQ(std::string(), Double().Bytes("pool/a"));
    proceed.Set();
    controlling.join();
    writing.join();
    EXPECT_EQ("x", Double().Bytes("pool/a"));
}

// ---- 29 ----

TEST_F(CIoctlTest, PathIoctlWithoutMountedNamesAnswersAllOnesWithoutACall) {
    ASSERT_EQ(0U, m_manager->ZdDisconnect());
    ClearLogs();
    EXPECT_EQ(kNoResult, m_manager->ZdPathIoctl(kRequest, Arguments()));
    EXPECT_ALL_CALLS();
    EXPECT_LOG();
}

TEST_F(CIoctlTest, PathIoctlOpensTheRootPassesTheRequestAndAnswersTheClose) {
    EXPECT_EQ(0U, m_manager->ZdPathIoctl(kRequest, Arguments()));
    EXPECT_ALL_CALLS("wcstoutf8_buf(\"pool\", 260) = 5", "ZdvfsOpen(\"/pool\", 0x0, 0x0) = *",
                     "ZdvfsVIoctl(*, 77, -5, \"vm1\", 1099511627776) = 0", "ZdvfsClose(*) = 0");
    EXPECT_LOG();
}

class CManyPoolsTest : public CIoctlTest {
protected:
    void ConnectTo(const std::wstring& pool) {
        IProtocolManager* const manager = NewManager();
        const ConnectParameters parameters = Parameters(pool);
        ASSERT_EQ(0U, manager->ZdConnect(&parameters));
        m_others.push_back(manager);
        ClearLogs();
    }

    // The paths that were opened, in order.
    std::vector<std::string> Opened() {
        std::vector<std::string> paths;
        for (const Call& call : Double().Calls()) {
            if (call.function == "ZdvfsOpen") paths.push_back(call.path);
        }
        Double().ClearCalls();
        return paths;
    }

    std::vector<IProtocolManager*> m_others;
};

TEST_F(CManyPoolsTest, PathIoctlGoesThroughTheNamesOrderedByCodeUnits) {
    for (const wchar_t* const pool : {L"zeta", L"Zeta", L"\uFF21", L"\U0001F600", L"alpha", L"\u00E4"}) ConnectTo(pool);
    EXPECT_EQ(0U, m_manager->ZdPathIoctl(kRequest, Arguments()));
    EXPECT_THAT(Opened(), ::testing::ElementsAre("Zeta", "alpha", "pool", "zeta", "\xc3\xa4", "\xf0\x9f\x98\x80",
                                                 "\xef\xbc\xa1"));
}

TEST_F(CManyPoolsTest, PathIoctlGivesEachPoolTheSameArguments) {
    ConnectTo(L"second");
    EXPECT_EQ(0U, m_manager->ZdPathIoctl(kRequest, Arguments()));
    EXPECT_CALLS("ZdvfsOpen(\"/pool\", 0x0, 0x0) = *", "ZdvfsVIoctl(*, 77, -5, \"vm1\", 1099511627776) = 0",
                 "ZdvfsClose(*) = 0", "ZdvfsOpen(\"/second\", 0x0, 0x0) = *",
                 "ZdvfsVIoctl(*, 77, -5, \"vm1\", 1099511627776) = 0", "ZdvfsClose(*) = 0");
}

TEST_F(CManyPoolsTest, PathIoctlReachesANameOnceHoweverManyConnectionsHaveIt) {
    ConnectTo(L"pool");
    m_manager->ZdPathIoctl(kRequest, Arguments());
    EXPECT_THAT(Opened(), ::testing::ElementsAre("pool"));
    ASSERT_EQ(0U, m_others[0]->ZdDisconnect());
    ClearLogs();
    m_manager->ZdPathIoctl(kRequest, Arguments());
    EXPECT_THAT(Opened(), ::testing::ElementsAre("pool")) << "the other connection still has it";
}

TEST_F(CManyPoolsTest, PathIoctlWorksFromAnUnconnectedObject) {
    IProtocolManager* const other = NewManager();
    ClearLogs();
    EXPECT_EQ(0U, other->ZdPathIoctl(kRequest, Arguments()));
    EXPECT_THAT(Opened(), ::testing::ElementsAre("pool"));
}

TEST_F(CManyPoolsTest, PathIoctlAnswersTheCloseOfTheLastNameOpened) {
    ConnectTo(L"second");
    Double().Add(OnCall("ZdvfsVIoctl").Fails(EINVAL));
    EXPECT_EQ(0U, m_manager->ZdPathIoctl(kRequest, Arguments())) << "what the request answers is not kept";
    AllowLeaks();
    Double().ClearRules();
    Double().Add(OnCall("ZdvfsClose").OnNth(1).Answers(3));
    Double().Add(OnCall("ZdvfsClose").OnNth(2).Answers(-5));
    EXPECT_EQ(static_cast<DWORD>(-5), m_manager->ZdPathIoctl(kRequest, Arguments()));
    Double().ClearRules();
    Double().Add(OnCall("ZdvfsClose").OnNth(1).Answers(3));
    Double().Add(OnCall("ZdvfsOpen").ForPath("second").Fails(ENOENT));
    EXPECT_EQ(3U, m_manager->ZdPathIoctl(kRequest, Arguments())) << "a name that does not open changes nothing";
    EXPECT_LOG();
}

TEST_F(CManyPoolsTest, PathIoctlSkipsANameThatDoesNotOpen) {
    ConnectTo(L"second");
    Double().Add(OnCall("ZdvfsOpen").ForPath("pool").Fails(EACCES));
    EXPECT_EQ(0U, m_manager->ZdPathIoctl(kRequest, Arguments()));
    EXPECT_CALLS("ZdvfsOpen(\"/pool\", 0x0, 0x0) = -1", "ZdvfsOpen(\"/second\", 0x0, 0x0) = *", "ZdvfsVIoctl(*) = 0",
                 "ZdvfsClose(*) = 0");
    Double().Add(OnCall("ZdvfsOpen").ForPath("second").Fails(EACCES));
    EXPECT_EQ(kNoResult, m_manager->ZdPathIoctl(kRequest, Arguments())) << "none was opened";
    EXPECT_LOG();
}

TEST_F(CManyPoolsTest, PathIoctlSkipsANameOfMoreThan259Bytes) {
    ASSERT_EQ(0U, m_manager->ZdDisconnect());
    const std::wstring longest = std::wstring(86, L'\u571C') + L"x";  // 86 times 3 bytes and one
    ASSERT_EQ(0U, Connect(longest));
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdPathIoctl(kRequest, Arguments()));
    EXPECT_THAT(Opened(), ::testing::ElementsAre(Narrow(longest)));
    ConnectTo(longest + L"y");  // 260 bytes
    EXPECT_EQ(0U, m_manager->ZdPathIoctl(kRequest, Arguments()));
    EXPECT_THAT(Opened(), ::testing::ElementsAre(Narrow(longest)));
    ASSERT_EQ(0U, m_manager->ZdDisconnect());
    ClearLogs();
    EXPECT_EQ(kNoResult, m_manager->ZdPathIoctl(kRequest, Arguments()));
    EXPECT_THAT(Opened(), ::testing::IsEmpty());
}

TEST_F(CManyPoolsTest, PathIoctlLetsNoExceptionOutAndClosesTheRoot) {
    static const struct {
        const char* function;
        EThrow thrown;
        DWORD code;
    } kRows[] = {
        {"wcstoutf8_buf", EThrow::kBadAlloc, 8},
        {"wcstoutf8_buf", EThrow::kRuntimeError, kNoResult},
        {"ZdvfsOpen", EThrow::kBadAlloc, 8},
        {"ZdvfsOpen", EThrow::kRuntimeError, kNoResult},
        {"ZdvfsVIoctl", EThrow::kBadAlloc, 8},
        {"ZdvfsVIoctl", EThrow::kRuntimeError, kNoResult},
        {"ZdvfsVIoctl", EThrow::kUnsignedLong, kNoResult},
    };
    for (const auto& row : kRows) {
        Double().ClearRules();
        Double().Add(OnCall(row.function).Throws(row.thrown, 5).WithLastError(31));
        DWORD code = kUntouched;
        EXPECT_NO_THROW(code = m_manager->ZdPathIoctl(kRequest, Arguments())) << row.function;
        EXPECT_EQ(row.code, code) << row.function;
        EXPECT_THAT(Double().OpenDescriptors(), ::testing::IsEmpty()) << row.function;
    }
    EXPECT_LOG();
}

TEST_F(CManyPoolsTest, PathIoctlWorksOnItsOwnCopyOfTheNames) {
    ConnectTo(L"second");
    // The second name goes while the first is under way: the copy still has it, and no lock keeps the other waiting.
    Double().Add(OnCall("ZdvfsVIoctl").OnNth(1).Before([&](const Call&) {
        std::thread([&] { EXPECT_EQ(0U, m_others[0]->ZdDisconnect()); }).join();
    }));
    m_manager->ZdPathIoctl(kRequest, Arguments());
    const auto opened = Opened();
    EXPECT_THAT(opened, ::testing::Contains("pool"));
    EXPECT_THAT(opened, ::testing::Contains("second"));
}

}  // namespace
