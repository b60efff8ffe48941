// The recording double, driven directly.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <thread>

#include "Double.h"
#include "harness/Environment.h"
#include "harness/TextCompare.h"
#include "hul.h"
#include "zdvfs.h"

using namespace zd::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// The double's own function: this program links neither library.
#define ZD(name) Function<decltype(&::name)>(m_zdvfs, #name)
#define HUL(name) Function<decltype(&::name)>(m_hulLibrary, #name)

class CDoubleItself : public ::testing::Test {
protected:
    CDoubleItself()
        : m_zdvfs(::LoadLibraryW((BinaryFolder() + L"double\\zdvfs.dll").c_str())),
          m_hulLibrary(::LoadLibraryW((BinaryFolder() + L"double\\hul.dll").c_str())) {}
    ~CDoubleItself() override {
        ::FreeLibrary(m_hulLibrary);
        ::FreeLibrary(m_zdvfs);
    }

    void SetUp() override {
        ASSERT_NE(nullptr, m_zdvfs);
        ASSERT_NE(nullptr, m_hulLibrary);
        m_control = Function<DoubleControlFunction>(m_zdvfs, "DoubleControl")();
        m_hul = Function<HulDoubleControlFunction>(m_hulLibrary, "HulDoubleControl")();
        m_hul->UseBook(m_control->Book());
        std::memset(&m_block, 0, sizeof(m_block));
        m_block.poolName = m_poolName;
        ASSERT_EQ(0, ZD(ZdvfsMountV1)("6.0.0.0", &m_block, sizeof(m_block)));
        m_control->ClearCalls();
    }

    template <class T>
    static T Function(HMODULE module, const char* name) {
        return reinterpret_cast<T>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
    }

    std::vector<std::string> TakeLines() {
        std::vector<std::string> lines;
        for (const Call& call : m_control->Calls()) lines.push_back(call.Line());
        m_control->ClearCalls();
        return lines;
    }

    HMODULE m_zdvfs;
    HMODULE m_hulLibrary;
    IDoubleControl* m_control = nullptr;
    IHulControl* m_hul = nullptr;
    char m_poolName[5] = "pool";
    ZdvfsMountBlock m_block;
};

TEST_F(CDoubleItself, WritesEveryCallDownWithArgumentsAndResult) {
    char buffer[16] = {};
    const int file = ZD(ZdvfsOpen)("/pool/a.txt", 0x302, 0x20);
    EXPECT_EQ(5, ZD(ZdvfsPwrite)(file, "hello", 5, 0));
    EXPECT_EQ(3, ZD(ZdvfsPread)(file, buffer, 16, 2));
    EXPECT_STREQ("llo", buffer);
    EXPECT_EQ(0, ZD(ZdvfsIoctl)(file, 46, nullptr, 0, "vm1", 0, 32));
    EXPECT_EQ(0, ZD(ZdvfsIoctl)(file, 10, 1, 4));
    EXPECT_EQ(0, ZD(ZdvfsClose)(file));
    EXPECT_TRUE(
        LinesFit({"ZdvfsOpen(\"/pool/a.txt\", 0x302, 0x20) = 3", "ZdvfsPwrite(3, 5, 0) = 5", "ZdvfsPread(3, 16, 2) = 3",
                  "ZdvfsIoctl(3, 46, null, 0, \"vm1\", 0, 32) = 0", "ZdvfsIoctl(3, 10, 1, 4) = 0", "ZdvfsClose(3) = 0"},
                 TakeLines()));
}

TEST_F(CDoubleItself, KeepsTheStructuredFormOfACall) {
    const int file = ZD(ZdvfsOpen)("//pool//a.txt", 0x102, 0x21);
    ZD(ZdvfsPwrite)(file, "xyz", 3, 7);
    const std::vector<Call> calls = m_control->Calls();
    ASSERT_EQ(2U, calls.size());
    EXPECT_EQ("ZdvfsPwrite", calls[1].function);
    EXPECT_EQ("pool/a.txt", calls[1].path);
    EXPECT_EQ(3, calls[1].descriptor);
    EXPECT_EQ(3, calls[1].value);
    EXPECT_THAT(calls[1].data, ElementsAre('x', 'y', 'z'));
    EXPECT_LT(calls[0].order, calls[1].order);
    EXPECT_EQ(::GetCurrentThreadId(), calls[1].threadId);
}

