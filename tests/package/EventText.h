#pragma once

#include <windows.h>

#include <string>

namespace zd {

// The text of an event as the event viewer puts it together: the message `id` of the file at `path`, with `insertion`
// in the place of %1. The file is mapped as data, so that none of its code would run. Throws std::runtime_error where
// there is no such file or message.
std::wstring EventText(const std::wstring& path, DWORD id, const std::wstring& insertion);

// The message file that is registered for a source of the application log, with variables expanded.
// Throws std::runtime_error where there is none, or where it is no REG_EXPAND_SZ.
std::wstring RegisteredMessageFile(const std::wstring& source);

}  // namespace zd
