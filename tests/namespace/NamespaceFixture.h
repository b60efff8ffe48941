// What the tests of information, listings, renames and attributes share.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "harness/PluginFixture.h"
#include "harness/Untouched.h"

namespace zd::test {

inline constexpr CreateOptions kOpenToRead{.disposition = kZdOpen, .access = 0x1};
inline constexpr CreateOptions kOpenToWrite{.disposition = kZdOpen, .access = 0x3};
inline constexpr CreateOptions kOpenDirectory{.isDirectory = 1, .disposition = kZdOpen, .access = 0x1};

// 1970-01-01 as a FILETIME value, and what any storage time but 0 becomes.
inline constexpr std::uint64_t kEpoch = 116444736000000000;
constexpr std::uint64_t FileTime(std::int64_t seconds) {
    return (static_cast<std::uint64_t>(seconds) + 11644473600U) * 10000000U;
}

// Connected to "pool". Descriptors count from 10 on, 20 on and so on in the files opened by Open.
class CNamespaceTest : public CConnectedTest {
protected:
    // Opens and clears the logs.
    Handle Open(const std::wstring& name, const CreateOptions& options = kOpenToRead);

    // Makes the storage files "pool/<name>", "pool/<name>;F1", ... of these sizes.
    void MakeFragments(const std::string& name, const std::vector<std::int64_t>& sizes);

    // Connects anew, with that many fragments open at a time.
    void ConnectWithMaximum(DWORD openFragments);

    // Whether the change of stored data was noted, as the next refresh of the settings shows; the note is taken away.
    bool TakeModified();

    // Uses the handle on another thread: success where no lock of it was left held.
    void ExpectUsableElsewhere(Handle handle);

    // Seconds since 1970.
    void SetTimes(const std::string& path, std::int64_t creation, std::int64_t access, std::int64_t modification);

private:
    int m_firstDescriptor = 0;
};

}  // namespace zd::test