TEST_F(CDoubleItself, NeverUsesADescriptorTwice) {
    EXPECT_EQ(3, ZD(ZdvfsOpen)("pool/a", 0x102, 0));
    EXPECT_EQ(4, ZD(ZdvfsOpen)("pool/a", 0x2, 0));
    EXPECT_EQ(0, ZD(ZdvfsClose)(3));
    EXPECT_EQ(5, ZD(ZdvfsOpen)("pool/a", 0x2, 0));
    EXPECT_EQ(2U, m_control->OpenDescriptors().size());
    EXPECT_EQ(0, m_control->BadDescriptorUses());
    EXPECT_EQ(-1, ZD(ZdvfsClose)(3));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(1, m_control->BadDescriptorUses());
    ZD(ZdvfsClose)(-1);
    EXPECT_EQ(1, m_control->BadDescriptorUses());
}

TEST_F(CDoubleItself, FailsAsPosixDoes) {
    m_control->MakeDirectory("pool/dir");
    m_control->MakeFile("pool/file");
    m_control->MakeFile("other/file");
    struct {
        const char* path;
        int flags;
        int error;
        DWORD lastError;
    } const kRows[] = {{"pool/none", 0x2, ENOENT, 2},        {"pool/none/x", 0x102, ENOENT, 2},
                       {"pool/file/x", 0x102, ENOTDIR, 267}, {"pool/dir", 0x2, EISDIR, 5},
                       {"pool/dir", 0x0, EISDIR, 5},         {"pool/file", 0x502, EEXIST, 183},
                       {"other/file", 0x0, ENOENT, 2},       {"/", 0x2, EISDIR, 5}};
    for (const auto& row : kRows) {
        errno = 0;
        ::SetLastError(0);
        EXPECT_EQ(-1, ZD(ZdvfsOpen)(row.path, row.flags, 0)) << row.path;
        const DWORD lastError = ::GetLastError();
        EXPECT_EQ(row.error, errno) << row.path;
        EXPECT_EQ(row.lastError, lastError) << row.path;
    }
    EXPECT_EQ(-1, ZD(ZdvfsUnlink)("pool"));
    EXPECT_EQ(-1, ZD(ZdvfsRename)("pool/file", "pool/dir"));
    EXPECT_EQ(EEXIST, errno);
    EXPECT_EQ(-1, ZD(ZdvfsMkdir)("pool/file", 0));
    EXPECT_EQ(EEXIST, errno);
    m_control->MakeFile("pool/dir/x");
    EXPECT_EQ(-1, ZD(ZdvfsUnlink)("pool/dir"));
    EXPECT_EQ(ENOTEMPTY, errno);
}

TEST_F(CDoubleItself, OpensThePoolsRootForRequests) {
    const int root = ZD(ZdvfsOpen)("pool", 0, 0);
    EXPECT_EQ(3, root);
    EXPECT_EQ(0, ZD(ZdvfsIoctl)(root, 9, 0, 4));
    EXPECT_EQ(0, ZD(ZdvfsClose)(root));
}

TEST_F(CDoubleItself, ChecksTheDirectionOfAnOpenFile) {
    char byte = 0;
    m_control->MakeFile("pool/a", "x");
    const int reader = ZD(ZdvfsOpen)("pool/a", 0x0, 0);
    const int writer = ZD(ZdvfsOpen)("pool/a", 0x1, 0);
    EXPECT_EQ(-1, ZD(ZdvfsPwrite)(reader, "y", 1, 0));
    EXPECT_EQ(-1, ZD(ZdvfsPread)(writer, &byte, 1, 0));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(1, ZD(ZdvfsPwrite)(writer, "y", 1, 0));
    EXPECT_EQ("y", m_control->Bytes("pool/a"));
}

