// The object that stands in for the plug-in's while it is traced: each operation reaches its own slot with its
// arguments.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "harness/SlotTable.h"
#include "trace/TracingManager.h"

namespace {

using zd::test::ESlotResult;
using zd::test::SlotRow;
using zd::test::SlotTable;
using Word = std::uint64_t;

constexpr int kSlots = 30;
constexpr int kTextSlot = 28;  // answers an object; "zdhost tag" runs it
constexpr Word kFirstResult = 1000;

struct Reached {
    int slot = -1;
    std::array<Word, 12> arguments{};
};
Reached g_reached;

template <int kSlot>
Word Reach(void* /*object*/, Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h, Word i, Word j, Word k,
           Word l) {
    g_reached = Reached{kSlot, {a, b, c, d, e, f, g, h, i, j, k, l}};
    return kFirstResult + kSlot;
}

template <int... kSlot>
std::array<void*, kSlots> MakeTable(std::integer_sequence<int, kSlot...> /*slots*/) {
    return {reinterpret_cast<void*>(&Reach<kSlot>)...};
}

// A file that is gone with the test.
class CTemporaryFile {
public:
    CTemporaryFile() : m_name("trace." + std::to_string(::GetCurrentProcessId()) + ".txt") {}
    ~CTemporaryFile() { std::remove(m_name.c_str()); }
    CTemporaryFile(const CTemporaryFile&) = delete;
    CTemporaryFile& operator=(const CTemporaryFile&) = delete;

    const std::string& Name() const { return m_name; }
    // Of each line the part in front of the first "(".
    std::vector<std::string> Operations() const {
        std::vector<std::string> names(1);
        FILE* const file = std::fopen(m_name.c_str(), "rb");
        bool inName = true;
        for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) {
            if (c == '(') inName = false;
            if (inName && c != '\n') names.back().push_back(static_cast<char>(c));
            if (c != '\n') continue;
            names.emplace_back();
            inName = true;
        }
        std::fclose(file);
        names.pop_back();
        return names;
    }

private:
    std::string m_name;
};

struct Call {
    int slot;
    std::function<Word(IProtocolManager&)> run;
    std::vector<Word> arguments;
};

template <class Pointer>
Word Address(Pointer* pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer);
}

// Every operation but the one that answers an object, no argument like another one.
std::vector<Call> Calls() {
    static ConnectParameters connect{};
    static FileInformation file{};
    static VolumeInformation volume{};
    static Handle handle = 0;
    static DWORD number = 0;
    static DirectoryEntry* entries = nullptr;
    static std::set<std::wstring> names;
    static char descriptor[8] = {};
    static PSECURITY_DESCRIPTOR descriptorOut = nullptr;
    const wchar_t* const name = L"\\name";
    const char* const line = "line\n";
    using M = IProtocolManager;
    return {
        {0, [](M& m) { return m.ZdConnect(&connect); }, {Address(&connect)}},
        {1, [](M& m) { return m.ZdDisconnect(); }, {}},
        {2,
         [=](M& m) { return m.ZdCreateFile(name, 2, 3, 4, 5, 6, 7, 8, descriptor, &handle, &number, &file); },
         {Address(name), 2, 3, 4, 5, 6, 7, 8, Address(descriptor), Address(&handle), Address(&number), Address(&file)}},
        {3, [](M& m) { return m.ZdCloseFile(1, 2); }, {1, 2}},
        {4, [](M& m) { return m.ZdReleaseFile(1); }, {1}},
        {5, [](M& m) { return m.ZdQueryFileInfo(1, &file); }, {1, Address(&file)}},
        {6, [=](M& m) { return m.ZdQueryPathInfo(name, &file); }, {Address(name), Address(&file)}},
        {7, [](M& m) { return m.ZdSetFileSize(1, -2); }, {1, static_cast<Word>(-2)}},
        {8, [](M& m) { return m.ZdSetFileBasicInfo(1, 2, 3, 4, 5, 6); }, {1, 2, 3, 4, 5, 6}},
        {9, [](M& m) { return m.ZdDeleteFile(&number); }, {Address(&number)}},
        {10, [=](M& m) { return m.ZdRenameFile(1, name, 3); }, {1, Address(name), 3}},
        {11, [](M& m) { return m.ZdQueryDirContents(1, &entries, &number); }, {1, Address(&entries), Address(&number)}},
        {12,
         [](M& m) { return m.ZdReadFile(1, 2, 3, descriptor, &number); },
         {1, 2, 3, Address(descriptor), Address(&number)}},
        {13,
         [](M& m) { return m.ZdWriteFile(1, 2, 3, descriptor, &number); },
         {1, 2, 3, Address(descriptor), Address(&number)}},
        {14, [](M& m) { return m.ZdQueryVolumeInfo(7, &volume); }, {7, Address(&volume)}},
        {15, [=](M& m) { return m.ZdSetVolumeLabel(name); }, {Address(name)}},
        {16, [](M& m) { return m.ZdGetSecurity(1, 2, &descriptorOut); }, {1, 2, Address(&descriptorOut)}},
        {17, [](M& m) { return m.ZdSetSecurity(1, 2, descriptor); }, {1, 2, Address(descriptor)}},
        {18, [](M& m) { return m.Release(), 0; }, {}},
        {19, [](M& m) { return m.ZdEnumerateSpaList(&names); }, {Address(&names)}},
        {20, [=](M& m) { return m.ZdControlPath(name); }, {Address(name)}},
        {21, [](M& m) { return m.ZdHandleIoctl(1, 2, 3); }, {1, 2, 3}},
        {22, [](M& m) { return m.ZdRefreshSettings(5, true), 0; }, {5, 1}},
        {23, [](M& m) { return m.ZdStub1(); }, {}},
        {24, [](M& m) { return m.ZdStub2(); }, {}},
        {25, [](M& m) { return m.ZdStub3(); }, {}},
        {26, [=](M& m) { return m.ZdLogMessage(6, line), 0; }, {6, Address(line)}},
        {27, [](M& m) { return m.ZdAppendFile(1, 2, 3, 4, 5); }, {1, 2, 3, 4, 5}},
        {29, [](M& m) { return m.ZdPathIoctl(1, 2); }, {1, 2}},
    };
}

