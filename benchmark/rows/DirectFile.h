// A file of fragments as a caller of the storage library uses it who knows its geometry.
#pragma once

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmark/harness/Bench.h"

namespace zd::bench {

// Splits transfers where fragments end, as the plug-in does. One thread.
class CDirectFile {
public:
    // Opens every fragment.
    CDirectFile(const std::wstring& name, std::int64_t fragmentSize, std::int64_t fragments)
        : m_fragmentSize(fragmentSize) {
        for (std::int64_t n = 0; n < fragments; ++n) {
            m_descriptors.push_back(static_cast<int>(
                CheckStorage(::ZdvfsOpen(CBench::Path(name, n).c_str(), kZdvfsReadWrite, 0), "ZdvfsOpen")));
        }
    }
    ~CDirectFile() {
        for (const int descriptor : m_descriptors) ::ZdvfsClose(descriptor);
    }
    CDirectFile(const CDirectFile&) = delete;
    CDirectFile& operator=(const CDirectFile&) = delete;

    const std::vector<int>& Descriptors() const { return m_descriptors; }

    void Read(std::int64_t offset, std::int64_t length, char* buffer) const {
        Transfer(offset, length, [&](int descriptor, std::int64_t done, std::uint64_t piece, std::int64_t inner) {
            return ::ZdvfsPread(descriptor, buffer + done, piece, inner);
        });
    }

    void Write(std::int64_t offset, std::int64_t length, const char* buffer) const {
        Transfer(offset, length, [&](int descriptor, std::int64_t done, std::uint64_t piece, std::int64_t inner) {
            return ::ZdvfsPwrite(descriptor, buffer + done, piece, inner);
        });
    }

private:
    template <class Move>
    void Transfer(std::int64_t offset, std::int64_t length, Move&& move) const {
        auto index = static_cast<std::size_t>(offset / m_fragmentSize);
        std::int64_t inner = offset % m_fragmentSize;
        for (std::int64_t done = 0; done < length;) {
            const std::int64_t piece = std::min(length - done, m_fragmentSize - inner);
            if (move(m_descriptors[index], done, static_cast<std::uint64_t>(piece), inner) != piece) {
                throw std::runtime_error("a direct transfer moved too little");
            }
            done += piece;
            inner = 0;
            ++index;
        }
    }

    std::int64_t m_fragmentSize;
    std::vector<int> m_descriptors;
};

}  // namespace zd::bench