TEST_F(CDoubleItself, FailsTheChosenCallOnly) {
    m_control->MakeFile("pool/a");
    m_control->MakeFile("pool/b");
    m_control->Add(OnCall("ZdvfsOpen").ForPath("/pool/a").OnNth(2).Fails(ENOSPC));
    EXPECT_EQ(3, ZD(ZdvfsOpen)("pool/a", 0x2, 0));
    EXPECT_EQ(4, ZD(ZdvfsOpen)("pool/b", 0x2, 0));
    EXPECT_EQ(-1, ZD(ZdvfsOpen)("//pool/a", 0x2, 0));
    const DWORD lastError = ::GetLastError();
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ(DWORD{ERROR_DISK_FULL}, lastError);
    EXPECT_EQ(5, ZD(ZdvfsOpen)("pool/a", 0x2, 0));
    m_control->Add(OnCall("ZdvfsFtruncate").Fails(EIO, 1234));
    EXPECT_EQ(-1, ZD(ZdvfsFtruncate)(3, 1));
    EXPECT_EQ(1234U, ::GetLastError());
    EXPECT_EQ(EIO, errno);
    m_control->ClearRules();
    EXPECT_EQ(0, ZD(ZdvfsFtruncate)(3, 1));
}

TEST_F(CDoubleItself, FailsByDescriptorToo) {
    m_control->MakeFile("pool/a");
    m_control->MakeFile("pool/b");
    const int first = ZD(ZdvfsOpen)("pool/a", 0x2, 0);
    const int second = ZD(ZdvfsOpen)("pool/b", 0x2, 0);
    m_control->Add(OnCall("ZdvfsPwrite").ForPath("pool/b").Fails(EIO));
    EXPECT_EQ(1, ZD(ZdvfsPwrite)(first, "x", 1, 0));
    EXPECT_EQ(-1, ZD(ZdvfsPwrite)(second, "x", 1, 0));
    EXPECT_EQ("", m_control->Bytes("pool/b"));
}

TEST_F(CDoubleItself, LeavesErrnoAndLastErrorAloneOnRequest) {
    m_control->Add(OnCall("ZdvfsStat").FailsSilently());
    m_control->Add(OnCall("ZdvfsChmod").Answers(7));
    m_control->Add(OnCall("ZdvfsOpendir").Fails(ENOMEM));
    ZdvfsStatRecord record;
    errno = 42;
    ::SetLastError(4711);
    EXPECT_EQ(-1, ZD(ZdvfsStat)("pool", &record));
    EXPECT_EQ(42, errno);
    EXPECT_EQ(4711U, ::GetLastError());
    EXPECT_EQ(7, ZD(ZdvfsChmod)("pool", 1));
    EXPECT_EQ(42, errno);
    EXPECT_EQ(nullptr, ZD(ZdvfsOpendir)("pool"));
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_TRUE(LinesFit({"ZdvfsStat(\"pool\") = -1", "ZdvfsChmod(\"pool\", 0x1) = 7", "ZdvfsOpendir(\"pool\") = null"},
                         TakeLines()));
}

TEST_F(CDoubleItself, LeavesAStaleLastErrorBehindASuccess) {
    m_control->MakeFile("pool/a");
    errno = 0;
    ::SetLastError(0);
    EXPECT_EQ(3, ZD(ZdvfsOpen)("pool/a", 0x2, 0));
    EXPECT_EQ(0U, ::GetLastError());
    m_control->Add(OnCall("ZdvfsOpen").WithLastError(5).WithErrno(9));
    EXPECT_EQ(4, ZD(ZdvfsOpen)("pool/a", 0x2, 0));
    EXPECT_EQ(5U, ::GetLastError());
    EXPECT_EQ(9, errno);
}

TEST_F(CDoubleItself, ShortensReadsAndWrites) {
    m_control->MakeFile("pool/a", "0123456789");
    const int file = ZD(ZdvfsOpen)("pool/a", 0x2, 0);
    char buffer[16] = {};
    m_control->Add(OnCall("ZdvfsPread").ShortenTo(4));
    EXPECT_EQ(4, ZD(ZdvfsPread)(file, buffer, 10, 0));
    EXPECT_EQ(2, ZD(ZdvfsPread)(file, buffer, 10, 8));
    m_control->ClearRules();
    m_control->Add(OnCall("ZdvfsPwrite").OnNth(1).ShortenTo(1));
    m_control->Add(OnCall("ZdvfsPread").OnNth(1).Answers(0));
    EXPECT_EQ(1, ZD(ZdvfsPwrite)(file, "ABC", 3, 0));
    EXPECT_EQ("0123456789", "0" + m_control->Bytes("pool/a", 1));
    EXPECT_EQ("A1", m_control->Bytes("pool/a", 0, 2));
    EXPECT_EQ(3, ZD(ZdvfsPwrite)(file, "ABC", 3, 0));
    EXPECT_EQ(0, ZD(ZdvfsPread)(file, buffer, 10, 0));
    EXPECT_EQ(10, ZD(ZdvfsPread)(file, buffer, 10, 0));
}

