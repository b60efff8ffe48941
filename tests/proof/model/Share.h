// One connection to a pool: carries out steps of a script through the plug-in, and tells what came back.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "harness/PluginFixture.h"
#include "Script.h"

namespace zd::test {

// What a step brought.
struct Outcome {
    DWORD code = 0;
    std::string data;
    DWORD moved = 0;
    FileInformation information{};
    DWORD action = kUntouched;
    std::vector<DirectoryEntry> entries;
    std::string descriptor;
};

class CShare {
public:
    // Connects to the pool, which is made where it does not exist. Throws std::runtime_error on any failure.
    CShare(CEnvironment& environment, const Setup& setup, const std::wstring& pool);
    ~CShare();
    CShare(const CShare&) = delete;
    CShare& operator=(const CShare&) = delete;

    // The step must be one that the model does not skip. A restart only disconnects.
    Outcome Do(const Step& step);

    // The content as a handle of its own reads it, in odd pieces. Throws where something fails.
    std::string WholeContent(const std::wstring& name);
    Outcome Listing(const std::wstring& directory);
    Outcome PathInformation(const std::wstring& name);
    Outcome ReadRange(std::int64_t slot, std::int64_t at, std::int64_t length);

    CEnvironment& Environment() { return m_environment; }
    std::string StoragePath(const std::wstring& name, std::int64_t fragment = 0) const;

private:
    using Args = std::array<std::int64_t, 6>;
    void Connect();
    void Disconnect();
    Outcome Create(const std::wstring& name, bool directory, std::int64_t how, std::int64_t access,
                   std::int64_t attributes, std::int64_t descriptor, Handle& handle);
    Outcome Open(const Args& args, bool directory);
    Outcome Entries(Handle handle);
    Outcome Transfer(const Step& step);
    Outcome Metadata(const Step& step);
    void Plant(const Args& args);
    Handle HandleOf(std::int64_t slot) const;

    CEnvironment& m_environment;
    std::wstring m_pool;
    IProtocolManager* m_manager;
    std::map<std::int64_t, Handle> m_handles;
};

}  // namespace zd::test
