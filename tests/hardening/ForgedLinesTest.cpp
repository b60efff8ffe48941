// Lines of the log file that begin with a time stamp are the log's own, whatever text a client or the storage brings.
#include <algorithm>
#include <set>
#include <sstream>

#include "harness/PluginFixture.h"
#include "harness/TextCompare.h"
#include "log/ClosurePatches.h"

namespace zd::test {
namespace {

constexpr char kRecordPrefix[] = "***\tZDVFS:\t";
// Every kind of end that a reader of the file may take for one, and what drives a terminal.
constexpr wchar_t kForged[] =
    L"\r\n2026/11/16 03:29:25 (1:x.exe, 2) - forged\n\r2026/11/16 03:29:25 (1:x.exe, 2) - "
    L"forged\v\f\b\x1b[2K\x01\x7f\t";
constexpr char kForgedLine[] = "2026/11/16 03:29:25 (1:x.exe, 2) - forged";
constexpr std::int64_t kMegabyte = 1024 * 1024;

bool IsStamped(const std::string& line) {
    static constexpr std::string_view kPattern = "####/##/## ##:##:## (";
    if (line.size() < kPattern.size()) return false;
    return std::equal(kPattern.begin(), kPattern.end(), line.begin(),
                      [](char pattern, char c) { return pattern == '#' ? c >= '0' && c <= '9' : pattern == c; });
}

// The lines of a text for the most suspicious reader, to whom each control character but the tab ends one.
std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines(1);
    for (const char c : text) {
        if ((c >= 0 && c < ' ' && c != '\t') || c == 0x7f) {
            lines.emplace_back();
        } else {
            lines.back().push_back(c);
        }
    }
    return lines;
}

class CForgedLinesTest : public CDoubleTest {
protected:
    void SetUp() override {
        CDoubleTest::SetUp();
        Registry().SetDword(kPluginKey, L"MaxFileSizeMB", 1);
        Registry().SetDword(kPluginKey, L"MaxOpenFragments", 2);
        Hul().SetValue(Narrow(Environment().AgentFolder()) + "zd.conf", "__dummy__section__", "PREFERRED_EXT_SEGKSIZE",
                       "x:64");
        m_patches = std::make_unique<CClosurePatches>(Plugin());
    }
    void TearDown() override {
        Environment().RunWriter();
        EXPECT_TRUE(Environment().DrainLog());
        m_patches.reset();
        CDoubleTest::TearDown();
    }

    void ConnectToPool() {
        ASSERT_EQ(0U, Connect());
        Double().MakeFile("pool/stands");
    }

    // What the plug-in has written so far: the lines that look like the log's own are as many as its records, and none
    // is a forged one. Answers the file's text.
    std::string ExpectOwnLinesAlone() {
        Environment().RunWriter();
        EXPECT_TRUE(Environment().DrainLog());
        const std::string text = Environment().LogText();
        // Some of the log's own texts have no line end; the record behind one goes on in its line.
        std::size_t records = 0;
        bool isNewLine = true;
        for (const std::string& shown : Environment().DebuggerTexts()) {
            if (!shown.starts_with(kRecordPrefix)) continue;
            records += isNewLine;
            isNewLine = shown.ends_with('\n');
        }
        std::size_t stamped = 0;
        for (const std::string& line : Lines(text)) {
            stamped += IsStamped(line);
            EXPECT_FALSE(line.starts_with(kForgedLine)) << line;
        }
        EXPECT_GT(records, 0U);
        EXPECT_EQ(records, stamped);
        return text;
    }

    // How often the name came through, made harmless.
    static std::size_t Shown(const std::string& text) {
        std::size_t count = 0;
        const std::string harmless = std::string("<000d><000a>") + kForgedLine + "<000a>";
        for (std::size_t at = text.find(harmless); at != std::string::npos; at = text.find(harmless, at + 1)) ++count;
        return count;
    }

