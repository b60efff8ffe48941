#include "Failure.h"

#include <memory>

#include "Text.h"

namespace zd {

std::string Win32Text(DWORD code) {
    constexpr DWORD kFlags =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    wchar_t* block = nullptr;
    const DWORD length =
        ::FormatMessageW(kFlags, nullptr, code, 0, reinterpret_cast<wchar_t*>(&block), 0, /*Arguments=*/nullptr);
    const std::unique_ptr<wchar_t, decltype(&::LocalFree)> owner(block, &::LocalFree);
    std::wstring text(block != nullptr ? block : L"", length);
    while (!text.empty() && (text.back() <= L' ')) text.pop_back();
    for (wchar_t& c : text) {
        if (c < L' ') c = L' ';
    }
    return text.empty() ? "the system has no text for this code" : ToUtf8(text);
}

std::string DescribeFailure(std::string_view operation, DWORD code, std::wstring_view path) {
    std::string text(operation);
    text += " failed: " + std::to_string(code) + " (" + Win32Text(code) + ")";
    if (!path.empty()) text += " " + ToUtf8(path);
    return text;
}

void ThrowFailure(std::string_view operation, DWORD code, std::wstring_view path) {
    throw CFailure(DescribeFailure(operation, code, path));
}

}  // namespace zd
