// The log lines of the operation frame, one row an operation. The spacing is part of the texts.
#pragma once

namespace zd {

struct COperationText {
    const char* enter;        // null: the operation writes its own, which names its arguments, or has none
    const char* exit;         // null: the operation writes its own
    const char* outOfMemory;  // with one %ld for the code
    const char* unhandled;    // with one %ld for the code; null: none
};

// Operations that the table gives nothing but the common frame have their texts in the same pattern.
inline constexpr COperationText kConnectText{"ZdConnect Enter\n", "ZdConnect Exit\n",
                                             "ZdConnect Status:  ERROR:  Not Enough Memory, dwError Code:    %ld\n",
                                             "ZdConnect:  ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kCreateFileText{
    nullptr, nullptr, "ZdCreateFile:  ERROR:  Not enough memory.  DWORD value:    %ld \n",
    "ZdCreateFile:  ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kCloseFileText{
    nullptr, "ZdCloseFile Exit\n", "ZdCloseFile:   ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    "ZdCloseFile:   ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kReleaseFileText{
    "ZdReleaseFile Enter\n", "ZdReleaseFile Exit\n", "ZdReleaseFile: ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    "ZdReleaseFile: ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kQueryFileInfoText{
    "ZdQueryFileInfo Exit\n", "ZdQueryFileInfo Exit\n",
    "ZdQueryFileInfo:   ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    "ZdQueryFileInfo:   ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kSetFileSizeText{
    "ZdSetFileSize Enter\n", "ZdSetFileSize Exit\n",
    "ZdSetFileSize:  ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    "ZdSetFileSize:  ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kSetFileBasicInfoText{
    nullptr, "ZdSetFileBasicInfo Exit\n", "ZdSetFileBasicInfo:    ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    "ZdSetFileBasicInfo:    ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kDeleteFileText{
    "ZdDeleteFile Enter\n", "ZdDeleteFile Exit\n", "ZdDeleteFile:  ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    "ZdDeleteFile:  ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kRenameFileText{
    "ZdRenameFile Enter\n", "ZdRenameFile Exit\n", "ZdRenameFile:   ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    "ZdRenameFile:   ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kQueryDirContentsText{
    "ZdQueryDirContents Enter\n", "ZdQueryDirContents Exit\n",
    "ZdQueryDirContents:    ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    "ZdQueryDirContents:    ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kReadFileText{
    nullptr, "ZdReadFile Exit\n", "ZdReadFile:    ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    "ZdReadFile:    ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kWriteFileText{
    nullptr, nullptr, "ZdWriteFile:    ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    "ZdWriteFile:    ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kQueryVolumeInfoText{
    nullptr, "ZdQueryVolumeInfo Exit\n", "ZdQueryVolumeInfo:  ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    nullptr};
inline constexpr COperationText kAppendFileText{
    nullptr, nullptr, "ZdAppendFile: ERROR:  Not Enough Memory, dwError Code: %ld\n",
    "ZdAppendFile: ERROR:  Unhandled exception caught, dwError Code: %ld\n"};
inline constexpr COperationText kGetSecurityText{
    "ZdGetSecurity Enter\n", "ZdGetSecurity Exit\n", "ZdGetSecurity: ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    "ZdGetSecurity: ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};
inline constexpr COperationText kSetSecurityText{
    "ZdSetSecurity Enter\n", "ZdSetSecurity Exit\n", "ZdSetSecurity: ERROR:  Not Enough Memory, dwError Code:    %ld\n",
    "ZdSetSecurity: ERROR:  Unhandled exception caught, dwError Code:   %ld\n"};

}  // namespace zd
