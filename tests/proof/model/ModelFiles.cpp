// Files: their bytes, sizes and names.
#include <algorithm>

#include "harness/Pattern.h"
#include "Model.h"

namespace zd::test {

namespace {

constexpr std::int64_t kCreateNew = 2;
const std::vector<DWORD> kExists = {80, 183};
const std::vector<DWORD> kNotForThat = {5, 6};  // written through a handle that reads, or the other way round

bool Truncates(std::int64_t how) {
    return how == 0 || how == 4 || how == 5;
}

bool Creates(std::int64_t how) {
    return how != 1 && how != 4;
}

bool IsWriteOnlyName(const std::wstring& name) {
    return name.ends_with(L".edb");
}

bool Overlap(std::int64_t first, std::int64_t second, std::int64_t length) {
    return first < second + length && second < first + length;
}

bool IsInside(const std::wstring& name, const std::wstring& directory) {
    return name.starts_with(directory + L"\\");
}

}  // namespace

void CModel::Shrunk(const ModelObject& object, std::int64_t keep, const ModelHandle* by) {
    for (auto& [slot, handle] : m_handles) {
        if (handle.object.get() == &object && &handle != by && handle.Fragments() > keep) handle.stale = true;
    }
}

void CModel::TouchData(ModelObject& object) const {
    // The double's times stand still.
    if (m_setup.localEngine == 0) return;
    object.access.reset();
    object.write.reset();
}

Expected CModel::Plant(const Args& args) {
    const std::wstring& name = ModelNames()[static_cast<std::size_t>(args[0])];
    if (Find(name) != nullptr || !ParentFailure(name).empty()) return Skipped();
    const ModelPointer object = NewObject(name, false, FILE_ATTRIBUTE_ARCHIVE, 0);
    object->descriptor.clear();
    object->fragment = args[1];
    object->content = Pattern(static_cast<std::size_t>(args[2]), static_cast<std::uint32_t>(args[3]));
    Expected expected;
    expected.object = object;
    expected.to = object->Size();
    expected.changed = true;
    return expected;
}

Expected CModel::Open(const Args& args) {
    const std::wstring& name = ModelNames()[static_cast<std::size_t>(args[1])];
    const std::int64_t how = args[2];
    const bool writes = (args[3] & 0x6) != 0;
    // Whether a file may be emptied through a handle that only reads is the storage's affair.
    if (HandleOf(args[0]) != nullptr || name == L"\\" || (Truncates(how) && !writes)) return Skipped();
    if ((args[4] & FILE_ATTRIBUTE_REPARSE_POINT) != 0) return Fails({87});
    ModelPointer object = Find(name);
    const bool isNew = object == nullptr;
    if (isNew) {
        std::vector<DWORD> failure = ParentFailure(name);
        if (!failure.empty()) return Fails(std::move(failure));
        if (!Creates(how)) return Fails({2});
        object = NewObject(name, false, static_cast<std::uint64_t>(args[4]), args[5]);
    } else {
        if (how == kCreateNew) return Fails(kExists);
        if (object->directory) return Fails({5});
    }
    if (Truncates(how)) {
        Shrunk(*object, 1, nullptr);
        object->content.clear();
        TouchData(*object);
    }
    ModelHandle& handle = NewHandle(args[0], object);
    handle.writable = writes;
    handle.readable = !writes || !IsWriteOnlyName(name);
    handle.view = object->Size();
    handle.fragment = object->Fragments() > 1 ? object->fragment : std::max(object->Size(), ConfiguredFragment());
    Expected expected;
    expected.object = object;
    expected.size = object->Size();
    expected.action = std::array<DWORD, 6>{0, 1, 2, 1, 3, 3}[static_cast<std::size_t>(how)];
    expected.changed = isNew || Truncates(how);
    return expected;
}

ModelHandle* CModel::DataHandle(std::int64_t slot, Expected& expected) {
    ModelHandle* const handle = HandleOf(slot);
    expected = Skipped();
    if (handle == nullptr || handle->orphan) return nullptr;
    if (handle->object->directory) {
        expected = Fails({5});
    } else if (handle->removed) {
        expected = Fails({2});
    } else if (IsUsable(*handle)) {
        expected = Expected();
        expected.object = handle->object;
        return handle;
    }
    return nullptr;
}

Expected CModel::Read(const Args& args) {
    Expected expected;
    ModelHandle* const handle = DataHandle(args[0], expected);
    if (handle == nullptr) return expected;
    const std::int64_t at = args[1];
    if (args[2] == 0 || at / handle->fragment >= handle->Fragments()) return expected;
    if (!handle->readable) return Fails(kNotForThat);
    const std::int64_t end = std::min(at + args[2], Visible(*handle));
    if (at < end) {
        expected.data =
            handle->object->content.substr(static_cast<std::size_t>(at), static_cast<std::size_t>(end - at));
    }
    return expected;
}

// Whether a fragment would be added behind one that another handle has cut, which this handle takes for full.
bool CModel::AddsBehindACut(const ModelHandle& handle, std::int64_t index) {
    return index == handle.Fragments() && handle.view > handle.object->Size();
}

void CModel::PutBytes(ModelHandle& handle, std::int64_t at, const std::string& bytes) {
    ModelObject& object = *handle.object;
    const auto start = static_cast<std::size_t>(at);
    if (object.content.size() < start + bytes.size()) object.content.resize(start + bytes.size());
    object.content.replace(start, bytes.size(), bytes);
    object.fragment = handle.fragment;
    handle.view = std::max(handle.view, at + static_cast<std::int64_t>(bytes.size()));
    TouchData(object);
}

Expected CModel::Write(const Args& args) {
    Expected expected;
    ModelHandle* const handle = DataHandle(args[0], expected);
    if (handle == nullptr || args[2] == 0) return expected;
    const std::int64_t index = args[1] / handle->fragment;
    if (index > handle->Fragments()) return Fails({87});
    if (AddsBehindACut(*handle, index)) return Skipped();
    if (!handle->writable) return Fails(index == handle->Fragments() ? std::vector<DWORD>{5} : kNotForThat);
    expected.from = std::min(args[1], handle->object->Size());
    expected.to = args[1] + args[2];
    PutBytes(*handle, args[1], Pattern(static_cast<std::size_t>(args[2]), static_cast<std::uint32_t>(args[3])));
    expected.changed = true;
    return expected;
}

Expected CModel::Size(const Args& args) {
    Expected expected;
    ModelHandle* const handle = DataHandle(args[0], expected);
    if (handle == nullptr) return expected;
    if (!IsCurrent(*handle)) return Skipped();
    const std::int64_t size = args[1];
    if (size == handle->view) return expected;
    ModelObject& object = *handle->object;
    // A reader may be let set the size that another handle has given the file, which changes nothing.
    if (!handle->writable) return size == object.Size() ? Skipped() : Fails(kNotForThat);
    expected.from = std::min(object.Size(), size);
    expected.to = size;
    object.content.resize(static_cast<std::size_t>(size));
    object.fragment = handle->fragment;
    handle->view = size;
    Shrunk(object, object.Fragments(), handle);
    TouchData(object);
    expected.changed = true;
    return expected;
}

Expected CModel::Append(const Args& args) {
    Expected expected;
    Expected ofSource;
    ModelHandle* const target = DataHandle(args[0], expected);
    ModelHandle* const source = DataHandle(args[1], ofSource);
    if (target == nullptr || source == nullptr) {
        // A directory is refused before a removed file is.
        return expected.skipped || ofSource.skipped ? Skipped() : target == nullptr ? expected : ofSource;
    }
    const std::int64_t at = args[2];
    const std::int64_t from = args[3];
    const std::int64_t length = args[4];
    if (length == 0) return expected;
    if (from / source->fragment >= source->Fragments()) return Fails({87});
    if (!source->readable || from + length > Visible(*source)) return Skipped();
    if (target->object == source->object && Overlap(at, from, length)) return Skipped();
    const std::int64_t index = at / target->fragment;
    if (index > target->Fragments()) return Fails({87});
    if (AddsBehindACut(*target, index)) return Skipped();
    if (!target->writable) return Fails(index == target->Fragments() ? std::vector<DWORD>{5} : kNotForThat);
    expected.from = std::min(at, target->object->Size());
    expected.to = at + length;
    const std::string bytes =
        source->object->content.substr(static_cast<std::size_t>(from), static_cast<std::size_t>(length));
    PutBytes(*target, at, bytes);
    expected.changed = true;
    return expected;
}

void CModel::MoveTree(const std::wstring& from, const std::wstring& to) {
    std::map<std::wstring, ModelPointer> moved;
    for (auto& [name, object] : m_objects) {
        if (name == from || IsInside(name, from)) object->name = to + name.substr(from.size());
        moved[object->name] = object;
    }
    m_objects = std::move(moved);
}

Expected CModel::Replace(const ModelHandle& handle, const std::wstring& target) {
    const ModelPointer standing = Find(target);
    if (standing == nullptr) return {};
    if (standing->directory && HasChildren(target)) return Fails({183});
    Detach(standing, &handle);
    return {};
}

Expected CModel::Rename(const Args& args) {
    ModelHandle* const handle = HandleOf(args[0]);
    const std::wstring& target = ModelNames()[static_cast<std::size_t>(args[1])];
    if (handle == nullptr || handle->orphan || handle->object == m_root || target == L"\\") return Skipped();
    const std::wstring name = handle->object->name;
    Expected expected;
    expected.object = handle->object;
    if (handle->removed) return Fails({2});
    if (name == target) return expected;
    if (IsInside(target, name)) return Skipped();
    if (handle->object->directory ? HasOpenChildren(name) : !IsCurrent(*handle)) return Skipped();
    if (Find(target) != nullptr) {
        if (args[2] == 0) return Fails({183});
        expected = Replace(*handle, target);
        if (!expected.Succeeds()) return expected;
        expected.object = handle->object;
    }
    const std::vector<DWORD> failure = ParentFailure(target);
    if (!failure.empty()) return Fails(failure.front() == 267 ? failure : std::vector<DWORD>{2});
    MoveTree(name, target);
    expected.changed = true;
    return expected;
}

}  // namespace zd::test
