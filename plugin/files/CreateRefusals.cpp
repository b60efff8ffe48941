// What a create refuses of its arguments, and the lines that tell it.
#include <cstring>
#include <iterator>

#include "base/Conversion.h"
#include "base/Errors.h"
#include "files/CreateRequest.h"
#include "log/Log.h"
#include "namespace/NameRule.h"

namespace zd {
namespace {

constexpr CDispositionRow kRows[] = {
    {kZdvfsCreate | kZdvfsTruncate, 0, true, 1},   // supersede
    {0, 1, false, 0},                              // open
    {kZdvfsCreate | kZdvfsExclusive, 2, true, 1},  // create
    {kZdvfsCreate, 1, false, -1},                  // open if
    {kZdvfsTruncate, 3, true, 1},                  // overwrite
    {kZdvfsCreate | kZdvfsTruncate, 3, true, 1},   // overwrite if
};

constexpr DWORD kIgnoredAttributes = 0xde48;
constexpr std::size_t kNameLineBytes = 1560;

// The refused name as one line: what is beyond ASCII shows by its code, and the ending is kept however long it is.
std::string RefusedNameLine(const wchar_t* name) {
    constexpr char kEnding[] = " is not a legal filename\n";
    constexpr std::size_t kRoom = kNameLineBytes - sizeof kEnding;
    std::string line("ZdCreateFile: FileName: ");
    for (; *name != L'\0'; ++name) {
        char unit[8] = {static_cast<char>(*name), '\0'};
        if (*name >= 0x80) FormatBuffer(unit, sizeof unit, "<%04hx>", static_cast<unsigned short>(*name));
        if (line.size() + std::strlen(unit) > kRoom) break;
        line += unit;
    }
    return line + kEnding;
}

}  // namespace

const CDispositionRow& CCreateRequest::Row() const noexcept {
    return kRows[m_disposition];
}

void CCreateRequest::CheckName() const {
    if (!NameHasInvalidCharacters(m_name)) return;
    // Control characters stand in this line as they are; it is the one that shows what was refused.
    LogMade(kLogError, [&] { return RefusedNameLine(m_name); });
    ThrowWin32(ERROR_INVALID_NAME);
}

void CCreateRequest::CheckDisposition() const {
    if (m_disposition < std::size(kRows)) return;
    LogMade(kLogError, [&] {
        return FormatText(
            "ZdCreateFile:   FileName:   %s  ERROR:  Invalid Parameter:      dwCreateDisposition value = %ld \n",
            NameForLog(m_name).c_str(), static_cast<long>(m_disposition));
    });
    ThrowWin32(ERROR_INVALID_PARAMETER);
}

void CCreateRequest::CheckAttributes() const {
    if ((m_fileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        LogMade(kLogError, [&] {
            return FormatText(
                "ZdCreateFile:   FileName:   %s  ERROR:  Invalid Parameter:      dwFileAttributes value = %ld \n",
                NameForLog(m_name).c_str(), static_cast<long>(m_fileAttributes));
        });
        ThrowWin32(ERROR_INVALID_PARAMETER);
    }
    if ((m_fileAttributes & kIgnoredAttributes) == 0) return;
    LogMade(kLogWarning, [&] {
        return FormatText(
            "ZdCreateFile:   FileName:   %s  ERROR:  ignored file attributes:        dwFileAttributes value = %ld \n",
            NameForLog(m_name).c_str(), static_cast<long>(m_fileAttributes));
    });
}

}  // namespace zd
