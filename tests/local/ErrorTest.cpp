// What failing calls leave in errno and in the last error.
#include "ErrorTable.h"

#include "harness/ImportPatch.h"
#include "LocalFixture.h"

namespace zd::test {
namespace {

TEST(ErrorTable, MapsEachWindowsErrorAsTheTableSays) {
    static constexpr struct {
        DWORD windows;
        int error;
    } kRows[] = {{2, 2},     {3, 2},    {4, 24},    {5, 13},   {6, 9},    {8, 12},   {14, 12},   {17, 18},  {19, 30},
                 {32, 16},   {33, 16},  {39, 28},   {50, 129}, {80, 17},  {87, 22},  {112, 28},  {122, 34}, {123, 22},
                 {131, 22},  {145, 41}, {170, 16},  {183, 17}, {206, 38}, {223, 27}, {267, 20},  {303, 16}, {1224, 16},
                 {1295, 28}, {1392, 5}, {1450, 12}, {0, 5},    {1, 5},    {1117, 5}, {999999, 5}};
    for (const auto& row : kRows) EXPECT_EQ(row.error, engine::ErrnoOfWindows(row.windows)) << row.windows;
}

class Errors : public LocalEngine {
protected:
    Errors() {
        WriteText("pool/file", "data");
        EXPECT_EQ(0, ZdvfsMkdir("pool/dir", 0));
        EXPECT_EQ(0, ZdvfsMkdir("pool/full", 0));
        WriteText("pool/full/x", "");
    }
    ZdvfsStatRecord m_record = {};
    ZdvfsVolumeRecord m_volume = {};
    ZdvfsTimes m_times = {1, 2};
    char m_buffer[64] = {};
};

TEST_F(Errors, OfPathsAreTheSameForEveryCall) {
    static constexpr struct {
        const char* path;
        Failure expected;
    } kRows[] = {
        {"pool/none", kMissing},       {"pool/none/x", kMissingParent},
        {"pool/file/x", kNoDirectory}, {"pool/file/x/y", kNoDirectory},
        {"nopool", kMissing},          {"nopool/x", kMissingParent},
        {nullptr, kInvalid},
    };
    for (const auto& row : kRows) {
        const char* path = row.path;
        SCOPED_TRACE(path ? path : "(null)");
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsStat(path, &m_record); }));
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsOpen(path, kZdvfsReadOnly, 0); }));
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsOpen(path, kZdvfsReadWrite | kZdvfsTruncate, 0); }));
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsStatvfs(path, &m_volume); }));
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsOpendir(path); }));
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsOpendirForList(path, 1); }));
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsUnlink(path); }));
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsRename(path, "pool/new"); }));
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsChmod(path, 1); }));
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsUtime(path, &m_times); }));
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsGetNTAclStr(path, m_buffer, 64); }));
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsGetDsidNTAclStr(path, m_buffer, 64, nullptr); }));
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsSetNTAclStr(path, "O:BA"); }));
    }
    EXPECT_EQ((std::vector<std::string>{"dir", "file", "full"}), NamesOf("pool"));
}

TEST_F(Errors, OfCreatingTellWhatIsInTheWay) {
    const int create = kZdvfsReadWrite | kZdvfsCreate;
    EXPECT_EQ(kMissingParent, FailureOf([&] { return ZdvfsOpen("pool/none/x", create, 0); }));
    EXPECT_EQ(kNoDirectory, FailureOf([&] { return ZdvfsOpen("pool/file/x", create, 0); }));
    EXPECT_EQ(kIsDirectory, FailureOf([&] { return ZdvfsOpen("pool/dir", create, 0); }));
    EXPECT_EQ((Failure{EEXIST, ERROR_FILE_EXISTS}),
              FailureOf([&] { return ZdvfsOpen("pool/file", create | kZdvfsExclusive, 0); }));
    EXPECT_EQ((Failure{EEXIST, ERROR_FILE_EXISTS}),
              FailureOf([&] { return ZdvfsOpen("pool/dir", create | kZdvfsExclusive, 0); }));
    EXPECT_EQ(kMissingParent, FailureOf([] { return ZdvfsMkdir("pool/none/x", 0); }));
    EXPECT_EQ(kNoDirectory, FailureOf([] { return ZdvfsMkdir("pool/file/x", 0); }));
    for (const char* path : {"pool/dir", "pool/file", "pool", "/"}) {
        EXPECT_EQ(kExists, FailureOf([&] { return ZdvfsMkdir(path, 0); })) << path;
    }
}

