// The plug-in's values in the registry: their defaults, their bounds, and values that are none.
#include "ProtocolFixture.h"

using namespace zd::test;

namespace {

class CSettingsTest : public CProtocolTest {
protected:
    // Values of a setting that count as absent.
    struct BadValue {
        const char* name;
        DWORD type;
        std::vector<std::uint8_t> data;
    };
    static const std::vector<BadValue>& BadValues() {
        static const std::vector<BadValue> kValues = {
            {"text", REG_SZ, {'5', 0, 0, 0}},
            {"expandable text", REG_EXPAND_SZ, {'5', 0, 0, 0}},
            {"four bytes", REG_BINARY, {5, 0, 0, 0}},
            {"eight bytes", REG_QWORD, {5, 0, 0, 0, 0, 0, 0, 0}},
            {"swapped bytes", REG_DWORD_BIG_ENDIAN, {0, 0, 0, 5}},
            {"no type", REG_NONE, {5, 0, 0, 0}},
            {"short", REG_DWORD, {5, 0}},
            {"long", REG_DWORD, {5, 0, 0, 0, 0, 0, 0, 0}},
            {"empty", REG_DWORD, {}},
            {"huge", REG_BINARY, std::vector<std::uint8_t>(70000, 5)},
        };
        return kValues;
    }

    // Sets the value and starts with a new object.
    void Restart(const wchar_t* name, DWORD value) {
        Registry().SetDword(kPluginKey, name, value);
        RestartObject();
    }
    void RestartObject() {
        if (m_manager != nullptr) Environment().ReleaseManager(m_manager);
        m_manager = nullptr;
        ASSERT_EQ(0U, Connect());
    }

    // Bytes of fragment 0 after one byte was written at the end of the first fragment and one behind it.
    std::string PiecesOfWriteAt(std::int64_t offset) {
        const Handle handle = Create(L"\\big").handle;
        ClearLogs();
        EXPECT_EQ(0U, Write(handle, offset, "ab").code);
        std::string pieces;
        for (const Call& call : Double().Calls()) {
            if (call.function == "ZdvfsPwrite") pieces += call.path + " " + call.arguments + "; ";
        }
        Close(handle);
        Double().Remove("pool/big");
        Double().Remove("pool/big;F1");
        return pieces;
    }

