// hul.dll for the engine in memory: text conversion, and ini files of which there are none.
#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "hul.h"

int InifileGetValueA(const char* /*file*/, const char* /*section*/, const char* /*key*/, const char* defaultValue,
                     char* buffer, int size) {
    if (buffer == nullptr || size <= 0) return 0;
    const std::string_view value(defaultValue != nullptr ? defaultValue : "");
    const std::size_t length = value.copy(buffer, static_cast<std::size_t>(size) - 1);
    buffer[length] = '\0';
    return static_cast<int>(length);
}

int InifileGetIntegerA(const char* /*file*/, const char* /*section*/, const char* /*key*/, int defaultValue) {
    return defaultValue;
}

void InifileReleaseA(const char* /*file*/) {}

int wcstoutf8_buf(const wchar_t* text, char* buffer, int size) {
    if (text == nullptr || buffer == nullptr || size <= 0) return 0;
    return ::WideCharToMultiByte(CP_UTF8, 0, text, -1, buffer, size, nullptr, nullptr);
}

char* wcstoutf8_malloced(const wchar_t* text) {
    // No unit takes more than three bytes.
    const std::size_t most = text != nullptr ? std::wcslen(text) * 3 + 1 : 0;
    char* const block = most != 0 ? static_cast<char*>(std::malloc(most)) : nullptr;
    if (block != nullptr) wcstoutf8_buf(text, block, static_cast<int>(most));
    return block;
}

void _HulFree(void* memory) {
    std::free(memory);
}
