#include "files/FilesFixture.h"

#include <algorithm>

#include "harness/OtherThread.h"

namespace zd::test {

std::string Pointer(Handle handle) {
    std::string digits;
    for (int shift = 60; shift >= 0; shift -= 4) digits += "0123456789ABCDEF"[(handle >> shift) & 0xF];
    return digits;
}

std::wstring HostName(const std::string& name) {
    return L"\\" + Widen(name);
}

std::string StoragePath(const std::string& name, int fragment) {
    return "pool/" + name + (fragment == 0 ? std::string() : ";F" + std::to_string(fragment));
}

std::optional<int> ToldCount(const std::vector<LogLine>& lines) {
    const std::string word = "m_OpenDirectIOorWriteFiles: ";
    for (const LogLine& line : lines) {
        const std::size_t at = line.text.find(word);
        if (at != std::string::npos) return std::stoi(line.text.substr(at + word.size()));
    }
    return std::nullopt;
}

std::vector<std::string> LinesStarting(const std::vector<LogLine>& lines, const std::string& start) {
    std::vector<std::string> found;
    for (const LogLine& line : lines) {
        if (line.text.starts_with(start)) found.push_back(line.text);
    }
    return found;
}

std::vector<std::string> CallsStarting(const std::vector<std::string>& calls, const std::string& start) {
    std::vector<std::string> found;
    for (const std::string& call : calls) {
        if (call.starts_with(start)) found.push_back(call);
    }
    return found;
}

void CFilesTest::ConnectWith(std::optional<DWORD> maxOpenFragments, std::optional<DWORD> maxFileSizeMegabytes) {
    if (maxOpenFragments) Registry().SetDword(kPluginKey, L"MaxOpenFragments", *maxOpenFragments);
    if (maxFileSizeMegabytes) Registry().SetDword(kPluginKey, L"MaxFileSizeMB", *maxFileSizeMegabytes);
    ASSERT_EQ(0U, Connect());
    ClearLogs();
}

void CFilesTest::MakeFragments(const std::vector<std::string>& fragments, const std::string& name) {
    for (std::size_t i = 0; i < fragments.size(); ++i) {
        Double().MakeFile(StoragePath(name, static_cast<int>(i)), fragments[i]);
    }
}

Handle CFilesTest::Open(const std::vector<std::string>& fragments, const std::string& name,
                        const CreateOptions& options) {
    MakeFragments(fragments, name);
    m_firstDescriptor += 10;
    Double().SetNextDescriptor(m_firstDescriptor);
    const Created created = Create(HostName(name), options);
    EXPECT_EQ(0U, created.code);
    ClearLogs();
    return created.handle;
}

Handle CFilesTest::OpenSized(std::int64_t fragmentSize, const std::string& content, const std::string& name) {
    const auto size = static_cast<std::size_t>(fragmentSize);
    std::vector<std::string> fragments;
    for (std::size_t at = 0; at < content.size(); at += size) fragments.push_back(content.substr(at, size));
    if (fragments.size() > 1) return Open(fragments, name);
    // A lone fragment tells no geometry, so the file is opened with two and cut.
    const std::string only = content + std::string(size - content.size(), '\0');
    const Handle handle = Open({only, "x"}, name);
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, static_cast<std::int64_t>(content.size())));
    EXPECT_EQ(std::vector<std::string>{content}, Stored(name));
    ClearLogs();
    return handle;
}

std::vector<std::string> CFilesTest::Stored(const std::string& name) {
    std::vector<std::string> fragments;
    for (int i = 0; Double().Exists(StoragePath(name, i)); ++i)
        fragments.push_back(Double().Bytes(StoragePath(name, i)));
    return fragments;
}

std::string CFilesTest::StoredWhole(const std::string& name) {
    std::string whole;
    for (const std::string& fragment : Stored(name)) whole += fragment;
    return whole;
}

std::uint64_t CFilesTest::TotalSize(const std::string& name) {
    const Created created = Create(HostName(name), kOpenToRead);
    EXPECT_EQ(0U, created.code);
    Close(created.handle);
    return created.information.size;
}

int CFilesTest::OpenWriters() {
    ClearLogs();
    const Created probe = Create(L"\\counting-probe", {.disposition = kZdOpenIf, .access = kWriteAccess});
    EXPECT_EQ(0U, probe.code);
    const std::optional<int> count = ToldCount(TakeLog());
    Close(probe.handle);
    ClearLogs();
    EXPECT_TRUE(count.has_value()) << "a file opened for writing was not counted";
    return count.value_or(0) - 1;
}

void CFilesTest::ExpectUsableElsewhere(Handle handle) {
    ExpectOtherThreadGetsThrough([&] { return Read(handle, 0, 0).code; });
}

}  // namespace zd::test
