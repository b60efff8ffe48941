// What the tests of ZdCreateFile share.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "harness/PluginFixture.h"
#include "security/SddlText.h"

namespace zd::test {

// Access bits of ZdCreateFile.
inline constexpr DWORD kRead = 0x1;
inline constexpr DWORD kWrite = 0x2;
inline constexpr DWORD kReadWrite = 0x4;
inline constexpr DWORD kFurther = 0x20;

// The descriptor that a new object gets where the host brings none.
inline constexpr char kDefaultText[] = "O:BAG:BAD:(A;;GA;;;BA)(A;;GA;;;SY)";

class CCreateTest : public CConnectedTest {
protected:
    // As Create, with the thread's last error clear, so that the status call finds nothing stale.
    Created Open(const std::wstring& name, const CreateOptions& options = CreateOptions()) {
        ::SetLastError(0);
        return Create(name, options);
    }

    // Opens, expects success, closes and releases. The calls and lines of the open alone are left in m_calls and m_log.
    Created OpenAndClose(const std::wstring& name, const CreateOptions& options = CreateOptions()) {
        ClearLogs();
        const Created created = Open(name, options);
        m_calls = TakeCalls();
        m_log = TakeLog();
        EXPECT_EQ(0U, created.code);
        if (created.code == 0) Close(created.handle);
        ClearLogs();
        return created;
    }

    // Opens, expects the code and that no handle came out, leaves calls and lines.
    void OpenFails(DWORD code, const std::wstring& name, const CreateOptions& options = CreateOptions()) {
        ClearLogs();
        const Created created = Open(name, options);
        m_calls = TakeCalls();
        m_log = TakeLog();
        EXPECT_EQ(code, created.code);
        EXPECT_EQ(kUntouchedHandle, created.handle);
        if (created.code == 0) Close(created.handle);
        EXPECT_TRUE(Double().OpenDescriptors().empty());
        EXPECT_TRUE(Double().OpenStreams().empty());
    }

    void SetSddl(const std::string& path, const std::string& sddl) {
        NodeState state = Double().State(path);
        state.sddl = sddl;
        ASSERT_TRUE(Double().SetState(path, state));
    }

    // Adds the answers to the alternate query.
    void SetDsid(const std::string& path, const std::string& text, std::optional<int> flag = std::nullopt) {
        NodeState state = Double().State(path);
        state.dsidText = text;
        state.dsidFlag = flag;
        ASSERT_TRUE(Double().SetState(path, state));
    }

    // How many handles count as open for writing or direct I/O, as the next one to count says.
    int OpenWriters() {
        OpenAndClose(L"\\counting-probe", {.disposition = kZdOpenIf, .access = kWrite});
        for (const LogLine& line : m_log) {
            const std::string word = "m_OpenDirectIOorWriteFiles: ";
            const std::size_t at = line.text.find(word);
            if (at != std::string::npos) return std::stoi(line.text.substr(at + word.size())) - 1;
        }
        ADD_FAILURE() << "a file opened for writing was not counted";
        return -1;
    }

    std::vector<std::string> m_calls;
    std::vector<LogLine> m_log;
};

// As the runtime prints %p.
inline std::string FormatHandle(Handle handle) {
    std::string digits;
    for (int shift = 60; shift >= 0; shift -= 4) digits += "0123456789ABCDEF"[(handle >> shift) & 0xF];
    return digits;
}

// The calls of `lines` that are of that function.
inline std::vector<std::string> CallsOf(const std::vector<std::string>& lines, const std::string& function) {
    std::vector<std::string> found;
    for (const std::string& line : lines) {
        if (line.starts_with(function + "(")) found.push_back(line);
    }
    return found;
}

}  // namespace zd::test
