#include "benchmark/rows/LocalFiles.h"

#include <algorithm>
#include <ctime>

#include "base/Conversion.h"
#include "local/Metadata.h"
#include "local/NameCodec.h"

namespace zd::bench {
namespace {

// Wine's own name of a file, null on Windows.
using UnixFileName = char*(__cdecl*)(const wchar_t* path);

// A prefix by which the system finds the files of a folder, whose name ends with "\". Under Wine it goes past the
// search for names that differ in case only.
std::wstring QuickPrefix(const std::wstring& folder) {
    const auto address = ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name");
    if (address == nullptr) return folder;
    const auto unixName = reinterpret_cast<UnixFileName>(reinterpret_cast<void*>(address));
    char* const text = unixName(folder.c_str());
    if (text == nullptr) return folder;
    std::wstring name = Utf8ToWide(text);
    ::HeapFree(::GetProcessHeap(), 0, text);
    std::replace(name.begin(), name.end(), L'/', L'\\');
    if (name.back() != L'\\') name += L'\\';
    return L"\\\\?\\unix" + name;
}

std::wstring PrefixOf(const CBench& bench, const std::wstring& directory) {
    return QuickPrefix(bench.Folder() + L"pools\\" + kPoolName + directory + L"\\");
}

void MakeFile(const std::wstring& path, const std::string& text) {
    const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) Check(::GetLastError(), "making a file of the pool");
    DWORD written = 0;
    const bool isWritten =
        text.empty() || ::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) != FALSE;
    const DWORD error = isWritten ? ERROR_SUCCESS : ::GetLastError();
    ::CloseHandle(file);
    Check(error, "writing a file of the pool");
}

// The paths of an object's data and of its sidecar.
struct COnDisk {
    COnDisk(const std::wstring& prefix, const std::string& name) {
        const std::string onDisk = engine::NameOnDisk(name);
        data = prefix + Utf8ToWide(onDisk);
        sidecar = prefix + Utf8ToWide(engine::kSidecarPrefix + onDisk);
    }
    std::wstring data;
    std::wstring sidecar;
};

}  // namespace

void MakeLocalFiles(const CBench& bench, const std::wstring& directory, const std::vector<std::string>& names,
                    const std::string& content) {
    const std::wstring prefix = PrefixOf(bench, directory);
    engine::Metadata metadata;
    metadata.attributes = FILE_ATTRIBUTE_NORMAL;
    metadata.creationTime = ::_time64(nullptr);
    const std::string text = engine::FormatMetadata(metadata);
    for (const std::string& name : names) {
        const COnDisk path(prefix, name);
        MakeFile(path.sidecar, text);
        MakeFile(path.data, content);
    }
}

void RemoveLocalFiles(const CBench& bench, const std::wstring& directory, const std::vector<std::string>& names) {
    const std::wstring prefix = PrefixOf(bench, directory);
    for (const std::string& name : names) {
        const COnDisk path(prefix, name);
        ::DeleteFileW(path.data.c_str());
        ::DeleteFileW(path.sidecar.c_str());
    }
}

}  // namespace zd::bench