TEST_F(Errors, OfOpeningDirectoriesAndWithBadFlags) {
    for (const int flags : {0, 1, 2, 0x300}) {
        EXPECT_EQ(kIsDirectory, FailureOf([&] { return ZdvfsOpen("pool/dir", flags, 0); })) << flags;
    }
    EXPECT_EQ(kIsDirectory, FailureOf([] { return ZdvfsOpen("/", 0, 0); }));
    EXPECT_EQ(kIsDirectory, FailureOf([] { return ZdvfsOpen("pool", kZdvfsReadWrite, 0); }));
    EXPECT_EQ(kInvalid, FailureOf([] { return ZdvfsOpen("pool/file", 3, 0); }));
    EXPECT_EQ(kInvalid, FailureOf([] { return ZdvfsOpen("pool/file", 0x20000, 0); }));
    EXPECT_EQ(kNoDirectory, FailureOf([] { return ZdvfsOpendir("pool/file"); }));
}

TEST_F(Errors, OfDescriptorsThatAreNotOpen) {
    const int closed = ZdvfsOpen("pool/file", kZdvfsReadOnly, 0);
    ASSERT_GE(closed, 0);
    ASSERT_EQ(0, ZdvfsClose(closed));
    const int open = ZdvfsOpen("pool/file", kZdvfsReadWrite, 0);
    int flag = 1;
    for (const int bad : {-1, INT_MIN, 1000000, INT_MAX, open + 1}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(kBadDescriptor, FailureOf([&] { return ZdvfsPread(bad, m_buffer, 1, 0); }));
        EXPECT_EQ(kBadDescriptor, FailureOf([&] { return ZdvfsPwrite(bad, m_buffer, 1, 0); }));
        EXPECT_EQ(kBadDescriptor, FailureOf([&] { return ZdvfsAppend(bad, 1, 0, open, 0); }));
        EXPECT_EQ(kBadDescriptor, FailureOf([&] { return ZdvfsAppend(open, 1, 0, bad, 0); }));
        EXPECT_EQ(kBadDescriptor, FailureOf([&] { return ZdvfsLseek(bad, 0, 0); }));
        EXPECT_EQ(kBadDescriptor, FailureOf([&] { return ZdvfsFtruncate(bad, 0); }));
        EXPECT_EQ(kBadDescriptor, FailureOf([&] { return ZdvfsFstat(bad, &m_record); }));
        EXPECT_EQ(kBadDescriptor, FailureOf([&] { return ZdvfsIoctl(bad, 9, 1, 4); }));
        EXPECT_EQ(kBadDescriptor, FailureOf([&] { return ZdvfsFgetNTAclStr(bad, m_buffer, 64); }));
        EXPECT_EQ(kBadDescriptor, FailureOf([&] { return ZdvfsFgetDsidNTAclStr(bad, m_buffer, 64, &flag); }));
        EXPECT_EQ(kBadDescriptor, FailureOf([&] { return ZdvfsFsetNTAclStr(bad, "O:BA"); }));
        EXPECT_EQ(kBadDescriptor, FailureOf([&] { return ZdvfsClose(bad); }));
    }
    EXPECT_EQ(0, ZdvfsClose(open));
    EXPECT_EQ(kBadDescriptor, FailureOf([] { return ZdvfsClosedir(nullptr); }));
    EXPECT_EQ(kBadDescriptor, FailureOf([] { return ZdvfsReaddir(nullptr); }));
}

