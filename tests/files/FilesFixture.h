// What the tests of open files, fragments and data transfer share.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "harness/Gate.h"
#include "harness/Pattern.h"
#include "harness/PluginFixture.h"

namespace zd::test {

inline constexpr DWORD kReadAccess = 0x1;
inline constexpr DWORD kWriteAccess = 0x2;

inline constexpr CreateOptions kOpenToWrite{.disposition = kZdOpen, .access = kReadAccess | kWriteAccess};
inline constexpr CreateOptions kOpenToRead{.disposition = kZdOpen, .access = kReadAccess};

// As the runtime prints %p.
std::string Pointer(Handle handle);

// Not connected; files are named without pool and leading backslash ("a" is \a for the host, pool/a for the storage).
class CFilesTest : public CDoubleTest {
protected:
    // Connects to "pool". The settings are those of the registry.
    void ConnectWith(std::optional<DWORD> maxOpenFragments = std::nullopt,
                     std::optional<DWORD> maxFileSizeMegabytes = std::nullopt);

    // Makes the storage files "a", "a;F1", ... with these contents. With two or more, the size of the first one is the
    // fragment size of handles opened afterwards.
    void MakeFragments(const std::vector<std::string>& fragments, const std::string& name = "a");

    // Makes the fragments and opens the file. The descriptor of fragment 0 is 10 in the first file opened here, 20 in
    // the second and so on; later descriptors count from there. Logs are cleared.
    Handle Open(const std::vector<std::string>& fragments, const std::string& name = "a",
                const CreateOptions& options = kOpenToWrite);

    // Opens for reading and writing a file of that content with that fragment size, whatever the content's length.
    // Fragment 0 is open, with the descriptor that Open gives, no other fragment is. Logs are cleared.
    Handle OpenSized(std::int64_t fragmentSize, const std::string& content, const std::string& name = "a");

    // The fragments that the storage holds of a file, until the first missing one.
    std::vector<std::string> Stored(const std::string& name = "a");
    std::string StoredWhole(const std::string& name = "a");

    // The sum of the fragments' sizes as a new handle finds it.
    std::uint64_t TotalSize(const std::string& name = "a");

    // How many handles count as open for writing or direct I/O, as the next one to count says. Logs are cleared.
    int OpenWriters();

    // Uses the handle on another thread: success where no lock of it was left held.
    void ExpectUsableElsewhere(Handle handle);

private:
    int m_firstDescriptor = 0;
};

// The same, connected with default settings.
class CConnectedFilesTest : public CFilesTest {
protected:
    void SetUp() override {
        CFilesTest::SetUp();
        ConnectWith();
    }
};

// The host's name and the storage's path of a file.
std::wstring HostName(const std::string& name);
std::string StoragePath(const std::string& name, int fragment = 0);

// The number behind "m_OpenDirectIOorWriteFiles: " in the lines; empty where no line tells it.
std::optional<int> ToldCount(const std::vector<LogLine>& lines);

// Those of the lines that begin with `start`.
std::vector<std::string> LinesStarting(const std::vector<LogLine>& lines, const std::string& start);
std::vector<std::string> CallsStarting(const std::vector<std::string>& calls, const std::string& start);

}  // namespace zd::test
