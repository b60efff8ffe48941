#include "Storage.h"

#include <windows.h>

#include <array>
#include <stdexcept>

#include "zdvfs.h"

namespace zd::test {

namespace {

template <class Function>
Function* Exported(const char* name) {
    const HMODULE library = ::GetModuleHandleW(L"zdvfs.dll");
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
}

// The functions of the one library that the process has.
struct Functions {
    decltype(&::ZdvfsOpen) open = Exported<decltype(::ZdvfsOpen)>("ZdvfsOpen");
    decltype(&::ZdvfsClose) close = Exported<decltype(::ZdvfsClose)>("ZdvfsClose");
    decltype(&::ZdvfsPread) pread = Exported<decltype(::ZdvfsPread)>("ZdvfsPread");
    decltype(&::ZdvfsPwrite) pwrite = Exported<decltype(::ZdvfsPwrite)>("ZdvfsPwrite");
    decltype(&::ZdvfsStat) stat = Exported<decltype(::ZdvfsStat)>("ZdvfsStat");
    decltype(&::ZdvfsUnlink) unlink = Exported<decltype(::ZdvfsUnlink)>("ZdvfsUnlink");
    decltype(&::ZdvfsOpendir) opendir = Exported<decltype(::ZdvfsOpendir)>("ZdvfsOpendir");
    decltype(&::ZdvfsReaddir) readdir = Exported<decltype(::ZdvfsReaddir)>("ZdvfsReaddir");
    decltype(&::ZdvfsClosedir) closedir = Exported<decltype(::ZdvfsClosedir)>("ZdvfsClosedir");
    decltype(&::ZdvfsGetNTAclStr) descriptor = Exported<decltype(::ZdvfsGetNTAclStr)>("ZdvfsGetNTAclStr");
};

const Functions& Library() {
    static const Functions functions;
    return functions;
}

[[noreturn]] void Fail(const char* what, const std::string& path) {
    throw std::runtime_error(std::string(what) + " fails for " + path + ", errno " + std::to_string(errno));
}

class CFile {
public:
    CFile(const std::string& path, int flags, int mode) : m_descriptor(Library().open(path.c_str(), flags, mode)) {
        if (m_descriptor < 0) Fail("the storage's open", path);
    }
    ~CFile() { Library().close(m_descriptor); }
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;
    int Raw() const { return m_descriptor; }

private:
    int m_descriptor;
};

}  // namespace

void CStorage::Put(const std::string& path, const std::string& content) {
    constexpr int kArchive = 0x20;
    const CFile file(path, kZdvfsReadWrite | kZdvfsCreate | kZdvfsExclusive, kArchive);
    if (content.empty()) return;
    const auto written = Library().pwrite(file.Raw(), content.data(), content.size(), 0);
    if (written != static_cast<std::int64_t>(content.size())) Fail("the storage's write", path);
}

std::optional<std::int64_t> CStorage::SizeOf(const std::string& path) {
    ZdvfsStatRecord record{};
    if (Library().stat(path.c_str(), &record) != 0) return std::nullopt;
    return record.size;
}

std::string CStorage::Bytes(const std::string& path, std::int64_t at, std::int64_t length) {
    const CFile file(path, kZdvfsReadOnly, 0);
    std::string bytes(static_cast<std::size_t>(length), '\0');
    const std::int64_t count = Library().pread(file.Raw(), bytes.data(), bytes.size(), at);
    if (count < 0) Fail("the storage's read", path);
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

std::string CStorage::DescriptorOf(const std::string& path) {
    std::array<char, 16384> text{};
    if (Library().descriptor(path.c_str(), text.data(), static_cast<int>(text.size())) != 0) {
        Fail("reading the descriptor", path);
    }
    return text.data();
}

std::set<std::string> CStorage::Names(const std::string& directory) {
    ZdvfsDirectory* const stream = Library().opendir(directory.c_str());
    if (stream == nullptr) Fail("listing", directory);
    std::set<std::string> names;
    while (const ZdvfsDirectoryRecord* const record = Library().readdir(stream)) names.insert(record->name);
    Library().closedir(stream);
    names.erase(".");
    names.erase("..");
    return names;
}

void CStorage::Remove(const std::string& path) {
    if (Library().unlink(path.c_str()) != 0) Fail("removing", path);
}

}  // namespace zd::test
