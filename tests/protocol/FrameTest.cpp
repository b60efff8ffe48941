// The frame around the operations: what becomes of exceptions, which lines are written, that no lock stays held.
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <functional>
#include <thread>

#include "harness/ImportPatch.h"
#include "harness/PluginFixture.h"

using namespace zd::test;

namespace {

// An operation, the storage call in which something goes wrong, and its lines; "#" stands for the code.
struct OperationRow {
    const char* name;
    const char* storageCall;
    std::function<DWORD(IProtocolManager& manager, Handle handle, Handle other)> run;
    std::string enter;
    std::string exit;
    std::string outOfMemory;
    std::string unhandled;
    std::string memoryCode = "8";

    // CloseFile and ReleaseFile end the process where something unexpected comes up.
    bool endsProcess = false;
    bool endsHandle = false;
};

const CDescriptor& Everyone() {
    static const CDescriptor descriptor("O:BAG:BAD:(A;;0x1f01ff;;;WD)");
    return descriptor;
}

DWORD RunCreate(IProtocolManager& manager, Handle, Handle) {
    Handle handle = 0;
    return manager.ZdCreateFile(L"\\new.txt", 0, 0, 0x80, 0, kZdOpenIf, 2, 0, nullptr, &handle, nullptr, nullptr);
}

DWORD RunRead(IProtocolManager& manager, Handle handle, Handle) {
    char buffer[4] = {};
    DWORD count = 0;
    return manager.ZdReadFile(handle, 0, sizeof(buffer), buffer, &count);
}

DWORD RunWrite(IProtocolManager& manager, Handle handle, Handle) {
    DWORD count = 0;
    return manager.ZdWriteFile(handle, 0, 4, "data", &count);
}

DWORD RunGetSecurity(IProtocolManager& manager, Handle handle, Handle) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD code = manager.ZdGetSecurity(handle, 4, &descriptor);
    EXPECT_EQ(nullptr, descriptor);
    return code;
}

std::vector<OperationRow> Rows() {
    return {
        {"ZdCreateFile", "ZdvfsOpen", &RunCreate,
         "ZdCreateFile Enter \\new.txt FileAttributes: 128  CreateDisposition: 3\n",
         "ZdCreateFile Exit       File created:   pool/new.txt, handle: 0000000000000000\n",
         "ZdCreateFile:  ERROR:  Not enough memory.  DWORD value:    # \n",
         "ZdCreateFile:  ERROR:  Unhandled exception caught, dwError Code:   #\n"},
        {"ZdSetFileSize", "ZdvfsFtruncate",
         [](IProtocolManager& manager, Handle handle, Handle) { return manager.ZdSetFileSize(handle, 3); },
         "ZdSetFileSize Enter\n", "ZdSetFileSize Exit\n",
         "ZdSetFileSize:  ERROR:  Not Enough Memory, dwError Code:    #\n",
         "ZdSetFileSize:  ERROR:  Unhandled exception caught, dwError Code:   #\n"},
        // The one operation whose line shows the result as it stood before.
        {"ZdReadFile", "ZdvfsPread", &RunRead, "ZdReadFile Enter - handle: *, offset: 0, len: 4\n", "ZdReadFile Exit\n",
         "ZdReadFile:    ERROR:  Not Enough Memory, dwError Code:    #\n",
         "ZdReadFile:    ERROR:  Unhandled exception caught, dwError Code:   #\n", "0"},
        {"ZdWriteFile", "ZdvfsPwrite", &RunWrite, "ZdWriteFile Enter - handle: *, offset: 0, len: 4\n",
         "ZdWriteFile Exit! dwError: *)\n", "ZdWriteFile:    ERROR:  Not Enough Memory, dwError Code:    #\n",
         "ZdWriteFile:    ERROR:  Unhandled exception caught, dwError Code:   #\n"},
        {"ZdAppendFile", "ZdvfsAppend",
         [](IProtocolManager& manager, Handle handle, Handle other) {
             return manager.ZdAppendFile(handle, other, 5, 0, 5);
         },
         "ZdAppendFile Enter - hFileHandle: *, hSrcFileHandle: *, byteOffset : 5, srcByteOffset : 0, len: 5\n",
         "ZdAppendFile Exit - *)\n", "ZdAppendFile: ERROR:  Not Enough Memory, dwError Code: #\n",
         "ZdAppendFile: ERROR:  Unhandled exception caught, dwError Code: #\n"},
        {"ZdGetSecurity", "ZdvfsFgetNTAclStr", &RunGetSecurity, "ZdGetSecurity Enter\n", "ZdGetSecurity Exit\n",
         "ZdGetSecurity: ERROR:  Not Enough Memory, dwError Code:    #\n",
         "ZdGetSecurity: ERROR:  Unhandled exception caught, dwError Code:   #\n"},
        {"ZdSetSecurity", "ZdvfsFsetNTAclStr",
         [](IProtocolManager& manager, Handle handle, Handle) {
             return manager.ZdSetSecurity(handle, 4, Everyone().Raw());
         },
         "ZdSetSecurity Enter\n", "ZdSetSecurity Exit\n",
         "ZdSetSecurity: ERROR:  Not Enough Memory, dwError Code:    #\n",
         "ZdSetSecurity: ERROR:  Unhandled exception caught, dwError Code:   #\n"},
        {"ZdCloseFile", "ZdvfsClose",
         [](IProtocolManager& manager, Handle handle, Handle) { return manager.ZdCloseFile(handle, 0); },
         "ZdCloseFile Enter - handle: *\n", "ZdCloseFile Exit\n",
         "ZdCloseFile:   ERROR:  Not Enough Memory, dwError Code:    #\n",
         "ZdCloseFile:   ERROR:  Unhandled exception caught, dwError Code:   #\n", "8", true},
        {"ZdReleaseFile", "ZdvfsClose",
         [](IProtocolManager& manager, Handle handle, Handle) { return manager.ZdReleaseFile(handle); },
         "ZdReleaseFile Enter\n", "ZdReleaseFile Exit\n",
         "ZdReleaseFile: ERROR:  Not Enough Memory, dwError Code:    #\n",
         "ZdReleaseFile: ERROR:  Unhandled exception caught, dwError Code:   #\n", "8", true, true},
    };
}

