// The storage under the plug-in, looked at past it.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace zd::test {

// Works on whichever zdvfs.dll the process has loaded. The pool is mounted. Unexpected failures are
// std::runtime_error.
class CStorage {
public:
    static void Put(const std::string& path, const std::string& content);
    // Empty where there is no such object.
    static std::optional<std::int64_t> SizeOf(const std::string& path);
    static std::string Bytes(const std::string& path, std::int64_t at, std::int64_t length);
    static std::string DescriptorOf(const std::string& path);
    // Without "." and "..".
    static std::set<std::string> Names(const std::string& directory);
    static void Remove(const std::string& path);
};

}  // namespace zd::test