TEST_F(CDoubleItself, ThrowsFromACall) {
    m_control->MakeFile("pool/a");
    ZdvfsStatRecord record;
    m_control->Add(OnCall("ZdvfsStat").OnNth(1).Throws(EThrow::kBadAlloc));
    m_control->Add(OnCall("ZdvfsStat").OnNth(2).Throws(EThrow::kRuntimeError).WithLastError(31));
    m_control->Add(OnCall("ZdvfsStat").OnNth(3).Throws(EThrow::kUnsignedLong, 1234));
    EXPECT_THROW(ZD(ZdvfsStat)("pool/a", &record), std::bad_alloc);
    try {
        ZD(ZdvfsStat)("pool/a", &record);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::runtime_error&) {
        EXPECT_EQ(31U, ::GetLastError());
    }
    try {
        ZD(ZdvfsStat)("pool/a", &record);
        ADD_FAILURE() << "nothing was thrown";
    } catch (unsigned long code) {
        EXPECT_EQ(1234UL, code);
    }
    EXPECT_EQ(0, ZD(ZdvfsStat)("pool/a", &record));
    EXPECT_EQ(4U, m_control->Count("ZdvfsStat"));
}

TEST_F(CDoubleItself, RunsACallbackInsideACall) {
    m_control->MakeFile("pool/a");
    std::vector<std::string> during;
    int openAfter = 0;
    m_control->Add(OnCall("ZdvfsOpen")
                       .Before([&](const Call&) {
                           during = TakeLines();
                           // Another thread gets into the double meanwhile.
                           std::thread([&] { ZD(ZdvfsClose)(99); }).join();
                       })
                       .After([&](const Call& call) { openAfter = call.descriptor; }));
    EXPECT_EQ(3, ZD(ZdvfsOpen)("pool/a", 0x2, 0));
    EXPECT_THAT(during, ElementsAre("ZdvfsOpen(\"pool/a\", 0x2, 0x0) = ..."));
    EXPECT_EQ(3, openAfter);
    EXPECT_THAT(TakeLines(), ElementsAre("ZdvfsClose(99) = -1"));
}

TEST_F(CDoubleItself, ClosesADescriptorEvenWhenTheCloseFails) {
    m_control->MakeFile("pool/a");
    ZD(ZdvfsOpen)("pool/a", 0x2, 0);
    ZD(ZdvfsOpen)("pool/a", 0x2, 0);
    m_control->Add(OnCall("ZdvfsClose").OnNth(1).Fails(EIO));
    m_control->Add(OnCall("ZdvfsClose").OnNth(2).Throws(EThrow::kRuntimeError));
    EXPECT_EQ(-1, ZD(ZdvfsClose)(3));
    EXPECT_EQ(EIO, errno);
    EXPECT_THROW(ZD(ZdvfsClose)(4), std::runtime_error);
    EXPECT_THAT(m_control->OpenDescriptors(), IsEmpty());
}

TEST_F(CDoubleItself, TakesPathsWithAnyNumberOfSlashesForTheSameObject) {
    m_control->MakeFile("pool/dir/a.txt", "abc");
    ZdvfsStatRecord record;
    for (const char* path : {"pool/dir/a.txt", "/pool/dir/a.txt", "//pool//dir/a.txt", "pool/./dir/x/../a.txt"}) {
        EXPECT_EQ(0, ZD(ZdvfsStat)(path, &record)) << path;
    }
    EXPECT_EQ(-1, ZD(ZdvfsStat)("dir/a.txt", &record));
    EXPECT_EQ(-1, ZD(ZdvfsStat)("POOL/dir/a.txt", &record));
    EXPECT_EQ(0, ZD(ZdvfsStat)("pool/../../dir/a.txt", &record));
    EXPECT_EQ(3, record.size);
    EXPECT_EQ(0x81FFU, record.mode);
    EXPECT_EQ(0x20, record.attributes);
}

