// Slot 11: bad input, names that do not convert, failures of storage and memory.
#include <algorithm>

#include "log/ClosurePatches.h"
#include "NamespaceFixture.h"

namespace zd::test {
namespace {

constexpr char kNotConverted[] = "ERROR!:  Failed to convert ANSI file name to Unicode in ZdQueryDirContents\n";

class CDirContentsFailureTest : public CNamespaceTest {
protected:
    void SetUp() override {
        CNamespaceTest::SetUp();
        Double().MakeDirectory("pool/dir");
    }

    Handle OpenListing(const std::vector<std::string>& names) {
        for (const std::string& name : names) Double().MakeFile("pool/dir/" + name, "x");
        Double().SetListing("pool/dir", names);
        return Open(L"\\dir", kOpenDirectory);
    }

    // Lists, and expects that a failure leaves the outputs as they were.
    DWORD Query(Handle handle) {
        DirectoryEntry* const before = reinterpret_cast<DirectoryEntry*>(this);
        DirectoryEntry* entries = before;
        DWORD count = kUntouched;
        const DWORD code = m_manager->ZdQueryDirContents(handle, &entries, &count);
        if (code != 0 || handle == 0) {
            EXPECT_EQ(before, entries);
            EXPECT_EQ(kUntouched, count);
        } else if (entries != nullptr) {
            ::HeapFree(::GetProcessHeap(), 0, entries);
        }
        return code;
    }
};

TEST_F(CDirContentsFailureTest, NullHandleDoesNothing) {
    EXPECT_EQ(0U, Query(0));
    EXPECT_EQ(0U, m_manager->ZdQueryDirContents(0, nullptr, nullptr));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdQueryDirContents Enter\n"}, {6, "ZdQueryDirContents Exit\n"},  //
               {6, "ZdQueryDirContents Enter\n"}, {6, "ZdQueryDirContents Exit\n"});
}

TEST_F(CDirContentsFailureTest, HandlesThatCannotBeListedMakeNoStorageCall) {
    Double().MakeFile("pool/a");
    const Handle file = Open(L"\\a");
    const Handle closed = Open(L"\\dir", kOpenDirectory);
    ASSERT_EQ(0U, m_manager->ZdCloseFile(closed, 0));
    const struct {
        const char* what;
        Handle handle;
        DWORD code;
    } kRows[] = {{"a file", file, ERROR_DIRECTORY},
                 {"a closed directory", closed, ERROR_INVALID_HANDLE},
                 {"no handle", 1, ERROR_INVALID_HANDLE},
                 {"behind a handle", file + 1, ERROR_INVALID_HANDLE}};
    for (const auto& row : kRows) {
        ClearLogs();
        EXPECT_EQ(row.code, Query(row.handle)) << row.what;
        EXPECT_LOG({6, "ZdQueryDirContents Enter\n"}, {6, "ZdQueryDirContents Exit\n"});
        EXPECT_CALLS();
    }
    ExpectUsableElsewhere(file);
    ExpectUsableElsewhere(closed);
}

TEST_F(CDirContentsFailureTest, NullOutputsAreRefusedBeforeTheStreamIsRead) {
    const Handle handle = OpenListing({"a"});
    DirectoryEntry* entries = nullptr;
    DWORD count = kUntouched;
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, m_manager->ZdQueryDirContents(handle, nullptr, &count));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, m_manager->ZdQueryDirContents(handle, &entries, nullptr));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, m_manager->ZdQueryDirContents(handle, nullptr, nullptr));
    EXPECT_EQ(kUntouched, count);
    EXPECT_EQ(nullptr, entries);
    EXPECT_CALLS();
    EXPECT_EQ(1U, List(handle).entries.size());
}

