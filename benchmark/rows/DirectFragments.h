// A file of more fragments than may be open at once, as a caller of the storage library uses it who knows its geometry.
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <vector>

namespace zd::bench {

// Opens fragments when they are first used and closes the one that was used longest ago where `mostOpen` are:
//
//     ZdvfsClose(victim)
//     ZdvfsStat(path)      whether it is there is logged
//     ZdvfsOpen(path)
//     ZdvfsPread
//
// One thread.
class CDirectFragments {
public:
    CDirectFragments(const std::wstring& name, std::int64_t fragments, std::size_t mostOpen);
    ~CDirectFragments();
    CDirectFragments(const CDirectFragments&) = delete;
    CDirectFragments& operator=(const CDirectFragments&) = delete;

    // Reads from the beginning of a fragment. Throws std::runtime_error where it holds less.
    void Read(std::int64_t fragment, std::int64_t length, char* buffer);

private:
    using CUses = std::list<std::int64_t>;
    struct CFragment {
        std::string path;
        int descriptor = -1;
        CUses::iterator use{};  // while it is open
    };

    void Open(CFragment& fragment, std::int64_t index);

    std::vector<CFragment> m_fragments;
    CUses m_uses;  // of the open fragments, the one used last in front
    std::size_t m_mostOpen;
};

}  // namespace zd::bench