TEST_F(CDoubleItself, ListsInTheOrderOfCreationAndAsTold) {
    m_control->MakeFile("pool/b");
    m_control->MakeFile("pool/a");
    const auto list = [&] {
        std::vector<std::string> names;
        ZdvfsDirectory* const directory = ZD(ZdvfsOpendirForList)("/pool", 1);
        while (const ZdvfsDirectoryRecord* record = ZD(ZdvfsReaddir)(directory)) names.emplace_back(record->name);
        ZD(ZdvfsClosedir)(directory);
        return names;
    };
    errno = 42;
    EXPECT_THAT(list(), ElementsAre(".", "..", "b", "a"));
    EXPECT_EQ(42, errno);
    EXPECT_TRUE(LinesFit({"ZdvfsOpendirForList(\"/pool\", 1) = dir1", "ZdvfsReaddir(dir1) = \".\"",
                          "ZdvfsReaddir(dir1) = \"..\"", "ZdvfsReaddir(dir1) = \"b\"", "ZdvfsReaddir(dir1) = \"a\"",
                          "ZdvfsReaddir(dir1) = null", "ZdvfsClosedir(dir1) = 0"},
                         TakeLines()));
    m_control->SetListing("pool", {"a", "ghost"});
    EXPECT_THAT(list(), ElementsAre("a", "ghost"));
    m_control->SetListing("pool", {});
    EXPECT_THAT(list(), ElementsAre(".", "..", "b", "a"));
    EXPECT_THAT(m_control->OpenStreams(), IsEmpty());
}

TEST_F(CDoubleItself, RecognisesAClosedStream) {
    ZdvfsDirectory* const directory = ZD(ZdvfsOpendir)("pool");
    EXPECT_THAT(m_control->OpenStreams(), ElementsAre("pool"));
    EXPECT_EQ(0, ZD(ZdvfsClosedir)(directory));
    EXPECT_EQ(-1, ZD(ZdvfsClosedir)(directory));
    EXPECT_EQ(nullptr, ZD(ZdvfsReaddir)(directory));
    EXPECT_EQ(2, m_control->BadDescriptorUses());
}

TEST_F(CDoubleItself, KeepsAttributesTimesAndSecurityTexts) {
    char text[64] = {};
    int flag = 1;
    m_control->MakeFile("pool/a");
    EXPECT_EQ(0, ZD(ZdvfsGetNTAclStr)("pool/a", text, 64));
    EXPECT_STREQ("", text);
    EXPECT_EQ(0, ZD(ZdvfsGetDsidNTAclStr)("pool/a", text, 64, &flag));
    EXPECT_EQ(1, flag);
    EXPECT_EQ(0, ZD(ZdvfsSetNTAclStr)("pool/a", "D:P"));
    EXPECT_EQ(0, ZD(ZdvfsGetDsidNTAclStr)("pool/a", text, 64, &flag));
    EXPECT_EQ(0, flag);
    EXPECT_STREQ("D:P", text);
    EXPECT_EQ(-1, ZD(ZdvfsGetNTAclStr)("pool/a", text, 3));
    EXPECT_EQ(ERANGE, errno);

    NodeState state = m_control->State("pool/a");
    EXPECT_EQ("D:P", state.sddl);
    state.dsidText = "O:BA";
    state.dsidFlag = 5;
    state.creationTime = 11;
    EXPECT_TRUE(m_control->SetState("pool/a", state));
    EXPECT_FALSE(m_control->SetState("pool/none", state));
    const ZdvfsTimes times{12, 13};
    EXPECT_EQ(0, ZD(ZdvfsUtime)("pool/a", &times));
    EXPECT_EQ(0, ZD(ZdvfsChmod)("pool/a", 0x23));
    const int file = ZD(ZdvfsOpen)("pool/a", 0x0, 0);
    EXPECT_EQ(0, ZD(ZdvfsFgetDsidNTAclStr)(file, text, 64, &flag));
    EXPECT_STREQ("O:BA", text);
    EXPECT_EQ(5, flag);
    ZdvfsStatRecord record;
    EXPECT_EQ(0, ZD(ZdvfsFstat)(file, &record));
    EXPECT_EQ(0x23, record.attributes);
    EXPECT_EQ(12, record.accessTime);
    EXPECT_EQ(13, record.modificationTime);
    EXPECT_EQ(11, record.creationTime);
    EXPECT_EQ(0, ZD(ZdvfsFsetNTAclStr)(file, "D:"));
    EXPECT_EQ("D:", m_control->State("pool/a").sddl);
    EXPECT_EQ("ZdvfsUtime(\"pool/a\", 12, 13) = 0", m_control->Calls().at(5).Line());
}