    std::unique_ptr<CClosurePatches> m_patches;
};

const std::wstring kName = std::wstring(L"\\a") + kForged + L"x";
const std::string kStored = "pool/" + Narrow(kName.substr(1));

TEST_F(CForgedLinesTest, NamesInCreateAndItsFailures) {
    ConnectToPool();
    const std::wstring inDirectory = L"\\" + std::wstring(kForged) + L"\\b.x";
    static constexpr CreateOptions kRows[] = {
        {.disposition = 77},
        {.attributes = FILE_ATTRIBUTE_REPARSE_POINT},
        {.attributes = FILE_ATTRIBUTE_NORMAL | FILE_ATTRIBUTE_OFFLINE},
        {.attributes = FILE_FLAG_SEQUENTIAL_SCAN},
        {.disposition = kZdOpen},
        {.isDirectory = 1, .disposition = kZdCreate},
        {.isDirectory = 1, .disposition = kZdOpenIf},
    };
    for (const std::wstring& name : {kName, inDirectory, L"\\stands\\" + kName}) {
        for (const CreateOptions& options : kRows) {
            const Created created = Create(name, options);
            if (created.code == 0) Close(created.handle);
        }
        Double().MakeDirectory("pool/" + Narrow(name.substr(1)));
        const Created directory = Create(name, {.isDirectory = 1, .disposition = kZdCreate});
        EXPECT_NE(0U, directory.code);
    }
    for (const char* function : {"ZdvfsStat", "ZdvfsOpen", "ZdvfsMkdir", "ZdvfsIoctl", "ZdvfsGetNTAclStr"}) {
        Double().Add(OnCall(function).Fails(EACCES).WithLastError(ERROR_ACCESS_DENIED));
        for (const DWORD isDirectory : {0U, 1U}) {
            const Created created = Create(kName + L"2", {.isDirectory = isDirectory, .disposition = kZdOpenIf});
            if (created.code == 0) Close(created.handle);
        }
        Double().ClearRules();
    }
    EXPECT_GT(Shown(ExpectOwnLinesAlone()), 30U);
}

TEST_F(CForgedLinesTest, NamesOfOpenFilesAndTheirFragments) {
    ConnectToPool();
    // To the storage the date names two directories.
    Double().MakeFile(kStored);
    const Created file = Create(kName, {.attributes = FILE_FLAG_SEQUENTIAL_SCAN});
    ASSERT_EQ(0U, file.code);
    const Created other = Create(L"\\stands");
    ASSERT_EQ(0U, other.code);
    // More fragments than may be open, so that some are closed and opened again.
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(file.handle, 5 * kMegabyte + 3));
    for (const std::int64_t megabyte : {4, 0, 3, 1, 2}) Write(file.handle, megabyte * kMegabyte, "bytes");
    for (const std::int64_t megabyte : {4, 0, 3, 1, 2}) Read(file.handle, megabyte * kMegabyte, 5);
    Double().Add(OnCall("ZdvfsStat").Fails(EIO));
    for (const std::int64_t megabyte : {4, 0, 3}) Read(file.handle, megabyte * kMegabyte, 5);
    Double().ClearRules();
    m_manager->ZdAppendFile(other.handle, file.handle, 0, 0, 2 * kMegabyte);
    FileInformation information{};
    m_manager->ZdQueryFileInfo(file.handle, &information);
    m_manager->ZdQueryPathInfo(kName.c_str(), &information);
    for (const char* function : {"ZdvfsChmod", "ZdvfsUtime", "ZdvfsRename"}) {
        Double().Add(OnCall(function).Fails(EACCES));
        m_manager->ZdSetFileBasicInfo(file.handle, 1, 2, 3, 4, FILE_ATTRIBUTE_HIDDEN);
        m_manager->ZdRenameFile(file.handle, (kName + L"3").c_str(), 1);
        Double().ClearRules();
    }
    // Attributes that are refused or left out.
    for (const DWORD attributes : {0x400UL, 0x1000UL, 0x10UL}) {
        m_manager->ZdSetFileBasicInfo(file.handle, 0, 0, 0, 0, attributes);
    }
    EXPECT_EQ(0U, m_manager->ZdRenameFile(file.handle, (kName + L"4").c_str(), 1));
    EXPECT_EQ(0U, m_manager->ZdCloseFile(file.handle, 1));
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(file.handle));
    Close(other.handle);
    const std::string text = ExpectOwnLinesAlone();
    EXPECT_GT(Shown(text), 20U);
    EXPECT_NE(std::string::npos, text.find("Closed fragment "));
    EXPECT_NE(std::string::npos, text.find("Entering CProtocolManager::ReOpenFile"));
    EXPECT_NE(std::string::npos, text.find("ZdSetFileBasicInfo: FileName:   pool/a<000d>"));
}

TEST_F(CForgedLinesTest, TextsOfTheOtherOperations) {
    ConnectToPool();
    Double().MakeDirectory("pool/d");
    Double().SetListing("pool/d", {kStored.substr(5), Narrow(kForged), "\xff\n" + Narrow(kForged)});
    const Created directory = Create(L"\\d", {.isDirectory = 1, .disposition = kZdOpen, .access = 0x1});
    ASSERT_EQ(0U, directory.code);
    List(directory.handle);
    Close(directory.handle);
    m_manager->ZdSetVolumeLabel(kForged);
    VolumeInformation volume{};
    for (BYTE request = 1; request <= 5; ++request) m_manager->ZdQueryVolumeInfo(request, &volume);
    m_manager->ZdControlPath((L"\\\\.zdvfs\\pool\\" + std::wstring(kForged) + L"\\b\\.refresh").c_str());
    m_manager->ZdControlPath(kForged);
    m_manager->ZdDeleteFile(const_cast<wchar_t*>(kForged));
    Double().SetIoctlShape(77, "s");
    const std::string narrow = Narrow(kForged);
    std::uint64_t slot = reinterpret_cast<std::uint64_t>(narrow.c_str());
    const Created file = Create(L"\\stands");
    m_manager->ZdHandleIoctl(file.handle, 77, reinterpret_cast<std::uint64_t>(&slot));
    m_manager->ZdPathIoctl(77, reinterpret_cast<std::uint64_t>(&slot));
    Double().Add(OnCall("ZdvfsIoctl").Fails(EIO));
    m_manager->ZdRefreshSettings(1, false);
    m_manager->ZdRefreshSettings(1, true);
    Close(file.handle);
    std::set<std::wstring> names;
    m_manager->ZdEnumerateSpaList(&names);
    ExpectOwnLinesAlone();
}

