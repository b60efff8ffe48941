// Handles, directories, information and metadata.
#include "Model.h"

#include <algorithm>
#include <utility>

#include "harness/Security.h"

namespace zd::test {

namespace {

std::int64_t FragmentsOf(std::int64_t size, std::int64_t fragment) {
    return size == 0 ? 1 : (size - 1) / fragment + 1;
}

bool IsUnder(const std::wstring& name, const std::wstring& directory) {
    return name.size() > directory.size() && name.starts_with(directory) && name[directory.size()] == L'\\';
}

constexpr std::int64_t kTicks = 10000000;
constexpr std::int64_t kEpoch = 11644473600;

// As a FILETIME comes back: whole seconds, and the epoch as 0.
std::uint64_t Stored(std::int64_t fileTime) {
    const std::int64_t seconds = fileTime == 0 ? 0 : fileTime / kTicks - kEpoch;
    return seconds == 0 ? 0 : static_cast<std::uint64_t>((seconds + kEpoch) * kTicks);
}

}  // namespace

Expected Fails(std::vector<DWORD> codes) {
    Expected expected;
    expected.codes = std::move(codes);
    return expected;
}

Expected Skipped() {
    Expected expected;
    expected.skipped = true;
    return expected;
}

std::int64_t ModelObject::Fragments() const {
    return FragmentsOf(Size(), fragment);
}

std::int64_t ModelHandle::Fragments() const {
    return FragmentsOf(view, fragment);
}

CModel::CModel(const Setup& setup, std::string sid) : m_setup(setup), m_sid(std::move(sid)) {
    m_root = std::make_shared<ModelObject>();
    m_root->name = L"\\";
    m_root->directory = true;
}

ModelPointer CModel::Find(const std::wstring& name) const {
    if (name == L"\\") return m_root;
    const auto found = m_objects.find(name);
    return found == m_objects.end() ? nullptr : found->second;
}

bool CModel::IsUsable(const ModelHandle& handle) {
    const ModelObject& object = *handle.object;
    if (handle.orphan || handle.removed || handle.stale || object.directory) return false;
    const bool fits =
        handle.fragment == object.fragment || (object.Fragments() == 1 && object.Size() <= handle.fragment);
    return fits && handle.Fragments() <= FragmentsOf(object.Size(), handle.fragment);
}

bool CModel::IsCurrent(const ModelHandle& handle) {
    return IsUsable(handle) && handle.Fragments() == FragmentsOf(handle.object->Size(), handle.fragment);
}

std::int64_t CModel::Visible(const ModelHandle& handle) {
    return std::min(handle.object->Size(), handle.Fragments() * handle.fragment);
}

ModelHandle* CModel::HandleOf(std::int64_t slot) {
    const auto found = m_handles.find(slot);
    return found == m_handles.end() ? nullptr : &found->second;
}

const ModelHandle* CModel::HandleOf(std::int64_t slot) const {
    return const_cast<CModel*>(this)->HandleOf(slot);
}

std::vector<DWORD> CModel::ParentFailure(const std::wstring& name) const {
    const ModelPointer parent = Find(ParentOf(name));
    if (parent != nullptr) return parent->directory ? std::vector<DWORD>() : std::vector<DWORD>{267};
    const std::vector<DWORD> above = ParentFailure(ParentOf(name));
    return above.empty() ? std::vector<DWORD>{2, 3} : above;
}

bool CModel::HasChildren(const std::wstring& name) const {
    return std::any_of(m_objects.begin(), m_objects.end(), [&](const auto& at) { return IsUnder(at.first, name); });
}

bool CModel::HasOpenChildren(const std::wstring& name) const {
    return std::any_of(m_handles.begin(), m_handles.end(), [&](const auto& at) {
        return !at.second.orphan && !at.second.removed && IsUnder(at.second.object->name, name);
    });
}

ModelPointer CModel::NewObject(const std::wstring& name, bool directory, std::uint64_t attributes,
                               std::int64_t descriptor) {
    auto object = std::make_shared<ModelObject>();
    object->name = name;
    object->directory = directory;
    object->fragment = ConfiguredFragment();
    object->attributes = attributes & 0xFFFF;
    object->descriptor = descriptor == 0 ? "O:BAG:BAD:(A;;GA;;;BA)(A;;GA;;;SY)"
                                         : ModelDescriptors()[static_cast<std::size_t>(descriptor)];
    return m_objects[name] = object;
}

ModelHandle& CModel::NewHandle(std::int64_t slot, const ModelPointer& object) {
    ModelHandle& handle = m_handles[slot] = ModelHandle();
    handle.object = object;
    return handle;
}

void CModel::Detach(const ModelPointer& object, const ModelHandle* by) {
    for (auto& [slot, handle] : m_handles) {
        if (handle.object == object && &handle != by) handle.orphan = true;
    }
    m_objects.erase(object->name);
}

Expected CModel::Apply(const Step& step) {
    const Args& args = step.args;
    switch (step.op) {
        case EOp::kPlant:
            return Plant(args);
        case EOp::kOpen:
            return Open(args);
        case EOp::kOpenDir:
            return OpenDir(args);
        case EOp::kClose:
            return Close(args);
        case EOp::kRelease:
            return Release(args);
        case EOp::kRead:
            return Read(args);
        case EOp::kWrite:
            return Write(args);
        case EOp::kSize:
            return Size(args);
        case EOp::kAppend:
            return Append(args);
        case EOp::kRename:
            return Rename(args);
        case EOp::kInfo:
            return Info(args);
        case EOp::kPath:
            return Path(args);
        case EOp::kList:
            return List(args);
        case EOp::kBasic:
            return Basic(args);
        case EOp::kSetSecurity:
            return SetSecurity(args);
        case EOp::kGetSecurity:
            return GetSecurity(args);
        case EOp::kReconnect:
        case EOp::kRestart:
            return DropHandles();
        default:
            return {};
    }
}

Expected CModel::OpenDir(const Args& args) {
    const std::wstring& name = ModelNames()[static_cast<std::size_t>(args[1])];
    const ModelPointer existing = Find(name);
    if (HandleOf(args[0]) != nullptr || (existing == m_root && args[2] != 1)) return Skipped();
    const bool creates = args[2] == 2 || (args[2] == 3 && existing == nullptr);
    if (creates) {
        if (existing != nullptr) return Fails({183});
        std::vector<DWORD> failure = ParentFailure(name);
        // Only the errno decides here, and it does not tell a missing parent from a missing object.
        if (!failure.empty()) return Fails(failure.front() == 267 ? std::move(failure) : std::vector<DWORD>{2});
        NewObject(name, true, static_cast<std::uint64_t>(args[3]) | FILE_ATTRIBUTE_DIRECTORY, 0);
    } else if (existing == nullptr) {
        return Fails({3});
    } else if (!existing->directory) {
        return Fails({267});
    }
    Expected expected;
    expected.object = Find(name);
    expected.size = 0;
    expected.action = std::array<DWORD, 6>{0, 1, 2, 1, 3, 3}[static_cast<std::size_t>(args[2])];
    expected.changed = creates;
    ModelHandle& handle = NewHandle(args[0], expected.object);
    handle.streamOpen = handle.showsDots = true;
    for (const auto& [path, object] : m_objects) {
        if (ParentOf(path) != name) continue;
        for (std::int64_t i = 0; i < (object->directory ? 1 : object->Fragments()); ++i) {
            handle.listed.emplace_back(path, i);
        }
    }
    return expected;
}

Expected CModel::List(const Args& args) {
    ModelHandle* const handle = HandleOf(args[0]);
    if (handle == nullptr || handle->orphan) return Skipped();
    if (!handle->object->directory) return Fails({267});
    if (!handle->streamOpen) return Fails({6});
    if (handle->stale) return Skipped();
    Expected expected;
    expected.object = handle->object;
    if (std::exchange(handle->showsDots, false)) {
        expected.entries[L"."].directory = expected.entries[L".."].directory = true;
    }
    // A directory that was renamed is listed under its new name.
    for (const auto& [path, fragment] : std::exchange(handle->listed, {})) {
        const std::wstring now =
            (handle->object->name == L"\\" ? std::wstring() : handle->object->name) + L"\\" + LeafOf(path);
        const ModelPointer object = Find(now);
        if (object == nullptr || (object->directory ? fragment > 0 : fragment >= object->Fragments())) {
            // How far the stream was read depends on the order of its entries.
            handle->stale = true;
            return Fails({2});
        }
        ListedEntry& entry = expected.entries[LeafOf(path)];
        entry.directory = object->directory;
        entry.attributes = object->attributes;
        if (object->directory) continue;
        entry.size += std::min(object->fragment, object->Size() - fragment * object->fragment);
    }
    return expected;
}

Expected CModel::Close(const Args& args) {
    ModelHandle* const handle = HandleOf(args[0]);
    if (handle == nullptr) return Skipped();
    if (args[1] != 0 && !handle->removed) {
        const bool isWhole = handle->object->directory || IsCurrent(*handle);
        if (handle->orphan || handle->object == m_root || !isWhole) return Skipped();
    }
    handle->stale = false;
    handle->streamOpen = false;
    if (args[1] == 0) return {};
    return Remove(*handle);
}

Expected CModel::Remove(ModelHandle& handle) {
    if (handle.removed) return Fails({2});
    // The storage's "not empty" has no code of its own.
    if (handle.object->directory && HasChildren(handle.object->name)) return Fails({1117});
    handle.removed = true;
    Detach(handle.object, &handle);
    Expected expected;
    expected.changed = true;
    return expected;
}

Expected CModel::Release(const Args& args) {
    return m_handles.erase(args[0]) == 0 ? Skipped() : Expected();
}

Expected CModel::DropHandles() {
    m_handles.clear();
    return {};
}

Expected CModel::Info(const Args& args) const {
    const ModelHandle* const handle = HandleOf(args[0]);
    if (handle == nullptr || handle->orphan) return Skipped();
    if (handle->removed) return Fails({2});
    if (!handle->object->directory && !IsUsable(*handle)) return Skipped();
    Expected expected;
    expected.object = handle->object;
    expected.size = handle->object->directory ? 0 : Visible(*handle);
    return expected;
}

Expected CModel::Path(const Args& args) const {
    const ModelPointer object = Find(ModelNames()[static_cast<std::size_t>(args[0])]);
    if (object == nullptr) return Fails({2});
    Expected expected;
    expected.object = object;
    expected.size = object->Size();
    return expected;
}

Expected CModel::Basic(const Args& args) {
    ModelHandle* const handle = HandleOf(args[0]);
    if (handle == nullptr || handle->orphan || handle->object == m_root) return Skipped();
    const auto attributes = static_cast<std::uint64_t>(args[1]);
    if (handle->removed) return Fails({2});
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return Fails({87});
    ModelObject& object = *handle->object;
    if (attributes != 0) object.attributes = (attributes & 0xFFFF) | (object.directory ? FILE_ATTRIBUTE_DIRECTORY : 0U);
    if (args[2] != 0 || args[3] != 0) {
        object.access = Stored(args[2]);
        object.write = Stored(args[3]);
    }
    Expected expected;
    expected.object = handle->object;
    expected.size = object.Size();
    expected.changed = true;
    return expected;
}

Expected CModel::SetSecurity(const Args& args) {
    ModelHandle* const handle = HandleOf(args[0]);
    if (handle == nullptr || handle->orphan || handle->stale || handle->object == m_root) return Skipped();
    if (handle->removed) return Fails({2});
    handle->object->descriptor = ModelDescriptors()[static_cast<std::size_t>(args[1])];
    Expected expected;
    expected.object = handle->object;
    expected.changed = true;
    return expected;
}

Expected CModel::GetSecurity(const Args& args) {
    ModelHandle* const handle = HandleOf(args[0]);
    if (handle == nullptr || handle->orphan || handle->stale) return Skipped();
    if (handle->removed) return Fails({2});
    std::string& text = handle->object->descriptor;
    if (text.empty()) text = "O:" + m_sid + "G:" + m_sid + "D:(A;;0xffff;;;" + m_sid + ")";
    Expected expected;
    expected.object = handle->object;
    expected.descriptor = SddlOf(CDescriptor(text).Raw());
    return expected;
}

}  // namespace zd::test