Word Masked(Word word, int width) {
    return width == 8 ? word : word & ((Word{1} << (8 * width)) - 1);
}

TEST(TracingManager, EachOperationReachesItsSlotWithItsArgumentsAndIsNamed) {
    const CTemporaryFile file;
    zd::host::CRecorder recorder(zd::host::TraceOptions{true, false, file.Name()});
    std::array<void*, kSlots> table = MakeTable(std::make_integer_sequence<int, kSlots>());
    void* object = table.data();
    zd::host::CTracingManager manager(recorder, *reinterpret_cast<IProtocolManager*>(&object));

    std::vector<std::string> expected;
    for (const Call& call : Calls()) {
        const SlotRow& row = SlotTable()[static_cast<std::size_t>(call.slot)];
        g_reached = Reached{};
        const Word result = call.run(manager);
        EXPECT_EQ(call.slot, g_reached.slot) << row.name;
        if (row.result == ESlotResult::kCode) {
            EXPECT_EQ(kFirstResult + static_cast<Word>(call.slot), result) << row.name;
        }
        ASSERT_EQ(row.widths.size(), call.arguments.size()) << row.name;
        for (std::size_t i = 0; i < call.arguments.size(); ++i) {
            EXPECT_EQ(call.arguments[i], Masked(g_reached.arguments[i], row.widths[i])) << row.name << " " << i;
        }
        expected.emplace_back(row.name);
    }
    recorder.Finish();
    EXPECT_EQ(static_cast<std::size_t>(kSlots - 1), expected.size());
    EXPECT_EQ(expected, file.Operations());
}

TEST(TracingManager, ACodeGoesToTheLastFailedCallThatTranslatesToIt) {
    const auto failed = [](int error, DWORD lastError) {
        zd::host::TracedCall call;
        call.failed = true;
        call.error = error;
        call.lastError = lastError;
        return call;
    };
    struct Row {
        DWORD code;
        int expected;  // the call that the code belongs to, -1 for none
    };
    // No such file, access denied, success, disk full as Windows 112, an unknown one.
    const std::vector<zd::host::TracedCall> calls = {failed(2, 2),           failed(2, 2),    failed(13, 5),
                                                     zd::host::TracedCall{}, failed(28, 112), failed(41, 145)};
    for (const Row& row : {Row{0, -1}, Row{2, 1}, Row{5, 2}, Row{39, 4}, Row{112, 4}, Row{1117, 5}, Row{145, 5},
                           Row{87, -1}, Row{183, -1}}) {
        zd::host::TracedOperation operation;
        operation.code = row.code;
        for (const zd::host::TracedCall& call : calls) operation.events.emplace_back(call);
        zd::host::AttributeCode(operation);
        for (std::size_t i = 0; i < calls.size(); ++i) {
            const auto& win32 = std::get<zd::host::TracedCall>(operation.events[i]).win32;
            EXPECT_EQ(static_cast<int>(i) == row.expected, win32.has_value()) << row.code << " " << i;
            if (win32) {
                EXPECT_EQ(row.code, *win32);
            }
        }
    }
}

}  // namespace
