// The two lock classes; every lock of the plug-in is taken through CAutoCriticalSection.
//
// Lock order, outermost first. Nobody takes a lock that stands above one it holds:
//   1. a connection's object lock
//   2. a handle's lock (two of them, in ZdAppendFile, in the order of their addresses)
//   3. the open-file table's lock, a name's lock: held for map and name work only, never across a storage call
//   4. the settings lock
//   5. the lock of the logger's first use, then the logger's queue lock
#pragma once

#include <windows.h>

namespace zd {

// Owns one critical section.
class CCriticalSectionHolder {
public:
    CCriticalSectionHolder() noexcept { ::InitializeCriticalSection(&m_section); }
    virtual ~CCriticalSectionHolder() { ::DeleteCriticalSection(&m_section); }
    CCriticalSectionHolder(const CCriticalSectionHolder&) = delete;
    CCriticalSectionHolder& operator=(const CCriticalSectionHolder&) = delete;

    CRITICAL_SECTION& Section() noexcept { return m_section; }

private:
    CRITICAL_SECTION m_section{};
};

// Enters a critical section for a scope.
class CAutoCriticalSection {
public:
    [[nodiscard]] explicit CAutoCriticalSection(CRITICAL_SECTION& section) noexcept : m_section(section) {
        ::EnterCriticalSection(&m_section);
    }
    [[nodiscard]] explicit CAutoCriticalSection(CCriticalSectionHolder& holder) noexcept
        : CAutoCriticalSection(holder.Section()) {}
    virtual ~CAutoCriticalSection() { ::LeaveCriticalSection(&m_section); }
    CAutoCriticalSection(const CAutoCriticalSection&) = delete;
    CAutoCriticalSection& operator=(const CAutoCriticalSection&) = delete;

private:
    CRITICAL_SECTION& m_section;
};

}  // namespace zd
