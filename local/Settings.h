// Where pools stand and what the engine was set to do, from the environment and the file engine.ini.
#pragma once

#include <string>

namespace zd::engine {

struct Settings {
    bool createPools = false;     // make a pool that a mount names and that does not exist
    std::string topLevel;         // UTF-8 name of the directory that a new pool gets, none where empty
    int maximumOpenFiles = 0;     // descriptors of this process
    bool durableMetadata = true;  // wait for the disk at each change of metadata
};

// The directory of the pools as a \\?\ path without a trailing backslash. Throws where no place can be told.
std::wstring PoolsRoot();

// Reads the settings anew; a variable wins over the file.
Settings ReadSettings(const std::wstring& root);

}  // namespace zd::engine