    std::size_t OpenFragmentsAfterReadingAll(int fragments) {
        Double().MakeFile("pool/many", "x");
        for (int i = 1; i < fragments; ++i) Double().MakeFile("pool/many;F" + std::to_string(i), "x");
        const Handle handle = Create(L"\\many").handle;
        EXPECT_EQ(static_cast<DWORD>(fragments), Read(handle, 0, static_cast<DWORD>(fragments)).count);
        const std::size_t open = Double().OpenDescriptors().size();
        Close(handle);
        return open;
    }
};

// ---- MaxFileSizeMB ----

TEST_F(CSettingsTest, MaxFileSizeOfOneGivesFragmentsOf1048576Bytes) {
    Restart(L"MaxFileSizeMB", 1);
    EXPECT_TRUE(Fits("pool/big *, 1, 1048575; pool/big;F1 *, 1, 0; ", PiecesOfWriteAt(1048575)));
}

TEST_F(CSettingsTest, MaxFileSizeCountsMebibytes) {
    Restart(L"MaxFileSizeMB", 5000);
    EXPECT_TRUE(Fits("pool/big *, 1, 5242879999; pool/big;F1 *, 1, 0; ", PiecesOfWriteAt(5242879999)));
}

TEST_F(CSettingsTest, MaxFileSizeOfZeroOrNoneKeepsFiftyGibibytes) {
    const auto check = [this] {
        EXPECT_TRUE(Fits("pool/big *, 1, 53687091199; pool/big;F1 *, 1, 0; ", PiecesOfWriteAt(53687091199)));
    };
    RestartObject();
    check();
    Restart(L"MaxFileSizeMB", 0);
    check();
    for (const BadValue& bad : BadValues()) {
        SCOPED_TRACE(bad.name);
        Registry().SetRaw(kPluginKey, L"MaxFileSizeMB", bad.type, bad.data);
        RestartObject();
        check();
    }
}

TEST_F(CSettingsTest, LargestMaxFileSizeWorks) {
    Restart(L"MaxFileSizeMB", 0xFFFFFFFF);
    const std::int64_t size = 0xFFFFFFFFLL * 1048576;
    EXPECT_TRUE(Fits("pool/big *, 1, 4503599626321919; pool/big;F1 *, 1, 0; ", PiecesOfWriteAt(size - 1)));
}

TEST_F(CSettingsTest, MaxFileSizeIsReadByEachObjectWhenItIsMade) {
    Restart(L"MaxFileSizeMB", 1);
    Registry().SetDword(kPluginKey, L"MaxFileSizeMB", 2);
    EXPECT_EQ(0U, Connect());
    EXPECT_TRUE(Fits("pool/big *, 1, 1048575; pool/big;F1 *, 1, 0; ", PiecesOfWriteAt(1048575)));
    RestartObject();
    EXPECT_TRUE(Fits("pool/big *, 1, 2097151; pool/big;F1 *, 1, 0; ", PiecesOfWriteAt(2097151)));
}

// ---- LocalCacheOff ----

TEST_F(CSettingsTest, LocalCacheOffMakesFilesOpenForDirectIo) {
    RestartObject();
    EXPECT_EQ("0x102", OpenFlags(L"\\a"));
    Restart(L"LocalCacheOff", 0);
    EXPECT_EQ("0x102", OpenFlags(L"\\a"));
    for (const DWORD value : {1UL, 2UL, 0xFFFFFFFFUL}) {
        Restart(L"LocalCacheOff", value);
        EXPECT_EQ("0x4102", OpenFlags(L"\\a")) << value;
    }
    for (const BadValue& bad : BadValues()) {
        Registry().SetRaw(kPluginKey, L"LocalCacheOff", bad.type, bad.data);
        RestartObject();
        EXPECT_EQ("0x102", OpenFlags(L"\\a")) << bad.name;
    }
}

// ---- MaxOpenFragments ----

TEST_F(CSettingsTest, MaxOpenFragmentsBoundsTheFragmentsOpenAtOnce) {
    Restart(L"MaxOpenFragments", 3);
    EXPECT_EQ(3U, OpenFragmentsAfterReadingAll(5));
}

TEST_F(CSettingsTest, MaxOpenFragmentsOfZeroOrNoneGivesAHundred) {
    RestartObject();
    EXPECT_EQ(100U, OpenFragmentsAfterReadingAll(103));
    Restart(L"MaxOpenFragments", 0);
    EXPECT_EQ(100U, OpenFragmentsAfterReadingAll(103));
    for (const BadValue& bad : BadValues()) {
        Registry().SetRaw(kPluginKey, L"MaxOpenFragments", bad.type, bad.data);
        RestartObject();
        EXPECT_EQ(100U, OpenFragmentsAfterReadingAll(103)) << bad.name;
    }
}

TEST_F(CSettingsTest, MaxOpenFragmentsIsTakenOverAtConnect) {
    Restart(L"MaxOpenFragments", 2);
    Registry().SetDword(kPluginKey, L"MaxOpenFragments", 4);
    EXPECT_EQ(2U, OpenFragmentsAfterReadingAll(5));
    EXPECT_EQ(0U, Connect());
    EXPECT_EQ(4U, OpenFragmentsAfterReadingAll(5));
}

// ---- SyncFileCount ----

TEST_F(CSettingsTest, SyncFileCountGoesIntoTheMountBlock) {
    EXPECT_EQ("1000", ConnectedBlock("sync"));
    for (const DWORD value : {0UL, 1UL, 77UL, 0xFFFFFFFFUL}) {
        Registry().SetDword(kPluginKey, L"SyncFileCount", value);
        EXPECT_EQ(std::to_string(value), ConnectedBlock("sync"));
    }
    for (const BadValue& bad : BadValues()) {
        Registry().SetRaw(kPluginKey, L"SyncFileCount", bad.type, bad.data);
        EXPECT_EQ("1000", ConnectedBlock("sync")) << bad.name;
    }
}

// ---- DebugLevel ----

TEST_F(CSettingsTest, DebugLevelBecomesTheLevelOfTheLoggerAndOfTheBlock) {
    static constexpr struct {
        DWORD value;
        std::int32_t level;
    } kRows[] = {{0, 1}, {1, 1}, {2, 2}, {6, 6}, {7, 7}, {0x7FFFFFFF, 0x7FFFFFFF}, {0x80000000, 1}, {0xFFFFFFFF, 1}};
    for (const auto& row : kRows) {
        Restart(L"DebugLevel", row.value);
        EXPECT_EQ(row.level, Logger().level) << row.value;
        EXPECT_EQ(static_cast<std::uint32_t>(row.level), BlockLevel()) << row.value;
    }
}

TEST_F(CSettingsTest, DebugLevelThatIsNoNumberGivesLevelOne) {
    for (const BadValue& bad : BadValues()) {
        Logger().level = 6;
        Registry().SetRaw(kPluginKey, L"DebugLevel", bad.type, bad.data);
        RestartObject();
        EXPECT_EQ(1, Logger().level) << bad.name;
    }
    Registry().DeleteValue(kPluginKey, L"DebugLevel");
    Logger().level = 6;
    RestartObject();
    EXPECT_EQ(1, Logger().level);
}

// ---- HighestValidNameChar ----

TEST_F(CSettingsTest, HighestValidNameCharBoundsTheCharactersOfNames) {
    static constexpr struct {
        DWORD value;
        const wchar_t* good;
        const wchar_t* bad;  // null: none
    } kRows[] = {{0, L"\\\uFFFD", nullptr},
                 {0x7A, L"\\z", L"\\{"},
                 {0xFF, L"\\\u00FF", L"\\\u0100"},
                 {0xFFFF, L"\\\uFFFD", nullptr},
                 {0x10000, L"\\\uFFFD", nullptr},  // the low half is 0: no rule
                 {0x1007A, L"\\z", L"\\{"},        // only the low half counts
                 {0xABCD00FF, L"\\\u00FF", L"\\\u0100"}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.value);
        Restart(L"HighestValidNameChar", row.value);
        const Created good = Create(row.good);
        EXPECT_EQ(0U, good.code);
        if (good.code == 0) Close(good.handle);
        if (row.bad == nullptr) continue;
        EXPECT_EQ(123U, Create(row.bad).code);
    }
}