TEST_F(Errors, OfDescriptorsOpenedForTheOtherDirection) {
    const int reading = ZdvfsOpen("pool/file", kZdvfsReadOnly, 0);
    const int writing = ZdvfsOpen("pool/file", kZdvfsWriteOnly, 0);
    EXPECT_EQ(kRefused, FailureOf([&] { return ZdvfsPread(writing, m_buffer, 1, 0); }));
    EXPECT_EQ(kRefused, FailureOf([&] { return ZdvfsPwrite(reading, m_buffer, 1, 0); }));
    EXPECT_EQ(kRefused, FailureOf([&] { return ZdvfsFtruncate(reading, 0); }));
    EXPECT_EQ(kRefused, FailureOf([&] { return ZdvfsAppend(reading, 1, 0, reading, 0); }));
    EXPECT_EQ(kRefused, FailureOf([&] { return ZdvfsAppend(writing, 1, 0, writing, 0); }));
    EXPECT_EQ(0, ZdvfsFstat(writing, &m_record));
    EXPECT_EQ(4, m_record.size);
    EXPECT_EQ(0, ZdvfsClose(reading));
    EXPECT_EQ(0, ZdvfsClose(writing));
    EXPECT_EQ("data", ReadText("pool/file"));
}

TEST_F(Errors, OfNegativeAndNullArguments) {
    const int file = ZdvfsOpen("pool/file", kZdvfsReadWrite, 0);
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsPread(file, m_buffer, 1, -1); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsPread(file, nullptr, 1, 0); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsPwrite(file, m_buffer, 1, -1); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsPwrite(file, nullptr, 1, 0); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsFtruncate(file, -1); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsAppend(file, -1, 0, file, 0); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsAppend(file, 1, -1, file, 0); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsAppend(file, 1, 0, file, 1); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsLseek(file, 0, 3); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsLseek(file, INT64_MAX, 2); }));
    EXPECT_EQ((Failure{EINVAL, ERROR_NEGATIVE_SEEK}), FailureOf([&] { return ZdvfsLseek(file, -1, 0); }));
    EXPECT_EQ((Failure{EFBIG, ERROR_FILE_TOO_LARGE}),
              FailureOf([&] { return ZdvfsPwrite(file, m_buffer, 2, INT64_MAX - 1); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsFstat(file, nullptr); }));
    EXPECT_EQ(kInvalid, FailureOf([] { return ZdvfsStat("pool/file", nullptr); }));
    EXPECT_EQ(kInvalid, FailureOf([] { return ZdvfsStatvfs("pool", nullptr); }));
    EXPECT_EQ(0, ZdvfsClose(file));
    EXPECT_EQ("data", ReadText("pool/file"));
}

TEST_F(Errors, OfRemovingWhatMustStay) {
    EXPECT_EQ((Failure{ENOTEMPTY, ERROR_DIR_NOT_EMPTY}), FailureOf([] { return ZdvfsUnlink("pool/full"); }));
    EXPECT_EQ(41, ENOTEMPTY);
    EXPECT_EQ(kBusy, FailureOf([] { return ZdvfsUnlink("pool"); }));
    EXPECT_EQ(kBusy, FailureOf([] { return ZdvfsUnlink("/"); }));
    EXPECT_EQ(kRefused, FailureOf([] { return ZdvfsChmod("/", 1); }));
    EXPECT_EQ(kRefused, FailureOf([] { return ZdvfsSetNTAclStr("/", "O:BA"); }));
    EXPECT_TRUE(Exists("pool/full/x"));
}

TEST_F(Errors, SuccessLeavesErrnoAndLastErrorAlone) {
    errno = 77;
    ::SetLastError(7777);
    const int file = ZdvfsOpen("pool/fresh", kZdvfsReadWrite | kZdvfsCreate, 0x20);
    ZdvfsPwrite(file, "x", 1, 0);
    ZdvfsFtruncate(file, 100000);
    ZdvfsFstat(file, &m_record);
    ZdvfsIoctl(file, 9, 1, 4);
    ZdvfsClose(file);
    ZdvfsStat("pool/fresh", &m_record);
    ZdvfsDirectory* stream = ZdvfsOpendir("pool");
    while (ZdvfsReaddir(stream)) continue;
    ZdvfsClosedir(stream);
    ZdvfsUnlink("pool/fresh");
    EXPECT_EQ(77, errno);
    EXPECT_EQ(7777u, ::GetLastError());
}