TEST_F(CDoubleItself, AppendsAtThePositionWhichMoves) {
    m_control->MakeFile("pool/source", "0123456789");
    m_control->MakeFile("pool/target", "ab");
    const int source = ZD(ZdvfsOpen)("pool/source", 0x0, 0);
    const int target = ZD(ZdvfsOpen)("pool/target", 0x2, 0);
    EXPECT_EQ(1, ZD(ZdvfsLseek)(target, -1, 2));
    EXPECT_EQ(3, ZD(ZdvfsAppend)(target, 3, 4, source, 0));
    EXPECT_EQ(2, ZD(ZdvfsAppend)(target, 5, 8, source, 0));
    EXPECT_EQ("a45689", m_control->Bytes("pool/target"));
    EXPECT_EQ(6, ZD(ZdvfsLseek)(target, 0, 1));
    m_control->Add(OnCall("ZdvfsAppend").ShortenTo(1));
    EXPECT_EQ(1, ZD(ZdvfsAppend)(target, 3, 0, source, 0));
}

TEST_F(CDoubleItself, KeepsLargeFilesSparse) {
    const std::int64_t gib = std::int64_t{1} << 30;
    m_control->MakeFile("pool/big", "start", 40 * gib);
    const int file = ZD(ZdvfsOpen)("pool/big", 0x2, 0);
    char byte = 'x';
    EXPECT_EQ(1, ZD(ZdvfsPread)(file, &byte, 1, 39 * gib));
    EXPECT_EQ('\0', byte);
    EXPECT_EQ(4, ZD(ZdvfsPwrite)(file, "tail", 4, 40 * gib));
    EXPECT_EQ(40 * gib + 4, m_control->State("pool/big").size);
    EXPECT_EQ("tail", m_control->Bytes("pool/big", 40 * gib));
    EXPECT_EQ(0, ZD(ZdvfsFtruncate)(file, 3));
    EXPECT_EQ(0, ZD(ZdvfsFtruncate)(file, 5));
    EXPECT_EQ(std::string("sta\0\0", 5), m_control->Bytes("pool/big"));
}

TEST_F(CDoubleItself, CountsMountsAndKnowsTheBlock) {
    EXPECT_EQ(&m_block, m_control->MountBlock("pool"));
    m_block.flags = 0x32;
    EXPECT_EQ(0, ZD(ZdvfsMountV1)("6.0.0.0", &m_block, 5344));
    EXPECT_EQ(2, m_control->Mounts().at("pool"));
    EXPECT_EQ(-1, ZD(ZdvfsMountV1)("6.0.0.0", &m_block, 5343));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(0, ZD(ZdvfsUmount)("pool"));
    EXPECT_EQ(0, ZD(ZdvfsUmount)("pool"));
    EXPECT_EQ(-1, ZD(ZdvfsUmount)("pool"));
    EXPECT_EQ(nullptr, m_control->MountBlock("pool"));
    ZdvfsVolumeRecord volume;
    EXPECT_EQ(-1, ZD(ZdvfsStatvfs)("pool", &volume));
    EXPECT_TRUE(LinesFit({"ZdvfsMountV1(\"6.0.0.0\", block{flags=0x32, level=0, pool=\"pool\", sync=0, file=null, "
                          "second=null, third=null, kind=null}, 5344) = 0",
                          "ZdvfsMountV1(\"6.0.0.0\", ptr, 5343) = -1", "*", "*", "*", "ZdvfsStatvfs(\"pool\") = -1"},
                         TakeLines()));
    EXPECT_THAT(m_control->Mounts(), IsEmpty());
}

TEST_F(CDoubleItself, MirrorsLinesIntoAFile) {
    const std::wstring file = ProgramFolder() + L"mirror-" + std::to_wstring(::GetCurrentProcessId()) + L".txt";
    ::DeleteFileW(file.c_str());
    m_control->MirrorTo(file);
    ZD(ZdvfsClose)(77);
    m_control->MirrorTo(L"");
    ZD(ZdvfsClose)(78);
    EXPECT_EQ("ZdvfsClose(77) = -1\n", FileContent(file));
    EXPECT_NE(FALSE, ::DeleteFileW(file.c_str()));
}

