// The copies of texts that the plug-in takes from the heap and gives back.
#pragma once

#include <set>

#include "log/ClosurePatches.h"

namespace zd::test {

class CTextCopies {
public:
    explicit CTextCopies(HMODULE plugin) : m_patches(plugin) {
        m_patches.Replace<char*(const char*)>("_strdup", [this](auto original, const char* text) {
            char* const copy = original(text);
            if (m_counting) m_live.insert(copy);
            return copy;
        });
        m_patches.Replace<void(void*)>("free", [this](auto original, void* block) {
            m_live.erase(block);
            original(block);
        });
        m_counting = true;
    }

    // Copies made from now on are not counted.
    void StopCounting() { m_counting = false; }
    std::size_t Live() const { return m_live.size(); }

private:
    std::set<void*> m_live;
    bool m_counting = false;
    CClosurePatches m_patches;
};

}  // namespace zd::test