TEST_F(CDirContentsFailureTest, FailedStatusOfAnyEntryFailsTheListing) {
    static constexpr struct {
        int error;
        DWORD code;
    } kRows[] = {{ENOENT, 2}, {EACCES, 5}, {ENOTDIR, 267}, {EIO, 1117}};
    for (const auto& row : kRows) {
        for (const char* const name : {"a", "b", "b;F1"}) {
            const Handle handle = OpenListing({"a", "b", "b;F1", "c"});
            Double().Add(OnCall("ZdvfsStat").ForPath(std::string("pool/dir/") + name).OnNth(1).Fails(row.error, 1234));
            EXPECT_EQ(row.code, Query(handle)) << name;
            EXPECT_LOG({6, "ZdQueryDirContents Enter\n"}, {6, "ZdQueryDirContents Exit\n"});
            const std::vector<std::string> calls = TakeCalls();
            ASSERT_FALSE(calls.empty());
            EXPECT_EQ("ZdvfsStat(\"pool/dir/" + std::string(name) + "\") = -1", calls.back());
            ExpectUsableElsewhere(handle);
        }
    }
}

TEST_F(CDirContentsFailureTest, NullWithErrnoIsAFailureAndWithoutItTheEnd) {
    const Handle handle = OpenListing({"a", "b"});
    Double().Add(OnCall("ZdvfsReaddir").OnNth(2).Fails(EACCES, 1234));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, Query(handle));
    EXPECT_LOG({6, "ZdQueryDirContents Enter\n"}, {6, "ZdQueryDirContents Exit\n"});
    errno = EBUSY;
    EXPECT_EQ(0U, Query(handle)) << "an errno from before is none of the stream's";
    ExpectUsableElsewhere(handle);
}

TEST_F(CDirContentsFailureTest, ErrnoOfAStatusThatSucceededIsNotTheStreams) {
    const Handle handle = OpenListing({"a"});
    Double().Add(OnCall("ZdvfsStat").ForPath("pool/dir/a").WithErrno(EIO).WithLastError(5));
    EXPECT_EQ(0U, Query(handle));
}

TEST_F(CDirContentsFailureTest, NameOfMoreThan260UnitsIsKeptEmptyAndLogged) {
    const std::string longest(260, 'a');
    const Handle handle = OpenListing({longest, std::string(261, 'b'), std::string(1023, 'c'), "d"});
    const Listing listing = List(handle);
    EXPECT_EQ(0U, listing.code);
    EXPECT_THAT(listing.names, ::testing::ElementsAre(L"", Widen(longest), L"d"))
        << "of the two that do not fit the first stays, under the empty name";
    EXPECT_LOG({6, "ZdQueryDirContents Enter\n"}, {1, kNotConverted}, {1, kNotConverted},
               {6, "ZdQueryDirContents Exit\n"});
    for (const wchar_t unit : listing.entries[0].name) ASSERT_EQ(L'\0', unit);
    EXPECT_EQ(1U, listing.entries[0].size);
    EXPECT_EQ(L'\0', listing.entries[1].name[260]);
}

TEST_F(CDirContentsFailureTest, FragmentWhoseBaseDoesNotConvertIsLoggedAndDropped) {
    const std::string tooLong(261, 'b');
    const Listing listing = List(OpenListing({tooLong, tooLong + ";F1", "d"}));
    EXPECT_THAT(listing.names, ::testing::ElementsAre(L"", L"d"));
    EXPECT_EQ(1U, listing.entries[0].size) << "what does not convert is not added to another such name";
    EXPECT_LOG({6, "ZdQueryDirContents Enter\n"}, {1, kNotConverted}, {1, kNotConverted},
               {6, "ZdQueryDirContents Exit\n"});
}

TEST_F(CDirContentsFailureTest, LengthOfAFragmentsNameIsThatOfItsBase) {
    const std::string longest(260, 'b');
    const Listing listing = List(OpenListing({longest, longest + ";F1"}));
    EXPECT_THAT(listing.names, ::testing::ElementsAre(Widen(longest)));
    EXPECT_EQ(2U, listing.entries[0].size);
    EXPECT_LOG({6, "ZdQueryDirContents Enter\n"}, {6, "ZdQueryDirContents Exit\n"});
}

TEST_F(CDirContentsFailureTest, FragmentOfTheEmptyNameIsDroppedInSilence) {
    const Listing listing = List(OpenListing({std::string(261, 'b'), ";F1", "d"}));
    EXPECT_THAT(listing.names, ::testing::ElementsAre(L"", L"d"));
    EXPECT_EQ(1U, listing.entries[0].size);
    EXPECT_LOG({6, "ZdQueryDirContents Enter\n"}, {1, kNotConverted}, {6, "ZdQueryDirContents Exit\n"});
}

