#include "base/Format.h"

#include <stdio.h>

#include <algorithm>

namespace zd {
namespace {

// Called by its own name: the tool chain's vsnprintf may be a static replacement that prints pointers differently.
int FormatUcrt(char* buffer, std::size_t size, const char* format, va_list arguments) {
    return ::__stdio_common_vsprintf(_CRT_INTERNAL_PRINTF_STANDARD_SNPRINTF_BEHAVIOR, buffer, size, format, nullptr,
                                     arguments);
}

}  // namespace

void AppendFormatV(std::string& text, const char* format, va_list arguments) {
    char fixed[512];
    va_list again;
    va_copy(again, arguments);
    const int length = FormatUcrt(fixed, sizeof fixed, format, arguments);
    struct End {
        va_list& list;
        ~End() { va_end(list); }
    } const end{again};
    if (length < 0) return;
    const auto needed = static_cast<std::size_t>(length);
    if (needed < sizeof fixed) {
        text.append(fixed, needed);
        return;
    }
    const std::size_t before = text.size();
    text.resize(before + needed);
    // A string's terminator may be overwritten with the same terminator.
    FormatUcrt(text.data() + before, needed + 1, format, again);
}

void AppendFormat(std::string& text, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    struct End {
        va_list& list;
        ~End() { va_end(list); }
    } const end{arguments};
    AppendFormatV(text, format, arguments);
}

std::string FormatText(const char* format, ...) {
    std::string text;
    va_list arguments;
    va_start(arguments, format);
    struct End {
        va_list& list;
        ~End() { va_end(list); }
    } const end{arguments};
    AppendFormatV(text, format, arguments);
    return text;
}

int FormatBuffer(char* buffer, std::size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = FormatUcrt(buffer, size, format, arguments);
    va_end(arguments);
    if (size > 0) buffer[std::min(size - 1, static_cast<std::size_t>(std::max(length, 0)))] = '\0';
    return length;
}

}  // namespace zd
