// The host interface: what a file-serving host loads ZdvfsProtocol.dll for.
//
// A host loads the library, looks up "GetProtocol" and calls it once for each connection:
//
//     auto getProtocol = reinterpret_cast<GetProtocolFunction>(::GetProcAddress(module, "GetProtocol"));
//     IProtocolManager* manager = getProtocol(&hostContext, &logger);
//     ConnectParameters parameters{};
//     wcscpy_s(parameters.poolName, L"pool");
//     DWORD code = manager->ZdConnect(&parameters);
//     ...
//     manager->Release();
//
// ZdvfsLoader.h does the loading.
//
// Host and library are built with the same compiler and C++ standard library over the universal C runtime.
//
// Results. An operation answers a 32-bit Win32 code, 0 for success, unless its comment says otherwise. No exception
// crosses the interface but one: ZdConnect passes an unexpected failure on as a thrown `unsigned long` 1117.
//
// Names. Wide, terminated, relative to the share, with "\" (or "/") between components. The pool's name and the host's
// name are put together as they stand, so a name is expected to begin with a separator. A name of fragment shape (";F"
// and a number above 0 behind the name of an existing file) is a part of that file.
//
// Threads. Operations may be called from several threads at once, on one handle too; operations on one handle are
// serialised, operations on two handles of one name are not. GetProtocol and Release are not guarded: no other
// operation of the object may run during them. The caller's identity is the calling thread's impersonation token, or
// the process token where the thread has none.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <type_traits>

class CLogger;

// An open file or directory. 0 is no handle.
using Handle = std::uint64_t;

// ---- Records ----------------------------------------------------------------------------------------------------

// What ZdConnect reads. Each field is terminated text, or fills its width to the last unit.
struct ConnectParameters {
    wchar_t poolName[260];    // the storage pool to mount; empty: a random name is made up. No "\" in it
    wchar_t secondName[256];  // handed to the storage library where not empty
    wchar_t thirdName[256];   // handed to the storage library where not empty
};
static_assert(sizeof(wchar_t) == 2 && std::is_standard_layout_v<ConnectParameters>);
static_assert(offsetof(ConnectParameters, poolName) == 0);
static_assert(offsetof(ConnectParameters, secondName) == 520);
static_assert(offsetof(ConnectParameters, thirdName) == 1032);
static_assert(sizeof(ConnectParameters) == 1544);

// What ZdCreateFile, ZdQueryFileInfo and ZdQueryPathInfo fill. Times are FILETIME values, 0 for none.
struct FileInformation {
    std::uint64_t creationTime;
    std::uint64_t lastAccessTime;
    std::uint64_t lastWriteTime;
    std::uint64_t changeTime;
    std::uint64_t attributes;  // FILE_ATTRIBUTE_* bits, 16 of them
    std::uint64_t size;        // bytes, over all fragments
    std::uint32_t mode;        // the storage's mode word; 0x4000 is set for a directory
    wchar_t name[260];         // the last component, cut to fit, terminated
};
static_assert(std::is_standard_layout_v<FileInformation>);
static_assert(offsetof(FileInformation, creationTime) == 0);
static_assert(offsetof(FileInformation, lastAccessTime) == 8);
static_assert(offsetof(FileInformation, lastWriteTime) == 16);
static_assert(offsetof(FileInformation, changeTime) == 24);
static_assert(offsetof(FileInformation, attributes) == 32);
static_assert(offsetof(FileInformation, size) == 40);
static_assert(offsetof(FileInformation, mode) == 48);
static_assert(offsetof(FileInformation, name) == 52);
static_assert(sizeof(FileInformation) == 576);