TEST_F(CForgedLinesTest, TextsOfDescriptors) {
    ConnectToPool();
    // Newer systems store conditions in entries, which may hold any text; the real conversion is asked for the rest.
    const std::string held = Narrow(kForged);
    const std::string plain = "O:BAG:BAD:(A;;0x1f01ff;;;WD)";
    m_patches->Replace<BOOL __stdcall(const char*, DWORD, PSECURITY_DESCRIPTOR*, ULONG*)>(
        "ConvertStringSecurityDescriptorToSecurityDescriptorA",
        [&](auto original, const char* text, DWORD revision, PSECURITY_DESCRIPTOR* descriptor, ULONG* size) {
            const std::string known(text);
            return original(known.substr(0, known.find('\r')).c_str(), revision, descriptor, size);
        });
    m_patches->Replace<BOOL __stdcall(PSECURITY_DESCRIPTOR, DWORD, SECURITY_INFORMATION, char**, ULONG*)>(
        "ConvertSecurityDescriptorToStringSecurityDescriptorA",
        [&](auto /*original*/, PSECURITY_DESCRIPTOR, DWORD, SECURITY_INFORMATION, char** text, ULONG* size) {
            const std::string whole = plain + held;
            *text = static_cast<char*>(::LocalAlloc(LMEM_ZEROINIT, whole.size() + 1));
            std::copy(whole.begin(), whole.end(), *text);
            if (size != nullptr) *size = static_cast<ULONG>(whole.size() + 1);
            return TRUE;
        });
    const Created file = Create(L"\\stands");
    ASSERT_EQ(0U, file.code);
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    // Invented, stored, read back.
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(0U, m_manager->ZdGetSecurity(file.handle, 0, &descriptor));
        EXPECT_EQ(0U, m_manager->ZdSetSecurity(file.handle, 0, descriptor));
        ::LocalFree(descriptor);
    }
    Close(file.handle);
    const std::string text = ExpectOwnLinesAlone();
    EXPECT_NE(std::string::npos, text.find("GET SD_DACL\r\n" + plain + "<000d><000a>2026"));
    EXPECT_NE(std::string::npos, text.find("SET SD_DACL\r\n" + plain + "<000d><000a>2026"));
    EXPECT_EQ(plain + held, Double().State("pool/stands").sddl) << "what is stored stays as it is";
}

TEST_F(CForgedLinesTest, WordsOfAConnection) {
    Registry().SetDword(kPluginKey, L"AgentType", 1);
    Registry().SetText(kAgentKey, L"ConfigFilePath", L"C:\\agent\\" + std::wstring(kForged) + L".cfg");
    const std::wstring pool = std::wstring(L"pool") + kForged;
    Registry().SetText(std::wstring(kSpaListKey) + L"\\" + pool, L"ConfigFilePath", std::wstring(kForged) + L".cfg");
    Registry().SetText(std::wstring(kSpaListKey) + L"\\pool", L"ConfigFilePath", std::wstring(kForged) + L".cfg");
    for (const DWORD agentType : {1U, 2U, 3U}) {
        Registry().SetDword(kPluginKey, L"AgentType", agentType);
        for (const std::wstring& name : {pool, std::wstring(L"pool")}) {
            if (Connect(name, kForged, kForged) != 0) continue;
            Double().MakeDirectory(Narrow(name) + "/" + Narrow(kForged));
            Double().MakeFile(Narrow(name) + "/" + Narrow(kForged) + "/QBX_ZD_MARKER");
            const Created created = Create(L"\\b");
            if (created.code == 0) Close(created.handle);
            EXPECT_EQ(0U, Connect(name, kForged, kForged));
            EXPECT_EQ(0U, m_manager->ZdDisconnect());
        }
    }
    const std::string text = ExpectOwnLinesAlone();
    EXPECT_NE(std::string::npos, text.find("Config file used (duped): "));
    EXPECT_GT(Shown(text), 4U);
}

// The one line that shows control characters as they are: what is refused is to be seen.
TEST_F(CForgedLinesTest, OnlyTheLineOfARefusedNameHoldsThem) {
    Registry().SetDword(kPluginKey, L"HighestValidNameChar", 0x7f);
    ConnectToPool();
    EXPECT_EQ(DWORD{ERROR_INVALID_NAME}, Create(kName).code);
    Environment().RunWriter();
    EXPECT_TRUE(Environment().DrainLog());
    const std::string text = Environment().LogText();
    const std::size_t refused = text.find("ZdCreateFile: FileName: \\a\r");
    const std::size_t end = text.find(" is not a legal filename\r\n");
    ASSERT_LT(refused, end);
    ASSERT_NE(std::string::npos, end);
    for (const std::string& line : Lines(text.substr(0, refused) + text.substr(end))) {
        EXPECT_FALSE(line.starts_with(kForgedLine)) << line;
    }
}

}  // namespace
}  // namespace zd::test
