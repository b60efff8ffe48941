// Offsets, lengths, sizes, times and handles of any value.
#include <set>

#include "HostileFixture.h"

namespace zd::test {

namespace {

constexpr std::uint64_t kNumberCases = 6000;
constexpr std::uint64_t kHandleCases = 3000;
constexpr std::int64_t kFragment = 1 << 20;  // bytes
constexpr std::size_t kLargestBuffer = 3 * kFragment;
constexpr DWORD kInvalidHandle = 6;
constexpr DWORD kNoResult = 0xFFFFFFFF;

}  // namespace

class HostileNumbers : public CHostileDoubleTest {
protected:
    void SetUp() override {
        CHostileDoubleTest::SetUp();
        ASSERT_EQ(0U, Connect());
        m_standing = Create(L"\\standing").handle;
        for (const wchar_t* name : {L"\\one", L"\\two"}) m_handles.push_back(Create(name).handle);
        m_handles.push_back(Create(L"\\reader", {.disposition = kZdOpenIf, .access = 1}).handle);
        m_handles.push_back(Create(L"\\dir", {.isDirectory = 1}).handle);
    }

    void TearDown() override {
        Close(m_standing);
        for (const Handle handle : m_handles) Close(handle);
        CHostileDoubleTest::TearDown();
    }

    // One of the operations with numbers of any size.
    void Transfer(Handle handle, CRandom& random) {
        const std::int64_t offset = AnyNumber(random, kFragment);
        const std::size_t length = random.OneIn(20) ? random.Number(kLargestBuffer) : random.Number(400);
        switch (random.Number(6)) {
            case 0: {
                DWORD count = 0;
                Note("ZdReadFile offset %lld length %llu", offset, length);
                const DWORD code = GuardedRead(handle, offset, static_cast<DWORD>(length), count);
                EXPECT_TRUE(code != 0 ? count == kUntouched : count <= length) << code << " " << count;
                break;
            }
            case 1:
                Note("ZdWriteFile offset %lld length %llu", offset, length);
                GuardedWrite(handle, offset, random.Bytes(length));
                break;
            case 2: {
                // More than there is memory: it has to be refused before a byte is touched.
                const CGuardedRecord<DWORD> moved;
                const DWORD most = 0xFFFFFFFFU - static_cast<DWORD>(random.Number(3));
                Note("refused ZdReadFile and ZdWriteFile of %lu bytes", most);
                const std::int64_t negative = -1 - (offset & INT64_MAX);
                EXPECT_EQ(87U, m_manager->ZdReadFile(handle, negative, most, &moved, &moved));
                EXPECT_EQ(87U, m_manager->ZdWriteFile(handle, INT64_MAX - 5, most, &moved, &moved));
                break;
            }
            case 3:
                Note("ZdSetFileSize %lld", offset);
                m_manager->ZdSetFileSize(handle, offset);
                break;
            case 4: {
                const Handle source = random.Of(m_handles);
                const std::int64_t from = AnyNumber(random, kFragment), bytes = AnyNumber(random, kFragment);
                Note("ZdAppendFile source %llx %lld %lld %lld", source, offset, from, bytes);
                m_manager->ZdAppendFile(handle, source, offset, from, bytes);
                break;
            }
            default: {
                const std::int64_t access = AnyNumber(random, kFragment), write = AnyNumber(random, kFragment);
                Note("ZdSetFileBasicInfo %lld %lld", access, write);
                m_manager->ZdSetFileBasicInfo(handle, offset, access, write, offset, random.Word());
            }
        }
    }

    std::vector<Handle> All() const {
        std::vector<Handle> all = {m_standing};
        all.insert(all.end(), m_handles.begin(), m_handles.end());
        return all;
    }

