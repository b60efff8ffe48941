#include "EventText.h"

#include <iterator>
#include <memory>
#include <stdexcept>

namespace zd {

namespace {

[[noreturn]] void Fail(const std::string& what, DWORD code) {
    throw std::runtime_error(what + ": " + std::to_string(code));
}

struct CModuleCloser {
    void operator()(HMODULE module) const { ::FreeLibrary(module); }
};
struct CLocalCloser {
    void operator()(wchar_t* text) const { ::LocalFree(text); }
};

}  // namespace

std::wstring EventText(const std::wstring& path, DWORD id, const std::wstring& insertion) {
    const std::unique_ptr<std::remove_pointer_t<HMODULE>, CModuleCloser> module(
        ::LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
    if (!module) Fail("LoadLibraryEx", ::GetLastError());
    DWORD_PTR arguments[] = {reinterpret_cast<DWORD_PTR>(insertion.c_str())};
    wchar_t* made = nullptr;
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_ALLOCATE_BUFFER, module.get(), id,
        0, reinterpret_cast<wchar_t*>(&made), 0, reinterpret_cast<va_list*>(arguments));
    if (length == 0) Fail("FormatMessage", ::GetLastError());
    const std::unique_ptr<wchar_t, CLocalCloser> owner(made);
    return std::wstring(made, length);
}

std::wstring RegisteredMessageFile(const std::wstring& source) {
    const std::wstring key = L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\" + source;
    wchar_t text[1024];
    DWORD size = sizeof text;
    const LSTATUS status = ::RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"EventMessageFile",
                                          RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, nullptr, text, &size);
    if (status != ERROR_SUCCESS) Fail("EventMessageFile", static_cast<DWORD>(status));
    wchar_t expanded[1024];
    const DWORD length = ::ExpandEnvironmentStringsW(text, expanded, static_cast<DWORD>(std::size(expanded)));
    if (length == 0 || length > std::size(expanded)) Fail("ExpandEnvironmentStrings", ::GetLastError());
    return expanded;
}

}  // namespace zd
