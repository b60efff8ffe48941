#include "PluginFixture.h"

#include <algorithm>
#include <cstring>
#include <ostream>

namespace zd::test {

namespace {

constexpr int kUntouchedByte = 0xCD;

template <std::size_t Size>
void CopyField(wchar_t (&field)[Size], const std::wstring& text) {
    // A field may be filled to its last unit.
    std::copy_n(text.begin(), std::min(text.size(), Size), field);
}

std::vector<std::string> LevelLines(const std::vector<LogLine>& lines) {
    std::vector<std::string> shown;
    for (const LogLine& line : lines) shown.push_back("level " + std::to_string(line.level) + ": " + line.text);
    return shown;
}

}  // namespace

CPluginTest::CPluginTest(EBackEnd backEnd) : m_backEnd(backEnd) {}

CPluginTest::~CPluginTest() = default;

void CPluginTest::SetUp() {
    m_environment = std::make_unique<CEnvironment>(m_backEnd);
    m_environment->Load();
}

void CPluginTest::TearDown() {
    if (m_environment == nullptr) return;
    if (m_backEnd == EBackEnd::kDouble && m_checkLeaks && m_environment->Plugin() != nullptr) ExpectNoLeaks();
    m_environment.reset();
}

void CPluginTest::ExpectNoLeaks() {
    Double().ClearRules();
    m_environment->ReleaseManagers();
    m_manager = nullptr;
    for (const OpenDescriptor& left : Double().OpenDescriptors()) {
        ADD_FAILURE() << "descriptor " << left.number << " of " << left.path << " was not closed";
    }
    EXPECT_THAT(Double().OpenStreams(), ::testing::IsEmpty()) << "directory streams were not closed";
    EXPECT_EQ(0, Double().BadDescriptorUses()) << "descriptors or streams were used that are not open";
    EXPECT_EQ(0, Hul().LiveBlocks()) << "blocks of wcstoutf8_malloced were not freed";
    EXPECT_EQ(0, Hul().BadFrees()) << "_HulFree was given something else than a live block";
}

ConnectParameters CPluginTest::Parameters(const std::wstring& pool, const std::wstring& second,
                                          const std::wstring& third) {
    ConnectParameters parameters{};
    CopyField(parameters.poolName, pool);
    CopyField(parameters.secondName, second);
    CopyField(parameters.thirdName, third);
    return parameters;
}

DWORD CPluginTest::Connect(const std::wstring& pool, const std::wstring& second, const std::wstring& third) {
    if (m_manager == nullptr) m_manager = NewManager();
    const ConnectParameters parameters = Parameters(pool, second, third);
    return m_manager->ZdConnect(&parameters);
}

Created CPluginTest::Create(const std::wstring& name, const CreateOptions& options, IProtocolManager* manager) {
    Created created;
    std::memset(&created.information, kUntouchedByte, sizeof(created.information));
    created.code = Or(manager)->ZdCreateFile(name.c_str(), options.isDirectory, 0, options.attributes, 0,
                                             options.disposition, options.access, 0, options.descriptor,
                                             &created.handle, &created.action, &created.information);
    return created;
}

Transfer CPluginTest::Read(Handle handle, std::int64_t offset, DWORD length, IProtocolManager* manager) {
    Transfer transfer;
    transfer.data.assign(length, static_cast<char>(kUntouchedByte));
    transfer.code = Or(manager)->ZdReadFile(handle, offset, length, transfer.data.data(), &transfer.count);
    transfer.data.resize(transfer.code == 0 ? std::min(transfer.count, length) : 0);
    return transfer;
}

Transfer CPluginTest::Write(Handle handle, std::int64_t offset, const std::string& data, IProtocolManager* manager) {
    Transfer transfer;
    transfer.code =
        Or(manager)->ZdWriteFile(handle, offset, static_cast<DWORD>(data.size()), data.data(), &transfer.count);
    return transfer;
}

Listing CPluginTest::List(Handle handle, IProtocolManager* manager) {
    Listing listing;
    DirectoryEntry* entries = nullptr;
    DWORD count = 0;
    listing.code = Or(manager)->ZdQueryDirContents(handle, &entries, &count);
    if (listing.code != 0 || entries == nullptr) return listing;
    listing.entries.assign(entries, entries + count);
    for (const DirectoryEntry& entry : listing.entries) listing.names.emplace_back(entry.name);
    ::HeapFree(::GetProcessHeap(), 0, entries);
    return listing;
}

void CPluginTest::Close(Handle handle, IProtocolManager* manager) {
    EXPECT_EQ(0U, Or(manager)->ZdCloseFile(handle, 0));
    EXPECT_EQ(0U, Or(manager)->ZdReleaseFile(handle));
}

void CPluginTest::ClearLogs() {
    if (m_backEnd == EBackEnd::kDouble) Double().ClearCalls();
    m_environment->ForgetLog();
}

std::vector<std::string> CPluginTest::TakeCalls() {
    std::vector<std::string> lines = TakeAllCalls();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("Zdvfs"); });
    return lines;
}

std::vector<std::string> CPluginTest::TakeAllCalls() {
    std::vector<std::string> lines;
    for (const Call& call : Double().Calls()) lines.push_back(call.Line());
    Double().ClearCalls();
    return lines;
}

void CConnectedTest::SetUp() {
    CDoubleTest::SetUp();
    ASSERT_EQ(0U, Connect());
    ClearLogs();
}

void CConnectedLocalTest::SetUp() {
    CLocalEngineTest::SetUp();
    ASSERT_EQ(0U, Connect());
    ClearLogs();
}

::testing::AssertionResult LogFits(const std::vector<LogLine>& patterns, const std::vector<LogLine>& lines) {
    return LinesFit(LevelLines(patterns), LevelLines(lines));
}

::testing::AssertionResult Logged(const std::vector<LogLine>& lines, std::uint32_t level, const std::string& pattern) {
    for (const LogLine& line : lines) {
        if (line.level == level && Fits(pattern, line.text)) return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "no line of level " << level << " fits \"" << pattern << "\" among\n"
                                         << Joined(LevelLines(lines));
}

void PrintTo(const LogLine& line, std::ostream* out) {
    *out << "{" << line.level << ", \"" << line.text << "\"}";
}

}  // namespace zd::test
