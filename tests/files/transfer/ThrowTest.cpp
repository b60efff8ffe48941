// Exceptions out of the storage library: each becomes a code, with the operation's own line where it has one, and the
// handle stays usable.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CThrowTest : public CConnectedFilesTest {
protected:
    struct Operation {
        const char* function;  // of the storage, which throws
        std::function<DWORD()> run;
        const char* outOfMemory;
        const char* unhandled;  // with the code left out
        const char* exit;
    };

    void SetUp() override {
        CConnectedFilesTest::SetUp();
        m_handle = Open({"0123456789"});
        m_other = Open({"other"}, "other");
        m_operations = {
            {"ZdvfsPread", [this] { return Read(m_handle, 0, 5).code; },
             "ZdReadFile:    ERROR:  Not Enough Memory, dwError Code:    0\n",
             "ZdReadFile:    ERROR:  Unhandled exception caught, dwError Code:   ", "ZdReadFile Exit\n"},
            {"ZdvfsPwrite", [this] { return Write(m_handle, 0, "x").code; },
             "ZdWriteFile:    ERROR:  Not Enough Memory, dwError Code:    8\n",
             "ZdWriteFile:    ERROR:  Unhandled exception caught, dwError Code:   ", "ZdWriteFile Exit! dwError: *\n"},
            {"ZdvfsFtruncate", [this] { return m_manager->ZdSetFileSize(m_handle, 5); },
             "ZdSetFileSize:  ERROR:  Not Enough Memory, dwError Code:    8\n",
             "ZdSetFileSize:  ERROR:  Unhandled exception caught, dwError Code:   ", "ZdSetFileSize Exit\n"},
            {"ZdvfsAppend", [this] { return m_manager->ZdAppendFile(m_handle, m_other, 10, 0, 2); },
             "ZdAppendFile: ERROR:  Not Enough Memory, dwError Code: 8\n",
             "ZdAppendFile: ERROR:  Unhandled exception caught, dwError Code: ", "ZdAppendFile Exit - *\n"},
            {"ZdvfsLseek", [this] { return m_manager->ZdAppendFile(m_handle, m_other, 10, 0, 2); },
             "ZdAppendFile: ERROR:  Not Enough Memory, dwError Code: 8\n",
             "ZdAppendFile: ERROR:  Unhandled exception caught, dwError Code: ", "ZdAppendFile Exit - *\n"},
        };
    }

    void TearDown() override {
        EXPECT_EQ("0123456789", StoredWhole());
        Close(m_handle);
        Close(m_other);
        CConnectedFilesTest::TearDown();
    }

    // The lines of level 1 of the operation, which fails by that rule with that code.
    std::vector<std::string> ErrorLines(const Operation& operation, const Rule& rule, DWORD code) {
        Double().Add(rule);
        ClearLogs();
        EXPECT_EQ(code, operation.run());
        const auto lines = TakeLog();
        Double().ClearRules();
        std::vector<std::string> errors;
        for (const LogLine& line : lines) {
            if (line.level == 1) errors.push_back(line.text);
        }
        EXPECT_TRUE(!lines.empty() && Fits(operation.exit, lines.back().text)) << "the exit line comes last";
        ExpectUsableElsewhere(m_handle);
        ExpectUsableElsewhere(m_other);
        return errors;
    }

    Handle m_handle = 0;
    Handle m_other = 0;
    std::vector<Operation> m_operations;
};

TEST_F(CThrowTest, ExhaustedMemoryIsEight) {
    for (const Operation& operation : m_operations) {
        SCOPED_TRACE(operation.function);
        const auto errors = ErrorLines(operation, OnCall(operation.function).Throws(EThrow::kBadAlloc), 8);
        EXPECT_THAT(errors, ::testing::ElementsAre(operation.outOfMemory));
    }
}

TEST_F(CThrowTest, AThrownCodeIsTheResultWithoutALine) {
    for (const Operation& operation : m_operations) {
        SCOPED_TRACE(operation.function);
        const auto errors = ErrorLines(operation, OnCall(operation.function).Throws(EThrow::kUnsignedLong, 4711), 4711);
        EXPECT_THAT(errors, ::testing::IsEmpty());
    }
}

TEST_F(CThrowTest, AnythingElseIsTheLastError) {
    for (const Operation& operation : m_operations) {
        SCOPED_TRACE(operation.function);
        const auto errors =
            ErrorLines(operation, OnCall(operation.function).Throws(EThrow::kRuntimeError).WithLastError(31), 31);
        EXPECT_THAT(errors, ::testing::ElementsAre(operation.unhandled + std::string("31\n")));
    }
}

TEST_F(CThrowTest, AnythingElseWithoutALastErrorIsADeviceError) {
    for (const Operation& operation : m_operations) {
        SCOPED_TRACE(operation.function);
        const auto errors =
            ErrorLines(operation, OnCall(operation.function).Throws(EThrow::kRuntimeError).WithLastError(0), 1117);
        EXPECT_THAT(errors, ::testing::ElementsAre(operation.unhandled + std::string("1117\n")));
    }
}

TEST_F(CThrowTest, AFragmentWhoseOpeningThrowsIsNotKept) {
    const Handle handle = OpenSized(10, "0123456789", "b");
    Double().Add(OnCall("ZdvfsOpen").ForPath("pool/b;F1").Throws(EThrow::kBadAlloc));
    EXPECT_EQ(8U, Write(handle, 10, "x").code);
    EXPECT_EQ(8U, m_manager->ZdSetFileSize(handle, 15));
    EXPECT_EQ(8U, m_manager->ZdAppendFile(handle, m_other, 10, 0, 2));
    Double().ClearRules();
    EXPECT_EQ(87U, Write(handle, 20, "x").code);
    EXPECT_EQ(0U, Write(handle, 10, "x").code);
    EXPECT_EQ("0123456789x", StoredWhole("b"));
    Close(handle);
}

}  // namespace
}  // namespace zd::test