    Handle m_standing = 0;
    std::vector<Handle> m_handles;
};

TEST_P(HostileNumbers, NeverHarmThePlugin) {
    ForEachCase("numbers", kNumberCases, [this](CRandom& random) {
        const Handle handle = random.Of(m_handles);
        Note("handle %llx, the %s", handle, handle == m_handles.back() ? "directory" : "file");
        // A file that grows to any size has as many fragments: the storage is full after some of them.
        for (const char* path : {"pool/one", "pool/two"}) {
            Double().Add(OnCall("ZdvfsOpen").ForPath(path).OnNth(1 + static_cast<int>(random.Number(9))).Fails(ENOSPC));
        }
        Double().Add(OnCall("ZdvfsOpen").OnNth(1 + static_cast<int>(random.Number(12))).Fails(ENOSPC));
        Transfer(handle, random);
        Double().ClearRules();
        GuardedQuery(handle);
        if (random.OneIn(30) && handle != m_handles.back()) {
            m_manager->ZdSetFileSize(handle, 0);
        }
        Look(All());
    });
}

TEST_P(HostileNumbers, AsHandlesNeverHarmThePlugin) {
    IProtocolManager* const other = NewManager();
    const ConnectParameters parameters = Parameters(L"pool");
    ASSERT_EQ(0U, other->ZdConnect(&parameters));
    const Handle foreign = Create(L"\\foreign", {}, other).handle;
    const Handle released = Create(L"\\released").handle;
    Close(released);
    std::set<Handle> held(m_handles.begin(), m_handles.end());
    held.insert({m_standing, 0});
    int local = 0;
    const std::vector<Handle> bases = {foreign,
                                       released,
                                       m_standing,
                                       m_handles[0],
                                       reinterpret_cast<Handle>(&local),
                                       reinterpret_cast<Handle>(m_manager),
                                       0,
                                       ~Handle{0}};
    ForEachCase("handles", kHandleCases, [&](CRandom& random) {
        const Handle handle = random.OneIn(3) ? random.Next() : random.Of(bases) + random.Number(17) - 8;
        if (held.contains(handle)) return;
        Note("handle %llx", handle);
        const CGuardedName name(AnyName(random));
        const CGuardedRecord<FileInformation> information;
        const CGuardedRecord<PSECURITY_DESCRIPTOR> descriptor;
        const CGuardedBytes valid(ValidDescriptor(random));
        const CGuardedRecord<DirectoryEntry*> entries;
        const CGuardedRecord<DWORD> count;
        DWORD read = 0;
        EXPECT_EQ(kInvalidHandle, m_manager->ZdCloseFile(handle, random.OneIn(2)));
        EXPECT_EQ(kInvalidHandle, m_manager->ZdQueryFileInfo(handle, &information));
        EXPECT_EQ(kInvalidHandle, m_manager->ZdSetFileSize(handle, 5));
        EXPECT_EQ(kInvalidHandle, m_manager->ZdSetFileBasicInfo(handle, 0, 1, 1, 0, 0x20));
        EXPECT_EQ(kInvalidHandle, m_manager->ZdRenameFile(handle, L"\\b", 0));
        m_manager->ZdRenameFile(handle, name, 1);
        EXPECT_EQ(kInvalidHandle, m_manager->ZdQueryDirContents(handle, &entries, &count));
        EXPECT_EQ(kInvalidHandle, GuardedRead(handle, 0, 10, read));
        EXPECT_EQ(kInvalidHandle, GuardedWrite(handle, 0, "12345"));
        EXPECT_EQ(kInvalidHandle, m_manager->ZdGetSecurity(handle, 0, &descriptor));
        EXPECT_EQ(kInvalidHandle, m_manager->ZdSetSecurity(handle, 0, valid.Data()));
        EXPECT_EQ(kInvalidHandle, m_manager->ZdAppendFile(handle, m_handles[0], 0, 0, 5));
        EXPECT_EQ(kInvalidHandle, m_manager->ZdAppendFile(m_handles[0], handle, 0, 0, 5));
        EXPECT_EQ(kNoResult, m_manager->ZdHandleIoctl(handle, random.Word(), 0));
        Look(All());
    });
    Close(foreign, other);
}

ZD_INSTANTIATE_GUARDS(HostileNumbers);

// Releasing what is no handle ends the process by design, with the log written and no memory harmed.
class HostileRelease : public CHostileDoubleTest {
protected:
    void ExpectEnd(Handle (HostileRelease::*choose)()) {
        if (InChild()) {
            ASSERT_EQ(0U, Connect());
            Environment().RunWriter();
            m_manager->ZdReleaseFile((this->*choose)());
            return;
        }
        const ChildResult result = RunSelfInChild();
        EXPECT_EQ(1U, result.exitCode) << result.output;
        EXPECT_EQ(std::string::npos, result.output.find("FAULT")) << result.output;
    }

    void TearDown() override {
        // The parent has made nothing.
        if (InChild())
            CHostileDoubleTest::TearDown();
        else
            CDoubleTest::TearDown();
    }

public:
    Handle Made() { return 0x123456789A; }
    Handle Released() {
        const Handle handle = Create(L"\\a").handle;
        Close(handle);
        return handle;
    }
    Handle BesideAHandle() { return Create(L"\\a").handle + 8; }
    Handle OfAnotherConnection() {
        IProtocolManager* const other = NewManager();
        const ConnectParameters parameters = Parameters(L"pool");
        EXPECT_EQ(0U, other->ZdConnect(&parameters));
        return Create(L"\\a", {}, other).handle;
    }
};

TEST_P(HostileRelease, OfAMadeUpHandle) {
    ExpectEnd(&HostileRelease::Made);
}
TEST_P(HostileRelease, OfAReleasedHandle) {
    ExpectEnd(&HostileRelease::Released);
}
TEST_P(HostileRelease, BesideAHandle) {
    ExpectEnd(&HostileRelease::BesideAHandle);
}
TEST_P(HostileRelease, OfAnotherConnectionsHandle) {
    ExpectEnd(&HostileRelease::OfAnotherConnection);
}

INSTANTIATE_TEST_SUITE_P(Guarded, HostileRelease, ::testing::Values(EGuard::kEnd), GuardName);

}  // namespace zd::test
