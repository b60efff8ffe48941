// What opening an object takes below the plug-in, call by call.
#pragma once

#include <windows.h>

#include <string>

namespace zd::bench {

// The storage paths of a file, made beforehand.
struct CDirectName {
    explicit CDirectName(const std::wstring& name);

    std::string path;
    std::string secondFragment;  // the file ends where it has none
};

// The descriptor of an object that is made without one.
inline constexpr char kDefaultDescriptor[] = "O:BAG:BAD:(A;;GA;;;BA)(A;;GA;;;SY)";

// Opens an existing file and answers its descriptor:
//
//     ZdvfsStat(path)                       is it there, is it a file
//     ZdvfsGetNTAclStr(path)                the descriptor that guards it
//     ZdvfsGetDsidNTAclStr(path)            where that was empty: does the default one apply
//     where one is stored: text to descriptor, the caller's token, AccessCheck
//     ZdvfsOpen(path)
//     ZdvfsStat(path)                       the information for the host
//     ZdvfsStat(path;F1)                    no further fragment
//
// `access` is that of the check, as the host's open asks for it.
int OpenDirectly(const CDirectName& name, int flags, DWORD access);

// Creates a file:
//
//     ZdvfsStat(path)                       it is missing
//     ZdvfsGetNTAclStr(path)                nothing is stored
//     ZdvfsGetDsidNTAclStr(path)
//     where the host gives a descriptor: its check, descriptor to text
//     ZdvfsOpen(path)                       create, exclusive
//     ZdvfsIoctl(46)                        its place, where it stands in a directory
//     ZdvfsSetNTAclStr(path)
//     ZdvfsStat(path)
//     ZdvfsStat(path;F1)
//
// `locality` is the file's first directory, null for none; `given` may be null.
int CreateDirectly(const CDirectName& name, const char* locality, PSECURITY_DESCRIPTOR given);

// Opens a directory and closes it again: ZdvfsStat, the two queries as above, ZdvfsOpendirForList, ZdvfsStat,
// ZdvfsClosedir.
void OpenDirectoryDirectly(const CDirectName& name);

}  // namespace zd::bench
