// A small host: writes a file into a pool, reads it back and lists the top directory.
//
//     ZdvfsSample POOL [FULL-PATH-OF-ZdvfsProtocol.dll]
//
// Without a path the plug-in is looked for beside this program.
#include <ZdvfsLoader.h>

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace {

// An open file or directory of the pool.
class COpened {
public:
    COpened(IProtocolManager& manager, const wchar_t* name, bool isDirectory, DWORD disposition, DWORD access)
        : m_manager(manager) {
        const DWORD code =
            manager.ZdCreateFile(name, isDirectory ? 1 : 0, 0, FILE_ATTRIBUTE_NORMAL, 0, disposition, access, 0,
                                 /*descriptor=*/nullptr, &m_handle, /*createAction=*/nullptr, /*information=*/nullptr);
        zdvfs::Check("ZdCreateFile", code, name);
    }
    ~COpened() {
        m_manager.ZdCloseFile(m_handle, 0);
        m_manager.ZdReleaseFile(m_handle);
    }
    COpened(const COpened&) = delete;
    COpened& operator=(const COpened&) = delete;

    Handle Get() const { return m_handle; }

private:
    IProtocolManager& m_manager;
    Handle m_handle = 0;
};

void Write(IProtocolManager& manager, const wchar_t* name, std::string_view text) {
    const COpened file(manager, name, false, kZdOverwriteIf, FILE_READ_DATA | FILE_WRITE_DATA);
    DWORD written = 0;
    zdvfs::Check("ZdWriteFile",
                 manager.ZdWriteFile(file.Get(), 0, static_cast<DWORD>(text.size()), text.data(), &written), name);
}

std::string Read(IProtocolManager& manager, const wchar_t* name) {
    const COpened file(manager, name, false, kZdOpen, FILE_READ_DATA);
    std::string text;
    char piece[4096];
    DWORD got = 0;
    do {
        const auto offset = static_cast<std::int64_t>(text.size());
        zdvfs::Check("ZdReadFile", manager.ZdReadFile(file.Get(), offset, sizeof piece, piece, &got), name);
        text.append(piece, got);
    } while (got > 0);
    return text;
}

void List(IProtocolManager& manager, const wchar_t* name) {
    const COpened directory(manager, name, true, kZdOpen, FILE_LIST_DIRECTORY);
    DirectoryEntry* block = nullptr;
    DWORD count = 0;
    zdvfs::Check("ZdQueryDirContents", manager.ZdQueryDirContents(directory.Get(), &block, &count), name);
    const auto free = [](DirectoryEntry* entries) { ::HeapFree(::GetProcessHeap(), 0, entries); };
    const std::unique_ptr<DirectoryEntry[], decltype(free)> entries(block, free);
    for (DWORD i = 0; i < count; ++i) {
        const bool isDirectory = (entries[i].attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        const std::string size = isDirectory ? "<DIR>" : std::to_string(entries[i].size);
        std::printf("%12s  %s\n", size.c_str(), zdvfs::Utf8(entries[i].name).c_str());
    }
}

void Serve(const std::wstring& plugin, const std::wstring& pool) {
    zdvfs::CHost host(plugin);
    zdvfs::Check("ZdConnect", zdvfs::Connect(*host, pool), pool);
    Write(*host, L"\\hello.txt", "Hello from a small host.\n");
    std::fputs(Read(*host, L"\\hello.txt").c_str(), stdout);
    List(*host, L"\\");
    host->ZdDisconnect();
}

}  // namespace

int wmain(int count, wchar_t** words) {
    if (count < 2) {
        std::fputs("usage: ZdvfsSample POOL [FULL-PATH-OF-ZdvfsProtocol.dll]\n", stderr);
        return 2;
    }
    try {
        Serve(count > 2 ? words[2] : zdvfs::PathBesideProgram(), words[1]);
        return 0;
    } catch (const zdvfs::CError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