// One entry of a listing (ZdQueryDirContents).
struct DirectoryEntry {
    std::uint64_t creationTime;
    std::uint64_t lastAccessTime;
    std::uint64_t lastWriteTime;
    std::uint64_t changeTime;
    std::uint64_t attributes;
    std::uint64_t size;
    std::uint32_t mode;
    wchar_t name[261];
};
static_assert(std::is_standard_layout_v<DirectoryEntry>);
static_assert(offsetof(DirectoryEntry, creationTime) == 0);
static_assert(offsetof(DirectoryEntry, lastAccessTime) == 8);
static_assert(offsetof(DirectoryEntry, lastWriteTime) == 16);
static_assert(offsetof(DirectoryEntry, changeTime) == 24);
static_assert(offsetof(DirectoryEntry, attributes) == 32);
static_assert(offsetof(DirectoryEntry, size) == 40);
static_assert(offsetof(DirectoryEntry, mode) == 48);
static_assert(offsetof(DirectoryEntry, name) == 52);
static_assert(sizeof(DirectoryEntry) == 576);

// What ZdQueryVolumeInfo fills.
struct VolumeInformation {
    std::uint32_t maximumComponentLength;
    wchar_t fileSystemName[128];
    std::uint64_t totalUnits;
    std::uint64_t availableUnits;
    std::uint32_t sectorsPerUnit;
    std::uint32_t bytesPerSector;
    std::uint64_t creationTime;
    std::uint32_t serialNumber;
    std::uint32_t fileSystemFlags;
    wchar_t label[128];
    std::uint64_t reserved;
};
static_assert(std::is_standard_layout_v<VolumeInformation>);
static_assert(offsetof(VolumeInformation, maximumComponentLength) == 0);
static_assert(offsetof(VolumeInformation, fileSystemName) == 4);
static_assert(offsetof(VolumeInformation, totalUnits) == 264);
static_assert(offsetof(VolumeInformation, availableUnits) == 272);
static_assert(offsetof(VolumeInformation, sectorsPerUnit) == 280);
static_assert(offsetof(VolumeInformation, bytesPerSector) == 284);
static_assert(offsetof(VolumeInformation, creationTime) == 288);
static_assert(offsetof(VolumeInformation, serialNumber) == 296);
static_assert(offsetof(VolumeInformation, fileSystemFlags) == 300);
static_assert(offsetof(VolumeInformation, label) == 304);
static_assert(offsetof(VolumeInformation, reserved) == 560);
static_assert(sizeof(VolumeInformation) == 568);

// ---- ZdCreateFile's dispositions, access bits and file flags ----------------------------------------------------

// Disposition -> what happens to a missing / an existing file, and the create action reported.
constexpr DWORD kZdSupersede = 0;    // create / empty,  action 0
constexpr DWORD kZdOpen = 1;         // fail   / open,   action 1
constexpr DWORD kZdCreate = 2;       // create / fail,   action 2
constexpr DWORD kZdOpenIf = 3;       // create / open,   action 1
constexpr DWORD kZdOverwrite = 4;    // fail   / empty,  action 3
constexpr DWORD kZdOverwriteIf = 5;  // create / empty,  action 3

constexpr DWORD kZdAccessWrite = 0x2;
constexpr DWORD kZdAccessReadWrite = 0x4;  // treated as kZdAccessWrite
constexpr DWORD kZdAccessFurther = 0x20;   // tested only for an open of the share's root

// ---- The interface ----------------------------------------------------------------------------------------------

// The order of the functions is part of the binary contract and never changes.
class IProtocolManager {
public:
    // Slot 0. Mounts the pool and prepares the connection. A connected object is disconnected first; a failed connect
    // leaves the object unconnected and able to connect again.
    //   parameters  read during the call only. Null: 87. A pool name that holds "\": 87.
    // Throws an `unsigned long` 1117 where something unexpected fails. Not to be called while other operations run.
    virtual DWORD ZdConnect(const ConnectParameters* parameters) = 0;

    // Slot 1. Closes every open handle, unmounts the pool. Always 0; on an unconnected object nothing is done.
    virtual DWORD ZdDisconnect() = 0;