std::string WithCode(const std::string& text, const std::string& code) {
    std::string line = text;
    return line.replace(line.find('#'), 1, code);
}

class CFrameTest : public CConnectedTest {
protected:
    // Runs the operation on a fresh handle while `rule` holds. Expects the entry line first, the exit line last and, as
    // the only error line, `error` right before it (none where it is empty).
    void Check(const OperationRow& row, const Rule& rule, DWORD code, const std::string& error) {
        SCOPED_TRACE(row.name);
        Double().MakeFile("pool/a.txt", "hello");
        Double().MakeFile("pool/b.txt", "hello");
        Double().Remove("pool/new.txt");
        const Handle handle = Create(L"\\a.txt").handle;
        const Handle other = Create(L"\\b.txt").handle;
        Double().Add(rule);
        ClearLogs();
        EXPECT_EQ(code, row.run(*m_manager, handle, other));
        const std::vector<LogLine> lines = TakeLog();
        Double().ClearRules();
        CheckLines(row, lines, error);
        CheckNoLockIsHeld(row.endsHandle ? other : handle);
        if (!row.endsHandle) Close(handle);
        Close(other);
        EXPECT_EQ(0U, Double().OpenDescriptors().size());
    }

    static void CheckLines(const OperationRow& row, const std::vector<LogLine>& lines, const std::string& error) {
        ASSERT_GE(lines.size(), error.empty() ? 2U : 3U);
        EXPECT_TRUE(LogFits({{6, row.enter}}, {lines.front()}));
        EXPECT_TRUE(LogFits({{6, row.exit}}, {lines.back()}));
        std::vector<LogLine> errors;
        for (const LogLine& line : lines) {
            if (line.level == 1) errors.push_back(line);
        }
        if (error.empty()) {
            EXPECT_TRUE(LogFits({}, errors));
        } else {
            EXPECT_TRUE(LogFits({{1, error}}, errors));
            EXPECT_TRUE(LogFits({{1, error}}, {lines[lines.size() - 2]}));
        }
    }

