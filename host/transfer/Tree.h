// Whole trees of files: what is in them, and their way from one side to the other.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "IProtocolManager.h"
#include "transfer/Transfer.h"

namespace zd::host {

struct CopyOptions {
    std::string from;
    std::string to;
    bool tree = false;
    bool times = false;
    bool json = false;
};

// What stands in a tree, a directory before what is in it.
struct TreeEntry {
    std::wstring path;  // below the tree's top, "\" between its components
    bool directory = false;
    std::uint64_t size = 0;  // bytes
};

// Notes what cannot be copied: its path below the top, and why.
using TreeFailure = std::function<void(const std::wstring& path, const std::string& why)>;

// What is below the local directory `top`, a path in the long form. Directories that lead back to one above them are
// noted, and so is whatever cannot be read or cannot have its name in the pool. Throws CFailure where `top` is no
// directory, CInterrupted.
std::vector<TreeEntry> ScanLocalTree(const std::wstring& top, const TreeFailure& fail);

// What is below the directory `top` of the pool. Entries that cannot have their names in a local directory are noted.
// Throws CFailure where `top` is no directory or cannot be listed, CInterrupted.
std::vector<TreeEntry> ScanRemoteTree(IProtocolManager& manager, const std::wstring& top, const TreeFailure& fail);

// One way of a tree. What fails is told, noted and left out; a directory with all that is in it.
class CTreeTransfer {
public:
    // `verb` and `shown` as CTransfer takes them.
    CTreeTransfer(std::string_view verb, std::string shown, const CopyOptions& options, bool quiet);

    void Fail(const std::wstring& path, const std::string& why);

    using Step = std::function<void(const TreeEntry&)>;

    // Makes the directories and copies the files, counting their bytes with Transfer(). Writes the summary in the end,
    // whichever it is. Throws what was thrown but CFailure, and CToldFailure where something has been left out.
    void Run(const std::vector<TreeEntry>& entries, const Step& makeDirectory, const Step& copyFile);

    CTransfer& Transfer() { return m_transfer; }

private:
    struct Failure {
        std::wstring path;
        std::string why;
    };

    void RunEntry(const TreeEntry& entry, const Step& step);
    void Report(const char* ended);
    void ReportJson(const char* ended);

    std::string m_verb;
    const CopyOptions& m_options;
    CTransfer m_transfer;
    std::uint64_t m_directories = 0;
    std::vector<Failure> m_failures;
    std::wstring m_leftOut;  // the last directory that could not be made, with a separator behind it
};

}  // namespace zd::host