    // Slot 2. Creates or opens a file or directory.
    //   name               the name; null: 87
    //   isDirectory        non-zero: a directory is asked for
    //   unused3, 5, 8      not read
    //   fileAttributes     low 16 bits FILE_ATTRIBUTE_*, upper bits FILE_FLAG_*. FILE_FLAG_BACKUP_SEMANTICS skips the
    //                      access check; FILE_ATTRIBUTE_REPARSE_POINT: 87
    //   createDisposition  kZdSupersede to kZdOverwriteIf; above: 87
    //   access             kZdAccess* bits; also the access that the caller is checked for, where MAXIMUM_ALLOWED
    //                      stands in for 0 and the write bit is added where an existing file would be emptied
    //   descriptor         the descriptor of a new object, or null for the default one
    //   handle             out, required (null: 87): closed with ZdCloseFile, ended with ZdReleaseFile
    //   createAction       out, may be null: 0 superseded, 1 opened, 2 created, 3 overwritten
    //   information        out, may be null
    // Errors: 123 bad name, 183 the directory exists, 3 no such directory, 267 a file stands where FILE_OPEN_IF asks
    // for a directory, 5 and other system codes of a refused access check, translated storage failures.
    // On failure no out argument is promised and no handle is open.
    virtual DWORD ZdCreateFile(const wchar_t* name, DWORD isDirectory, DWORD unused3, DWORD fileAttributes,
                               DWORD unused5, DWORD createDisposition, DWORD access, DWORD unused8,
                               PSECURITY_DESCRIPTOR descriptor, Handle* handle, DWORD* createAction,
                               FileInformation* information) = 0;

    // Slot 3. Closes the handle's storage descriptors; the handle stays valid and reopens on demand. May be called
    // any number of times. Handle 0: 0.
    //   deleteFlag  non-zero: the file and all its fragments are removed; later use of the handle's data fails with 2
    virtual DWORD ZdCloseFile(Handle handle, DWORD deleteFlag) = 0;

    // Slot 4. Ends the handle. Handle 0: 0. Releasing a value that is no handle ends the process with exit code 1:
    // a host releases only handles that it holds, and each once.
    virtual DWORD ZdReleaseFile(Handle handle) = 0;

    // Slot 5. Information of an open handle.
    virtual DWORD ZdQueryFileInfo(Handle handle, FileInformation* information) = 0;

    // Slot 6. Information of a name without opening it; 0 or 2. The record's name field is not touched.
    virtual DWORD ZdQueryPathInfo(const wchar_t* path, FileInformation* information) = 0;

    // Slot 7. Cuts or grows the file to `size` bytes; new bytes read as zero. Negative: 87.
    virtual DWORD ZdSetFileSize(Handle handle, std::int64_t size) = 0;

    // Slot 8. Sets attributes (0: left alone) and the access and write times (both 0: left alone); times are FILETIME
    // values, the creation and change times are ignored.
    virtual DWORD ZdSetFileBasicInfo(Handle handle, std::int64_t creationTime, std::int64_t lastAccessTime,
                                     std::int64_t lastWriteTime, std::int64_t changeTime, DWORD fileAttributes) = 0;

    // Slot 9. Deletes nothing and answers 0: a file is deleted by closing a handle with the delete flag.
    virtual DWORD ZdDeleteFile(void* request) = 0;

    // Slot 10. Renames the open file with all its fragments, or the directory. `newName` is the whole name; the handles
    // of the file follow. What stands under it is removed first where `replaceIfExists` is not 0. Errors: 123 no name,
    // or a file and a part of itself; 2 the file was removed or replaced; translated storage failures, after which
    // fragments before the failing one stay renamed.
    virtual DWORD ZdRenameFile(Handle handle, const wchar_t* newName, DWORD replaceIfExists) = 0;

    // Slot 11. Lists an open directory from where its stream stands. `*entries` receives a block of `*count` records
    // from GetProcessHeap(), null for none; the host frees it with HeapFree.
    virtual DWORD ZdQueryDirContents(Handle handle, DirectoryEntry** entries, DWORD* count) = 0;

    // Slot 12. Reads up to `length` bytes at byte `offset`. `*bytesRead` is less than `length` only at the end of the
    // data, and is stored only on success. Errors: 87 for a negative offset or null arguments, 5 for a directory.
    virtual DWORD ZdReadFile(Handle handle, std::int64_t offset, DWORD length, void* buffer, DWORD* bytesRead) = 0;