    // A second thread gets through every lock that the operation may have taken.
    void CheckNoLockIsHeld(Handle handle) {
        CGate done;
        std::thread second([&] {
            EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 5));
            const Created created = Create(L"\\c.txt");
            EXPECT_EQ(0U, created.code);
            Close(created.handle);
            m_manager->ZdRefreshSettings(0, false);
            done.Set();
        });
        const bool free = done.Wait();
        EXPECT_TRUE(free) << "a lock is still held";
        free ? second.join() : second.detach();
        Double().Remove("pool/c.txt");
    }
};

TEST_F(CFrameTest, OutOfMemoryGivesEightWithTheOperationsLine) {
    for (const OperationRow& row : Rows()) {
        Check(row, OnCall(row.storageCall).OnNth(1).Throws(EThrow::kBadAlloc), 8,
              WithCode(row.outOfMemory, row.memoryCode));
    }
}

TEST_F(CFrameTest, ForeignExceptionGivesTheLastErrorWithTheOperationsLine) {
    for (const OperationRow& row : Rows()) {
        if (row.endsProcess) continue;
        Check(row, OnCall(row.storageCall).OnNth(1).Throws(EThrow::kRuntimeError).WithLastError(31), 31,
              WithCode(row.unhandled, "31"));
    }
}

TEST_F(CFrameTest, ForeignExceptionWithoutALastErrorGives1117) {
    for (const OperationRow& row : Rows()) {
        if (row.endsProcess) continue;
        // An errno with a translation of its own does not count here.
        Check(row, OnCall(row.storageCall).OnNth(1).Throws(EThrow::kRuntimeError).WithLastError(0).WithErrno(ENOENT),
              1117, WithCode(row.unhandled, "1117"));
    }
}

TEST_F(CFrameTest, ThrownCodeIsTheResultWithoutAnErrorLineButWithTheExitLine) {
    for (const OperationRow& row : Rows()) {
        Check(row, OnCall(row.storageCall).OnNth(1).Throws(EThrow::kUnsignedLong, 4711).WithLastError(31), 4711, "");
    }
}

// ---- The two operations that end the process ----

class CFrameEndTest : public CDoubleTest {
protected:
    // In the child, which does not come back; its log goes to the parent's folder.
    void RunInChild(const OperationRow& row, DWORD lastError) {
        Registry().SetText(kAgentKey, L"logpath", SharedFolder());
        Environment().RunWriter();
        ASSERT_EQ(0U, Connect());
        Double().MakeFile("pool/a.txt", "hello");
        const Handle handle = Create(L"\\a.txt").handle;
        Double().Add(OnCall("ZdvfsClose").Throws(EThrow::kRuntimeError).WithLastError(lastError));
        row.run(*m_manager, handle, handle);
    }

    void CheckTheProcessEnds(const char* name, DWORD lastError, const std::string& code) {
        for (const OperationRow& row : Rows()) {
            if (std::string(name) != row.name) continue;
            if (InChild()) return RunInChild(row, lastError);
            EXPECT_EQ(1U, RunSelfInChild().exitCode);
            std::string log;
            for (const std::wstring& file : Environment().LogFiles(Environment().Folder())) log += FileContent(file);
            EXPECT_THAT(log, ::testing::HasSubstr(WithCode(row.unhandled, code).substr(0, row.unhandled.size() - 2)));
            EXPECT_THAT(log, ::testing::Not(::testing::HasSubstr(row.exit)));
            return;
        }
        FAIL() << "no such operation";
    }
};

TEST_F(CFrameEndTest, CloseFileEndsTheProcessAfterDrainingTheLog) {
    CheckTheProcessEnds("ZdCloseFile", 31, "31");
}

TEST_F(CFrameEndTest, ReleaseFileEndsTheProcessAfterDrainingTheLog) {
    CheckTheProcessEnds("ZdReleaseFile", 31, "31");
}

TEST_F(CFrameEndTest, ProcessEndsAlsoWithoutALastError) {
    CheckTheProcessEnds("ZdCloseFile", 0, "1117");
}

// ---- ZdConnect ----

class CConnectFrameTest : public CDoubleTest {
protected:
    void SetUp() override {
        CDoubleTest::SetUp();
        m_manager = NewManager();
        ClearLogs();
    }
};

