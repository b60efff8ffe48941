// From the storage's status records to the host's information records.
#pragma once

#include <string_view>

#include "base/Times.h"
#include "IProtocolManager.h"
#include "zdvfs.h"

namespace zd {

// The fields that every record has in common; the size is the status record's own. Change time and name are left alone.
template <class Record>
void FillFromStatus(Record& record, const ZdvfsStatRecord& status) noexcept {
    record.creationTime = FileTimeOf(status.creationTime);
    record.lastAccessTime = FileTimeOf(status.accessTime);
    record.lastWriteTime = FileTimeOf(status.modificationTime);
    record.attributes = status.attributes;
    record.size = static_cast<std::uint64_t>(status.size);
    record.mode = status.mode;
}

// The same for a file: its change time is its last write time.
inline void FillFileInformation(FileInformation& information, const ZdvfsStatRecord& status) noexcept {
    FillFromStatus(information, status);
    information.changeTime = information.lastWriteTime;
}

// Copies a name into a record's field, cut to fit and terminated.
template <std::size_t kUnits>
void CopyName(std::wstring_view name, wchar_t (&field)[kUnits]) noexcept {
    const std::size_t units = name.size() < kUnits ? name.size() : kUnits - 1;
    name.copy(field, units);
    field[units] = L'\0';
}

inline bool IsDirectory(const ZdvfsStatRecord& status) noexcept {
    return (status.mode & kZdvfsModeTypeMask) == kZdvfsModeDirectory;
}

}  // namespace zd