// A disk that takes a number of bytes and then no more.
std::int64_t g_room = 0;
BOOL WINAPI WriteToFullDisk(HANDLE file, const void* data, DWORD size, DWORD* moved, OVERLAPPED* where) {
    if (size > g_room) {
        *moved = 0;
        ::SetLastError(ERROR_DISK_FULL);
        return FALSE;
    }
    g_room -= size;
    return ::WriteFile(file, data, size, moved, where);
}

TEST_F(Errors, OfAFullDiskAre28And112) {
    const Failure full{ENOSPC, ERROR_DISK_FULL};
    const int file = ZdvfsOpen("pool/file", kZdvfsReadWrite, 0);
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/file", "O:BA"));
    {
        const CImportPatch patch(::GetModuleHandleW(L"zdvfs.dll"), "WriteFile", &WriteToFullDisk);
        g_room = 0;
        EXPECT_EQ(full, FailureOf([&] { return ZdvfsPwrite(file, "more", 4, 4); }));
        EXPECT_EQ(4, ZdvfsLseek(file, 0, 2));
        EXPECT_EQ(full, FailureOf([&] { return ZdvfsAppend(file, 4, 0, file, 0); }));
        EXPECT_EQ(full, FailureOf([] { return ZdvfsSetNTAclStr("pool/file", "O:SY"); }));
        EXPECT_EQ(full, FailureOf([] { return ZdvfsMkdir("pool/other", 0); }));
        EXPECT_EQ(full, FailureOf([] { return ZdvfsOpen("pool/other", kZdvfsReadWrite | kZdvfsCreate, 0); }));
        EXPECT_EQ(full, FailureOf([] { return ZdvfsRename("pool/file", "pool/other"); }));
    }
    EXPECT_EQ(0, ZdvfsClose(file));
    EXPECT_EQ("data", ReadText("pool/file"));
    EXPECT_EQ("O:BA", DescriptorOf("pool/file"));
    EXPECT_FALSE(Exists("pool/other"));
}

TEST_F(Errors, OfAllDescriptorsInUseAre24And4) {
    WriteDiskFile(Root() + L"\\engine.ini", "max_open_files = 3\r\n");
    Remount();
    int files[3];
    for (int& file : files) file = ZdvfsOpen("pool/file", kZdvfsReadOnly, 0);
    EXPECT_EQ((Failure{EMFILE, ERROR_TOO_MANY_OPEN_FILES}),
              FailureOf([] { return ZdvfsOpen("pool/new", kZdvfsReadWrite | kZdvfsCreate, 0); }));
    EXPECT_FALSE(Exists("pool/new"));
    for (const int file : files) EXPECT_EQ(0, ZdvfsClose(file));
    const int again = ZdvfsOpen("pool/file", kZdvfsReadOnly, 0);
    EXPECT_GE(again, 0);
    EXPECT_EQ(0, ZdvfsClose(again));
}

TEST_F(Errors, OfAFileThatAnotherProgramKeepsAre16And32) {
    const HANDLE held = ::CreateFileW(OnDisk(L"file").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, held);
    EXPECT_EQ((Failure{EBUSY, ERROR_SHARING_VIOLATION}), FailureOf([] { return ZdvfsOpen("pool/file", 0, 0); }));
    EXPECT_EQ((Failure{EBUSY, ERROR_SHARING_VIOLATION}), FailureOf([] { return ZdvfsUnlink("pool/file"); }));
    ::CloseHandle(held);
    EXPECT_EQ("data", ReadText("pool/file"));
}

}  // namespace
}  // namespace zd::test