TEST_F(CConnectFrameTest, OutOfMemoryGivesEightWithItsOwnLine) {
    Double().Add(OnCall("ZdvfsStatvfs").Throws(EThrow::kBadAlloc));
    EXPECT_EQ(8U, Connect());
    EXPECT_LOG({6, "ZdConnect Enter\n"}, {6, "Agent Type is: 0\n"},
               {1, "ZdConnect Status:  ERROR:  Not Enough Memory, dwError Code:    8\n"}, {6, "ZdConnect Exit\n"});
}

TEST_F(CConnectFrameTest, ThrownCodeIsTheResultWithoutAnErrorLineButWithTheExitLine) {
    Double().Add(OnCall("ZdvfsStatvfs").Throws(EThrow::kUnsignedLong, 4711));
    EXPECT_EQ(4711U, Connect());
    EXPECT_LOG({6, "ZdConnect Enter\n"}, {6, "Agent Type is: 0\n"}, {6, "ZdConnect Exit\n"});
}

// The one exception that crosses the interface. The line shows the result as it stands, which is 0.
TEST_F(CConnectFrameTest, ForeignExceptionIsPassedOnAs1117WithoutAnExitLine) {
    for (const char* call : {"InifileGetIntegerA", "ZdvfsMountV1", "ZdvfsStatvfs", "ZdvfsOpendir", "ZdvfsReaddir",
                             "ZdvfsClosedir", "ZdvfsOpen", "ZdvfsIoctl", "ZdvfsClose"}) {
        SCOPED_TRACE(call);
        ClearLogs();
        Double().Add(OnCall(call).OnNth(1).Throws(EThrow::kRuntimeError).WithLastError(31));
        unsigned long thrown = 0;
        try {
            Connect();
            ADD_FAILURE() << "nothing was thrown";
        } catch (unsigned long code) {
            thrown = code;
        }
        EXPECT_EQ(1117U, thrown);
        const std::vector<LogLine> lines = TakeLog();
        ASSERT_FALSE(lines.empty());
        EXPECT_TRUE(
            LogFits({{1, "ZdConnect:  ERROR:  Unhandled exception caught, dwError Code:   0\n"}}, {lines.back()}));
        Double().ClearRules();
        EXPECT_TRUE(Double().Mounts().empty());
        EXPECT_EQ(0U, Double().OpenDescriptors().size());
        EXPECT_THAT(Double().OpenStreams(), ::testing::IsEmpty());
    }
    EXPECT_EQ(0U, Connect()) << "the object can connect again";
}

// This program's own calls of free come here.
decltype(&std::free) g_free = nullptr;
std::atomic<int> g_strangeBlocks{0};

void FreeKnownBlocks(void* block) {
    if (block != nullptr && ::_msize(block) == static_cast<std::size_t>(-1)) {
        ++g_strangeBlocks;
        return;
    }
    g_free(block);
}

// Such an exception outlives the plug-in's part in it, and goes with the host's own runtime.
TEST_F(CConnectFrameTest, HostMayKeepTheExceptionBeyondItsHandler) {
    Double().Add(OnCall("ZdvfsStatvfs").Throws(EThrow::kRuntimeError));
    std::exception_ptr kept;
    try {
        Connect();
    } catch (...) {
        kept = std::current_exception();
    }
    ASSERT_TRUE(kept);
    unsigned long code = 0;
    try {
        std::rethrow_exception(kept);
    } catch (unsigned long thrown) {
        code = thrown;
    }
    EXPECT_EQ(1117U, code);
    const HMODULE program = ::GetModuleHandleW(nullptr);
    g_free = reinterpret_cast<decltype(g_free)>(ImportedAddress(program, "free"));
    const CImportPatch patch(program, "free", &FreeKnownBlocks);
    kept = nullptr;
    EXPECT_EQ(0, g_strangeBlocks);
}

TEST_F(CConnectFrameTest, DisconnectHasItsOwnLinesAndSwallowsEverything) {
    ASSERT_EQ(0U, Connect());
    ClearLogs();
    Double().Add(OnCall("ZdvfsUmount").Throws(EThrow::kRuntimeError).WithLastError(31));
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_LOG({6, "ZdDiscconect Enter\n"}, {6, "ZdDiscconect Exit\n"});
}

}  // namespace