TEST_F(CSettingsTest, HighestValidNameCharThatIsNoNumberBoundsNothing) {
    for (const BadValue& bad : BadValues()) {
        Registry().SetRaw(kPluginKey, L"HighestValidNameChar", bad.type, bad.data);
        RestartObject();
        EXPECT_EQ(0U, Create(L"\\\uFFFD").code) << bad.name;
    }
}

// ---- EDB DIRECT IO ----

TEST_F(CSettingsTest, EdbDirectIoChoosesTheModeOfWrittenDatabaseFiles) {
    RestartObject();
    EXPECT_EQ("0x4101", OpenFlags(L"\\a.edb"));
    static constexpr struct {
        DWORD value;
        const char* flags;
    } kRows[] = {{0, "0x102"}, {1, "0x4101"}, {2, "0x4101"}, {0x80000000, "0x4101"}, {0xFFFFFFFF, "0x4101"}};
    for (const auto& row : kRows) {
        Restart(L"EDB DIRECT IO", row.value);
        EXPECT_EQ(row.flags, OpenFlags(L"\\a.EDB")) << row.value;
        EXPECT_EQ("0x102", OpenFlags(L"\\a.txt")) << row.value;
    }
    for (const BadValue& bad : BadValues()) {
        Registry().SetRaw(kPluginKey, L"EDB DIRECT IO", bad.type, bad.data);
        RestartObject();
        EXPECT_EQ("0x4101", OpenFlags(L"\\a.edb")) << bad.name;
    }
}

// ---- The map as a whole ----

TEST_F(CSettingsTest, ConnectReadsTheSettingsAnew) {
    m_manager = NewManager();
    Registry().SetDword(kPluginKey, L"SyncFileCount", 7);
    Registry().SetDword(kPluginKey, L"HighestValidNameChar", 0x7A);
    EXPECT_EQ("7", ConnectedBlock("sync"));
    EXPECT_EQ(123U, Create(L"\\{").code);
    Registry().DeleteValue(kPluginKey, L"SyncFileCount");
    Registry().DeleteValue(kPluginKey, L"HighestValidNameChar");
    EXPECT_EQ("1000", ConnectedBlock("sync"));
    const Created created = Create(L"\\{");
    EXPECT_EQ(0U, created.code);
}

TEST_F(CSettingsTest, SettingsKeyThatWasMissingAtTheStartIsNeverRead) {
    Registry().DeleteKey(kProductKey);
    m_manager = NewManager();
    Registry().SetDword(kPluginKey, L"SyncFileCount", 7);
    Registry().SetDword(kPluginKey, L"DebugLevel", 6);
    EXPECT_EQ("1000", ConnectedBlock("sync"));
    m_manager->ZdRefreshSettings(0, false);
    EXPECT_EQ(1, Logger().level);
}

TEST_F(CSettingsTest, SettingsStayWhenTheKeyIsDeletedUnderThePlugIn) {
    Registry().SetDword(kPluginKey, L"SyncFileCount", 7);
    EXPECT_EQ("7", ConnectedBlock("sync"));
    Registry().DeleteKey(kPluginKey);
    EXPECT_EQ("1000", ConnectedBlock("sync")) << "the values are gone, so the defaults hold";
    EXPECT_EQ(0U, Create(L"\\a").code);
}

}  // namespace
