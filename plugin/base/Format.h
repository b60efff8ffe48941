// printf-style text exactly as the universal C runtime prints it (%p, %ld, %#x, a null %s as "(null)").
#pragma once

#include <stdarg.h>

#include <string>

#if defined(__GNUC__)
#define ZD_FORMAT(text, first) __attribute__((format(__ms_printf__, text, first)))
#else
#define ZD_FORMAT(text, first)
#endif

namespace zd {

// Appends the formatted text, of any length. Throws std::bad_alloc; a format that the runtime refuses appends nothing.
void AppendFormatV(std::string& text, const char* format, va_list arguments);
ZD_FORMAT(2, 3) void AppendFormat(std::string& text, const char* format, ...);
ZD_FORMAT(1, 2) std::string FormatText(const char* format, ...);

// Formats into `buffer` of `size` bytes, cut to fit and always terminated. Answers the length before the cut, negative
// on failure.
ZD_FORMAT(3, 4) int FormatBuffer(char* buffer, std::size_t size, const char* format, ...);

}  // namespace zd
