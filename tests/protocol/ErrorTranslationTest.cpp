// The storage's errno as the host sees it: every value through one operation, and every operation that translates.
#include <climits>
#include <functional>

#include "harness/PluginFixture.h"

using namespace zd::test;

namespace {

struct ErrorRow {
    int error;
    DWORD code;
};

// The runtime's own names, so that a runtime with other numbers does not go unnoticed.
constexpr ErrorRow kTranslated[] = {{EPERM, 5},   {ENOENT, 2},   {EBADF, 6},     {ENOMEM, 122}, {EACCES, 5},
                                    {EBUSY, 170}, {EEXIST, 183}, {ENOTDIR, 267}, {EISDIR, 5},   {EINVAL, 13},
                                    {EMFILE, 4},  {ENOSPC, 39},  {ENOTSUP, 87}};
static_assert(EPERM == 1 && ENOENT == 2 && EBADF == 9 && ENOMEM == 12 && EACCES == 13 && EBUSY == 16 && EEXIST == 17);
static_assert(ENOTDIR == 20 && EISDIR == 21 && EINVAL == 22 && EMFILE == 24 && ENOSPC == 28 && ENOTSUP == 129);
constexpr DWORD kIoDevice = 1117;

DWORD Expected(int error) {
    for (const ErrorRow& row : kTranslated) {
        if (row.error == error) return row.code;
    }
    return kIoDevice;
}

class CErrorTest : public CConnectedTest {
protected:
    // The code of a read whose storage call fails with that errno.
    DWORD ReadWith(Handle handle, int error) {
        Double().ClearRules();
        Double().Add(OnCall("ZdvfsPread").Fails(error));
        return Read(handle, 0, 1).code;
    }
};

TEST_F(CErrorTest, EachErrnoMapsAsTheTableSays) {
    Double().MakeFile("pool/a.txt", "hello");
    const Handle handle = Create(L"\\a.txt").handle;
    for (const ErrorRow& row : kTranslated) EXPECT_EQ(row.code, ReadWith(handle, row.error)) << "errno " << row.error;
    for (int error = -200; error <= 300; ++error) {
        EXPECT_EQ(Expected(error), ReadWith(handle, error)) << "errno " << error;
    }
    for (const int error : {INT_MIN, INT_MIN + 1, -65536, 65536 + ENOENT, 0x10000001, INT_MAX}) {
        EXPECT_EQ(kIoDevice, ReadWith(handle, error)) << "errno " << error;
    }
    Double().ClearRules();
    EXPECT_EQ(0U, Read(handle, 0, 1).code);
}

TEST_F(CErrorTest, ErrnoZeroOfAFailedCallIsADeviceError) {
    Double().MakeFile("pool/a.txt", "hello");
    EXPECT_EQ(1117U, ReadWith(Create(L"\\a.txt").handle, 0));
}

TEST_F(CErrorTest, Errno130IsADeviceErrorAndNotWhat129Is) {
    Double().MakeFile("pool/a.txt", "hello");
    const Handle handle = Create(L"\\a.txt").handle;
    EXPECT_EQ(87U, ReadWith(handle, 129));
    EXPECT_EQ(1117U, ReadWith(handle, 130));
}

TEST_F(CErrorTest, RangeAndDeadlockErrorsAreDeviceErrors) {
    Double().MakeFile("pool/a.txt", "hello");
    const Handle handle = Create(L"\\a.txt").handle;
    EXPECT_EQ(1117U, ReadWith(handle, ERANGE));
    EXPECT_EQ(1117U, ReadWith(handle, EDEADLK));
}

TEST_F(CErrorTest, TheLastErrorOfAFailedReadDoesNotCount) {
    Double().MakeFile("pool/a.txt", "hello");
    const Handle handle = Create(L"\\a.txt").handle;
    Double().Add(OnCall("ZdvfsPread").Fails(EINVAL, ERROR_SHARING_VIOLATION));
    EXPECT_EQ(13U, Read(handle, 0, 1).code);
}

// ---- Operations ----

// An operation that runs into `storageCall` on handle a.txt (source b.txt), which fails.
struct CallerRow {
    const char* name;
    std::vector<const char*> storageCalls;
    std::function<DWORD(IProtocolManager& manager, Handle handle, Handle source)> run;
    int nth = 0;
};

DWORD CreateCode(IProtocolManager& manager, const wchar_t* name, DWORD isDirectory, DWORD disposition, DWORD access) {
    Handle handle = 0;
    return manager.ZdCreateFile(name, isDirectory, 0, 0x80, 0, disposition, access, 0, nullptr, &handle, nullptr,
                                nullptr);
}

DWORD GetSecurityCode(IProtocolManager& manager, Handle handle) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    return manager.ZdGetSecurity(handle, 4, &descriptor);
}

DWORD SetSecurityCode(IProtocolManager& manager, Handle handle) {
    const CDescriptor descriptor("O:BAG:BAD:(A;;0x1f01ff;;;WD)");
    return manager.ZdSetSecurity(handle, 4, descriptor.Raw());
}

DWORD ReadCode(IProtocolManager& manager, Handle handle) {
    char buffer[4] = {};
    DWORD count = 0;
    return manager.ZdReadFile(handle, 0, sizeof(buffer), buffer, &count);
}

