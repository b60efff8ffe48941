// Every slot, called through a table that was written down from the binary contract and not from the class: each call
// shows by its log lines, its storage calls or its results that the slot holds the operation of its name.
#include <set>

#include "harness/PluginFixture.h"

using namespace zd::test;

namespace {

constexpr std::uint32_t kNotImplemented = 120;

class CSlotOrderTest : public CDoubleTest {
protected:
    void SetUp() override {
        CDoubleTest::SetUp();
        Registry().SetText(std::wstring(kSpaListKey) + L"\\listed", L"x", L"");
        // Slot 18 ends it, so the fixture is not told of it.
        m_object = Environment().Entry()(&m_context, &Logger());
        ASSERT_NE(nullptr, m_object);
    }

    CSlots Slots() const { return CSlots(m_object); }

    // The line that an operation begins with, which names it.
    std::string FirstLine() {
        const std::vector<LogLine> lines = TakeLog();
        return lines.empty() ? "no line" : lines.front().text;
    }

    Handle Open(const wchar_t* name) {
        Handle handle = 0;
        EXPECT_EQ(0U, Slots().Call(2, name, 0, 0, 0x80, 0, kZdOpenIf, 2, 0, nullptr, &handle, nullptr, nullptr));
        return handle;
    }

    void ConnectBySlot() {
        const ConnectParameters parameters = Parameters(L"pool");
        ASSERT_EQ(0U, Slots().Call(0, &parameters));
    }

    void CheckConnectAndDisconnect();
    void CheckFiles();
    void CheckUnimplemented(Handle handle);
    void CheckSecurity(Handle handle);
    void CheckProcessWide();

