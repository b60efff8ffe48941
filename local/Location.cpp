#include "Location.h"

#include <algorithm>

#include "ErrorTable.h"
#include "MountTable.h"
#include "NameCodec.h"

namespace zd::engine {
namespace {

// The system's limit of a path that begins with \\?\, the terminator included.
constexpr std::size_t kMaximumPathUnits = 32767;

std::wstring Checked(std::wstring path) {
    if (path.size() >= kMaximumPathUnits) Fail(ERROR_FILENAME_EXCED_RANGE);
    return path;
}

}  // namespace

CLocation CLocation::Parent() const {
    CLocation parent = *this;
    parent.names.pop_back();
    return parent;
}

CLocation CLocation::Child(std::string name) const {
    CLocation child = *this;
    child.names.push_back(std::move(name));
    return child;
}

bool CLocation::Contains(const CLocation& other) const {
    return pool == other.pool && names.size() <= other.names.size() &&
           std::equal(names.begin(), names.end(), other.names.begin());
}

std::wstring CLocation::DataPath() const {
    // Without its backslash the root of a drive would be the drive's device.
    if (IsPlace()) return PoolsRoot() + L'\\';
    std::wstring path = pool->Directory();
    for (const std::string& name : names) path += L'\\' + WidenAscii(NameOnDisk(name));
    return Checked(std::move(path));
}

std::wstring CLocation::SidecarPath() const {
    if (IsPoolRoot()) return pool->RootSidecar();
    return Checked(Parent().DataPath() + L'\\' + WidenAscii(kSidecarPrefix + NameOnDisk(names.back())));
}

std::string CLocation::Display() const {
    if (IsPlace()) return "/";
    std::string text = "/" + pool->Name();
    for (const std::string& name : names) text += "/" + name;
    return text;
}

CLocation Resolve(const char* path) {
    if (!path) FailInvalid();
    std::vector<std::string> names;
    for (std::string_view rest = path; !rest.empty();) {
        const std::size_t slash = rest.find('/');
        const std::string_view name = rest.substr(0, slash);
        rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash + 1);
        if (name.empty() || name == ".") continue;
        if (name == "..") {
            // The first name is the pool, which a path never leaves again.
            if (names.size() > 1) names.pop_back();
            continue;
        }
        if (name.size() > kMaximumNameBytes) Fail(ERROR_FILENAME_EXCED_RANGE);
        names.emplace_back(name);
    }
    CLocation location;
    if (names.empty()) return location;
    location.pool = MountTable().Find(names.front());
    if (!location.pool) Fail(names.size() == 1 ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
    names.erase(names.begin());
    location.names = std::move(names);
    return location;
}

CLocation LocateFinalPath(const std::shared_ptr<CPool>& pool, HANDLE file) {
    std::wstring path(kMaximumPathUnits, L'\0');
    const DWORD length = ::GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()), 0);
    const std::wstring prefix = pool->FinalDirectory() + L'\\';
    if (length == 0 || length >= path.size()) Fail(ERROR_FILE_NOT_FOUND);
    path.resize(length);
    if (!path.starts_with(prefix)) Fail(ERROR_FILE_NOT_FOUND);
    CLocation location{pool, {}};
    for (std::string rest = Narrow(path).substr(Narrow(prefix).size()); !rest.empty();) {
        const std::size_t slash = rest.find('\\');
        std::optional<std::string> name = NameFromDisk(rest.substr(0, slash));
        if (!name) Fail(ERROR_FILE_NOT_FOUND);
        location.names.push_back(*std::move(name));
        rest.erase(0, slash == std::string::npos ? rest.size() : slash + 1);
    }
    return location;
}

}  // namespace zd::engine