DWORD WriteCode(IProtocolManager& manager, Handle handle) {
    DWORD count = 0;
    return manager.ZdWriteFile(handle, 0, 4, "data", &count);
}

std::vector<CallerRow> Callers() {
    using Manager = IProtocolManager&;
    return {
        {"open with FILE_OVERWRITE_IF",
         {"ZdvfsOpen"},
         [](Manager m, Handle, Handle) { return CreateCode(m, L"\\n", 0, 5, 2); }},
        {"emptying at open",
         {"ZdvfsFtruncate"},
         [](Manager m, Handle, Handle) { return CreateCode(m, L"\\n", 0, 5, 2); }},
        {"making a directory",
         {"ZdvfsMkdir"},
         [](Manager m, Handle, Handle) { return CreateCode(m, L"\\n", 1, 2, 0); }},
        {"opening a directory",
         {"ZdvfsOpendirForList"},
         [](Manager m, Handle, Handle) { return CreateCode(m, L"\\dir", 1, 1, 1); }},
        {"storing a new object's descriptor",
         {"ZdvfsSetNTAclStr"},
         [](Manager m, Handle, Handle) { return CreateCode(m, L"\\n", 0, 2, 2); }},
        {"status of the opened file",
         {"ZdvfsStat"},
         [](Manager m, Handle, Handle) { return CreateCode(m, L"\\n", 0, 2, 2); },
         2},
        {"delete on close", {"ZdvfsUnlink"}, [](Manager m, Handle h, Handle) { return m.ZdCloseFile(h, 1); }},
        {"set size", {"ZdvfsFtruncate"}, [](Manager m, Handle h, Handle) { return m.ZdSetFileSize(h, 3); }},
        {"read", {"ZdvfsPread"}, [](Manager m, Handle h, Handle) { return ReadCode(m, h); }},
        {"write", {"ZdvfsPwrite"}, [](Manager m, Handle h, Handle) { return WriteCode(m, h); }},
        {"append", {"ZdvfsAppend"}, [](Manager m, Handle h, Handle s) { return m.ZdAppendFile(h, s, 5, 0, 5); }},
        {"position of an append",
         {"ZdvfsLseek"},
         [](Manager m, Handle h, Handle s) { return m.ZdAppendFile(h, s, 5, 0, 5); }},
        {"get security",
         {"ZdvfsFgetNTAclStr", "ZdvfsFgetDsidNTAclStr"},
         [](Manager m, Handle h, Handle) { return GetSecurityCode(m, h); }},
        {"set security", {"ZdvfsFsetNTAclStr"}, [](Manager m, Handle h, Handle) { return SetSecurityCode(m, h); }},
    };
}

TEST_F(CErrorTest, EachOperationTranslatesTheErrnoOfItsFailedCall) {
    std::vector<ErrorRow> rows(std::begin(kTranslated), std::end(kTranslated));
    for (const int other : {0, 5, ERANGE, EDEADLK, 130}) rows.push_back({other, kIoDevice});
    for (const CallerRow& caller : Callers()) {
        SCOPED_TRACE(caller.name);
        for (const ErrorRow& row : rows) {
            Double().MakeFile("pool/a.txt", "hello");
            Double().MakeFile("pool/b.txt", "hello");
            Double().MakeDirectory("pool/dir");
            Double().Remove("pool/n");
            const Handle handle = Create(L"\\a.txt").handle;
            const Handle source = Create(L"\\b.txt").handle;
            for (const char* call : caller.storageCalls) {
                // A last error of 0: operations that look there first find nothing.
                Double().Add(OnCall(call).OnNth(caller.nth).Fails(row.error, 0));
            }
            EXPECT_EQ(row.code, caller.run(*m_manager, handle, source)) << "errno " << row.error;
            Double().ClearRules();
            Close(handle);
            Close(source);
        }
    }
}

TEST_F(CErrorTest, ClosingAFragmentToMakeRoomTranslatesItsErrno) {
    Registry().SetDword(kPluginKey, L"MaxOpenFragments", 1);
    m_manager->ZdRefreshSettings(0, false);
    ASSERT_EQ(0U, Connect());
    Double().MakeFile("pool/big", "0123456789");
    Double().MakeFile("pool/big;F1", "abc");
    for (const ErrorRow& row : kTranslated) {
        const Handle handle = Create(L"\\big").handle;
        Double().Add(OnCall("ZdvfsClose").OnNth(1).Fails(row.error));
        EXPECT_EQ(row.code, Read(handle, 10, 1).code) << "errno " << row.error;
        Double().ClearRules();
        ASSERT_EQ(0U, m_manager->ZdReleaseFile(handle));
    }
    // The descriptor whose close failed is closed again when the handle ends.
    AllowLeaks();
}

class CConnectErrorTest : public CDoubleTest {};

TEST_F(CConnectErrorTest, ConnectTranslatesTheErrnoOfTheMountAndOfTheVolumeQuery) {
    for (const char* call : {"ZdvfsMountV1", "ZdvfsStatvfs"}) {
        SCOPED_TRACE(call);
        for (int error = -1; error <= 131; ++error) {
            Double().Add(OnCall(call).Fails(error, ERROR_SHARING_VIOLATION));
            EXPECT_EQ(Expected(error), Connect()) << "errno " << error;
            Double().ClearRules();
        }
    }
    EXPECT_EQ(0U, Connect());
}

}  // namespace
