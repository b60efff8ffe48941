#include "benchmark/rows/DirectFragments.h"

#include <stdexcept>

#include "benchmark/harness/Bench.h"

namespace zd::bench {

CDirectFragments::CDirectFragments(const std::wstring& name, std::int64_t fragments, std::size_t mostOpen)
    : m_mostOpen(mostOpen) {
    for (std::int64_t n = 0; n < fragments; ++n) m_fragments.push_back({.path = CBench::Path(name, n)});
}

CDirectFragments::~CDirectFragments() {
    for (const std::int64_t open : m_uses) ::ZdvfsClose(m_fragments[static_cast<std::size_t>(open)].descriptor);
}

void CDirectFragments::Open(CFragment& fragment, std::int64_t index) {
    if (m_uses.size() >= m_mostOpen) {
        CFragment& victim = m_fragments[static_cast<std::size_t>(m_uses.back())];
        CheckStorage(::ZdvfsClose(victim.descriptor), "ZdvfsClose");
        victim.descriptor = -1;
        m_uses.splice(m_uses.begin(), m_uses, victim.use);
        m_uses.front() = index;
    } else {
        m_uses.push_front(index);
    }
    fragment.use = m_uses.begin();
    ZdvfsStatRecord record{};
    CheckStorage(::ZdvfsStat(fragment.path.c_str(), &record), "ZdvfsStat");
    fragment.descriptor = static_cast<int>(
        CheckStorage(::ZdvfsOpen(fragment.path.c_str(), kZdvfsReadWrite | kZdvfsCreate, 0), "ZdvfsOpen"));
}

void CDirectFragments::Read(std::int64_t fragment, std::int64_t length, char* buffer) {
    CFragment& used = m_fragments[static_cast<std::size_t>(fragment)];
    if (used.descriptor < 0) {
        Open(used, fragment);
    } else {
        m_uses.splice(m_uses.begin(), m_uses, used.use);
    }
    if (::ZdvfsPread(used.descriptor, buffer, static_cast<std::uint64_t>(length), 0) != length) {
        throw std::runtime_error("a direct read moved too little");
    }
}

}  // namespace zd::bench