TEST_F(CDirContentsFailureTest, BytesThatAreNoUtf8AreReplaced) {
    const Listing listing = List(OpenListing({"a\xff"}));
    EXPECT_THAT(listing.names, ::testing::ElementsAre(L"a\ufffd"));
    EXPECT_LOG({6, "ZdQueryDirContents Enter\n"}, {6, "ZdQueryDirContents Exit\n"});
}

TEST_F(CDirContentsFailureTest, BytesBehindANameAndThePaddingAreZero) {
    const Handle handle =
        OpenListing({"a-name-of-some-length", "a-name-of-some-length;F1", "b", std::string(261, 'c')});
    // What the heap answers is full of rubbish.
    CClosurePatches patches(Plugin());
    patches.Replace<void* __stdcall(HANDLE, DWORD, SIZE_T)>("HeapAlloc",
                                                            [](auto original, HANDLE heap, DWORD flags, SIZE_T size) {
                                                                void* const block = original(heap, flags, size);
                                                                if (block != nullptr && flags == 0)
                                                                    std::memset(block, 0xCD, size);
                                                                return block;
                                                            });
    DirectoryEntry* entries = nullptr;
    DWORD count = 0;
    ASSERT_EQ(0U, m_manager->ZdQueryDirContents(handle, &entries, &count));
    patches.Restore();
    ASSERT_EQ(3U, count);
    for (DWORD i = 0; i < count; ++i) {
        const auto* const bytes = reinterpret_cast<const unsigned char*>(&entries[i]);
        const std::size_t end = 52 + 2 * std::wstring(entries[i].name).size();
        EXPECT_TRUE(std::all_of(bytes + end, bytes + 576, [](unsigned char byte) { return byte == 0; })) << i;
    }
    ::HeapFree(::GetProcessHeap(), 0, entries);
}

TEST_F(CDirContentsFailureTest, BlockThatCannotBeHadIsExhaustedMemory) {
    const Handle handle = OpenListing({"a", "b", "c"});
    std::vector<SIZE_T> sizes;
    CClosurePatches patches(Plugin());
    patches.Replace<void* __stdcall(HANDLE, DWORD, SIZE_T)>(
        "HeapAlloc", [&](auto original, HANDLE heap, DWORD flags, SIZE_T size) -> void* {
            if (size < 576) return original(heap, flags, size);
            EXPECT_EQ(::GetProcessHeap(), heap);
            EXPECT_EQ(0U, flags);
            sizes.push_back(size);
            return nullptr;
        });
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, Query(handle));
    patches.Restore();
    EXPECT_THAT(sizes, ::testing::ElementsAre(SIZE_T{3 * 576}));
    EXPECT_LOG({6, "ZdQueryDirContents Enter\n"}, {1, "ZdQueryDirContents:    ERROR:  pvBuffer returned null \n"},
               {1, "ZdQueryDirContents:    ERROR:  Not Enough Memory, dwError Code:    8\n"},
               {6, "ZdQueryDirContents Exit\n"});
    ExpectUsableElsewhere(handle);
}

TEST_F(CDirContentsFailureTest, ExceptionsOfTheStorageAreReported) {
    const Handle handle = OpenListing({"a", "b", "c"});
    Double().Add(OnCall("ZdvfsReaddir").OnNth(2).Throws(EThrow::kBadAlloc));
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, Query(handle));
    EXPECT_LOG({6, "ZdQueryDirContents Enter\n"},
               {1, "ZdQueryDirContents:    ERROR:  Not Enough Memory, dwError Code:    8\n"},
               {6, "ZdQueryDirContents Exit\n"});
    Double().Add(OnCall("ZdvfsStat").OnNth(1).Throws(EThrow::kRuntimeError).WithLastError(31));
    EXPECT_EQ(31U, Query(handle));
    EXPECT_LOG({6, "ZdQueryDirContents Enter\n"},
               {1, "ZdQueryDirContents:    ERROR:  Unhandled exception caught, dwError Code:   31\n"},
               {6, "ZdQueryDirContents Exit\n"});
    ExpectUsableElsewhere(handle);
}

}  // namespace
}  // namespace zd::test
