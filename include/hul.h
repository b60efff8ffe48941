// The utility library, imported by name from hul.dll: ini files and text conversion. Plain C.
//
// Threads: every function may be called from several threads at once.
#pragma once

#include <wchar.h>

#if defined(HUL_BUILDS_LIBRARY)
#define HUL_API extern "C" __declspec(dllexport)
#else
#define HUL_API extern "C" __declspec(dllimport)
#endif

// The section that holds the keys standing before any "[section]" line of an ini file.
constexpr char kHulSectionOfLooseKeys[] = "__dummy__section__";

// Copies the value of `key` in `section` of the ini file `file` (an ANSI path) into `buffer` of `size` bytes,
// terminated and cut to fit; `defaultValue` where the file, the section or the key is missing.
// Answers the length of the value in bytes without its terminator.
HUL_API int InifileGetValueA(const char* file, const char* section, const char* key, const char* defaultValue,
                             char* buffer, int size);

// The same for a number; `defaultValue` where it is missing.
HUL_API int InifileGetIntegerA(const char* file, const char* section, const char* key, int defaultValue);

// Drops the cached copy of the file, so that the next query reads it anew.
HUL_API void InifileReleaseA(const char* file);

// Converts terminated UTF-16 to a new block of terminated UTF-8, which the caller frees with _HulFree. Null for null
// and where memory cannot be had.
HUL_API char* wcstoutf8_malloced(const wchar_t* text);

// Converts terminated UTF-16 into `buffer` of `size` bytes. Answers the bytes written with the terminator, 0 when the
// text does not fit.
HUL_API int wcstoutf8_buf(const wchar_t* text, char* buffer, int size);

// Frees what wcstoutf8_malloced answered; null is allowed.
HUL_API void _HulFree(void* memory);