    // Slot 13. Writes `length` bytes at byte `offset`. A write may begin up to one fragment behind the last fragment
    // (the gap reads as zero), further out it is 87. `*bytesWritten` is stored only on success.
    virtual DWORD ZdWriteFile(Handle handle, std::int64_t offset, DWORD length, const void* buffer,
                              DWORD* bytesWritten) = 0;

    // Slot 14. Information of the volume. `request`: 1 attributes, 2 sizes, 4 identity. The record is cleared first.
    virtual DWORD ZdQueryVolumeInfo(BYTE request, VolumeInformation* information) = 0;

    // Slot 15. Sets the label that slot 14 reports, cut to 127 units, kept in memory only. Always 0.
    virtual DWORD ZdSetVolumeLabel(const wchar_t* label) = 0;

    // Slot 16. The object's descriptor, whole and self-relative, whatever `securityInformation` asks for. The host
    // frees it with LocalFree or HeapFree on the process heap. The first read of an object without a stored
    // descriptor stores one that makes the caller its owner. Null out pointer: 87.
    virtual DWORD ZdGetSecurity(Handle handle, std::uint64_t securityInformation, PSECURITY_DESCRIPTOR* descriptor) = 0;

    // Slot 17. Stores the descriptor whole, whatever `securityInformation` names. The caller must keep some access
    // under it. Errors: 1338 not valid or null, 5 and other codes of the refused check, 122 too long to be read back.
    // Generic rights in a descriptor grant an impersonated caller no data access: hosts store specific rights.
    virtual DWORD ZdSetSecurity(Handle handle, std::uint64_t securityInformation, PSECURITY_DESCRIPTOR descriptor) = 0;

    // Slot 18. Disconnects where connected and frees the object.
    virtual void Release() = 0;

    // Slot 19. Inserts the names of the registered storage pools. Null: 87. 0, or the registry's error.
    virtual DWORD ZdEnumerateSpaList(std::set<std::wstring>* names) = 0;

    // Slot 20. Asks the storage to refresh its view of the directories along a control path ("\\.zdvfs\..."); 1 or 0.
    virtual DWORD ZdControlPath(const wchar_t* path) = 0;

    // Slot 21. Passes a control request to the storage on the handle's last-written fragment. `argument` is a va_list.
    // The storage's own result, 0xFFFFFFFF for handle 0.
    virtual DWORD ZdHandleIoctl(Handle handle, DWORD request, std::uint64_t argument) = 0;

    // Slot 22. Reads the settings anew (`full` false), or reports activity of the task, `value` in seconds (true).
    // Called from one thread at a time.
    virtual void ZdRefreshSettings(DWORD value, bool full) = 0;

    // Slots 23 to 25. Answer 1.
    virtual DWORD ZdStub1() = 0;
    virtual DWORD ZdStub2() = 0;
    virtual DWORD ZdStub3() = 0;

    // Slot 26. Writes a line into the plug-in's log. `message` is UTF-8 and ends with "\n"; null is ignored.
    virtual void ZdLogMessage(DWORD level, const char* message) = 0;

    // Slot 27. Copies `length` bytes from `source` to `target` inside the storage. Negative arguments: 87.
    virtual DWORD ZdAppendFile(Handle target, Handle source, std::int64_t targetOffset, std::int64_t sourceOffset,
                               std::int64_t length) = 0;

    // Slot 28. A random 32-bit number as text of at least six characters.
    virtual std::wstring ZdGetRandomTag() = 0;

    // Slot 29. Passes a control request to the root of every mounted pool of the process. `argument` is a va_list.
    virtual DWORD ZdPathIoctl(DWORD request, std::uint64_t argument) = 0;

protected:
    // The host ends an object with Release, never with delete.
    ~IProtocolManager() = default;
};

// The library's only export, undecorated.
//   hostContext  points to a cell for the host's own object, which the plug-in leaves alone; null: the result is null
//   logger       the first logger that is not null serves the whole process; later ones are ignored
// Answers the new object, or null where memory cannot be had or construction fails.
using GetProtocolFunction = IProtocolManager* (*)(void** hostContext, CLogger* logger);