    void* m_context = nullptr;
    void* m_object = nullptr;
};

void CSlotOrderTest::CheckConnectAndDisconnect() {
    ClearLogs();
    ConnectBySlot();
    EXPECT_EQ("ZdConnect Enter\n", FirstLine());
    EXPECT_EQ(1, Double().Mounts()["pool"]);
    EXPECT_EQ(0U, Slots().Call(1));
    EXPECT_EQ("ZdDiscconect Enter\n", FirstLine());
    EXPECT_TRUE(Double().Mounts().empty());
    ConnectBySlot();
    ClearLogs();
}

// The handle that is left was released.
void CSlotOrderTest::CheckFiles() {
    const CSlots slots = Slots();
    const Handle handle = Open(L"\\a.txt");
    EXPECT_EQ("ZdCreateFile Enter \\a.txt FileAttributes: 128  CreateDisposition: 3\n", FirstLine());
    const Handle source = Open(L"\\b.txt");
    ClearLogs();

    DWORD count = 0;
    EXPECT_EQ(0U, slots.Call(13, source, 2, 5, "hello", &count));
    EXPECT_EQ(5U, count);
    EXPECT_TRUE(Fits("ZdWriteFile Enter - handle: *, offset: 2, len: 5\n", FirstLine()));
    EXPECT_EQ(std::string("\0\0hello", 7), Double().Bytes("pool/b.txt"));

    char buffer[8] = {};
    EXPECT_EQ(0U, slots.Call(12, source, 4, 8, buffer, &count));
    EXPECT_EQ(3U, count);
    EXPECT_STREQ("llo", buffer);
    EXPECT_TRUE(Fits("ZdReadFile Enter - handle: *, offset: 4, len: 8\n", FirstLine()));

    EXPECT_EQ(0U, slots.Call(27, handle, source, 0, 3, 4));
    EXPECT_TRUE(
        Fits("ZdAppendFile Enter - hFileHandle: *, hSrcFileHandle: *, byteOffset : 0, srcByteOffset : 3, "
             "len: 4\n",
             FirstLine()));
    EXPECT_EQ("ello", Double().Bytes("pool/a.txt"));

    EXPECT_EQ(0U, slots.Call(7, source, 3));
    EXPECT_EQ("ZdSetFileSize Enter\n", FirstLine());
    EXPECT_EQ(3, Double().State("pool/b.txt").size);

    CheckUnimplemented(handle);
    CheckSecurity(handle);

    EXPECT_EQ(0U, slots.Call(3, source, 1));
    EXPECT_TRUE(Fits("ZdCloseFile Enter - handle: *\n", FirstLine()));
    EXPECT_FALSE(Double().Exists("pool/b.txt"));
    EXPECT_EQ(0U, slots.Call(3, handle, 0));
    EXPECT_TRUE(Double().Exists("pool/a.txt")) << "a flag of 0 deletes nothing";
    ClearLogs();
    for (const Handle each : {handle, source}) {
        EXPECT_EQ(0U, slots.Call(4, each));
        EXPECT_EQ("ZdReleaseFile Enter\n", FirstLine());
        EXPECT_EQ(6U, slots.Call(7, each, 0)) << "a released handle is none";
        ClearLogs();
    }
}

// These answer an error until they are carried out; what they will do tells them apart then.
void CSlotOrderTest::CheckUnimplemented(Handle handle) {
    const CSlots slots = Slots();
    FileInformation information{};
    VolumeInformation volume{};
    void* entries = nullptr;
    DWORD count = 0;
    ClearLogs();
    EXPECT_EQ(kNotImplemented, slots.Call(5, handle, &information));
    EXPECT_EQ(kNotImplemented, slots.Call(6, L"\\a.txt", &information));
    EXPECT_EQ(kNotImplemented, slots.Call(8, handle, 0, 0, 0, 0, 0x20));
    EXPECT_EQ(kNotImplemented, slots.Call(9, nullptr));
    EXPECT_EQ(kNotImplemented, slots.Call(10, handle, L"\\c.txt", 0));
    EXPECT_EQ(kNotImplemented, slots.Call(11, handle, &entries, &count));
    EXPECT_EQ(kNotImplemented, slots.Call(14, 7, &volume));
    EXPECT_EQ(kNotImplemented, slots.Call(15, L"label"));
    EXPECT_EQ(0U, slots.Call(20, L"\\\\.zdvfs\\x"));
    EXPECT_EQ(0xFFFFFFFF, slots.Call(21, handle, 2, 0));
    EXPECT_EQ(0xFFFFFFFF, slots.Call(29, 2, 0));
    EXPECT_CALLS();
}

void CSlotOrderTest::CheckSecurity(Handle handle) {
    const CSlots slots = Slots();
    const CDescriptor everyone("O:BAG:BAD:(A;;0x1f01ff;;;WD)");
    ClearLogs();
    EXPECT_EQ(0U, slots.Call(17, handle, 4, everyone.Raw()));
    EXPECT_EQ("ZdSetSecurity Enter\n", FirstLine());
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    EXPECT_EQ(0U, slots.Call(16, handle, 4, &descriptor));
    EXPECT_EQ("ZdGetSecurity Enter\n", FirstLine());
    ASSERT_NE(nullptr, descriptor);
    EXPECT_EQ(SddlOf(everyone.Raw()), SddlOf(descriptor));
    ::LocalFree(descriptor);
}

void CSlotOrderTest::CheckProcessWide() {
    const CSlots slots = Slots();
    std::set<std::wstring> names;
    EXPECT_EQ(0U, slots.Call(19, &names));
    EXPECT_THAT(names, ::testing::ElementsAre(L"listed"));

    ClearLogs();
    for (const int stub : {23, 24, 25}) EXPECT_EQ(1U, slots.Call(stub)) << "slot " << stub;
    EXPECT_LOG();
    slots.Call(26, 3, "told by the host\n");
    EXPECT_LOG({3, "told by the host\n"});
    const std::wstring tag = slots.Text(28);
    EXPECT_GE(tag.size(), 6U);
    EXPECT_NE(tag, slots.Text(28));
    EXPECT_LOG();
    EXPECT_CALLS();

    Registry().SetDword(kPluginKey, L"DebugLevel", 5);
    slots.Call(22, 0, false);
    EXPECT_EQ(5, Logger().GetLevel());
}

TEST_F(CSlotOrderTest, EachSlotIsTheOperationThatTheContractNames) {
    ASSERT_EQ(30U, SlotTable().size());
    CheckConnectAndDisconnect();
    CheckFiles();
    CheckProcessWide();

    Registry().SetDword(kPluginKey, L"DebugLevel", 6);
    Slots().Call(22, 0, false);
    ClearLogs();
    Slots().Call(18);
    EXPECT_EQ("~CProtocolManager Enter\n", FirstLine());
    EXPECT_TRUE(Double().Mounts().empty());
}

}  // namespace
