// The label of a volume, which lives in memory alone.
//
// Reader and writer take no lock: a reader at the same moment may see parts of both labels.
#pragma once

#include <atomic>
#include <cstddef>
#include <iterator>
#include <string_view>

namespace zd {

class CVolumeLabel {
public:
    // Null counts as empty; what is longer than 127 units is cut.
    void Set(const wchar_t* label) noexcept {
        const std::wstring_view text = label == nullptr ? std::wstring_view() : std::wstring_view(label);
        for (std::size_t i = 0; i < std::size(m_units); ++i) {
            const wchar_t unit = i < kLongest && i < text.size() ? text[i] : L'\0';
            std::atomic_ref<wchar_t>(m_units[i]).store(unit, std::memory_order_relaxed);
        }
    }

    // Into a record's field, which is clear.
    template <std::size_t kUnits>
    void CopyTo(wchar_t (&field)[kUnits]) noexcept {
        for (std::size_t i = 0; i + 1 < kUnits; ++i) {
            field[i] = std::atomic_ref<wchar_t>(m_units[i]).load(std::memory_order_relaxed);
        }
    }

private:
    static constexpr std::size_t kLongest = 127;

    wchar_t m_units[kLongest + 1] = {};
};

}  // namespace zd