TEST_F(CDoubleItself, AnswersIniValuesInOneOrderWithStorageCalls) {
    char buffer[8] = {};
    m_hul->SetValue("C:\\agent\\zd.conf", kHulSectionOfLooseKeys, "IFS_COMPRESSION", "0x10");
    m_hul->SetValue("C:\\agent\\zd.conf", kHulSectionOfLooseKeys, "LIST", "edb:1024,vhd:64");
    const auto integer = HUL(InifileGetIntegerA);
    EXPECT_EQ(16, integer("C:\\agent\\zd.conf", kHulSectionOfLooseKeys, "IFS_COMPRESSION", 0));
    ZD(ZdvfsClose)(77);
    EXPECT_EQ(-1, integer("C:\\agent\\zd.conf", "Main", "AgentID", -1));
    EXPECT_EQ(7, HUL(InifileGetValueA)("C:\\agent\\zd.conf", kHulSectionOfLooseKeys, "LIST", "", buffer, 8));
    EXPECT_STREQ("edb:102", buffer);
    HUL(InifileReleaseA)("C:\\agent\\zd.conf");
    m_hul->RemoveValue("C:\\agent\\zd.conf", kHulSectionOfLooseKeys, "IFS_COMPRESSION");
    EXPECT_EQ(3, integer("C:\\agent\\zd.conf", kHulSectionOfLooseKeys, "IFS_COMPRESSION", 3));
    EXPECT_TRUE(
        LinesFit({"InifileGetIntegerA(\"C:\\agent\\zd.conf\", \"__dummy__section__\", \"IFS_COMPRESSION\", 0) = 16",
                  "ZdvfsClose(77) = -1", "InifileGetIntegerA(\"C:\\agent\\zd.conf\", \"Main\", \"AgentID\", -1) = -1",
                  "InifileGetValueA(\"C:\\agent\\zd.conf\", \"__dummy__section__\", \"LIST\", \"\", 8) = 7",
                  "InifileReleaseA(\"C:\\agent\\zd.conf\")", "InifileGetIntegerA(*) = 3"},
                 TakeLines()));
}

TEST_F(CDoubleItself, CountsConverterBlocks) {
    char buffer[8] = {};
    char* const block = HUL(wcstoutf8_malloced)(L"\u00e4b");
    EXPECT_STREQ(
        "\xc3\xa4"
        "b",
        block);
    EXPECT_EQ(nullptr, HUL(wcstoutf8_malloced)(nullptr));
    EXPECT_EQ(1, m_hul->LiveBlocks());
    HUL(_HulFree)(block);
    HUL(_HulFree)(nullptr);
    EXPECT_EQ(0, m_hul->LiveBlocks());
    EXPECT_EQ(0, m_hul->BadFrees());
    HUL(_HulFree)(buffer);
    EXPECT_EQ(1, m_hul->BadFrees());
    EXPECT_EQ(4, HUL(wcstoutf8_buf)(L"\u00e4b", buffer, 4));
    EXPECT_EQ(0, HUL(wcstoutf8_buf)(L"\u00e4b", buffer, 3));
    m_control->Add(OnCall("wcstoutf8_malloced").Fails(ENOMEM));
    EXPECT_EQ(nullptr, HUL(wcstoutf8_malloced)(L"x"));
    EXPECT_EQ("_HulFree(block1)", m_control->Calls().at(2).Line());
    EXPECT_EQ("wcstoutf8_malloced(\"x\") = null", m_control->Calls().back().Line());
}

TEST_F(CDoubleItself, ExportsTheWholeContract) {
    EXPECT_EQ(30U, ExportedNames(m_zdvfs).size());  // 29 functions and the control
    EXPECT_EQ(7U, ExportedNames(m_hulLibrary).size());
    for (const HMODULE module : {m_zdvfs, m_hulLibrary}) {
        EXPECT_THAT(ImportedLibraries(module), ::testing::Not(::testing::Contains("msvcrt.dll")));
    }
}

}  // namespace
