// Reference-counted text: built once, never changed, cheap to copy and safe to hand between threads.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

namespace zd {

// What the string objects throw for a length that no string can have. Inside an operation it is one of the unexpected
// exceptions, not a code of its own.
class CStringFailure {
public:
    explicit CStringFailure(HRESULT code) noexcept : m_code(code) {}
    HRESULT Code() const noexcept { return m_code; }

private:
    HRESULT m_code;
};

template <class Char>
class CSharedString {
public:
    using View = std::basic_string_view<Char>;

    CSharedString() noexcept = default;

    // Copies `text`; null counts as empty.
    explicit CSharedString(const Char* text) : CSharedString(text == nullptr ? View() : View(text)) {}

    // Throws CStringFailure (0x80070057) for a text longer than a string may be, std::bad_alloc.
    explicit CSharedString(View text) : m_text(Build(text, View())) {}

    explicit CSharedString(std::basic_string<Char>&& text)
        : m_text(std::make_shared<const std::basic_string<Char>>(std::move(CheckLength(text)))) {}

    // `first` and `second` put together as they stand.
    CSharedString(View first, View second) : m_text(Build(first, second)) {}

    const Char* c_str() const noexcept { return m_text ? m_text->c_str() : kEmpty; }
    std::size_t size() const noexcept { return m_text ? m_text->size() : 0; }
    bool empty() const noexcept { return size() == 0; }
    View view() const noexcept { return m_text ? View(*m_text) : View(); }

    // Lengths are kept within the signed 32-bit range, in which the callers of the system compute.
    static void CheckLength(std::size_t length) {
        if (length > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
            throw CStringFailure(E_INVALIDARG);
        }
    }

private:
    static constexpr Char kEmpty[1] = {};

    static std::basic_string<Char>& CheckLength(std::basic_string<Char>& text) {
        CheckLength(text.size());
        return text;
    }

    static std::shared_ptr<const std::basic_string<Char>> Build(View first, View second) {
        CheckLength(first.size());
        CheckLength(first.size() + second.size());
        if (first.empty() && second.empty()) return nullptr;
        std::basic_string<Char> text;
        text.reserve(first.size() + second.size());
        text.append(first).append(second);
        return std::make_shared<const std::basic_string<Char>>(std::move(text));
    }

    std::shared_ptr<const std::basic_string<Char>> m_text;
};

using CWideString = CSharedString<wchar_t>;
using CUtf8String = CSharedString<char>;

}  // namespace zd
