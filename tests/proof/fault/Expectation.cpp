#include "Expectation.h"

#include <iterator>

#include "harness/TextCompare.h"

namespace zd::test {

namespace {

struct CRow {
    const char* operation;
    const char* situation;
    const char* call;
    EEffect effect;
    DWORD code = 0;
    bool retryFails = false;
};

// The first row that fits counts; without one a failing call fails the operation with its errno.
constexpr CRow kRows[] = {
    // ---- ZdCreateFile: only a certain absence counts as one; what belongs to an object that is not there yet may
    // fail.
    // An absence that is none shows in what follows it.
    {"ZdCreateFile", "open, directory*", "1 ZdvfsStat(*", EEffect::kMissing, ERROR_PATH_NOT_FOUND},
    {"ZdCreateFile", "open if, directory, existing", "1 ZdvfsStat(*", EEffect::kMissing, ERROR_ALREADY_EXISTS},
    {"ZdCreateFile", "*", "1 ZdvfsStat(*", EEffect::kUnseen},
    {"ZdCreateFile", "overwrite if*", "ZdvfsOpen(*", EEffect::kErrno},
    {"ZdCreateFile", "*", "ZdvfsOpen(*", EEffect::kLastError},
    {"ZdCreateFile", "*missing*", "ZdvfsGet*", EEffect::kNone},
    {"ZdCreateFile", "*", "ZdvfsGetNTAclStr(*", EEffect::kNone},
    {"ZdCreateFile", "*", "ZdvfsIoctl(*", EEffect::kNone},
    // The search for further parts ends with the first that is not there, or cannot be asked for.
    {"ZdCreateFile", "*", "ZdvfsStat(*;F*", EEffect::kNone},
    {"ZdCreateFile", "*", "ZdvfsUnlink(*", EEffect::kNone},
    // ---- Transfers: reopening looks at the part for its log line only
    {"ZdReadFile", "*", "ZdvfsStat(*", EEffect::kNone},
    {"ZdReadFile", "*", "ZdvfsOpen(*", EEffect::kNone},
    {"ZdWriteFile", "*", "ZdvfsStat(*", EEffect::kNone},
    {"ZdAppendFile", "*", "ZdvfsStat(*", EEffect::kNone},
    {"ZdAppendFile", "*", "ZdvfsOpen(*", EEffect::kCode, ERROR_INVALID_HANDLE},
    {"ZdSetFileSize", "*", "ZdvfsStat(*", EEffect::kNone},
    {"ZdSetFileSize", "*", "ZdvfsUnlink(*", EEffect::kNone},
    // The descriptor of a part that was removed.
    {"ZdSetFileSize", "three fragments cut to none, open", "6 ZdvfsClose(*", EEffect::kNone},
    {"ZdSetFileSize", "three fragments cut to two, open", "3 ZdvfsClose(*", EEffect::kNone},
    // ---- Closing and information
    {"ZdReleaseFile", "*", "*", EEffect::kNone},
    {"ZdCloseFile", "*", "ZdvfsClose*", EEffect::kNone},
    {"ZdQueryFileInfo", "directory*", "*", EEffect::kErrno},
    {"ZdQueryFileInfo", "*", "ZdvfsStat(*", EEffect::kNone},
    {"ZdQueryFileInfo", "*", "ZdvfsOpen(*;F*", EEffect::kNone},
    // The status of a further part.
    {"ZdQueryFileInfo", "three fragments, open", "8 ZdvfsFstat(*", EEffect::kNone},
    {"ZdQueryFileInfo", "three fragments, open", "12 ZdvfsFstat(*", EEffect::kNone},
    {"ZdQueryFileInfo", "three fragments, closed", "6 ZdvfsFstat(*", EEffect::kNone},
    {"ZdQueryFileInfo", "three fragments, closed", "10 ZdvfsFstat(*", EEffect::kNone},
    {"ZdQueryPathInfo", "*", "ZdvfsStat(*;F*", EEffect::kNone},
    {"ZdQueryPathInfo", "*", "*", EEffect::kCode, ERROR_FILE_NOT_FOUND},
    // ---- ZdRenameFile: a target that cannot be removed is left to the rename, which then finds it. Parts that went
    // before a failure stay where they are, so that the second attempt misses them.
    {"ZdRenameFile", "*", "ZdvfsRename(\"pool/f;F*", EEffect::kErrno, 0, true},
    {"ZdRenameFile", "*", "ZdvfsRename(*", EEffect::kErrno},
    {"ZdRenameFile", "*", "1 ZdvfsStat(*", EEffect::kNone},
    {"ZdRenameFile", "*nothing to replace", "*", EEffect::kNone},
    {"ZdRenameFile", "*", "2 ZdvfsStat(*", EEffect::kStands, ERROR_ALREADY_EXISTS},
    {"ZdRenameFile", "*", "ZdvfsGetNTAclStr(*", EEffect::kNone},
    {"ZdRenameFile", "*", "ZdvfsClose(*", EEffect::kNone},
    {"ZdRenameFile", "three fragments*replacing three fragments", "ZdvfsStat(*;F3*", EEffect::kNone},
    {"ZdRenameFile", "three fragments*replacing three fragments", "*;F*", EEffect::kCode, ERROR_ALREADY_EXISTS, true},
    {"ZdRenameFile", "*", "*;F*", EEffect::kNone},
    {"ZdRenameFile", "*", "*", EEffect::kCode, ERROR_ALREADY_EXISTS},
    // ---- Descriptors: the second query answers for the first
    {"ZdGetSecurity", "*", "ZdvfsGetNTAclStr(*", EEffect::kNone},
    {"ZdGetSecurity", "*", "ZdvfsFgetNTAclStr(*", EEffect::kNone},
    // ---- Control requests: a path answers 1 or 0, the others what the storage answers
    {"ZdControlPath", "*", "*.refresh_all\")", EEffect::kNone},
    {"ZdControlPath", "*", "ZdvfsStat(*", EEffect::kCode, 0},
    {"ZdControlPath", "*", "wcstoutf8_malloced(*", EEffect::kCode, 0},
    {"ZdControlPath", "*", "*", EEffect::kNone},
    {"ZdPathIoctl", "*", "ZdvfsVIoctl(*", EEffect::kNone},
    {"ZdPathIoctl", "*", "*", EEffect::kCode, 0xFFFFFFFF},
    {"ZdHandleIoctl", "*", "*", EEffect::kCode, 0xFFFFFFFF},
    {"ZdRefreshSettings", "*", "*", EEffect::kNone},
    // ---- The connection: only the mount and the volume's status can fail it
    {"ZdConnect", "*", "ZdvfsMountV1(*", EEffect::kErrno},
    {"ZdConnect", "*", "ZdvfsStatvfs(*", EEffect::kErrno},
    {"ZdConnect", "*", "*", EEffect::kNone},
    {"ZdDisconnect", "*", "*", EEffect::kNone},
};

struct CTranslation {
    int error;
    DWORD code;
};
constexpr CTranslation kTranslations[] = {{1, 5},    {2, 2},  {9, 6},   {12, 122}, {13, 5},  {16, 170}, {17, 183},
                                          {20, 267}, {21, 5}, {22, 13}, {24, 4},   {28, 39}, {129, 87}};

// Operations that have no code for exhausted memory.
struct CMemoryRow {
    const char* operation;
    const char* situation;
    bool isUsual;
    DWORD code;
};
constexpr CMemoryRow kMemoryRows[] = {
    {"ZdQueryPathInfo", "*", false, ERROR_FILE_NOT_FOUND},
    // The target's removal is tried; whatever stops it, the rename finds the target.
    {"ZdRenameFile", "*replacing*", false, ERROR_ALREADY_EXISTS},
    {"ZdRenameFile", "*replac*", true, 0},
    {"ZdControlPath", "*", false, 0},
    {"ZdRefreshSettings", "*", true, 0},
    {"ZdLogMessage", "*", true, 0},
};

}  // namespace

bool MayGiveWithoutMemory(const std::string& operation, const std::string& situation, DWORD code, DWORD usual) {
    if (code == ERROR_NOT_ENOUGH_MEMORY) return true;
    for (const CMemoryRow& row : kMemoryRows) {
        if (!Fits(row.operation, operation) || !Fits(row.situation, situation)) continue;
        if (code == (row.isUsual ? usual : row.code)) return true;
    }
    return false;
}

bool TellsOfMemory(const std::string& operation, const std::string& failed) {
    // These have no lines of their own.
    for (const char* const silent : {"ZdControlPath", "ZdPathIoctl", "ZdHandleIoctl", "ZdEnumerateSpaList"}) {
        if (operation == silent) return false;
    }
    // What the system refuses is a code like any other.
    return !failed.starts_with("Convert") && !(operation == "ZdCreateFile" && failed == "HeapAlloc");
}

DWORD Translated(int error) {
    for (const CTranslation& row : kTranslations) {
        if (row.error == error) return row.code;
    }
    return ERROR_IO_DEVICE;
}

CExpectation Expected(const std::string& operation, const std::string& situation, std::size_t number,
                      const std::string& call) {
    const std::string numbered = std::to_string(number) + " " + call;
    for (const CRow& row : kRows) {
        const bool isCall = Fits(row.call, call) || Fits(row.call, numbered);
        if (isCall && Fits(row.operation, operation) && Fits(row.situation, situation)) {
            return {row.effect, row.code, row.retryFails};
        }
    }
    return {EEffect::kErrno, 0, false};
}

DWORD ExpectedCode(const CExpectation& expectation, const CFault& fault, DWORD usual) {
    const bool isAbsence = fault.error == 2 || fault.error == 20;
    switch (expectation.effect) {
        case EEffect::kErrno:
            return Translated(fault.error);
        case EEffect::kLastError:
            return fault.lastError != 0 ? fault.lastError : Translated(fault.error);
        case EEffect::kNone:
            return usual;
        case EEffect::kCode:
            return expectation.code;
        case EEffect::kMissing:
            return isAbsence ? expectation.code : Translated(fault.error);
        case EEffect::kUnseen:
            return isAbsence ? usual : Translated(fault.error);
        case EEffect::kStands:
            return isAbsence ? usual : expectation.code;
    }
    return usual;
}

}  // namespace zd::test
